// The decode entry points around the pixels: requested sizes and the DCT
// scale they pick, the colour models of four-component files, every
// documented failure line, and images fed piece by piece through kjd::Input.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.d/kj.d.h"
#include "kj.d/kj.dfeed.h"
#include "support/jpegdec_util.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

const std::string kDir = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/";

std::string Line(const std::string& source, int line) {
  return "\n?!exception@ " + source + " +" + std::to_string(line) + " !?\n\n\n";
}

// Runs `call`, returning its result and what it printed.
int Captured(const std::function<int()>& call, std::string* printed) {
  testing::internal::CaptureStdout();
  int result = call();
  *printed = testing::internal::GetCapturedStdout();
  return result;
}

struct Picture {
  STImageSimple image{};
  ~Picture() { kau::mem::Delete(image.data); }
};

Bytes Photo(int w, int h, const std::string& args = "-sample 2x2 -quality 90") {
  return keltest::MakeJpeg(w, h, 3, 5u + w, args);
}

#define REQUIRE_CJPEG() \
  if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg"

// ---- Requested sizes ----

// Area average of a 4-byte picture to dw x dh, first three bytes.
Bytes AreaAverage(const uint8_t* src, int sw, int sh, int dw, int dh) {
  Bytes out(static_cast<size_t>(dw) * dh * 3);
  const double fx = static_cast<double>(sw) / dw, fy = static_cast<double>(sh) / dh;
  for (int y = 0; y < dh; ++y) {
    for (int x = 0; x < dw; ++x) {
      double sum[3] = {}, area = 0;
      for (int sy = static_cast<int>(y * fy); sy < sh && sy < (y + 1) * fy; ++sy) {
        const double wy = std::min<double>(sy + 1, (y + 1) * fy) - std::max<double>(sy, y * fy);
        for (int sx = static_cast<int>(x * fx); sx < sw && sx < (x + 1) * fx; ++sx) {
          const double wx = std::min<double>(sx + 1, (x + 1) * fx) - std::max<double>(sx, x * fx);
          for (int k = 0; k < 3; ++k) sum[k] += wx * wy * src[4 * (static_cast<size_t>(sy) * sw + sx) + k];
          area += wx * wy;
        }
      }
      for (int k = 0; k < 3; ++k)
        out[3 * (static_cast<size_t>(y) * dw + x) + k] = static_cast<uint8_t>(sum[k] / area + 0.5);
    }
  }
  return out;
}

// Photo-like 4:4:4 content softened by a 5x5 box, as a camera's optics would: the
// bell filter's whole-pixel centres and fixed smoothing cost too much on
// one-pixel hard edges for any comparison with an area average.
Bytes SoftPhoto(int w, int h) {
  const Bytes sharp = keltest::PhotoLike(w, h, 3, 21);
  Bytes soft(sharp.size());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int k = 0; k < 3; ++k) {
        int sum = 0, n = 0;
        for (int dy = -2; dy <= 2; ++dy)
          for (int dx = -2; dx <= 2; ++dx) {
            const int sx = x + dx, sy = y + dy;
            if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
            sum += sharp[3 * (static_cast<size_t>(sy) * w + sx) + k];
            ++n;
          }
        soft[3 * (static_cast<size_t>(y) * w + x) + k] = static_cast<uint8_t>((sum + n / 2) / n);
      }
  const std::string ppm = keltest::TempPath("soft.ppm"), jpg = keltest::TempPath("soft.jpg");
  keltest::WritePnm(ppm, soft, w, h, 3);
  if (keltest::Run("cjpeg -sample 1x1 -quality 90 -outfile " + jpg + " " + ppm) != 0) return {};
  Bytes out = keltest::ReadFile(jpg);
  std::remove(ppm.c_str());
  std::remove(jpg.c_str());
  return out;
}

