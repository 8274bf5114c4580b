// Packed pixels to YCbCr 4:2:0 rows for ARMv7 NEON (compiled with
// -mfpu=neon in the armhf build only).
#include "kj.ekernels.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include "kj.esample_simd.h"

namespace kje {

void Sample_YccRows_neon(const YccRows& rows) { Sample_YccRowsFrom(rows, Steps<W4>(rows, 0)); }

}  // namespace kje
#endif
