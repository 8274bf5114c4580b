// The forward DCTs and quantisation for x86-64's baseline SSE2: eight
// 16-bit lanes, one block at a time.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.efdct_simd.h"

namespace kje {

void Fdct_SlowBlocks_sse2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks16<false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_sse2(unsigned char* const* rows, uint32_t column, uint32_t count,
                          const int32_t* divisors, int32_t* out) {
  FdctBlocks16<true>(rows, column, count, divisors, out);
}

}  // namespace kje
#endif
