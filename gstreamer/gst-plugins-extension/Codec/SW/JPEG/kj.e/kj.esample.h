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

// Row kernels from packed pixels (bytes 0..2 are R, G, B) to one channel of
// YCbCr (0 Y, 1 Cb, 2 Cr), each result exactly the colour tables' sum
// shifted down by 16. Pixels at or past `width` repeat the last one, so the
// rows come out `outWidth` samples long with the edge already replicated.
void Sample_YccRow(const unsigned char* in, uint32_t width, uint32_t outWidth, int channel,
                   unsigned char* out);
// The mean of two horizontal pixels' values, biased 0, 1, 0, 1, ...
void Sample_YccRowH2V1(const unsigned char* in, uint32_t width, uint32_t outWidth, int channel,
                       unsigned char* out);
// The mean of a 2x2 square over rows `a` and `b`, biased 1, 2, 1, 2, ...
void Sample_YccRowH2V2(const unsigned char* a, const unsigned char* b, uint32_t width, uint32_t outWidth,
                       int channel, unsigned char* out);

}  // namespace kje

#endif  // KJ_E_KJ_ESAMPLE_H
