// YCbCr rows to RGBA for x86-64's baseline SSE2.
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.drgba_simd.h"

namespace kjd {

void ConvertYUV211toRGBARows_sse2(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                                  const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                                  unsigned char* out0, unsigned char* out1) {
  ToRgba211(count, y0, y1, cb, cr, alpha, out0, out1);
}

void ConvertYUV111toRGBARow_sse2(uint32_t count, const unsigned char* y, const unsigned char* cb,
                                 const unsigned char* cr, unsigned char alpha, unsigned char* out) {
  ToRgba111(count, y, cb, cr, alpha, out);
}

}  // namespace kjd
#endif
