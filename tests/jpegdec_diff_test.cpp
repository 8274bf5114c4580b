// Differential test of the decoder core: for every file of a corpus made at
// test time with cjpeg/jpegtran, the component planes our inverse DCT writes
// at full scale equal TurboJPEG's raw YUV planes (accurate DCT) byte for byte
// over the visible area.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/jpegdec_util.h"
#include "support/testutil.h"

namespace {

struct Case {
  std::string name;
  int width;
  int height;
  int channels;
  std::string args;
  std::string scans;         // scan script for @SCANS@
  std::string jpegtranArgs;  // optional second step
  bool general = false;      // force the general single-scan controller
};

// Successive approximation down to Al 0 for every coefficient.
const char* kScans3 =
    "0,1,2: 0-0, 0, 1 ;\n"
    "0: 1-5, 0, 2 ;\n"
    "2: 1-63, 0, 1 ;\n"
    "1: 1-63, 0, 1 ;\n"
    "0: 6-63, 0, 2 ;\n"
    "0: 1-63, 2, 1 ;\n"
    "0,1,2: 0-0, 1, 0 ;\n"
    "2: 1-63, 1, 0 ;\n"
    "1: 1-63, 1, 0 ;\n"
    "0: 1-63, 1, 0 ;\n";
const char* kScans1 =
    "0: 0-0, 0, 2 ;\n"
    "0: 1-9, 0, 3 ;\n"
    "0: 10-63, 0, 1 ;\n"
    "0: 1-9, 3, 2 ;\n"
    "0: 0-0, 2, 1 ;\n"
    "0: 1-9, 2, 1 ;\n"
    "0: 0-0, 1, 0 ;\n"
    "0: 10-63, 1, 0 ;\n"
    "0: 1-9, 1, 0 ;\n";
// Sequential, several scans (multi-scan controllers, dequantised while decoding).
const char* kSeq3 = "0: 0-63, 0, 0 ;\n1,2: 0-63, 0, 0 ;\n";
const char* kSeq3Separate = "2: 0-63, 0, 0 ;\n0: 0-63, 0, 0 ;\n1: 0-63, 0, 0 ;\n";

std::vector<Case> Corpus() {
  std::vector<Case> cases;
  struct Size {
    int w, h;
  };
  const Size sizes[] = {{1, 1}, {7, 9}, {17, 9}, {101, 75}};
  const struct {
    const char* name;
    const char* args;
    int channels;
  } samplings[] = {{"444", "-sample 1x1", 3}, {"422", "-sample 2x1", 3}, {"420", "-sample 2x2", 3},
                   {"411", "-sample 4x1", 3}, {"440", "-sample 1x2", 3}, {"grey", "-grayscale", 1}};
  for (const Size& s : sizes) {
    for (const auto& smp : samplings) {
      const std::string base = std::to_string(s.w) + "x" + std::to_string(s.h) + "_" + smp.name;
      cases.push_back({base + "_baseline_q75", s.w, s.h, smp.channels,
                       std::string("-baseline -quality 75 ") + smp.args, "", ""});
      cases.push_back({base + "_progressive_q80", s.w, s.h, smp.channels,
                       std::string("-progressive -quality 80 ") + smp.args, "", ""});
    }
  }
  // Qualities 1..100, with 16-bit quantisation tables (SOF1) at low quality.
  for (int q : {1, 5, 10, 25, 50, 90, 95, 100}) {
    cases.push_back({"101x75_420_extended_q" + std::to_string(q), 101, 75, 3,
                     "-quality " + std::to_string(q) + " -sample 2x2", "", ""});
  }
  cases.push_back({"101x75_420_baseline_q1", 101, 75, 3, "-baseline -quality 1 -sample 2x2", "", ""});
  cases.push_back({"101x75_grey_extended_q2", 101, 75, 1, "-quality 2 -grayscale", "", ""});
  cases.push_back(
      {"101x75_444_extended_q3_progressive", 101, 75, 3, "-quality 3 -sample 1x1 -progressive", "", ""});
  // Restart intervals in MCUs and in MCU rows.
  for (const char* r : {"1", "3", "7", "1B", "2B"}) {
    cases.push_back({std::string("101x75_420_restart") + r, 101, 75, 3,
                     std::string("-quality 85 -sample 2x2 -restart ") + r, "", ""});
  }
  cases.push_back({"101x75_grey_restart5", 101, 75, 1, "-grayscale -restart 5", "", ""});
  cases.push_back({"101x75_411_restart2", 101, 75, 3, "-sample 4x1 -restart 2", "", ""});
  cases.push_back(
      {"101x75_420_progressive_restart2", 101, 75, 3, "-progressive -sample 2x2 -restart 2", "", ""});
  cases.push_back(
      {"101x75_420_progressive_restart1B", 101, 75, 3, "-progressive -sample 2x2 -restart 1B", "", ""});
  // Optimised Huffman tables.
  cases.push_back({"101x75_420_optimize", 101, 75, 3, "-optimize -sample 2x2", "", ""});
  cases.push_back({"101x75_422_optimize_q95", 101, 75, 3, "-optimize -quality 95 -sample 2x1", "", ""});
  cases.push_back({"101x75_grey_optimize", 101, 75, 1, "-optimize -grayscale", "", ""});
  // Custom progressive scripts with refinement to Al 0 everywhere.
  for (const auto& smp : samplings) {
    if (smp.channels != 3) continue;
    cases.push_back({std::string("101x75_") + smp.name + "_scans", 101, 75, 3,
                     std::string("-scans @SCANS@ ") + smp.args, kScans3, ""});
  }
  cases.push_back({"17x9_420_scans", 17, 9, 3, "-scans @SCANS@ -sample 2x2", kScans3, ""});
  cases.push_back({"101x75_grey_scans", 101, 75, 1, "-grayscale -scans @SCANS@", kScans1, ""});
  cases.push_back(
      {"101x75_420_scans_restart3", 101, 75, 3, "-scans @SCANS@ -sample 2x2 -restart 3", kScans3, ""});
  // Sequential images with several scans.
  cases.push_back({"101x75_420_seqscans", 101, 75, 3, "-scans @SCANS@ -sample 2x2", kSeq3, ""});
  cases.push_back({"101x75_444_seqscans_separate", 101, 75, 3, "-scans @SCANS@ -sample 1x1 -quality 2",
                   kSeq3Separate, ""});
  cases.push_back(
      {"17x9_411_seqscans_restart1", 17, 9, 3, "-scans @SCANS@ -sample 4x1 -restart 1", kSeq3Separate, ""});
  // Through jpegtran.
  cases.push_back(
      {"101x75_420_jpegtran_progressive", 101, 75, 3, "-sample 2x2", "", "-progressive -optimize"});
  cases.push_back({"101x75_422_jpegtran_restart", 101, 75, 3, "-sample 2x1", "", "-restart 4"});
  // The general single-scan controller on layouts that have a specialised one.
  for (const auto& smp : samplings) {
    if (smp.channels != 3 || std::string(smp.name) == "411" || std::string(smp.name) == "440") continue;
    Case c{std::string("101x75_") + smp.name + "_general", 101, 75, 3,
           std::string("-restart 3 ") + smp.args,          "",  ""};
    c.general = true;
    cases.push_back(c);
  }
  // Two big ones.
  cases.push_back({"1000x600_420_baseline_q85", 1000, 600, 3, "-baseline -quality 85 -sample 2x2", "", ""});
  cases.push_back({"1000x600_422_progressive_q90", 1000, 600, 3,
                   "-progressive -quality 90 -sample 2x1 -restart 9", "", ""});
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class DecoderDiff : public testing::TestWithParam<Case> {};

TEST_P(DecoderDiff, PlanesMatchPeer) {
  const Case& c = GetParam();
  if (!keltest::HaveTool("cjpeg") || !keltest::HaveTool("jpegtran")) GTEST_SKIP() << "no cjpeg/jpegtran";
  keltest::Bytes jpeg =
      keltest::MakeJpeg(c.width, c.height, c.channels, 7u + c.width, c.args, c.scans, c.jpegtranArgs);
  ASSERT_FALSE(jpeg.empty()) << "corpus file not made: cjpeg " << c.args;
  std::vector<keltest::ComponentPlane> peer;
  std::string why;
  if (!keltest::PeerPlanes(jpeg, &peer, &why)) GTEST_SKIP() << "peer: " << why;
  std::vector<keltest::ComponentPlane> ours = keltest::DecodePlanes(jpeg, 8, !c.general);
  ASSERT_EQ(ours.size(), peer.size());
  for (size_t i = 0; i < ours.size(); ++i) {
    ASSERT_EQ(ours[i].width, peer[i].width) << "component " << i;
    ASSERT_EQ(ours[i].height, peer[i].height) << "component " << i;
    size_t mismatches = 0, first = 0;
    for (size_t k = 0; k < ours[i].samples.size(); ++k) {
      if (ours[i].samples[k] != peer[i].samples[k] && mismatches++ == 0) first = k;
    }
    EXPECT_EQ(mismatches, 0u) << "component " << i << ": first at x=" << first % ours[i].width
                              << " y=" << first / ours[i].width << " ours " << int(ours[i].samples[first])
                              << " peer " << int(peer[i].samples[first]);
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DecoderDiff, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

}  // namespace
