// Differential tests of the decoder over a corpus made at test time with
// cjpeg/jpegtran. The component planes our inverse DCT writes at full scale
// equal TurboJPEG's raw planes (accurate DCT) byte for byte over the visible
// area. DecodeJPG (memory, byte-stream and file-stream forms) gives the
// peer's RGB (accurate DCT, chroma repeated) plus the alpha byte, and
// jpdyuv::DecodeJPG gives the peer's YCbCr planes on the direct path or the
// per-pixel conversion of those pixels otherwise, packed and as I420.
#include <gtest/gtest.h>

#include <cstdio>

#include "kau/kau.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

constexpr unsigned kAlpha = 0x5A;

struct Case {
  int width, height;
  std::string args;
  std::string scans = "";         // scan script for @SCANS@
  std::string jpegtranArgs = "";  // optional second step
  bool general = false;           // force the general single-scan controller
  std::vector<int> ids = {};      // when set: APPn dropped, these component ids
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
  for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {7, 9}, {17, 9}, {101, 75}})
    for (std::string s : kSamplings)
      for (const char* mode : {"-baseline ", "-progressive -quality 80 ", "-restart 2 "})
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
  // RGB without colour transform: Adobe transform 0, and bare 'R','G','B' ids.
  for (auto [w, h] : {std::pair{17, 9}, {101, 75}}) {
    for (const char* args : {"-rgb", "-rgb -progressive -sample 2x2"}) cases.push_back({w, h, args});
    for (const char* args : {"-rgb", "-rgb -progressive"})
      cases.push_back({w, h, args, "", "", false, {'R', 'G', 'B'}});
  }
  const Case more[] = {
      {101, 75, "-baseline -quality 1 -sample 2x2"},
      {101, 75, "-quality 2 -grayscale"},
      {101, 75, "-quality 3 -sample 1x1 -progressive"},
      {101, 75, "-grayscale -restart 5"},
      {101, 75, "-progressive -sample 2x2 -restart 2"},
      {101, 75, "-progressive -sample 2x2 -restart 1B"},
      {101, 75, "-optimize -sample 2x2"},
      {101, 75, "-optimize -quality 95 -sample 2x1"},
      {101, 75, "-optimize -grayscale"},
      {17, 9, "-scans @SCANS@ -sample 2x2", kScans3},
      {101, 75, "-grayscale -scans @SCANS@", kScans1},
      {101, 75, "-scans @SCANS@ -sample 2x2 -restart 3", kScans3},
      {101, 75, "-scans @SCANS@ -sample 2x2", kSeq3, "", false, {}, "seqscans"},
      {101, 75, "-scans @SCANS@ -sample 1x1 -quality 2", kSeq3Separate, "", false, {}, "seqscans"},
      {17, 9, "-scans @SCANS@ -sample 4x1 -restart 1", kSeq3Separate, "", false, {}, "seqscans"},
      {101, 75, "-sample 2x2", "", "-progressive -optimize"},
      {101, 75, "-sample 2x1", "", "-restart 4"},
      // The general single-scan controller on layouts that have a specialised one.
      {101, 75, "-restart 3 -sample 1x1", "", "", true},
      {101, 75, "-restart 3 -sample 2x1", "", "", true},
      {101, 75, "-restart 3 -sample 2x2", "", "", true},
      {101, 75, "-restart 3 -grayscale", "", "", true},
      {1000, 600, "-baseline -quality 85 -sample 2x2"},
      {1000, 600, "-progressive -quality 90 -sample 2x1 -restart 9"},
      {101, 75, "-sample 2x2", "", "", false, {1, 2, 3}},  // ids 1, 2, 3 without JFIF: still YCbCr
      {4095, 3, "-sample 2x2"},
      {3, 4097, "-progressive -sample 2x1"},
  };
  cases.insert(cases.end(), std::begin(more), std::end(more));
  for (Case& c : cases) {
    std::string ids = c.ids.empty() ? "" : " ids";
    for (int id : c.ids) ids += " " + std::to_string(id);
    c.name = keltest::Slug(std::to_string(c.width) + "x" + std::to_string(c.height) + c.args + " " + c.name +
                           " " + c.jpegtranArgs + (c.general ? " general" : "") + ids);
  }
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class DecoderDiff : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    const Case& c = GetParam();
    KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg") && keltest::HaveTool("jpegtran"), "cjpeg/jpegtran");
    const int channels = c.args.find("-grayscale") != std::string::npos ? 1 : 3;
    jpeg = keltest::MakeJpeg(c.width, c.height, channels, 7u + c.width, c.args, c.scans, c.jpegtranArgs);
    ASSERT_FALSE(jpeg.empty());
    if (!c.ids.empty()) jpeg = keltest::RewriteMarkers(jpeg, c.ids);
  }
  Bytes jpeg;
};

TEST_P(DecoderDiff, PlanesMatchPeer) {
  std::vector<keltest::ComponentPlane> peer;
  std::string why;
  KEL_REQUIRE_PEER(keltest::PeerPlanes(jpeg, &peer, &why), "TurboJPEG: " + why);
  const auto ours = keltest::DecodePlanes(jpeg, 8, !GetParam().general);
  ASSERT_EQ(ours.size(), peer.size());
  for (size_t i = 0; i < ours.size(); ++i) {
    ASSERT_EQ(ours[i].width, peer[i].width);
    ASSERT_EQ(ours[i].height, peer[i].height);
    EXPECT_TRUE(ours[i].samples == peer[i].samples) << "component " << i;
  }
}

