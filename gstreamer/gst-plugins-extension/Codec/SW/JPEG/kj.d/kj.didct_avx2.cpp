// The accurate 8x8 inverse DCT built for AVX2 (compiled with -mavx2): the same
// four-lane kernel as the SSE2 one, with single-instruction 32-bit products
// and three-operand forms.
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include "kj.didct_simd.h"

namespace kjd {

void IDCT_8x8_avx2(int32_t* block, unsigned char** rows, unsigned long column) { Idct8x8(block, rows, column); }

}  // namespace kjd
#endif