TEST(RequestedSize, PicksTheDctScaleThenRescalesKeepingTheAspectRatio) {
  REQUIRE_CJPEG();
  const Bytes jpeg = SoftPhoto(1000, 600);
  ASSERT_FALSE(jpeg.empty());
  Picture full;
  ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), 200, &full.image, 0, 0), 1);
  const struct {
    int w, h;
    uint32_t scale;
    bool rescale;
    uint32_t outW, outH;  // after DecodeImage
    uint32_t finalW, finalH;
    bool psnr = true;
  } cases[] = {
      {500, 300, 4, false, 500, 300, 500, 300},
      {400, 300, 4, true, 500, 300, 400, 240},
      {250, 150, 2, false, 250, 150, 250, 150},
      {125, 75, 1, false, 125, 75, 125, 75},
      {1, 1, 1, true, 125, 75, 1, 1},
      {999, 600, 8, true, 1000, 600, 999, 599},
      {1000, 600, 8, false, 1000, 600, 1000, 600},
      {300, 300, 4, true, 500, 300, 300, 180, false},  // 29.96 dB: the filter's limit
      {0, 300, 4, true, 500, 300, 500, 300},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
    kjd::Decoder decoder(jpeg.data(), jpeg.size(), 200);
    unsigned char* pixels = decoder.DecodeImage(c.w, c.h);
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(decoder.dctScaledSize, c.scale);
    EXPECT_EQ(decoder.needsRescale != 0, c.rescale);
    EXPECT_EQ(decoder.OutputWidth(), c.outW);
    EXPECT_EQ(decoder.OutputHeight(), c.outH);
    kau::mem::Delete(pixels);

    Picture scaled;
    ASSERT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), 200, &scaled.image, c.w, c.h), 1);
    ASSERT_EQ(scaled.image.width, c.finalW);
    ASSERT_EQ(scaled.image.height, c.finalH);
    EXPECT_EQ(scaled.image.stride, c.finalW * 4);
    const size_t n = static_cast<size_t>(c.finalW) * c.finalH;
    Bytes ours(n * 3);
    for (size_t i = 0; i < n; ++i) {
      for (int k = 0; k < 3; ++k) ours[3 * i + k] = scaled.image.data[4 * i + k];
      ASSERT_EQ(scaled.image.data[4 * i + 3], 200) << "alpha at " << i;
    }
    if (n > 1 && c.psnr) {
      const Bytes reference =
          AreaAverage(full.image.data, 1000, 600, static_cast<int>(c.finalW), static_cast<int>(c.finalH));
      const double psnr = keltest::Psnr(ours.data(), reference.data(), ours.size());
      EXPECT_GE(psnr, 30.0);
    }
  }
}

TEST(RequestedSize, NegativeValuesCountPixelsPerEightAndAMixedPairIsKept) {
  REQUIRE_CJPEG();
  const Bytes jpeg = Photo(101, 75);
  // Both negative: refused by the entry points.
  std::string out;
  Picture p;
  EXPECT_EQ(Captured([&] { return DecodeJPG(jpeg.data(), jpeg.size(), 0, &p.image, -4, -4); }, &out), 0);
  EXPECT_EQ(out, Line(kDir + "CJPGD", 68));
  // One negative: read per 8 pixels on both sides, the other side's target
  // is then not positive.
  const struct {
    long w, h;
    int32_t tw, th;
  } cases[] = {{-4, 0, 4 * 13, 0}, {0, -2, 0, 2 * 10}, {3, -8, -3 * 13, 8 * 10}};
  for (const auto& c : cases) {
    kjd::Decoder decoder(jpeg.data(), jpeg.size(), 0);
    unsigned char* pixels = decoder.DecodeImage(c.w, c.h);
    EXPECT_EQ(decoder.targetWidth, c.tw);
    EXPECT_EQ(decoder.targetHeight, c.th);
    kau::mem::Delete(pixels);
  }
  // -4, 0: a zero target height cannot be scaled to.
  EXPECT_EQ(Captured([&] { return DecodeJPG(jpeg.data(), jpeg.size(), 0, &p.image, -4, 0); }, &out), 0);
  EXPECT_EQ(out, Line("common/kiu/kiuscale", 162) + Line(kDir + "kj.d", 251));
}

// ---- Four components ----

