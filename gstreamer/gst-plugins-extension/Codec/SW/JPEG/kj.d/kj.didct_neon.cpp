// The accurate 8x8 inverse DCT for ARMv7 NEON (compiled with -mfpu=neon in
// the armhf build; the rest of the code base keeps the base flags, since the
// device's NEON is not guaranteed).
#include "kj.dkernels.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include "kj.didct_simd.h"

namespace kjd {

void IDCT_8x8_neon(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct8x8(block, rows, column);
}

void IDCT_4x4_neon(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct4x4(block, rows, column);
}

}  // namespace kjd
#endif
