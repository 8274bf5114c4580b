// Differential test of the pixel output: for every file of a corpus made at
// test time, DecodeJPG (memory, byte-stream and file-stream forms) gives the
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
  std::vector<int> ids = {};  // when set: APPn dropped, these component ids
  std::string name = "";
};

std::vector<Case> Corpus() {
  std::vector<Case> cases;
  for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {7, 9}, {17, 9}, {101, 75}})
    for (const char* s :
         {"-sample 1x1", "-sample 2x1", "-sample 2x2", "-sample 4x1", "-sample 1x2", "-grayscale"})
      for (const char* mode : {"-baseline ", "-progressive ", "-restart 2 "})
        cases.push_back({w, h, mode + std::string(s)});
  // RGB without colour transform: Adobe transform 0, and bare 'R','G','B' ids.
  for (auto [w, h] : {std::pair{17, 9}, {101, 75}}) {
    for (const char* args : {"-rgb", "-rgb -progressive -sample 2x2"}) cases.push_back({w, h, args});
    for (const char* args : {"-rgb", "-rgb -progressive"}) cases.push_back({w, h, args, {'R', 'G', 'B'}});
  }
  cases.push_back({101, 75, "-scans @SCANS@ -sample 2x2"});
  cases.push_back({101, 75, "-sample 2x2", {1, 2, 3}});  // ids 1, 2, 3 without JFIF: still YCbCr
  cases.push_back({4095, 3, "-sample 2x2"});
  cases.push_back({3, 4097, "-progressive -sample 2x1"});
  for (Case& c : cases) {
    std::string ids = c.ids.empty() ? "" : " ids";
    for (int id : c.ids) ids += " " + std::to_string(id);
    c.name = keltest::Slug(std::to_string(c.width) + "x" + std::to_string(c.height) + c.args + ids);
  }
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

struct Picture {
  STImageSimple image{};
  ~Picture() { kau::mem::Delete(image.data); }
  Bytes Data(size_t n) const { return image.data == nullptr ? Bytes() : Bytes(image.data, image.data + n); }
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

class OutputDiff : public testing::TestWithParam<Case> {};

TEST_P(OutputDiff, EntryPointsMatchPeer) {
  const Case& c = GetParam();
  if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg";
  const int channels = c.args.find("-grayscale") != std::string::npos ? 1 : 3;
  Bytes jpeg = keltest::MakeJpeg(c.width, c.height, channels, 11u + c.width, c.args,
                                 "0: 0-63, 0, 0 ;\n1,2: 0-63, 0, 0 ;\n");
  ASSERT_FALSE(jpeg.empty());
  if (!c.ids.empty()) jpeg = keltest::RewriteMarkers(jpeg, c.ids);
  Bytes rgb;
  int pw = 0, ph = 0;
  std::string why;
  if (!keltest::PeerRgb(jpeg, &rgb, &pw, &ph, &why)) GTEST_SKIP() << "peer: " << why;
  const size_t pixels = static_cast<size_t>(pw) * ph;

  // DecodeJPG: memory, byte-stream and file-stream forms.
  Bytes expected(pixels * 4, kAlpha);
  for (size_t i = 0; i < pixels; ++i) std::copy_n(&rgb[3 * i], 3, &expected[4 * i]);
  Picture ours;
  ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), kAlpha, &ours.image, 0, 0), 1);
  ASSERT_EQ(ours.image.width, static_cast<uint32_t>(pw));
  ASSERT_EQ(ours.image.height, static_cast<uint32_t>(ph));
  EXPECT_EQ(ours.image.stride, ours.image.width * 4);
  EXPECT_EQ(ours.image.bitsPerPixel, 32);
  EXPECT_TRUE(ours.Data(expected.size()) == expected);
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
  ASSERT_EQ(packed.image.width, static_cast<uint32_t>(pw));
  ASSERT_EQ(packed.image.height, static_cast<uint32_t>(ph));
  EXPECT_EQ(packed.image.stride, packed.image.width * 3);
  EXPECT_EQ(packed.image.bitsPerPixel, 24);
  EXPECT_TRUE(packed.Data(yuv.size()) == yuv);

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

INSTANTIATE_TEST_SUITE_P(Corpus, OutputDiff, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

}  // namespace