// ImageMagick writes CMYK as an Adobe file with transform 2 (YCCK); the
// transform byte sits 17 bytes into the file.
TEST(ColorModel, FourComponentsFollowTheAdobeTransform) {
  if (!keltest::HaveTool("convert")) GTEST_SKIP() << "no ImageMagick";
  const int w = 37, h = 21;
  const std::string ppm = keltest::TempPath("cmyk.ppm"), jpg = keltest::TempPath("cmyk.jpg");
  keltest::WritePnm(ppm, keltest::PhotoLike(w, h, 3, 3), w, h, 3);
  ASSERT_EQ(keltest::Run("convert " + ppm + " -colorspace CMYK -quality 90 " + jpg), 0);
  const Bytes ycck = keltest::ReadFile(jpg);
  ASSERT_GT(ycck.size(), 20u);
  ASSERT_EQ(std::string(ycck.begin() + 6, ycck.begin() + 11), "Adobe");
  Bytes cmyk = ycck;
  cmyk[17] = 0;
  // Raw component values: the peer passes a transform-0 file through.
  Bytes raw;
  int pw = 0, ph = 0;
  std::string why;
  if (!keltest::PeerRgb(cmyk, &raw, &pw, &ph, &why, true)) GTEST_SKIP() << "peer: " << why;
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
    size_t bad = 0;
    for (int y = 0; y < h; ++y) {
      Bytes planes[4];
      for (int k = 0; k < 4; ++k)
        for (int x = 0; x < w; ++x) planes[k].push_back(raw[4 * (static_cast<size_t>(y) * w + x) + k]);
      unsigned char* rows[4] = {planes[0].data(), planes[1].data(), planes[2].data(), planes[3].data()};
      unsigned char** table[4] = {&rows[0], &rows[1], &rows[2], &rows[3]};
      Bytes expected(static_cast<size_t>(w) * 4, 7);
      c.convert(w, table, 0, expected.data());
      for (size_t i = 0; i < expected.size(); ++i)
        bad += ours.image.data[static_cast<size_t>(y) * w * 4 + i] != expected[i];
    }
    EXPECT_EQ(bad, 0u);
  }
}

// ---- Failures ----

// A real small file with one byte changed at `at` (none when `at` < 0).
Bytes Patched(const Bytes& jpeg, const std::vector<std::pair<size_t, uint8_t>>& edits) {
  Bytes out = jpeg;
  for (const auto& e : edits) out[e.first] = e.second;
  return out;
}

size_t FindMarker(const Bytes& jpeg, uint8_t code) {
  for (size_t i = 0; i + 1 < jpeg.size(); ++i)
    if (jpeg[i] == 0xFF && jpeg[i + 1] == code) return i;
  return 0;
}

// A two-component frame: a grey file's SOF with a second component added
// (the scan still names only the first).
Bytes TwoComponents(const Bytes& grey) {
  const size_t sof = FindMarker(grey, 0xC0);
  Bytes out(grey.begin(), grey.begin() + sof);
  out.insert(out.end(), {0xFF, 0xC0, 0x00, 0x0E});
  out.insert(out.end(), grey.begin() + sof + 4, grey.begin() + sof + 10);
  out[out.size() - 1] = 2;  // Nf
  out.insert(out.end(), grey.begin() + sof + 10, grey.begin() + sof + 13);
  out.insert(out.end(), {0x02, 0x11, 0x00});
  out.insert(out.end(), grey.begin() + sof + 13, grey.end());
  return out;
}

unsigned long g_failSize = 0;
void* FailingNew(unsigned long n) { return n == g_failSize ? nullptr : std::malloc(n); }

