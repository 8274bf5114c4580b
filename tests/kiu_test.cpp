// Colour conversion: the documented numeric cases, the chroma pairing of the
// subsampled converters, format names, and exact agreement with TurboJPEG's
// fixed-point YCbCr transforms on photo-like pictures.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "support/testutil.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

using Bytes = std::vector<unsigned char>;
constexpr unsigned char kSentinel = 0xA5;

// Rows of up to four components, addressed as the converters expect.
struct Planes {
  std::vector<Bytes> rows[4];
  std::vector<unsigned char*> pointers[4];
  unsigned char** table[4] = {};

  unsigned char*** Get() {
    for (int c = 0; c < 4; ++c) {
      pointers[c].clear();
      for (Bytes& r : rows[c]) pointers[c].push_back(r.data());
      table[c] = pointers[c].data();
    }
    return table;
  }
};

Planes OnePixel(std::initializer_list<unsigned char> components) {
  Planes p;
  int c = 0;
  for (unsigned char v : components) p.rows[c++] = {Bytes{v}};
  return p;
}

std::array<int, 3> Rgb(const unsigned char* out) { return {out[0], out[1], out[2]}; }

TEST(RangeLimit, ClampsAndServesTheTransformWindow) {
  const unsigned char* t = kiu::ubyteRangeLimit;
  for (int i = -256; i < 0; ++i) ASSERT_EQ(t[i], 0) << i;
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i) << i;
  for (int i = 256; i < 640; ++i) ASSERT_EQ(t[i], 255) << i;
  for (int i = 640; i < 1024; ++i) ASSERT_EQ(t[i], 0) << i;
  for (int i = 1024; i < 1152; ++i) ASSERT_EQ(t[i], i - 1024) << i;
  EXPECT_EQ(t[1152], 1) << "built flag";
}

// The documented single-pixel results. Row converters step 4 bytes and must
// leave the fourth byte alone (grey to YUV steps 3).
using Row = void (*)(unsigned long, unsigned char***, unsigned long, unsigned char*);
constexpr Row kYuvToRgb = kiu::ConvertYUVtoRGB;

struct PixelCase {
  const char* what;
  Row convert;
  std::initializer_list<unsigned char> in;
  std::array<int, 3> rgb;
};

// clang-format off
const PixelCase kPixelCases[] = {
    {"YCbCr chroma extremes clamp G", kYuvToRgb, {0, 255, 255}, {178, 0, 225}},
    {"YCbCr grey", kYuvToRgb, {77, 128, 128}, {77, 77, 77}},
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
// clang-format on

TEST(Converters, GiveTheDocumentedPixelValues) {
  for (const PixelCase& c : kPixelCases) {
    Planes planes = OnePixel(c.in);
    unsigned char out[5] = {kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
    c.convert(1, planes.Get(), 0, out);
    EXPECT_EQ(Rgb(out), c.rgb) << c.what;
    EXPECT_EQ(out[3], kSentinel) << c.what;
  }
  // The packed and RGBA forms share the transform.
  const unsigned char ycc[3] = {0, 255, 255};
  unsigned char out[4] = {kSentinel, kSentinel, kSentinel, kSentinel};
  kiu::ConvertYUVtoRGB(1, ycc, out);
  EXPECT_EQ(Bytes(out, out + 4), (Bytes{178, 0, 225, kSentinel}));
  Planes planes = OnePixel({0, 255, 255});
  kiu::ConvertYUV111toRGBA(1, planes.Get(), 9, out);
  EXPECT_EQ(Bytes(out, out + 4), (Bytes{178, 0, 225, 9}));
}

TEST(Converters, RgbToYuvGivesWhiteAndBlack) {
  unsigned char y, u, v;
  kiu::ConvertRGBtoYUV(255, 255, 255, y, u, v);
  EXPECT_EQ((std::array<int, 3>{y, u, v}), (std::array<int, 3>{255, 128, 128}));
  kiu::ConvertRGBtoYUV(0, 0, 0, y, u, v);
  EXPECT_EQ((std::array<int, 3>{y, u, v}), (std::array<int, 3>{0, 128, 128}));

  const unsigned char packed[8] = {255, 255, 255, 7, 0, 0, 0, 7};
  unsigned char out[7] = {0, 0, 0, 0, 0, 0, kSentinel};
  kiu::ConvertRGBtoYUV(2, packed, out);
  EXPECT_EQ(Bytes(out, out + 7), (Bytes{255, 128, 128, 0, 128, 128, kSentinel}));
}

// Subsampled rows: luma 10, 11, 12, chroma distinct per index, so each
// output pixel shows which chroma sample it took.
struct PairingCase {
  const char* what;
  int bytesPerPixel;
  int outputRows;
  void (*convert)(unsigned long, unsigned char***, unsigned char*);
};

const PairingCase kPairingCases[] = {
    {"211 to YUV", 3, 1,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV211toYUV(n, p, 1, o); }},
    {"420 to YUV", 3, 1,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV420toYUV(n, p, 1, o); }},
    {"420 to YUV, two rows", 3, 2,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV420toYUV2(n, p, 1, o); }},
    {"211 to RGBA", 4, 1,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV211toRGBA(n, p, 200, o); }},
    {"420 to RGBA", 4, 1,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV420toRGBA(n, p, 200, o); }},
    {"420 to RGBA, two rows", 4, 2,
     [](unsigned long n, unsigned char*** p, unsigned char* o) { kiu::ConvertYUV420toRGBA2(n, p, 200, o); }},
};

