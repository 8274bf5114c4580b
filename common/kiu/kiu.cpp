#include "kiu.h"

#include <algorithm>

#include "../kau/kau.h"

namespace kiu {
namespace {

constexpr ColorTables BuildColorTables() {
  ColorTables t{};
  for (int i = 0; i < 256; ++i) {
    int d = i - 128;
    t.byCr[i][0] = (kCrToR * d + 32768) >> 16;
    t.byCr[i][1] = kCrToG * d;
    t.byCb[i][0] = (kCbToB * d + 32768) >> 16;
    t.byCb[i][1] = kCbToG * d + 32768;
    t.rToY[i] = 19595 * i;
    t.gToY[i] = 38470 * i;
    t.bToY[i] = 7471 * i + 32768;
    t.rToCb[i] = -11059 * i;
    t.gToCb[i] = -21709 * i;
    t.bToCb[i] = 32768 * i + 8421375;  // 128 << 16 plus a rounding term below one half
    t.gToCr[i] = -27439 * i;
    t.bToCr[i] = -5329 * i;
  }
  return t;
}

constexpr RangeLimitTable BuildRangeLimit() {
  RangeLimitTable r{};
  unsigned char* at = r.bytes + 256;
  for (int i = 0; i < 256; ++i) at[i] = static_cast<unsigned char>(i);
  for (int i = 256; i < 640; ++i) at[i] = 255;
  // 640..1023 stay 0; the IDCT's masked index wraps into 1024..1151.
  for (int i = 0; i < 128; ++i) at[1024 + i] = static_cast<unsigned char>(i);
  r.bytes[kRangeLimitBytes] = 1;  // built
  return r;
}

}  // namespace

// Constant-initialised: complete before any dynamic initialiser of any
// translation unit runs, so pointers derived from these need no ordering.
constexpr ColorTables colorTables = BuildColorTables();
constexpr RangeLimitTable rangeLimitTable = BuildRangeLimit();
const unsigned char* const ubyteRangeLimit = rangeLimitTable.bytes + 256;

void ConvertRGBtoY(unsigned char r, unsigned char g, unsigned char b, unsigned char& y) {
  const ColorTables& t = colorTables;
  y = static_cast<unsigned char>((t.rToY[r] + t.gToY[g] + t.bToY[b]) >> 16);
}

void ConvertRGBtoYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char& y, unsigned char& u,
                     unsigned char& v) {
  const ColorTables& t = colorTables;
  y = static_cast<unsigned char>((t.rToY[r] + t.gToY[g] + t.bToY[b]) >> 16);
  u = static_cast<unsigned char>((t.rToCb[r] + t.gToCb[g] + t.bToCb[b]) >> 16);
  v = static_cast<unsigned char>((t.bToCb[r] + t.gToCr[g] + t.bToCr[b]) >> 16);
}

namespace {

// Y, Cb, Cr to R, G, B; the sums stay within the clamp table's range.
inline void YccToRgb(int y, int cb, int cr, unsigned char* out) {
  const ColorTables& t = colorTables;
  const unsigned char* clamp = ubyteRangeLimit;
  out[0] = clamp[y + t.byCr[cr][0]];
  out[1] = clamp[y + ((t.byCb[cb][1] + t.byCr[cr][1]) >> 16)];
  out[2] = clamp[y + t.byCb[cb][0]];
}

// 255 - (R, G, B) of Y, Cb, Cr, scaled by k / 255.
inline void YcckToRgb(int y, int cb, int cr, int k, unsigned char* out) {
  const ColorTables& t = colorTables;
  const unsigned char* clamp = ubyteRangeLimit;
  out[0] = static_cast<unsigned char>(k * clamp[255 - (y + t.byCr[cr][0])] / 255);
  out[1] = static_cast<unsigned char>(k * clamp[255 - (y + ((t.byCb[cb][1] + t.byCr[cr][1]) >> 16))] / 255);
  out[2] = static_cast<unsigned char>(k * clamp[255 - (y + t.byCb[cb][0])] / 255);
}

inline void Yuv(unsigned char y, unsigned char u, unsigned char v, unsigned char* out) {
  out[0] = y;
  out[1] = u;
  out[2] = v;
}

// One row of pixels pairwise sharing a chroma sample.
inline void Yuv211Row(uint32_t count, const unsigned char* y, const unsigned char* cb,
                      const unsigned char* cr, unsigned char* out) {
  uint32_t pairs = count / 2;
  for (uint32_t i = 0; i < pairs; ++i, out += 6) {
    Yuv(y[2 * i], cb[i], cr[i], out);
    Yuv(y[2 * i + 1], cb[i], cr[i], out + 3);
  }
  if (count & 1) Yuv(y[count - 1], cb[pairs], cr[pairs], out);
}

inline void PutRgba(int y, const ChromaOffsets& o, unsigned char alpha, unsigned char* out) {
  const unsigned char* clamp = rangeLimitTable.bytes + 256;
  out[0] = clamp[y + o.r];
  out[1] = clamp[y + o.g];
  out[2] = clamp[y + o.b];
  out[3] = alpha;
}

}  // namespace

