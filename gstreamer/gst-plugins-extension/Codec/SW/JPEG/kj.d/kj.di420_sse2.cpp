// 4:2:0 to I420 for x86-64's baseline SSE2: eight pairs a step.
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.di420_simd.h"

namespace kjd {

void YUV420toI420_sse2(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                       const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                       unsigned char* outY1, unsigned char* outU, unsigned char* outV) {
  Yuv420ToI420(width, y0, y1, cb, cr, outY0, outY1, outU, outV);
}

void AverageChromaRows_sse2(uint32_t pairs, bool halved, const unsigned char* a, const unsigned char* b,
                            unsigned char* out) {
  AverageChroma(pairs, halved, a, b, out);
}

}  // namespace kjd
#endif