TEST(Converters, SubsampledPixelsPairUpOnChroma) {
  for (const PairingCase& c : kPairingCases) {
    bool rgba = c.bytesPerPixel == 4;
    // RGBA forms read from row 0; the YUV forms from `row` = 1.
    int base = rgba ? 0 : 1;
    for (unsigned long count : {1ul, 2ul, 3ul, 6ul, 7ul}) {
      Planes p;
      for (int r = 0; r < 3; ++r) {
        Bytes y(count), cb((count + 1) / 2), cr((count + 1) / 2);
        for (unsigned long x = 0; x < count; ++x) y[x] = static_cast<unsigned char>(100 + 10 * r + x);
        for (size_t x = 0; x < cb.size(); ++x) {
          cb[x] = static_cast<unsigned char>(128 + 4 * x + r);
          cr[x] = static_cast<unsigned char>(120 - 4 * x - r);
        }
        p.rows[0].push_back(y);
        p.rows[1].push_back(cb);
        p.rows[2].push_back(cr);
      }
      size_t bytes = count * c.bytesPerPixel * c.outputRows;
      Bytes out(bytes + 4, kSentinel);
      c.convert(count, p.Get(), out.data());
      for (int row = 0; row < c.outputRows; ++row) {
        for (unsigned long x = 0; x < count; ++x) {
          const unsigned char* px = out.data() + (row * count + x) * c.bytesPerPixel;
          unsigned char y = p.rows[0][base + row][x];
          unsigned char cb = p.rows[1][base][x / 2], cr = p.rows[2][base][x / 2];
          if (rgba) {
            unsigned char expect[4] = {0, 0, 0, 200};
            const unsigned char ycc[3] = {y, cb, cr};
            kiu::ConvertYUVtoRGB(1, ycc, expect);
            EXPECT_EQ(Bytes(px, px + 4), Bytes(expect, expect + 4))
                << c.what << " count " << count << " x " << x;
          } else {
            EXPECT_EQ(Bytes(px, px + 3), (Bytes{y, cb, cr})) << c.what << " count " << count << " x " << x;
          }
        }
      }
      EXPECT_EQ(Bytes(out.end() - 4, out.end()), Bytes(4, kSentinel)) << c.what << " wrote past " << count;
    }
  }
}

TEST(ColorSpaceFrom, NamesEveryFormatIgnoringCase) {
  const std::pair<const char*, int> names[] = {
      {"abgr", 8},   {"argb", 9},  {"bgr", 10},   {"bgra", 11},  {"rgb", 12},  {"rgba", 13}, {"yuv", 16},
      {"yvu", 17},   {"uvy", 18},  {"uyv", 19},   {"vuy", 20},   {"vyu", 21},  {"yzuv", 32}, {"yzvu", 33},
      {"yuvz", 34},  {"yuzv", 35}, {"yvuz", 36},  {"yvzu", 37},  {"zyuv", 38}, {"zyvu", 39}, {"zuvy", 40},
      {"zuyv", 41},  {"zvuy", 42}, {"zvyu", 43},  {"uyzv", 44},  {"uyvz", 45}, {"uzvy", 46}, {"uzyv", 47},
      {"uvzy", 48},  {"uvyz", 49}, {"vyuz", 50},  {"vyzu", 51},  {"vuzy", 52}, {"vuyz", 53}, {"vzuy", 54},
      {"vzyu", 55},  {"i420", 64}, {"cmyk", 128}, {"ycck", 256}, {"RGBA", 13}, {"Rgb", 12},  {"I420", 64},
      {"YcCk", 256},
  };
  for (const auto& [name, code] : names) EXPECT_EQ(kiu::ColorSpaceFrom(name), code) << name;
}

