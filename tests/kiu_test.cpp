// Colour conversion: the documented values of the four-component and grey
// converters, exact agreement with TurboJPEG's fixed-point YCbCr transforms,
// and format names.
#include <gtest/gtest.h>

#include <algorithm>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "support/testutil.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

using keltest::Bytes;
using Row = void (*)(unsigned long, unsigned char***, unsigned long, unsigned char*);

// The documented single-pixel results. Row converters step 4 bytes and must
// leave the fourth byte alone (grey to YUV steps 3).
TEST(Converters, GiveTheDocumentedPixelValues) {
  const struct {
    const char* what;
    Row convert;
    Bytes in;
    Bytes rgb;
  } cases[] = {
      {"YCbCr chroma extremes clamp G", kiu::ConvertYUVtoRGB, {0, 255, 255}, {178, 0, 225}},
      {"CMYK all zero is black", kiu::ConvertCMYKtoRGB, {0, 0, 0, 0}, {0, 0, 0}},
      {"CMYK product with low byte 255 gives 1", kiu::ConvertCMYKtoRGB, {0, 0, 0, 254}, {1, 1, 1}},
      {"CMYK keeps the low byte per channel", kiu::ConvertCMYKtoRGB, {254, 0, 255, 0}, {1, 0, 0}},
      {"YCCK white with full k is black", kiu::ConvertYCCKtoRGB, {255, 128, 128, 255}, {0, 0, 0}},
      {"YCCK black with full k is white", kiu::ConvertYCCKtoRGB, {0, 128, 128, 255}, {255, 255, 255}},
      {"YCCK scales by k rounding down", kiu::ConvertYCCKtoRGB, {0, 128, 128, 100}, {100, 100, 100}},
      {"YCCK clamps the inverted sum", kiu::ConvertYCCKtoRGB, {0, 255, 255, 255}, {77, 255, 30}},
      {"grey to YUV has neutral chroma", kiu::ConvertGrayToYUV, {200}, {200, 128, 128}},
  };
  for (const auto& c : cases) {
    Bytes in = c.in;
    unsigned char* rows[4];
    for (size_t k = 0; k < 4; ++k) rows[k] = &in[std::min(k, in.size() - 1)];
    unsigned char** planes[4] = {&rows[0], &rows[1], &rows[2], &rows[3]};
    Bytes out(5, 0xA5);
    c.convert(1, planes, 0, out.data());
    EXPECT_EQ(out, (Bytes{c.rgb[0], c.rgb[1], c.rgb[2], 0xA5, 0xA5})) << c.what;
  }
}

#ifdef KEL_HAVE_TURBOJPEG

// The packed 4:2:0 converters, which no decode path uses (the decode paths
// meet the peer in the differential tests), against the peer's planes and
// pixels, odd edges included.
TEST(PeerTurboJpeg, QuarterChromaMatchesExactlyIncludingOddEdges) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  for (auto [w, h] : {std::pair{37, 29}, std::pair{64, 48}, std::pair{1, 3}}) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    const Bytes jpeg = keltest::MakeJpeg(w, h, 3, 11, "-quality 92 -sample 2x2");
    std::vector<keltest::ComponentPlane> p;
    Bytes rgb;
    int pw = 0, ph = 0;
    std::string why;
    ASSERT_TRUE(keltest::PeerPlanes(jpeg, &p, &why) && keltest::PeerRgb(jpeg, &rgb, &pw, &ph, &why)) << why;
    Bytes packed(static_cast<size_t>(w) * 6), out(static_cast<size_t>(w) * 8);
    for (int y = 0; y < h; y += 2) {
      const int pair = std::min(2, h - y);
      unsigned char* rows[3][2];
      unsigned char** table[3];
      for (int c = 0; c < 3; ++c) {
        rows[c][0] = p[c].samples.data() + static_cast<size_t>(c == 0 ? y : y / 2) * p[c].width;
        rows[c][1] = rows[c][0] + (c == 0 ? p[c].width : 0);
        table[c] = rows[c];
      }
      (pair == 2 ? kiu::ConvertYUV420toYUV2 : kiu::ConvertYUV420toYUV)(w, table, 0, packed.data());
      kiu::ConvertYUVtoRGB(static_cast<unsigned long>(pair) * w, packed.data(), out.data());
      for (size_t i = 0; i < static_cast<size_t>(pair) * w; ++i)
        ASSERT_TRUE(std::equal(&out[4 * i], &out[4 * i + 3], &rgb[3 * (static_cast<size_t>(y) * w + i)]))
            << "row " << y << " pixel " << i;
    }
  }
}