// Chroma terms once per pair of pixels.
void ConvertYUV211toRGBARows(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                             const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                             unsigned char* out0, unsigned char* out1) {
  for (uint32_t i = 0; i < count; i += 2) {
    const ChromaOffsets o = ChromaOffsetsOf(cb[i / 2], cr[i / 2]);
    const bool both = i + 1 < count;
    PutRgba(y0[i], o, alpha, out0 + 4 * i);
    if (both) PutRgba(y0[i + 1], o, alpha, out0 + 4 * i + 4);
    if (y1 == nullptr) continue;
    PutRgba(y1[i], o, alpha, out1 + 4 * i);
    if (both) PutRgba(y1[i + 1], o, alpha, out1 + 4 * i + 4);
  }
}

void ConvertYUV111toRGBARow(uint32_t count, const unsigned char* y, const unsigned char* cb,
                            const unsigned char* cr, unsigned char alpha, unsigned char* out) {
  for (uint32_t i = 0; i < count; ++i, out += 4) {
    YccToRgb(y[i], cb[i], cr[i], out);
    out[3] = alpha;
  }
}

void ConvertRGBtoYUV(unsigned long count, const unsigned char* input, unsigned char* output) {
  const ColorTables& t = colorTables;
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, input += 4, output += 3) {
    unsigned char r = input[0], g = input[1], b = input[2];
    output[0] = static_cast<unsigned char>((t.rToY[r] + t.gToY[g] + t.bToY[b]) >> 16);
    output[1] = static_cast<unsigned char>((t.rToCb[r] + t.gToCb[g] + t.bToCb[b]) >> 16);
    output[2] = static_cast<unsigned char>((t.bToCb[r] + t.gToCr[g] + t.bToCr[b]) >> 16);
  }
}

void ConvertGrayToYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                      unsigned char* output) {
  const unsigned char* g = planes[0][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 3) {
    ConvertRGBtoYUV(g[i], g[i], g[i], output[0], output[1], output[2]);
  }
}

void ConvertYUVtoYUV(unsigned long count, unsigned char*** planes, unsigned long row, unsigned char* output) {
  const unsigned char* y = planes[0][row];
  const unsigned char* cb = planes[1][row];
  const unsigned char* cr = planes[2][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 3)
    Yuv(y[i], cb[i], cr[i], output);
}

void ConvertYUV211toYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                        unsigned char* output) {
  Yuv211Row(static_cast<uint32_t>(count), planes[0][row], planes[1][row], planes[2][row], output);
}

void ConvertYUV420toYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                        unsigned char* output) {
  Yuv211Row(static_cast<uint32_t>(count), planes[0][row], planes[1][row], planes[2][row], output);
}

void ConvertYUV420toYUV2(unsigned long count, unsigned char*** planes, unsigned long row,
                         unsigned char* output) {
  uint32_t n = static_cast<uint32_t>(count);
  Yuv211Row(n, planes[0][row], planes[1][row], planes[2][row], output);
  Yuv211Row(n, planes[0][row + 1], planes[1][row], planes[2][row], output + 3 * n);
}

void ConvertCMYKtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                      unsigned char* output) {
  const unsigned char* c = planes[0][row];
  const unsigned char* m = planes[1][row];
  const unsigned char* y = planes[2][row];
  const unsigned char* k = planes[3][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 4) {
    uint32_t w = 255u - k[i];
    output[0] = static_cast<unsigned char>((((255u - c[i]) * w) & 0xFFu) / 255u);
    output[1] = static_cast<unsigned char>((((255u - m[i]) * w) & 0xFFu) / 255u);
    output[2] = static_cast<unsigned char>((((255u - y[i]) * w) & 0xFFu) / 255u);
  }
}

void ConvertYCCKtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                      unsigned char* output) {
  const unsigned char* y = planes[0][row];
  const unsigned char* cb = planes[1][row];
  const unsigned char* cr = planes[2][row];
  const unsigned char* k = planes[3][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 4) {
    YcckToRgb(y[i], cb[i], cr[i], k[i], output);
  }
}