TEST(ColorSpaceFrom, RejectsWithTheDocumentedSites) {
  const std::pair<const char*, int> bad[] = {
      {nullptr, 9}, {"rgbaa", 11}, {"i4200", 11}, {"rgx", 26}, {"rg", 26},  {"", 26},
      {"r", 26},    {"rgbx", 64},  {"yzzz", 64},  {"RG[", 26}, {"@gb", 26},
  };
  for (const auto& [name, line] : bad) {
    std::string label = name != nullptr ? name : "(null)";
    try {
      kiu::ColorSpaceFrom(name);
      ADD_FAILURE() << label << " accepted";
    } catch (const kau::Error& e) {
      EXPECT_STREQ(e.FileName(), "common/kiu/kiu") << label;
      EXPECT_EQ(e.Position(), line) << label;
      EXPECT_EQ(e.Code(), -1) << label;
    }
  }
}

#ifdef KEL_HAVE_TURBOJPEG

// A photo-like picture compressed by TurboJPEG, its component planes and
// its RGB as TurboJPEG decodes them with pixel-replicating upsampling.
struct PeerDecode {
  int width, height, subsamp;
  Bytes planes[3];
  int strides[3];
  Bytes rgb;
};

PeerDecode DecodeWithPeer(int width, int height, int subsamp, uint32_t seed) {
  PeerDecode d{width, height, subsamp, {}, {}, {}};
  keltest::Bytes src = keltest::PhotoLike(width, height, 3, seed);
  tjhandle enc = tjInitCompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  EXPECT_EQ(
      tjCompress2(enc, src.data(), width, 0, height, TJPF_RGB, &jpeg, &size, subsamp, 92, TJFLAG_ACCURATEDCT),
      0);
  tjDestroy(enc);

  tjhandle dec = tjInitDecompress();
  unsigned char* dst[3];
  for (int c = 0; c < 3; ++c) {
    d.strides[c] = tjPlaneWidth(c, width, subsamp);
    d.planes[c].resize(static_cast<size_t>(d.strides[c]) * tjPlaneHeight(c, height, subsamp));
    dst[c] = d.planes[c].data();
  }
  EXPECT_EQ(tjDecompressToYUVPlanes(dec, jpeg, size, dst, width, d.strides, height, TJFLAG_ACCURATEDCT), 0);
  d.rgb.resize(static_cast<size_t>(width) * height * 3);
  EXPECT_EQ(tjDecompress2(dec, jpeg, size, d.rgb.data(), width, 0, height, TJPF_RGB,
                          TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE),
            0);
  tjDestroy(dec);
  tjFree(jpeg);
  return d;
}

// Row pointers into the peer's planes for luma row `y`.
struct PeerRows {
  unsigned char* rows[3][2];
  unsigned char** table[3];
  PeerRows(PeerDecode& d, int y, int chromaRow) {
    for (int c = 0; c < 3; ++c) {
      int r0 = c == 0 ? y : chromaRow;
      int r1 = c == 0 && y + 1 < d.height ? y + 1 : r0;
      rows[c][0] = d.planes[c].data() + static_cast<size_t>(r0) * d.strides[c];
      rows[c][1] = d.planes[c].data() + static_cast<size_t>(r1) * d.strides[c];
      table[c] = rows[c];
    }
  }
};

// First mismatching byte of a 4-byte-per-pixel row against the peer's RGB.
int FirstMismatch(const Bytes& ours, const PeerDecode& d, int y, int rows, int alpha) {
  for (int r = 0; r < rows; ++r) {
    for (int x = 0; x < d.width; ++x) {
      for (int c = 0; c < 3; ++c) {
        if (ours[(static_cast<size_t>(r) * d.width + x) * 4 + c] !=
            d.rgb[(static_cast<size_t>(y + r) * d.width + x) * 3 + c])
          return x * 4 + c;
      }
      if (alpha >= 0 && ours[(static_cast<size_t>(r) * d.width + x) * 4 + 3] != alpha) return x * 4 + 3;
    }
  }
  return -1;
}

