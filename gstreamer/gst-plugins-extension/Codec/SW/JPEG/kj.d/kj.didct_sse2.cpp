// The accurate 8x8 inverse DCT for x86-64's baseline SSE2 (32-bit products
// take two multiplies per lane pair there).
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.didct_simd.h"

namespace kjd {

void IDCT_8x8_sse2(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct8x8(block, rows, column);
}

void IDCT_4x4_sse2(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct4x4(block, rows, column);
}

}  // namespace kjd
#endif
