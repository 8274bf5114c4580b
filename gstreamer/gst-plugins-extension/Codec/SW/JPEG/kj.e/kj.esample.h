// Format ranges the encoder's sampler tells apart.
#ifndef KJ_E_KJ_ESAMPLE_H
#define KJ_E_KJ_ESAMPLE_H

#include <cstdint>

#include "kiu/kiu.h"

namespace kje {

// Packed 4-byte pixels in (bytes 0..2 are the samples); an RGB JPEG out.
inline bool IsPackedRGB(int format) { return format >= kiu::FormatABGR && format <= kiu::FormatRGBA; }
// A YCbCr 4:2:0 JPEG out.
inline bool IsYCbCrOutput(int format) {
  return (format >= kiu::FormatYUV && format <= kiu::FormatVYU) || format == kiu::FormatI420;
}
inline bool IsPlanar(int format) { return format == kiu::FormatI420; }

// Weights of R, G, B and the constant of Y, Cb and Cr: the colour tables'
// entries are weight * sample (plus the constant on one of them), so one sum
// is the same.
struct YccWeights {
  int32_t r, g, b, bias;
};
constexpr YccWeights kYccWeights[3] = {
    {19595, 38470, 7471, 32768}, {-11059, -21709, 32768, 8421375}, {32768, -27439, -5329, 8421375}};

// Two rows of packed pixels (bytes 0..2 are R, G, B) and the 4:2:0 samples
// made from them. Pixels at or past `width` repeat the last one, so every
// output row comes out its full length with the edge already replicated.
struct YccRows {
  const unsigned char* in[2];  // the same row twice at the picture's bottom
  uint32_t width;
  uint32_t yWidth;  // Y samples per row, at least `width`
  uint32_t cWidth;  // Cb and Cr samples, at least half of `width`
  unsigned char* y[2];
  unsigned char* cb;
  unsigned char* cr;
};

// Y of both rows, each sample exactly the colour tables' sum shifted down by
// 16; Cb and Cr the mean of each 2x2 square's such values, biased 1, 2, 1, 2.
void Sample_YccRows(const YccRows& rows);
// The same from pixel `x` (even) on: the tails of the SIMD variants.
void Sample_YccRowsFrom(const YccRows& rows, uint32_t x);

}  // namespace kje

#endif  // KJ_E_KJ_ESAMPLE_H