TEST(Failures, EveryEntryPointReturnsZeroWithItsLine) {
  REQUIRE_CJPEG();
  const Bytes jpeg = Photo(101, 75);
  const Bytes grey = keltest::MakeJpeg(16, 16, 1, 9, "-grayscale -baseline");
  const Bytes rgb = keltest::MakeJpeg(16, 16, 3, 9, "-rgb");
  const Bytes restarts = keltest::MakeJpeg(64, 64, 3, 9, "-restart 1 -sample 2x2");
  ASSERT_FALSE(jpeg.empty() || grey.empty() || rgb.empty() || restarts.empty());
  const size_t sof = FindMarker(jpeg, 0xC0);
  const Bytes huge = Patched(jpeg, {{sof + 5, 0xFF}, {sof + 6, 0xDC}, {sof + 7, 0xFF}, {sof + 8, 0xDC}});
  const Bytes adobe2 = Patched(rgb, {{17, 2}});
  // The second restart marker renumbered: fails while rows are produced.
  size_t rst = FindMarker(restarts, 0xD0);
  rst = FindMarker(Bytes(restarts.begin() + rst + 2, restarts.end()), 0xD1) + rst + 2;
  const Bytes badRestart = Patched(restarts, {{rst + 1, 0xD5}});
  const Bytes twoComponents = TwoComponents(grey);
  Bytes copy = jpeg;
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, copy.data(), static_cast<int>(copy.size()));

  const std::string cj = kDir + "CJPGD", yu = kDir + "jpdyuv", kd = kDir + "kj.d", up = kDir + "kj.dupsample";
  const size_t planarSize = 100 * 74 * 3 / 2, packedSize = 101 * 75 * 3, rgbaSize = 101 * 75 * 4;
  struct Case {
    const char* name;
    std::function<int(STImageSimple*)> call;
    std::string printed;
    unsigned long failSize;
  };
  auto mem = [](const Bytes& b, unsigned long alpha = 0, int w = 0, int h = 0) {
    return [&b, alpha, w, h](STImageSimple* i) { return DecodeJPG(b.data(), b.size(), alpha, i, w, h); };
  };
  auto stream = [&rec](unsigned long alpha, bool image, int w, int h) {
    return [&rec, alpha, image, w, h](STImageSimple* i) {
      MMStream* s = MMStreamNew(&rec, 1);
      MMStreamReady(s);
      int r = DecodeJPG(s, alpha, image ? i : nullptr, w, h);
      MMStreamDelete(&s);
      return r;
    };
  };
  const Case cases[] = {
      {"null data", [](STImageSimple* i) { return DecodeJPG(nullptr, 10, 0, i, 0, 0); }, Line(cj, 63), 0},
      {"size 0", [&](STImageSimple* i) { return DecodeJPG(jpeg.data(), 0, 0, i, 0, 0); }, Line(cj, 64), 0},
      {"alpha 256", mem(jpeg, 256), Line(cj, 65), 0},
      {"null record", [&](STImageSimple*) { return DecodeJPG(jpeg.data(), jpeg.size(), 0, nullptr, 0, 0); },
       Line(cj, 66), 0},
      {"both negative", mem(jpeg, 0, -1, -1), Line(cj, 68), 0},
      {"stream alpha 256", stream(256, true, 0, 0), Line(cj, 19), 0},
      {"stream null record", stream(0, false, 0, 0), Line(cj, 20), 0},
      {"stream both negative", stream(0, true, -8, -8), Line(cj, 22), 0},
      {"null stream", [](STImageSimple* i) { return DecodeJPG(static_cast<MMStream*>(nullptr), 0, i, 0, 0); },
       Line(kd, 78) + Line(kd, 91), 0},
      {"two components", mem(twoComponents), Line(up, 623), 0},
      {"Adobe transform 2 on three components", mem(adobe2), Line(up, 596), 0},
      {"output above 32 bits", mem(huge), Line(kd, 141), 0},
      {"pixel buffer", mem(jpeg), Line(kd, 176), rgbaSize},
      {"rows fail", mem(badRestart), Line(kDir + "kj.dinput", 475) + Line(cj, 71), 0},
      {"yuv null record",
       [&](STImageSimple*) { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), nullptr, true); },
       Line(yu, 27), 0},
      {"yuv stream null record",
       [&](STImageSimple*) {
         MMStream* s = MMStreamNew(&rec, 1);
         MMStreamReady(s);
         int r = jpdyuv::DecodeJPG(s, nullptr, false);
         MMStreamDelete(&s);
         return r;
       },
       Line(yu, 27), 0},
      {"yuv null stream",
       [](STImageSimple* i) { return jpdyuv::DecodeJPG(static_cast<MMStream*>(nullptr), i, true); },
       Line(kd, 78) + Line(kd, 91), 0},
      {"yuv not a JPEG",
       [](STImageSimple* i) {
         return jpdyuv::DecodeJPG(reinterpret_cast<const unsigned char*>("abcdefgh"), 8, i, true);
       },
       Line(kd, 57) + Line(kd, 70), 0},
      {"yuv pixels", [&](STImageSimple* i) { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), i, true); },
       Line(kd, 176), rgbaSize},
      {"yuv rows fail",
       [&](STImageSimple* i) { return jpdyuv::DecodeJPG(badRestart.data(), badRestart.size(), i, false); },
       Line(kDir + "kj.dinput", 475) + Line(yu, 30), 0},
      {"yuv conversion buffer",
       [&](STImageSimple* i) { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), i, true); }, Line(kd, 210),
       packedSize},
      {"yuv planes", [&](STImageSimple* i) { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), i, true); },
       Line(yu, 41), planarSize},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    STImageSimple image{1, 2, 3, 4, 5, nullptr};
    g_failSize = c.failSize;
    if (c.failSize != 0) kau::mem::SetExternalNewAndDelete(FailingNew, std::free);
    std::string out;
    const int result = Captured([&] { return c.call(&image); }, &out);
    kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(out, c.printed);
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
  unsigned char* pixels = decoder.DecodeImage(0, 0);
  ASSERT_NE(pixels, nullptr);
  kau::mem::Delete(pixels);
  try {
    decoder.DecodeImage(0, 0);
    ADD_FAILURE() << "no error";
  } catch (const kau::Error& e) {
    EXPECT_EQ(e.FileName(), kDir + "kj.d");
    EXPECT_EQ(e.Position(), 106);
  }
  // YUV output that needs a rescale to a zero height.
  kjd::Decoder second(jpeg.data(), jpeg.size(), 0);
  second.yuvWanted = 1;
  pixels = second.DecodeImage(-4, 0);
  ASSERT_NE(pixels, nullptr);
  EXPECT_EQ(second.directYuv, 0);  // a rescale keeps YCbCr on the RGB converter
  testing::internal::CaptureStdout();
  try {
    second.ScaleImageYUV(pixels);
    ADD_FAILURE() << "no error";
  } catch (const kau::Error& e) {
    EXPECT_EQ(e.Position(), 203);
  }
  testing::internal::GetCapturedStdout();
  kau::mem::Delete(pixels);
}

