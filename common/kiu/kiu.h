// Image utilities: pixel formats, the colour tables and the shared sample
// range-limit table, per-pixel and row colour converters, format names.
// Scaling lives in kiuscale.h.
#ifndef KIU_KIU_H
#define KIU_KIU_H

#include <algorithm>
#include <cstdint>

#include "../kau/kexport.h"

// The picture record of the codec entry points: the decoder fills it, the
// encoder reads width, height and data. Layout is fixed on the target.
struct STImageSimple {
  uint32_t width;
  uint32_t height;
  uint32_t size;    // total bytes; planar YUV output only
  uint32_t stride;  // bytes per row; packed outputs only
  uint16_t bitsPerPixel;
  unsigned char* data;  // from kau::mem::New; the caller owns it
};

namespace kiu {

// 32-bit format codes; the letters name the byte order of one packed pixel.
enum Format : int32_t {
  FormatABGR = 8,
  FormatARGB = 9,
  FormatBGR = 10,
  FormatBGRA = 11,
  FormatRGB = 12,
  FormatRGBA = 13,
  FormatYUV = 16,
  FormatYVU = 17,
  FormatUVY = 18,
  FormatUYV = 19,
  FormatVUY = 20,
  FormatVYU = 21,
  // 32 to 55: four-byte YUV orders with a filler byte "z" (see ColorSpaceFrom).
  FormatYZUV = 32,
  FormatVZYU = 55,
  FormatI420 = 64,
  FormatCMYK = 128,
  FormatYCCK = 256,
};

// Colour tables, 16-bit fixed point. They are constant data, complete before
// any code of the library runs, so no start-up step can see them unbuilt.
// YCbCr to RGB weights, 16-bit fixed point, for d = Cb - 128 or Cr - 128:
// R = Y + ((kCrToR * d + 32768) >> 16), B = Y + ((kCbToB * d + 32768) >> 16),
// G = Y + ((kCbToG * dCb + 32768 + kCrToG * dCr) >> 16).
constexpr int32_t kCrToR = 91881, kCbToB = 116130, kCbToG = -22554, kCrToG = -46802;

struct ColorTables {
  int32_t rToY[256], gToY[256], bToY[256];
  int32_t rToCb[256], gToCb[256], bToCb[256];  // bToCb also serves as R to Cr
  int32_t gToCr[256], bToCr[256];
  int32_t byCr[256][2];  // {Cr to R (integer), Cr to G (scaled)}
  int32_t byCb[256][2];  // {Cb to B (integer), Cb to G (scaled, +32768)}
};
extern const ColorTables colorTables;

// The 1408-byte clamp table, followed by its "built" flag byte, and the
// pointer to its byte 256: valid indices are -256 to 1151. Pointers derived
// from the table's address (the decoder's IDCT limit) are constant-initialised.
constexpr int kRangeLimitBytes = 1408;
struct RangeLimitTable {
  unsigned char bytes[kRangeLimitBytes + 1];
};
extern const RangeLimitTable rangeLimitTable;
extern const unsigned char* const ubyteRangeLimit;

// YCbCr to R, G, B offsets of one chroma pair: R = y + r, G = y + g,
// B = y + b before clamping.
struct ChromaOffsets {
  int32_t r, g, b;
};
inline ChromaOffsets ChromaOffsetsOf(int cb, int cr) {
  const ColorTables& t = colorTables;
  return {t.byCr[cr][0], (t.byCb[cb][1] + t.byCr[cr][1]) >> 16, t.byCb[cb][0]};
}

// YUV of the RGB of one YCbCr pixel, as the two table conversions give it.
// While no channel clamps, the luma weights (summing to 65536) turn the
// round trip into Y' = y + dy and the chroma weights (summing to 0) make U'
// and V' depend on the chroma pair alone; `yLow`..`yHigh` is that range of y.
struct RoundTrip {
  int32_t dy, yLow, yHigh;
  uint8_t u, v;
};
inline RoundTrip RoundTripOf(int cb, int cr) {
  const ChromaOffsets o = ChromaOffsetsOf(cb, cr);
  const int32_t lo = std::min(std::min(o.r, o.g), std::min(o.b, 0));
  const int32_t hi = std::max(std::max(o.r, o.g), std::max(o.b, 0));
  RoundTrip t;
  t.dy = (19595 * o.r + 38470 * o.g + 7471 * o.b + 32768) >> 16;
  t.u = static_cast<uint8_t>((-11059 * o.r - 21709 * o.g + 32768 * o.b + 8421375) >> 16);
  t.v = static_cast<uint8_t>((32768 * o.r - 27439 * o.g - 5329 * o.b + 8421375) >> 16);
  t.yLow = -lo;
  t.yHigh = 255 - hi;
  return t;
}
// The exact round trip of one pixel: the identity inside the range, the
// two conversions outside it.
inline void RoundTripPixel(int y, int cb, int cr, const RoundTrip& t, uint8_t& yy, uint8_t& u, uint8_t& v) {
  if (y >= t.yLow && y <= t.yHigh) {
    yy = static_cast<uint8_t>(y + t.dy);
    u = t.u;
    v = t.v;
    return;
  }
  const ChromaOffsets o = ChromaOffsetsOf(cb, cr);
  const ColorTables& c = colorTables;
  const unsigned char r = ubyteRangeLimit[y + o.r], g = ubyteRangeLimit[y + o.g],
                      b = ubyteRangeLimit[y + o.b];
  yy = static_cast<uint8_t>((c.rToY[r] + c.gToY[g] + c.bToY[b]) >> 16);
  u = static_cast<uint8_t>((c.rToCb[r] + c.gToCb[g] + c.bToCb[b]) >> 16);
  v = static_cast<uint8_t>((c.bToCb[r] + c.gToCr[g] + c.bToCr[b]) >> 16);
}

// Per-pixel RGB to YCbCr; the tables keep every result within 0..255.
KEL_API void ConvertRGBtoY(unsigned char r, unsigned char g, unsigned char b, unsigned char& y);
KEL_API void ConvertRGBtoYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char& y,
                             unsigned char& u, unsigned char& v);