TEST(PeerTurboJpeg, RgbToYuvMatchesThePeersForwardTransform) {
  const int w = 53, h = 31;
  Bytes rgb = keltest::PhotoLike(w, h, 3, 8);
  std::fill_n(rgb.begin(), 3, 255);  // white and black too
  std::fill_n(rgb.begin() + 3, 3, 0);
  Bytes planes[3];
  unsigned char* dst[3];
  for (int c = 0; c < 3; ++c) {
    planes[c].resize(static_cast<size_t>(w) * h);
    dst[c] = planes[c].data();
  }
  int strides[3] = {w, w, w};
  tjhandle enc = tjInitCompress();
  ASSERT_EQ(tjEncodeYUVPlanes(enc, rgb.data(), w, 0, h, TJPF_RGB, dst, strides, TJSAMP_444, 0), 0);
  tjDestroy(enc);
  const Bytes rgbx = keltest::ToPacked4(rgb, 0x77);
  Bytes yuv(static_cast<size_t>(w) * h * 3);
  kiu::ConvertRGBtoYUV(static_cast<unsigned long>(w) * h, rgbx.data(), yuv.data());
  for (size_t i = 0; i < yuv.size(); ++i) ASSERT_EQ(yuv[i], planes[i % 3][i / 3]) << "pixel " << i / 3;
  unsigned char y, u, v;
  for (size_t i = 0; i < rgb.size(); i += 3) {
    kiu::ConvertRGBtoYUV(rgb[i], rgb[i + 1], rgb[i + 2], y, u, v);
    ASSERT_EQ((Bytes{y, u, v}), Bytes(&yuv[i], &yuv[i + 3])) << "per-pixel form, pixel " << i / 3;
  }
}

#endif  // KEL_HAVE_TURBOJPEG

// Over every (Y, Cb, Cr): the one-pass YUV of a pixel equals RGB then YUV
// through the two documented conversions, and inside the no-clamp range the
// round trip is Y + dy with U, V of the chroma pair alone.
TEST(RoundTrip, EqualsRgbThenYuvForEveryPixel) {
  int identityPixels = 0;
  for (int cb = 0; cb < 256; ++cb)
    for (int cr = 0; cr < 256; ++cr) {
      const kiu::RoundTrip t = kiu::RoundTripOf(cb, cr);
      for (int y = 0; y < 256; ++y) {
        unsigned char ycc[3] = {static_cast<unsigned char>(y), static_cast<unsigned char>(cb),
                                static_cast<unsigned char>(cr)};
        unsigned char rgb[4], want[3];
        kiu::ConvertYUVtoRGB(1, ycc, rgb);
        kiu::ConvertRGBtoYUV(1, rgb, want);
        const bool clamps =
            std::min({rgb[0], rgb[1], rgb[2]}) == 0 || std::max({rgb[0], rgb[1], rgb[2]}) == 255;
        const bool inRange = y >= t.yLow && y <= t.yHigh;
        if (inRange) {
          ASSERT_EQ(Bytes(want, want + 3), Bytes({uint8_t(y + t.dy), t.u, t.v}))
              << y << " " << cb << " " << cr;
        }
        // The range is not too narrow: only a pixel touching 0 or 255 may leave it.
        if (!clamps) {
          ASSERT_TRUE(inRange) << y << " " << cb << " " << cr;
        }
        identityPixels += inRange;
        uint8_t got[3];
        kiu::RoundTripPixel(y, cb, cr, t, got[0], got[1], got[2]);
        ASSERT_EQ(Bytes(got, got + 3), Bytes(want, want + 3)) << y << " " << cb << " " << cr;
      }
    }
  EXPECT_GT(identityPixels, 1 << 21);  // about a quarter of the cube, most of a photo
}

// A name's format code, or the line that refuses it.
TEST(ColorSpaceFrom, NamesFormatsIgnoringCaseAndRejectsTheRest) {
  const std::pair<const char*, std::string> names[] = {
      {"abgr", "8"},    {"rgba", "13"},   {"yuv", "16"},   {"vyu", "21"},   {"yzuv", "32"},
      {"uvyz", "49"},   {"vzyu", "55"},   {"i420", "64"},  {"cmyk", "128"}, {"ycck", "256"},
      {"RGBA", "13"},   {"Rgb", "12"},    {"I420", "64"},  {"YcCk", "256"}, {nullptr, ":9"},
      {"rgbaa", ":11"}, {"i4200", ":11"}, {"rgx", ":26"},  {"rg", ":26"},   {"", ":26"},
      {"r", ":26"},     {"rgbx", ":64"},  {"yzzz", ":64"}, {"RG[", ":26"},  {"@gb", ":26"}};
  for (const auto& [name, expected] : names) {
    int code = 0;
    const std::string at = keltest::ThrownAt([&, name = name] { code = kiu::ColorSpaceFrom(name); });
    EXPECT_EQ(at == "none" ? std::to_string(code) : at,
              expected[0] == ':' ? "common/kiu/kiu" + expected : expected)
        << (name != nullptr ? name : "(null)");
  }
}

}  // namespace
