// The decode entry points around the pixels: requested sizes and the DCT
// scale they pick, the colour models of four-component files, and every
// documented failure line.
#include <gtest/gtest.h>

#include <cstdlib>

#include "kau/kau.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.d/kj.d.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;
using keltest::kDecDir;
using keltest::Line;

struct Picture {
  STImageSimple image{};
  ~Picture() { kau::mem::Delete(image.data); }
};

#define REQUIRE_CJPEG() KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg")

TEST(RequestedSize, PicksTheDctScaleThenRescalesKeepingTheAspectRatio) {
  REQUIRE_CJPEG();
  // Softened: the bell filter's whole-pixel centres cost too much on
  // one-pixel hard edges for any comparison with an area average.
  const Bytes jpeg = keltest::Cjpeg(keltest::BoxBlur(keltest::PhotoLike(1000, 600, 3, 21), 1000, 600, 3, 2),
                                    1000, 600, 3, "-sample 1x1 -quality 90");
  ASSERT_FALSE(jpeg.empty());
  Picture full;
  ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), 200, &full.image, 0, 0), 1);
  // clang-format off
  const struct {
    int w, h;
    uint32_t scale;
    bool rescale;
    uint32_t outW, outH, finalW, finalH;  // after DecodeImage, after DecodeJPG
    bool psnr = true;
  } cases[] = {
      {500, 300, 4, false, 500, 300, 500, 300}, {400, 300, 4, true, 500, 300, 400, 240},
      {250, 150, 2, false, 250, 150, 250, 150}, {125, 75, 1, false, 125, 75, 125, 75},
      {1, 1, 1, true, 125, 75, 1, 1},           {999, 600, 8, true, 1000, 600, 999, 599},
      {1000, 600, 8, false, 1000, 600, 1000, 600}, {0, 300, 4, true, 500, 300, 500, 300},
      {300, 300, 4, true, 500, 300, 300, 180, false},  // 29.96 dB: the filter's limit
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
    kjd::Decoder decoder(jpeg.data(), jpeg.size(), 200);
    kau::mem::Delete(decoder.DecodeImage(c.w, c.h));
    EXPECT_EQ(decoder.dctScaledSize, c.scale);
    EXPECT_EQ(decoder.NeedsRescale(), c.rescale);
    EXPECT_EQ(decoder.OutputWidth(), c.outW);
    EXPECT_EQ(decoder.OutputHeight(), c.outH);

    Picture scaled;
    ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), 200, &scaled.image, c.w, c.h), 1);
    ASSERT_EQ(scaled.image.width, c.finalW);
    ASSERT_EQ(scaled.image.height, c.finalH);
    EXPECT_EQ(scaled.image.stride, c.finalW * 4);
    const size_t n = static_cast<size_t>(c.finalW) * c.finalH;
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(scaled.image.data[4 * i + 3], 200) << "alpha at " << i;
    if (n == 1 || !c.psnr) continue;
    const Bytes ours = keltest::AreaAverage(scaled.image.data, c.finalW, c.finalH, 4, 3, c.finalW, c.finalH);
    const Bytes reference = keltest::AreaAverage(full.image.data, 1000, 600, 4, 3, c.finalW, c.finalH);
    EXPECT_GE(keltest::Psnr(ours.data(), reference.data(), ours.size()), 30.0);
  }
}

TEST(RequestedSize, NegativeValuesCountPixelsPerEightAndAMixedPairIsKept) {
  REQUIRE_CJPEG();
  const Bytes jpeg = keltest::MakeJpeg(101, 75, 3, 106, "-sample 2x2 -quality 90");
  // One negative: read per 8 pixels on both sides, the other side's target
  // is then not positive.
  const struct {
    long w, h;
    int32_t tw, th;
  } cases[] = {{-4, 0, 4 * 13, 0}, {0, -2, 0, 2 * 10}, {3, -8, -3 * 13, 8 * 10}};
  for (const auto& c : cases) {
    kjd::Decoder decoder(jpeg.data(), jpeg.size(), 0);
    kau::mem::Delete(decoder.DecodeImage(c.w, c.h));
    EXPECT_EQ(decoder.output.targetWidth, c.tw);
    EXPECT_EQ(decoder.output.targetHeight, c.th);
  }
  // -4, 0: a zero target height cannot be scaled to.
  Picture p;
  EXPECT_EQ(keltest::Printed([&] { EXPECT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), 0, &p.image, -4, 0), 0); }),
            Line("common/kiu/kiuscale", 162) + Line(kDecDir + "kj.d", 251));
}

