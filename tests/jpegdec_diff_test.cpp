// Differential test of the decoder core: for every file of a corpus made at
// test time with cjpeg/jpegtran, the component planes our inverse DCT writes
// at full scale equal TurboJPEG's raw YUV planes (accurate DCT) byte for byte
// over the visible area.
#include <gtest/gtest.h>

#include "support/testutil.h"

namespace {

struct Case {
  int width, height;
  std::string args;
  std::string scans = "";         // scan script for @SCANS@
  std::string jpegtranArgs = "";  // optional second step
  bool general = false;           // force the general single-scan controller
  std::string name = "";
};

// Successive approximation down to Al 0 for every coefficient.
const char* kScans3 =
    "0,1,2: 0-0, 0, 1 ;\n0: 1-5, 0, 2 ;\n2: 1-63, 0, 1 ;\n1: 1-63, 0, 1 ;\n0: 6-63, 0, 2 ;\n"
    "0: 1-63, 2, 1 ;\n0,1,2: 0-0, 1, 0 ;\n2: 1-63, 1, 0 ;\n1: 1-63, 1, 0 ;\n0: 1-63, 1, 0 ;\n";
const char* kScans1 =
    "0: 0-0, 0, 2 ;\n0: 1-9, 0, 3 ;\n0: 10-63, 0, 1 ;\n0: 1-9, 3, 2 ;\n0: 0-0, 2, 1 ;\n"
    "0: 1-9, 2, 1 ;\n0: 0-0, 1, 0 ;\n0: 10-63, 1, 0 ;\n0: 1-9, 1, 0 ;\n";
// Sequential, several scans (multi-scan controllers, dequantised while decoding).
const char* kSeq3 = "0: 0-63, 0, 0 ;\n1,2: 0-63, 0, 0 ;\n";
const char* kSeq3Separate = "2: 0-63, 0, 0 ;\n0: 0-63, 0, 0 ;\n1: 0-63, 0, 0 ;\n";
const char* kSamplings[] = {"-sample 1x1", "-sample 2x1", "-sample 2x2",
                            "-sample 4x1", "-sample 1x2", "-grayscale"};

std::vector<Case> Corpus() {
  std::vector<Case> cases;
  for (auto [w, h] : {std::pair{1, 1}, {7, 9}, {17, 9}, {101, 75}})
    for (std::string s : kSamplings)
      for (const char* mode : {"-baseline -quality 75 ", "-progressive -quality 80 "})
        cases.push_back({w, h, mode + s});
  // Qualities 1..100, with 16-bit quantisation tables (SOF1) at low quality.
  for (int q : {1, 5, 10, 25, 50, 90, 95, 100})
    cases.push_back({101, 75, "-sample 2x2 -quality " + std::to_string(q)});
  // Restart intervals in MCUs and in MCU rows.
  for (const char* r : {"1", "3", "7", "1B", "2B"})
    cases.push_back({101, 75, std::string("-sample 2x2 -restart ") + r});
  // Custom progressive scripts with refinement to Al 0 everywhere.
  for (std::string s : kSamplings)
    if (s != "-grayscale") cases.push_back({101, 75, "-scans @SCANS@ " + s, kScans3});
  const Case more[] = {
      {101, 75, "-baseline -quality 1 -sample 2x2"},
      {101, 75, "-quality 2 -grayscale"},
      {101, 75, "-quality 3 -sample 1x1 -progressive"},
      {101, 75, "-grayscale -restart 5"},
      {101, 75, "-sample 4x1 -restart 2"},
      {101, 75, "-progressive -sample 2x2 -restart 2"},
      {101, 75, "-progressive -sample 2x2 -restart 1B"},
      {101, 75, "-optimize -sample 2x2"},
      {101, 75, "-optimize -quality 95 -sample 2x1"},
      {101, 75, "-optimize -grayscale"},
      {17, 9, "-scans @SCANS@ -sample 2x2", kScans3},
      {101, 75, "-grayscale -scans @SCANS@", kScans1},
      {101, 75, "-scans @SCANS@ -sample 2x2 -restart 3", kScans3},
      {101, 75, "-scans @SCANS@ -sample 2x2", kSeq3, "", false, "seqscans"},
      {101, 75, "-scans @SCANS@ -sample 1x1 -quality 2", kSeq3Separate, "", false, "seqscans"},
      {17, 9, "-scans @SCANS@ -sample 4x1 -restart 1", kSeq3Separate, "", false, "seqscans"},
      {101, 75, "-sample 2x2", "", "-progressive -optimize"},
      {101, 75, "-sample 2x1", "", "-restart 4"},
      // The general single-scan controller on layouts that have a specialised one.
      {101, 75, "-restart 3 -sample 1x1", "", "", true},
      {101, 75, "-restart 3 -sample 2x1", "", "", true},
      {101, 75, "-restart 3 -sample 2x2", "", "", true},
      {101, 75, "-restart 3 -grayscale", "", "", true},
      {1000, 600, "-baseline -quality 85 -sample 2x2"},
      {1000, 600, "-progressive -quality 90 -sample 2x1 -restart 9"},
  };
  cases.insert(cases.end(), std::begin(more), std::end(more));
  for (Case& c : cases)
    c.name = keltest::Slug(std::to_string(c.width) + "x" + std::to_string(c.height) + c.args + " " + c.name +
                           " " + c.jpegtranArgs + (c.general ? " general" : ""));
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class DecoderDiff : public testing::TestWithParam<Case> {};

TEST_P(DecoderDiff, PlanesMatchPeer) {
  const Case& c = GetParam();
  if (!keltest::HaveTool("cjpeg") || !keltest::HaveTool("jpegtran")) GTEST_SKIP() << "no cjpeg/jpegtran";
  const int channels = c.args.find("-grayscale") != std::string::npos ? 1 : 3;
  const keltest::Bytes jpeg =
      keltest::MakeJpeg(c.width, c.height, channels, 7u + c.width, c.args, c.scans, c.jpegtranArgs);
  ASSERT_FALSE(jpeg.empty());
  std::vector<keltest::ComponentPlane> peer;
  std::string why;
  if (!keltest::PeerPlanes(jpeg, &peer, &why)) GTEST_SKIP() << "peer: " << why;
  const auto ours = keltest::DecodePlanes(jpeg, 8, !c.general);
  ASSERT_EQ(ours.size(), peer.size());
  for (size_t i = 0; i < ours.size(); ++i) {
    ASSERT_EQ(ours[i].width, peer[i].width);
    ASSERT_EQ(ours[i].height, peer[i].height);
    EXPECT_TRUE(ours[i].samples == peer[i].samples) << "component " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DecoderDiff, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

}  // namespace