void ConvertYUVtoRGB(unsigned long count, unsigned char*** planes, unsigned long row, unsigned char* output) {
  const unsigned char* y = planes[0][row];
  const unsigned char* cb = planes[1][row];
  const unsigned char* cr = planes[2][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 4) {
    YccToRgb(y[i], cb[i], cr[i], output);
  }
}

void ConvertYUVtoRGB(unsigned long count, const unsigned char* input, unsigned char* output) {
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, input += 3, output += 4) {
    YccToRgb(input[0], input[1], input[2], output);
  }
}

void ConvertRGBtoRGB(unsigned long count, unsigned char*** planes, unsigned long row, unsigned char* output) {
  const unsigned char* r = planes[0][row];
  const unsigned char* g = planes[1][row];
  const unsigned char* b = planes[2][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 4)
    Yuv(r[i], g[i], b[i], output);
}

void ConvertGrayToRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                      unsigned char* output) {
  const unsigned char* g = planes[0][row];
  for (uint32_t i = 0, n = static_cast<uint32_t>(count); i < n; ++i, output += 4)
    Yuv(g[i], g[i], g[i], output);
}

void ConvertYUV111toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                         unsigned char* output) {
  ConvertYUV111toRGBARow(static_cast<uint32_t>(count), planes[0][0], planes[1][0], planes[2][0], alpha,
                         output);
}

void ConvertYUV211toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                         unsigned char* output) {
  ConvertYUV211toRGBARows(static_cast<uint32_t>(count), planes[0][0], nullptr, planes[1][0], planes[2][0],
                          alpha, output, nullptr);
}

void ConvertYUV420toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                         unsigned char* output) {
  ConvertYUV211toRGBARows(static_cast<uint32_t>(count), planes[0][0], nullptr, planes[1][0], planes[2][0],
                          alpha, output, nullptr);
}

void ConvertYUV420toRGBA2(unsigned long count, unsigned char*** planes, unsigned char alpha,
                          unsigned char* output) {
  uint32_t n = static_cast<uint32_t>(count);
  ConvertYUV211toRGBARows(n, planes[0][0], planes[0][1], planes[1][0], planes[2][0], alpha, output,
                          output + 4 * n);
}

void ConvertYUV420toI420(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                         const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                         unsigned char* outY1, unsigned char* outU, unsigned char* outV) {
  for (uint32_t i = 0, pairs = width / 2; i < pairs; ++i) {
    const RoundTrip t = RoundTripOf(cb[i], cr[i]);
    const int a = y0[2 * i], b = y0[2 * i + 1], c = y1[2 * i], d = y1[2 * i + 1];
    const int lo = std::min(std::min(a, b), std::min(c, d));
    const int hi = std::max(std::max(a, b), std::max(c, d));
    if (lo >= t.yLow && hi <= t.yHigh) {
      outY0[2 * i] = static_cast<unsigned char>(a + t.dy);
      outY0[2 * i + 1] = static_cast<unsigned char>(b + t.dy);
      outY1[2 * i] = static_cast<unsigned char>(c + t.dy);
      outY1[2 * i + 1] = static_cast<unsigned char>(d + t.dy);
      outU[i] = t.u;  // (4u + 2) / 4
      outV[i] = t.v;
      continue;
    }
    uint8_t u[4], v[4];
    RoundTripPixel(a, cb[i], cr[i], t, outY0[2 * i], u[0], v[0]);
    RoundTripPixel(b, cb[i], cr[i], t, outY0[2 * i + 1], u[1], v[1]);
    RoundTripPixel(c, cb[i], cr[i], t, outY1[2 * i], u[2], v[2]);
    RoundTripPixel(d, cb[i], cr[i], t, outY1[2 * i + 1], u[3], v[3]);
    outU[i] = static_cast<unsigned char>((u[0] + u[1] + u[2] + u[3] + 2) / 4);
    outV[i] = static_cast<unsigned char>((v[0] + v[1] + v[2] + v[3] + 2) / 4);
  }
}

void AverageChromaRows(uint32_t pairs, bool halved, const unsigned char* a, const unsigned char* b,
                       unsigned char* out) {
  // A halved sample stands for both pixels of the pair: (2a + 2b + 2) / 4
  // is (a + b + 1) / 2.
  if (halved) {
    for (uint32_t i = 0; i < pairs; ++i) out[i] = static_cast<unsigned char>((a[i] + b[i] + 1) / 2);
    return;
  }
  for (uint32_t i = 0; i < pairs; ++i)
    out[i] = static_cast<unsigned char>((a[2 * i] + a[2 * i + 1] + b[2 * i] + b[2 * i + 1] + 2) / 4);
}