// Row converters. `planes[c][row]` is the row of component c (Y, Cb, Cr, K;
// or R, G, B; or C, M, Y, K). Subsampled forms read chroma at x / 2. The
// "toRGB" forms step 4 bytes per pixel and leave the fourth byte untouched.

// Packed 4-byte R, G, B, x pixels to 3-byte Y, U, V pixels.
KEL_API void ConvertRGBtoYUV(unsigned long count, const unsigned char* input, unsigned char* output);
KEL_API void ConvertGrayToYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                              unsigned char* output);
KEL_API void ConvertYUVtoYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                             unsigned char* output);
KEL_API void ConvertYUV211toYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                                unsigned char* output);
KEL_API void ConvertYUV420toYUV(unsigned long count, unsigned char*** planes, unsigned long row,
                                unsigned char* output);
// Two output rows from luma rows `row` and `row` + 1 and chroma row `row`;
// the second row starts count * 3 bytes after the first.
KEL_API void ConvertYUV420toYUV2(unsigned long count, unsigned char*** planes, unsigned long row,
                                 unsigned char* output);
// Keeps only the low 8 bits of each product before dividing by 255, so real
// CMYK pictures come out black. Callers rely on this exact result.
KEL_API void ConvertCMYKtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                              unsigned char* output);
KEL_API void ConvertYCCKtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                              unsigned char* output);
KEL_API void ConvertYUVtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                             unsigned char* output);
// Packed 3-byte Y, Cb, Cr pixels to 4-byte pixels.
KEL_API void ConvertYUVtoRGB(unsigned long count, const unsigned char* input, unsigned char* output);
KEL_API void ConvertRGBtoRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                             unsigned char* output);
KEL_API void ConvertGrayToRGB(unsigned long count, unsigned char*** planes, unsigned long row,
                              unsigned char* output);

// RGBA forms read row 0 of each plane and write R, G, B, alpha.
KEL_API void ConvertYUV111toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                                 unsigned char* output);
KEL_API void ConvertYUV211toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                                 unsigned char* output);
KEL_API void ConvertYUV420toRGBA(unsigned long count, unsigned char*** planes, unsigned char alpha,
                                 unsigned char* output);
// Luma rows 0 and 1 share chroma row 0; the second output row starts
// count * 4 bytes after the first.
KEL_API void ConvertYUV420toRGBA2(unsigned long count, unsigned char*** planes, unsigned char alpha,
                                  unsigned char* output);

// Decoder-internal row kernels (not exported), the scalar twins of the
// decoder's SIMD ones. RGBA rows of `count` pixels pairwise sharing chroma
// sample x / 2; `y1`, when not null, is a second luma row sharing them,
// written to `out1` (ignored when `y1` is null).
void ConvertYUV211toRGBARows(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                             const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                             unsigned char* out0, unsigned char* out1);
// An RGBA row with one chroma sample per pixel.
void ConvertYUV111toRGBARow(uint32_t count, const unsigned char* y, const unsigned char* cb,
                            const unsigned char* cr, unsigned char alpha, unsigned char* out);
// I420 rows of even `width`
// from two luma rows sharing one chroma row: the 2x2 average of the YUV of
// each pixel's RGB, as the two table conversions give it.
void ConvertYUV420toI420(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                         const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                         unsigned char* outY1, unsigned char* outU, unsigned char* outV);
// One I420 chroma row of `pairs` samples from two chroma rows: the rounded
// 2x2 average, each pair's two samples or (halved) its one sample repeated.
void AverageChromaRows(uint32_t pairs, bool halved, const unsigned char* a, const unsigned char* b,
                       unsigned char* out);
using ChromaRowsAverager = decltype(AverageChromaRows);
// I420 rows of even `width` from rows `row` and `row` + 1 of Y, Cb, Cr
// planes taken as they are (chroma at x / 2 when halved): luma copied,
// chroma averaged by `average` (AverageChromaRows or a twin).
void ConvertYUVtoI420(uint32_t width, bool halvedChroma, unsigned char*** planes, uint32_t row,
                      unsigned char* outY0, unsigned char* outY1, unsigned char* outU, unsigned char* outV,
                      ChromaRowsAverager* average = AverageChromaRows);
// I420 rows of even `width` from two rows of packed 3-byte Y, U, V pixels:
// luma as it is, chroma the rounded 2x2 average.
void PackedYUVtoI420(uint32_t width, const unsigned char* row0, const unsigned char* row1,
                     unsigned char* outY0, unsigned char* outY1, unsigned char* outU, unsigned char* outV);

// Format code of a three- or four-letter name, case-insensitive; throws on
// a null, longer or unknown name.
KEL_API Format ColorSpaceFrom(const char* name);

}  // namespace kiu

#endif  // KIU_KIU_H