// ImageMagick writes CMYK as an Adobe file with transform 2 (YCCK); the
// transform byte sits 17 bytes into the file.
TEST(ColorModel, FourComponentsFollowTheAdobeTransform) {
  KEL_REQUIRE_PEER(keltest::HaveTool("convert"), "convert");
  const int w = 37, h = 21;
  const std::string jpg = keltest::TempPath("cmyk.jpg");
  ASSERT_EQ(keltest::Run("convert -size 37x21 -seed 3 plasma: -colorspace CMYK -quality 90 " + jpg), 0);
  const Bytes ycck = keltest::ReadFile(jpg);
  ASSERT_EQ(std::string(ycck.begin() + 6, ycck.begin() + 11), "Adobe");
  Bytes cmyk = ycck;
  cmyk[17] = 0;
  // Raw component values: the peer passes a transform-0 file through.
  Bytes raw;
  int pw = 0, ph = 0;
  std::string why;
  KEL_REQUIRE_PEER(keltest::PeerRgb(cmyk, &raw, &pw, &ph, &why, true), "TurboJPEG: " + why);
  ASSERT_EQ(pw, w);
  const struct {
    const char* name;
    Bytes jpeg;
    kjd::ConvertFn convert;
  } cases[] = {
      {"transform 2 is YCCK", ycck, kiu::ConvertYCCKtoRGB},
      {"transform 0 is CMYK", cmyk, kiu::ConvertCMYKtoRGB},
      {"no Adobe marker is CMYK", keltest::RewriteMarkers(cmyk, {}), kiu::ConvertCMYKtoRGB},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Picture ours;
    ASSERT_EQ(DecodeJPG(c.jpeg.data(), c.jpeg.size(), 7, &ours.image, 0, 0), 1);
    for (int y = 0; y < h; ++y) {
      Bytes planes[4];
      for (int k = 0; k < 4; ++k)
        for (int x = 0; x < w; ++x) planes[k].push_back(raw[4 * (static_cast<size_t>(y) * w + x) + k]);
      unsigned char* rows[4] = {planes[0].data(), planes[1].data(), planes[2].data(), planes[3].data()};
      unsigned char** table[4] = {&rows[0], &rows[1], &rows[2], &rows[3]};
      Bytes expected(static_cast<size_t>(w) * 4, 7);
      c.convert(w, table, 0, expected.data());
      ASSERT_TRUE(std::equal(expected.begin(), expected.end(), ours.image.data + y * w * 4)) << "row " << y;
    }
  }
}

size_t FindMarker(const Bytes& jpeg, uint8_t code, size_t from = 0) {
  for (size_t i = from; i + 1 < jpeg.size(); ++i)
    if (jpeg[i] == 0xFF && jpeg[i + 1] == code) return i;
  return 0;
}

unsigned long g_failSize = 0;
void* FailingNew(unsigned long n) { return n == g_failSize ? nullptr : MMAllocate(n); }

