// The forward DCTs and quantisation for ARMv7 NEON (compiled with -mfpu=neon
// in the armhf build only): four lanes, as SSE2.
#include "kj.ekernels.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include "kj.efdct_simd.h"

namespace kje {

void Fdct_SlowBlocks_neon(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks<S4, false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_neon(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks<S4, true>(rows, column, count, divisors, out);
}

}  // namespace kje
#endif