void ConvertYUVtoI420(uint32_t width, bool halvedChroma, unsigned char*** planes, uint32_t row,
                      unsigned char* outY0, unsigned char* outY1, unsigned char* outU, unsigned char* outV,
                      ChromaRowsAverager* average) {
  kau::mem::Copy8(outY0, planes[0][row], width);
  kau::mem::Copy8(outY1, planes[0][row + 1], width);
  average(width / 2, halvedChroma, planes[1][row], planes[1][row + 1], outU);
  average(width / 2, halvedChroma, planes[2][row], planes[2][row + 1], outV);
}

void PackedYUVtoI420(uint32_t width, const unsigned char* row0, const unsigned char* row1,
                     unsigned char* outY0, unsigned char* outY1, unsigned char* outU, unsigned char* outV) {
  for (uint32_t x = 0; x + 1 < width; x += 2, row0 += 6, row1 += 6) {
    outY0[x] = row0[0];
    outY0[x + 1] = row0[3];
    outY1[x] = row1[0];
    outY1[x + 1] = row1[3];
    outU[x / 2] = static_cast<unsigned char>((row0[1] + row0[4] + row1[1] + row1[4] + 2) / 4);
    outV[x / 2] = static_cast<unsigned char>((row0[2] + row0[5] + row1[2] + row1[5] + 2) / 4);
  }
}

namespace {

constexpr const char* kSource = "common/kiu/kiu";

struct NamedFormat {
  char name[5];
  Format code;
};

constexpr NamedFormat kThreeLetter[] = {
    {"bgr", FormatBGR}, {"rgb", FormatRGB}, {"yuv", FormatYUV}, {"yvu", FormatYVU},
    {"uvy", FormatUVY}, {"uyv", FormatUYV}, {"vuy", FormatVUY}, {"vyu", FormatVYU},
};

// The filler orders take the codes 32 to 55 in this order.
constexpr const char kFillerOrders[24][5] = {
    "yzuv", "yzvu", "yuvz", "yuzv", "yvuz", "yvzu", "zyuv", "zyvu", "zuvy", "zuyv", "zvuy", "zvyu",
    "uyzv", "uyvz", "uzvy", "uzyv", "uvzy", "uvyz", "vyuz", "vyzu", "vuzy", "vuyz", "vzuy", "vzyu",
};

constexpr NamedFormat kFourLetter[] = {
    {"abgr", FormatABGR}, {"argb", FormatARGB}, {"bgra", FormatBGRA}, {"rgba", FormatRGBA},
    {"i420", FormatI420}, {"cmyk", FormatCMYK}, {"ycck", FormatYCCK},
};

inline char Fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool Same(const char* folded, const char* name, int length) {
  for (int i = 0; i < length; ++i) {
    if (folded[i] != name[i]) return false;
  }
  return true;
}

}  // namespace

Format ColorSpaceFrom(const char* name) {
  constexpr kau::Fault kSiteNullName{kSource, 9, kau::Category::kBadArgument, "no colour space name"};
  constexpr kau::Fault kSiteTooLong{kSource, 11, kau::Category::kBadArgument,
                                    "a colour space name longer than four letters"};
  constexpr kau::Fault kSiteUnknownThree{kSource, 26, kau::Category::kBadArgument,
                                         "an unknown colour space name"};
  constexpr kau::Fault kSiteUnknownFour{kSource, 64, kau::Category::kBadArgument,
                                        "an unknown colour space name"};
  if (name == nullptr) kau::Throw(kSiteNullName);
  // Never read past the terminator: shorter names are three-letter names
  // that match nothing.
  char folded[4] = {};
  int length = 0;
  while (length < 5 && name[length] != 0) {
    if (length == 4) kau::Throw(kSiteTooLong);
    folded[length] = Fold(name[length]);
    ++length;
  }
  if (length == 4) {
    for (const NamedFormat& f : kFourLetter) {
      if (Same(folded, f.name, 4)) return f.code;
    }
    for (int i = 0; i < 24; ++i) {
      if (Same(folded, kFillerOrders[i], 4)) return static_cast<Format>(FormatYZUV + i);
    }
    kau::Throw(kSiteUnknownFour);
  }
  for (const NamedFormat& f : kThreeLetter) {
    if (Same(folded, f.name, 3)) return f.code;
  }
  kau::Throw(kSiteUnknownThree);
}

}  // namespace kiu