// ---- Feeding ----

TEST(Feed, ConcatenatedFilesSplitAtRandomDecodeOneByOne) {
  REQUIRE_CJPEG();
  const std::vector<Bytes> files = {keltest::MakeJpeg(101, 75, 3, 1, "-sample 2x2"),
                                    keltest::MakeJpeg(17, 9, 3, 2, "-progressive -sample 1x1"),
                                    keltest::MakeJpeg(33, 20, 1, 3, "-grayscale -restart 1"),
                                    keltest::MakeJpeg(64, 48, 3, 4, "-sample 2x1")};
  Bytes all;
  size_t smallest = SIZE_MAX;
  std::vector<Bytes> expected;
  for (const Bytes& f : files) {
    ASSERT_FALSE(f.empty());
    all.insert(all.end(), f.begin(), f.end());
    smallest = std::min(smallest, f.size());
    Picture p;
    ASSERT_EQ(jpdyuv::DecodeJPG(f.data(), f.size(), &p.image, true), 1);
    expected.emplace_back(p.image.data, p.image.data + p.image.size);
  }
  std::mt19937 rng(42);
  for (int round = 0; round < 5; ++round) {
    kjd::Input input;
    ASSERT_NE(input.Construct(), nullptr);
    std::vector<Bytes> got;
    for (size_t at = 0; at < all.size();) {
      const size_t n = std::min<size_t>(all.size() - at, rng() % (smallest - 1) + 1);
      const int more = input.Push(all.data() + at, n);
      at += n;
      if (more != 0) continue;
      MMStream* s = input.Stream();
      ASSERT_EQ(MMStreamReady(s), 1);
      Picture p;
      ASSERT_EQ(jpdyuv::DecodeJPG(s, &p.image, true), 1);
      got.emplace_back(p.image.data, p.image.data + p.image.size);
      MMStreamSeek(s, 0, MMStreamSeekFromEnd);
      input.ResetStreamWithDataAfterEOI();
    }
    input.Destruct();
    EXPECT_EQ(got, expected) << "round " << round;
  }
}

}  // namespace
