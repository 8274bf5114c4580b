// Differential test of the pixel output: for every file of a corpus made at
// test time, DecodeJPG (memory, byte-stream and file-stream forms) gives the
// peer's RGB (accurate DCT, chroma repeated) plus the alpha byte, and
// jpdyuv::DecodeJPG gives the peer's YCbCr planes on the direct path or the
// per-pixel conversion of those pixels otherwise, packed and as I420.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "support/jpegdec_util.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

constexpr unsigned kAlpha = 0x5A;

struct Case {
  std::string name;
  int width;
  int height;
  int channels;
  std::string args;
  std::string scans = "";
  bool rgbIds = false;  // drop APPn, ids 'R', 'G', 'B'
  bool direct = false;  // YCbCr 4:4:4 or 4:2:2: YUV straight from the planes
};

const char* kSeq3 = "0: 0-63, 0, 0 ;\n1,2: 0-63, 0, 0 ;\n";

std::vector<Case> Corpus() {
  std::vector<Case> cases;
  const struct { int w, h; } sizes[] = {{1, 1}, {2, 2}, {7, 9}, {17, 9}, {101, 75}};
  const struct {
    const char* name;
    const char* args;
    int channels;
    bool direct;
  } samplings[] = {{"444", "-sample 1x1", 3, true},  {"422", "-sample 2x1", 3, true},
                   {"420", "-sample 2x2", 3, false}, {"411", "-sample 4x1", 3, false},
                   {"440", "-sample 1x2", 3, false}, {"grey", "-grayscale", 1, false}};
  const struct {
    const char* name;
    const char* args;
  } modes[] = {{"baseline", "-baseline"}, {"progressive", "-progressive"}, {"restart", "-restart 2"}};
  for (const auto& s : sizes) {
    for (const auto& smp : samplings) {
      for (const auto& m : modes) {
        Case c{std::to_string(s.w) + "x" + std::to_string(s.h) + "_" + smp.name + "_" + m.name, s.w, s.h,
               smp.channels, std::string(m.args) + " " + smp.args};
        c.direct = smp.direct;
        cases.push_back(c);
      }
    }
  }
  cases.push_back({"101x75_420_seqscans", 101, 75, 3, "-scans @SCANS@ -sample 2x2", kSeq3});
  // RGB without colour transform: Adobe transform 0, and bare 'R','G','B' ids.
  for (const char* size : {"17x9", "101x75"}) {
    const int w = size[0] == '1' && size[1] == '7' ? 17 : 101, h = w == 17 ? 9 : 75;
    cases.push_back({std::string(size) + "_rgb_adobe", w, h, 3, "-rgb"});
    cases.push_back(
        {std::string(size) + "_rgb_adobe_progressive_420", w, h, 3, "-rgb -progressive -sample 2x2"});
    cases.push_back({std::string(size) + "_rgb_ids", w, h, 3, "-rgb", "", true});
    cases.push_back({std::string(size) + "_rgb_ids_progressive", w, h, 3, "-rgb -progressive", "", true});
  }
  // Ids 1, 2, 3 without JFIF: still YCbCr.
  cases.push_back({"101x75_420_no_app_ids123", 101, 75, 3, "-sample 2x2", "", false});
  cases.back().rgbIds = false;
  // Long thin ones.
  cases.push_back({"4095x3_420_baseline", 4095, 3, 3, "-sample 2x2"});
  cases.push_back({"3x4097_422_progressive", 3, 4097, 3, "-progressive -sample 2x1"});
  cases.back().direct = true;
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// Counts differing bytes of `a` against `b` and describes the first one.
size_t Mismatches(const uint8_t* a, const uint8_t* b, size_t n, std::string* first) {
  size_t count = 0;
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != b[i] && count++ == 0)
      *first = "at " + std::to_string(i) + ": " + std::to_string(a[i]) + " vs " + std::to_string(b[i]);
  }
  return count;
}

struct Picture {
  STImageSimple image{};
  ~Picture() { kau::mem::Delete(image.data); }
  Bytes Data(size_t n) const { return Bytes(image.data, image.data + n); }
};

class OutputDiff : public testing::TestWithParam<Case> {};