// Full and horizontally halved chroma, through the RGBA form and through
// packed YUV plus the packed transform (and the plane form where it applies).
struct RowPeerCase {
  int subsamp, width, height;
  void (*toRgba)(unsigned long, unsigned char***, unsigned char, unsigned char*);
  Row toYuv;
};

const RowPeerCase kRowPeerCases[] = {
    {TJSAMP_444, 67, 41, kiu::ConvertYUV111toRGBA, kiu::ConvertYUVtoYUV},
    {TJSAMP_422, 45, 19, kiu::ConvertYUV211toRGBA, kiu::ConvertYUV211toYUV},
};

TEST(PeerTurboJpeg, FullAndHalvedChromaRowsMatchExactly) {
  for (const RowPeerCase& c : kRowPeerCases) {
    PeerDecode d = DecodeWithPeer(c.width, c.height, c.subsamp, 3);
    Bytes out(static_cast<size_t>(d.width) * 4), packed(static_cast<size_t>(d.width) * 3);
    for (int y = 0; y < d.height; ++y) {
      PeerRows rows(d, y, y);
      c.toRgba(d.width, rows.table, 77, out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 1, 77), -1) << c.subsamp << " RGBA form, row " << y;
      c.toYuv(d.width, rows.table, 0, packed.data());
      kiu::ConvertYUVtoRGB(d.width, packed.data(), out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 1, -1), -1) << c.subsamp << " packed form, row " << y;
      if (c.subsamp != TJSAMP_444) continue;
      kiu::ConvertYUVtoRGB(d.width, rows.table, 0, out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 1, -1), -1) << "planes form, row " << y;
    }
  }
}

TEST(PeerTurboJpeg, QuarterChromaMatchesExactlyIncludingOddEdges) {
  for (auto [w, h] : {std::pair{37, 29}, std::pair{64, 48}, std::pair{1, 3}}) {
    PeerDecode d = DecodeWithPeer(w, h, TJSAMP_420, 11);
    Bytes out(static_cast<size_t>(w) * 8), packed(static_cast<size_t>(w) * 6);
    int y = 0;
    for (; y + 1 < h; y += 2) {
      PeerRows rows(d, y, y / 2);
      kiu::ConvertYUV420toRGBA2(w, rows.table, 1, out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 2, 1), -1) << w << "x" << h << " rows " << y;
      // The packed pair: rows `row` and `row` + 1 of luma with chroma row `row`.
      unsigned char* luma[2] = {rows.rows[0][0], rows.rows[0][1]};
      unsigned char* cb[2] = {rows.rows[1][0], rows.rows[1][0]};
      unsigned char* cr[2] = {rows.rows[2][0], rows.rows[2][0]};
      unsigned char** table[3] = {luma, cb, cr};
      kiu::ConvertYUV420toYUV2(w, table, 0, packed.data());
      kiu::ConvertYUVtoRGB(2ul * w, packed.data(), out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 2, -1), -1) << w << "x" << h << " packed rows " << y;
    }
    if (y < h) {
      PeerRows rows(d, y, y / 2);
      kiu::ConvertYUV420toRGBA(w, rows.table, 1, out.data());
      ASSERT_EQ(FirstMismatch(out, d, y, 1, 1), -1) << w << "x" << h << " last row";
    }
  }
}

TEST(PeerTurboJpeg, RgbToYuvMatchesThePeersForwardTransform) {
  const int w = 53, h = 31;
  keltest::Bytes rgb = keltest::PhotoLike(w, h, 3, 8);
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

  Bytes rgbx(static_cast<size_t>(w) * 4), yuv(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < 3; ++c) rgbx[x * 4 + c] = rgb[(static_cast<size_t>(y) * w + x) * 3 + c];
      rgbx[x * 4 + 3] = static_cast<unsigned char>(x);
    }
    kiu::ConvertRGBtoYUV(w, rgbx.data(), yuv.data());
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < 3; ++c) {
        ASSERT_EQ(yuv[x * 3 + c], planes[c][static_cast<size_t>(y) * w + x])
            << "x " << x << " y " << y << " c " << c;
      }
    }
  }
}

#else
TEST(PeerTurboJpeg, Unavailable) { GTEST_SKIP() << "TurboJPEG not found"; }
#endif

}  // namespace
