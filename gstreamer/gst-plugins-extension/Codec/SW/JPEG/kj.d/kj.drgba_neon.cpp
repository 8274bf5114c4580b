// YCbCr rows to RGBA for ARMv7 NEON (compiled with -mfpu=neon in the armhf
// build only).
#include "kj.dkernels.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include "kj.drgba_simd.h"

namespace kjd {

void ConvertYUV211toRGBARows_neon(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                                  const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                                  unsigned char* out0, unsigned char* out1) {
  ToRgba211(count, y0, y1, cb, cr, alpha, out0, out1);
}

void ConvertYUV111toRGBARow_neon(uint32_t count, const unsigned char* y, const unsigned char* cb,
                                 const unsigned char* cr, unsigned char alpha, unsigned char* out) {
  ToRgba111(count, y, cb, cr, alpha, out);
}

}  // namespace kjd
#endif
