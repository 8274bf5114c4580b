// The forward DCTs and quantisation for AVX2 (compiled with -mavx2): the
// accurate one on eight 32-bit lanes (each pass one lane-wise pass over the
// block), the fast one on sixteen 16-bit lanes (two blocks at once).
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include "kj.efdct_simd.h"

namespace kje {

void Fdct_SlowBlocks_avx2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks<S8, false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_avx2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  uint32_t n = 0;
  for (; n + 2 <= count; n += 2) FastPair16(rows, column + 8 * n, divisors, out + 64 * n);
  if (n < count) FastBlock16(rows, column + 8 * n, divisors, out + 64 * n);
}

}  // namespace kje
#endif