TEST_P(OutputDiff, EntryPointsMatchPeer) {
  const Case& c = GetParam();
  if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg";
  Bytes jpeg = keltest::MakeJpeg(c.width, c.height, c.channels, 11u + c.width, c.args, c.scans);
  ASSERT_FALSE(jpeg.empty()) << "corpus file not made: cjpeg " << c.args;
  if (c.rgbIds) jpeg = keltest::RewriteMarkers(jpeg, {'R', 'G', 'B'});
  if (c.name.find("no_app") != std::string::npos) jpeg = keltest::RewriteMarkers(jpeg, {1, 2, 3});
  Bytes rgb;
  int pw = 0, ph = 0;
  std::string why;
  if (!keltest::PeerRgb(jpeg, &rgb, &pw, &ph, &why)) GTEST_SKIP() << "peer: " << why;
  const size_t pixels = static_cast<size_t>(pw) * ph;
  std::string first;

  // DecodeJPG, memory form.
  Picture ours;
  ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), kAlpha, &ours.image, 0, 0), 1);
  ASSERT_EQ(ours.image.width, static_cast<uint32_t>(pw));
  ASSERT_EQ(ours.image.height, static_cast<uint32_t>(ph));
  EXPECT_EQ(ours.image.stride, ours.image.width * 4);
  EXPECT_EQ(ours.image.bitsPerPixel, 32);
  Bytes expected(pixels * 4);
  for (size_t i = 0; i < pixels; ++i) {
    for (int k = 0; k < 3; ++k) expected[4 * i + k] = rgb[3 * i + k];
    expected[4 * i + 3] = kAlpha;
  }
  EXPECT_EQ(Mismatches(ours.image.data, expected.data(), expected.size(), &first), 0u) << first;

  // Stream forms: the same pixels.
  Bytes copy = jpeg;
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, copy.data(), static_cast<int>(copy.size()));
  MMStream* bytes = MMStreamNew(&rec, 1);
  ASSERT_EQ(MMStreamReady(bytes), 1);
  Picture fromBytes;
  EXPECT_EQ(DecodeJPG(bytes, kAlpha, &fromBytes.image, 0, 0), 1);
  MMStreamDelete(&bytes);
  ASSERT_NE(fromBytes.image.data, nullptr);
  EXPECT_EQ(fromBytes.Data(pixels * 4), expected);

  const std::string path = keltest::TempPath(c.name + ".jpg");
  keltest::WriteFile(path, jpeg);
  MMAttriFromString(&rec, mmIdFileName, path.c_str());
  MMStream* file = MMStreamNew(&rec, 1);
  ASSERT_EQ(MMStreamReady(file), 1);
  Picture fromFile;
  EXPECT_EQ(DecodeJPG(file, kAlpha, &fromFile.image, 0, 0), 1);
  MMStreamDelete(&file);
  std::remove(path.c_str());
  ASSERT_NE(fromFile.image.data, nullptr);
  EXPECT_EQ(fromFile.Data(pixels * 4), expected);

  // jpdyuv, packed.
  Bytes yuv(pixels * 3);
  if (c.direct) {
    std::vector<keltest::ComponentPlane> planes;
    ASSERT_TRUE(keltest::PeerPlanes(jpeg, &planes, &why)) << why;
    const int hmax = (planes[0].width + planes[1].width - 1) / planes[1].width;
    for (size_t i = 0; i < pixels; ++i) {
      const size_t x = i % pw, y = i / pw;
      yuv[3 * i] = planes[0].samples[i];
      for (int k = 1; k < 3; ++k) yuv[3 * i + k] = planes[k].samples[y * planes[k].width + x / hmax];
    }
  } else {
    for (size_t i = 0; i < pixels; ++i)
      kiu::ConvertRGBtoYUV(rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2], yuv[3 * i], yuv[3 * i + 1],
                           yuv[3 * i + 2]);
  }
  Picture packed;
  ASSERT_EQ(jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &packed.image, false), 1);
  ASSERT_EQ(packed.image.width, static_cast<uint32_t>(pw));
  ASSERT_EQ(packed.image.height, static_cast<uint32_t>(ph));
  EXPECT_EQ(packed.image.stride, packed.image.width * 3);
  EXPECT_EQ(packed.image.bitsPerPixel, 24);
  EXPECT_EQ(Mismatches(packed.image.data, yuv.data(), yuv.size(), &first), 0u) << first;

  // jpdyuv, planar: even crop, chroma the rounded 2x2 average.
  const int w = pw & ~1, h = ph & ~1;
  Bytes i420(static_cast<size_t>(w) * h * 3 / 2);
  uint8_t* u = i420.data() + w * h;
  uint8_t* v = u + w * h / 4;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) i420[y * w + x] = yuv[3 * (static_cast<size_t>(y) * pw + x)];
  for (int y = 0; y < h; y += 2) {
    for (int x = 0; x < w; x += 2) {
      for (int k = 1; k < 3; ++k) {
        int sum = 2;
        for (int dy = 0; dy < 2; ++dy)
          for (int dx = 0; dx < 2; ++dx) sum += yuv[3 * (static_cast<size_t>(y + dy) * pw + x + dx) + k];
        (k == 1 ? u : v)[y / 2 * (w / 2) + x / 2] = static_cast<uint8_t>(sum / 4);
      }
    }
  }
  Picture planar;
  planar.image.stride = 12345;
  ASSERT_EQ(jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &planar.image, true), 1);
  EXPECT_EQ(planar.image.width, static_cast<uint32_t>(w));
  EXPECT_EQ(planar.image.height, static_cast<uint32_t>(h));
  EXPECT_EQ(planar.image.size, i420.size());
  EXPECT_EQ(planar.image.stride, 12345u);  // not written by the planar form
  EXPECT_EQ(planar.Data(i420.size()), i420);
}

INSTANTIATE_TEST_SUITE_P(Corpus, OutputDiff, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

}  // namespace
