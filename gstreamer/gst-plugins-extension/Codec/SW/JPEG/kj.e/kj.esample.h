// Format ranges the encoder's sampler tells apart.
#ifndef KJ_E_KJ_ESAMPLE_H
#define KJ_E_KJ_ESAMPLE_H

#include "kiu/kiu.h"

namespace kje {

// Packed 4-byte pixels in (bytes 0..2 are the samples); an RGB JPEG out.
inline bool IsPackedRGB(int format) { return format >= kiu::FormatABGR && format <= kiu::FormatRGBA; }
// A YCbCr 4:2:0 JPEG out.
inline bool IsYCbCrOutput(int format) {
  return (format >= kiu::FormatYUV && format <= kiu::FormatVYU) || format == kiu::FormatI420;
}
inline bool IsPlanar(int format) { return format == kiu::FormatI420; }

}  // namespace kje

#endif  // KJ_E_KJ_ESAMPLE_H
