// Colour conversion: the documented values of the four-component and grey
// converters, exact agreement with TurboJPEG's fixed-point YCbCr transforms
// and chroma pairing on photo-like pictures, and format names.
#include <gtest/gtest.h>

#include <array>

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
      {"planar RGB copies", kiu::ConvertRGBtoRGB, {1, 2, 3}, {1, 2, 3}},
      {"grey to RGB repeats", kiu::ConvertGrayToRGB, {200}, {200, 200, 200}},
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

// A photo-like picture through cjpeg, and the peer's planes and pixels.
struct PeerDecode {
  int width = 0, height = 0;
  std::vector<keltest::ComponentPlane> planes;
  Bytes rgb;
  // Row pointers for luma rows y, y + 1 (clamped) and chroma row `chromaRow`.
  unsigned char* rows[3][2];
  unsigned char** table[3];
  unsigned char*** At(int y, int chromaRow) {
    for (int c = 0; c < 3; ++c) {
      keltest::ComponentPlane& p = planes[c];
      const int r0 = c == 0 ? y : chromaRow, r1 = c == 0 ? std::min(y + 1, p.height - 1) : r0;
      rows[c][0] = p.samples.data() + static_cast<size_t>(r0) * p.width;
      rows[c][1] = p.samples.data() + static_cast<size_t>(r1) * p.width;
      table[c] = rows[c];
    }
    return table;
  }
  // True when `ours` (4 bytes a pixel, `count` rows from y) has the peer's RGB and alpha `alpha` (< 0: any).
  bool Matches(const Bytes& ours, int y, int count, int alpha) const {
    for (size_t i = 0; i < static_cast<size_t>(width) * count; ++i) {
      if (!std::equal(&ours[4 * i], &ours[4 * i + 3], &rgb[3 * (y * static_cast<size_t>(width) + i)]))
        return false;
      if (alpha >= 0 && ours[4 * i + 3] != alpha) return false;
    }
    return true;
  }
};

PeerDecode Decode(int width, int height, const char* sample, uint32_t seed) {
  PeerDecode d;
  const Bytes jpeg = keltest::MakeJpeg(width, height, 3, seed, std::string("-quality 92 ") + sample);
  std::string why;
  EXPECT_TRUE(keltest::PeerPlanes(jpeg, &d.planes, &why) &&
              keltest::PeerRgb(jpeg, &d.rgb, &d.width, &d.height, &why))
      << why;
  return d;
}

// Full and horizontally halved chroma, through the RGBA form and through
// packed YUV plus the packed transform (and the plane form where it applies).
TEST(PeerTurboJpeg, FullAndHalvedChromaRowsMatchExactly) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  const struct {
    const char* sample;
    int width, height;
    void (*toRgba)(unsigned long, unsigned char***, unsigned char, unsigned char*);
    Row toYuv;
  } cases[] = {{"-sample 1x1", 67, 41, kiu::ConvertYUV111toRGBA, kiu::ConvertYUVtoYUV},
               {"-sample 2x1", 45, 19, kiu::ConvertYUV211toRGBA, kiu::ConvertYUV211toYUV}};
  for (const auto& c : cases) {
    PeerDecode d = Decode(c.width, c.height, c.sample, 3);
    Bytes out(static_cast<size_t>(d.width) * 4), packed(static_cast<size_t>(d.width) * 3);
    for (int y = 0; y < d.height; ++y) {
      SCOPED_TRACE(std::string(c.sample) + " row " + std::to_string(y));
      c.toRgba(d.width, d.At(y, y), 77, out.data());
      ASSERT_TRUE(d.Matches(out, y, 1, 77)) << "RGBA form";
      c.toYuv(d.width, d.At(y, y), 0, packed.data());
      kiu::ConvertYUVtoRGB(d.width, packed.data(), out.data());
      ASSERT_TRUE(d.Matches(out, y, 1, -1)) << "packed form";
      if (c.toYuv != kiu::ConvertYUVtoYUV) continue;
      kiu::ConvertYUVtoRGB(d.width, d.At(y, y), 0, out.data());
      ASSERT_TRUE(d.Matches(out, y, 1, -1)) << "planes form";
    }
  }
}

TEST(PeerTurboJpeg, QuarterChromaMatchesExactlyIncludingOddEdges) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  for (auto [w, h] : {std::pair{37, 29}, std::pair{64, 48}, std::pair{1, 3}}) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    PeerDecode d = Decode(w, h, "-sample 2x2", 11);
    Bytes out(static_cast<size_t>(w) * 8), packed(static_cast<size_t>(w) * 6);
    for (int y = 0; y < h; y += 2) {
      const int pair = y + 1 < h ? 2 : 1;
      if (pair == 2) {
        kiu::ConvertYUV420toRGBA2(w, d.At(y, y / 2), 1, out.data());
        ASSERT_TRUE(d.Matches(out, y, 2, 1)) << "rows " << y;
        kiu::ConvertYUV420toYUV2(w, d.At(y, y / 2), 0, packed.data());
      } else {
        kiu::ConvertYUV420toRGBA(w, d.At(y, y / 2), 1, out.data());
        ASSERT_TRUE(d.Matches(out, y, 1, 1)) << "last row";
        kiu::ConvertYUV420toYUV(w, d.At(y, y / 2), 0, packed.data());
      }
      kiu::ConvertYUVtoRGB(static_cast<unsigned long>(pair) * w, packed.data(), out.data());
      ASSERT_TRUE(d.Matches(out, y, pair, -1)) << "packed rows " << y;
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

TEST(ColorSpaceFrom, NamesFormatsIgnoringCase) {
  const std::pair<const char*, int> names[] = {
      {"abgr", 8},  {"rgba", 13},  {"yuv", 16},   {"vyu", 21},  {"yzuv", 32}, {"uvyz", 49}, {"vzyu", 55},
      {"i420", 64}, {"cmyk", 128}, {"ycck", 256}, {"RGBA", 13}, {"Rgb", 12},  {"I420", 64}, {"YcCk", 256}};
  for (const auto& [name, code] : names) EXPECT_EQ(kiu::ColorSpaceFrom(name), code) << name;
}

TEST(ColorSpaceFrom, RejectsWithTheDocumentedSites) {
  const std::pair<const char*, int> bad[] = {{nullptr, 9}, {"rgbaa", 11}, {"i4200", 11}, {"rgx", 26},
                                             {"rg", 26},   {"", 26},      {"r", 26},     {"rgbx", 64},
                                             {"yzzz", 64}, {"RG[", 26},   {"@gb", 26}};
  for (const auto& [name, line] : bad)
    EXPECT_EQ(keltest::ThrownAt([name = name] { kiu::ColorSpaceFrom(name); }),
              "common/kiu/kiu:" + std::to_string(line))
        << (name != nullptr ? name : "(null)");
}

}  // namespace