TEST(Failures, EveryEntryPointReturnsZeroWithItsLine) {
  REQUIRE_CJPEG();
  const Bytes jpeg = keltest::MakeJpeg(101, 75, 3, 106, "-sample 2x2 -quality 90");
  const Bytes grey = keltest::MakeJpeg(16, 16, 1, 9, "-grayscale -baseline");
  Bytes adobe2 = keltest::MakeJpeg(16, 16, 3, 9, "-rgb");
  Bytes badRestart = keltest::MakeJpeg(64, 64, 3, 9, "-restart 1 -sample 2x2");
  ASSERT_FALSE(jpeg.empty() || grey.empty() || adobe2.empty() || badRestart.empty());
  adobe2[17] = 2;
  // The second restart marker renumbered: fails while rows are produced.
  badRestart[FindMarker(badRestart, 0xD1, FindMarker(badRestart, 0xD0)) + 1] = 0xD5;
  // A two-component frame: the grey SOF with a second component added (the
  // scan still names only the first).
  const size_t gsof = FindMarker(grey, 0xC0);
  Bytes twoComponents(grey.begin(), grey.begin() + gsof + 13);
  twoComponents[gsof + 3] = 14;
  twoComponents[gsof + 9] = 2;
  twoComponents.insert(twoComponents.end(), {0x02, 0x11, 0x00});
  twoComponents.insert(twoComponents.end(), grey.begin() + gsof + 13, grey.end());
  Bytes copy = jpeg;
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, copy.data(), static_cast<int>(copy.size()));

  const std::string cj = kDecDir + "CJPGD", yu = kDecDir + "jpdyuv", kd = kDecDir + "kj.d";
  const std::string up = kDecDir + "kj.dupsample", rows = Line(kDecDir + "kj.dinput", 475);
  const unsigned long planarSize = 100 * 74 * 3 / 2, packedSize = 101 * 75 * 3, rgbaSize = 101 * 75 * 4;
  auto mem = [](const Bytes& b, unsigned long alpha = 0, int w = 0, int h = 0) {
    return [&b, alpha, w, h](STImageSimple* i) { return DecodeJPG(b.data(), b.size(), alpha, i, w, h); };
  };
  auto yuv = [](const Bytes& b, bool planar) {
    return [&b, planar](STImageSimple* i) { return jpdyuv::DecodeJPG(b.data(), b.size(), i, planar); };
  };
  // Through a byte stream: `kind` 0 DecodeJPG, 1 DecodeJPG without a record, 2 jpdyuv without one.
  auto stream = [&rec](int kind, unsigned long alpha = 0, int w = 0, int h = 0) {
    return [&rec, kind, alpha, w, h](STImageSimple* i) {
      MMStream* s = MMStreamNew(&rec, 1);
      MMStreamReady(s);
      const int r = kind == 2 ? jpdyuv::DecodeJPG(s, nullptr, false)
                              : DecodeJPG(s, alpha, kind == 0 ? i : nullptr, w, h);
      MMStreamDelete(&s);
      return r;
    };
  };
  const Bytes notJpeg = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
  const struct {
    const char* name;
    std::function<int(STImageSimple*)> call;
    std::string printed;
    unsigned long failSize;
  } cases[] = {
      // clang-format off
      {"null data", [](STImageSimple* i) { return DecodeJPG(nullptr, 10, 0, i, 0, 0); }, Line(cj, 63), 0},
      {"size 0", [&](STImageSimple* i) { return DecodeJPG(jpeg.data(), 0, 0, i, 0, 0); }, Line(cj, 64), 0},
      {"alpha 256", mem(jpeg, 256), Line(cj, 65), 0},
      {"null record", [&](STImageSimple*) { return DecodeJPG(jpeg.data(), jpeg.size(), 0, nullptr, 0, 0); }, Line(cj, 66), 0},
      {"both negative", mem(jpeg, 0, -1, -1), Line(cj, 68), 0},
      {"stream alpha 256", stream(0, 256), Line(cj, 19), 0},
      {"stream null record", stream(1), Line(cj, 20), 0},
      {"stream both negative", stream(0, 0, -8, -8), Line(cj, 22), 0},
      {"null stream", [](STImageSimple* i) { return DecodeJPG(static_cast<MMStream*>(nullptr), 0, i, 0, 0); }, Line(kd, 78) + Line(kd, 91), 0},
      {"two components", mem(twoComponents), Line(up, 623), 0},
      {"Adobe transform 2 on three components", mem(adobe2), Line(up, 596), 0},
      {"pixel buffer", mem(jpeg), Line(kd, 176), rgbaSize},
      {"yuv null record", [&](STImageSimple*) { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), nullptr, true); }, Line(yu, 27), 0},
      {"yuv stream null record", stream(2), Line(yu, 27), 0},
      {"yuv null stream", [](STImageSimple* i) { return jpdyuv::DecodeJPG(static_cast<MMStream*>(nullptr), i, true); }, Line(kd, 78) + Line(kd, 91), 0},
      {"yuv not a JPEG", yuv(notJpeg, true), Line(kd, 57) + Line(kd, 70), 0},
      {"yuv pixels", yuv(jpeg, false), Line(kd, 176), packedSize},
      {"yuv rows fail", yuv(badRestart, false), rows + Line(yu, 30), 0},
      {"yuv planar rows fail", yuv(badRestart, true), rows + Line(yu, 30), 0},
      {"yuv planes", yuv(jpeg, true), Line(yu, 41), planarSize},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    STImageSimple image{1, 2, 3, 4, 5, nullptr};
    g_failSize = c.failSize;
    if (c.failSize != 0) kau::mem::SetExternalNewAndDelete(FailingNew, MMFree);
    EXPECT_EQ(keltest::Printed([&] { EXPECT_EQ(c.call(&image), 0); }), c.printed);
    kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
    // The record is left as it was.
    EXPECT_EQ(image.width, 1u);
    EXPECT_EQ(image.data, nullptr);
  }
}

TEST(Failures, DriverLinesOnlyReachableThroughTheDecoder) {
  REQUIRE_CJPEG();
  const Bytes jpeg = keltest::MakeJpeg(40, 30, 3, 4, "-progressive -sample 2x2");
  // A multi-scan decode reads to EOI: a second decode is refused.
  kjd::Decoder decoder(jpeg.data(), jpeg.size(), 0);
  kau::mem::Delete(decoder.DecodeImage(0, 0));
  EXPECT_EQ(keltest::ThrownAt([&] { decoder.DecodeImage(0, 0); }), kDecDir + "kj.d:106");
  // YUV output that needs a rescale to a zero height.
  kjd::Decoder second(jpeg.data(), jpeg.size(), 0);
  second.output.kind = kjd::Decoder::OutputKind::kPackedYuv;
  unsigned char* pixels = second.DecodeImage(-4, 0);
  ASSERT_NE(pixels, nullptr);
  EXPECT_TRUE(second.NeedsRescale());  // 4-byte RGB, resampled before it becomes YUV
  keltest::Printed(
      [&] { EXPECT_EQ(keltest::ThrownAt([&] { second.ScaleImageYUV(pixels); }), kDecDir + "kj.d:203"); });
  kau::mem::Delete(pixels);
}

}  // namespace
