// The forward DCTs and quantisation for AVX2 (compiled with -mavx2): sixteen
// 16-bit lanes, two blocks at a time.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include "kj.efdct_simd.h"

namespace kje {

void Fdct_SlowBlocks_avx2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks16<false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_avx2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks16<true>(rows, column, count, divisors, out);
}

}  // namespace kje
#endif
