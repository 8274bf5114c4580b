// The forward DCTs and quantisation for x86-64's baseline SSE2: the
// accurate one on four 32-bit lanes (four tiles a block), the fast one on
// eight 16-bit lanes.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.efdct_simd.h"

namespace kje {

void Fdct_SlowBlocks_sse2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks<S4, false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_sse2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  for (uint32_t n = 0; n < count; ++n) FastBlock16(rows, column + 8 * n, divisors, out + 64 * n);
}

}  // namespace kje
#endif