struct Picture {
  STImageSimple image{};
  ~Picture() { kau::mem::Delete(image.data); }
  Bytes Data(size_t n) const { return image.data == nullptr ? Bytes() : Bytes(image.data, image.data + n); }
  // A packed picture of `bytes` per pixel holding `expected`.
  void Expect(int width, int height, int bytes, const Bytes& expected) const {
    ASSERT_EQ(image.width, static_cast<uint32_t>(width));
    ASSERT_EQ(image.height, static_cast<uint32_t>(height));
    EXPECT_EQ(image.stride, image.width * bytes);
    EXPECT_EQ(image.bitsPerPixel, 8 * bytes);
    EXPECT_TRUE(Data(expected.size()) == expected);
  }
};

// DecodeJPG through a stream made from `rec`.
Bytes FromStream(MMAttri* rec, size_t n) {
  MMStream* s = MMStreamNew(rec, 1);
  EXPECT_EQ(MMStreamReady(s), 1);
  Picture p;
  EXPECT_EQ(DecodeJPG(s, kAlpha, &p.image, 0, 0), 1);
  MMStreamDelete(&s);
  return p.Data(n);
}

TEST_P(DecoderDiff, EntryPointsMatchPeer) {
  const Case& c = GetParam();
  Bytes rgb;
  int pw = 0, ph = 0;
  std::string why;
  KEL_REQUIRE_PEER(keltest::PeerRgb(jpeg, &rgb, &pw, &ph, &why), "TurboJPEG: " + why);
  const size_t pixels = static_cast<size_t>(pw) * ph;

  // DecodeJPG: memory, byte-stream and file-stream forms.
  Bytes expected(pixels * 4, kAlpha);
  for (size_t i = 0; i < pixels; ++i) std::copy_n(&rgb[3 * i], 3, &expected[4 * i]);
  Picture ours;
  ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), kAlpha, &ours.image, 0, 0), 1);
  ours.Expect(pw, ph, 4, expected);
  Bytes copy = jpeg;
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, copy.data(), static_cast<int>(copy.size()));
  EXPECT_TRUE(FromStream(&rec, expected.size()) == expected);
  const std::string path = keltest::TempPath(c.name + ".jpg");
  keltest::WriteFile(path, jpeg);
  MMAttriFromString(&rec, mmIdFileName, path.c_str());
  EXPECT_TRUE(FromStream(&rec, expected.size()) == expected);
  std::remove(path.c_str());

  // jpdyuv, packed: YCbCr 4:4:4 and 4:2:2 straight from the planes.
  const bool direct = c.ids.empty() &&
                      (c.args.find("2x1") != std::string::npos ||
                       (c.args.find("1x1") != std::string::npos && c.args.find("-rgb") == std::string::npos));
  Bytes yuv(pixels * 3);
  if (direct) {
    std::vector<keltest::ComponentPlane> planes;
    ASSERT_TRUE(keltest::PeerPlanes(jpeg, &planes, &why)) << why;
    const int hmax = (planes[0].width + planes[1].width - 1) / planes[1].width;
    for (size_t i = 0; i < pixels; ++i) {
      yuv[3 * i] = planes[0].samples[i];
      for (int k = 1; k < 3; ++k)
        yuv[3 * i + k] = planes[k].samples[i / pw * planes[k].width + i % pw / hmax];
    }
  } else {
    for (size_t i = 0; i < pixels; ++i)
      kiu::ConvertRGBtoYUV(rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2], yuv[3 * i], yuv[3 * i + 1],
                           yuv[3 * i + 2]);
  }
  Picture packed;
  ASSERT_EQ(jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &packed.image, false), 1);
  packed.Expect(pw, ph, 3, yuv);

  // jpdyuv, planar: even crop, chroma the rounded 2x2 average.
  const int w = pw & ~1, h = ph & ~1;
  Bytes i420(static_cast<size_t>(w) * h * 3 / 2);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) i420[y * w + x] = yuv[3 * (static_cast<size_t>(y) * pw + x)];
  for (int k = 1; k < 3; ++k) {
    uint8_t* plane = i420.data() + w * h + (k - 1) * (w * h / 4);
    for (int y = 0; y < h; y += 2)
      for (int x = 0; x < w; x += 2) {
        const auto at = [&](int dx, int dy) {
          return yuv[3 * (static_cast<size_t>(y + dy) * pw + x + dx) + k];
        };
        plane[y / 2 * (w / 2) + x / 2] =
            static_cast<uint8_t>((at(0, 0) + at(1, 0) + at(0, 1) + at(1, 1) + 2) / 4);
      }
  }
  Picture planar;
  planar.image.stride = 12345;
  ASSERT_EQ(jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &planar.image, true), 1);
  EXPECT_EQ(planar.image.width, static_cast<uint32_t>(w));
  EXPECT_EQ(planar.image.height, static_cast<uint32_t>(h));
  EXPECT_EQ(planar.image.size, i420.size());
  EXPECT_EQ(planar.image.stride, 12345u);  // not written by the planar form
  EXPECT_TRUE(planar.Data(i420.size()) == i420);
}

INSTANTIATE_TEST_SUITE_P(Corpus, DecoderDiff, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

}  // namespace
