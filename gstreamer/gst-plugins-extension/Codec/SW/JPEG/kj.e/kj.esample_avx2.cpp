// Packed pixels to YCbCr 4:2:0 rows for AVX2 (compiled with -mavx2): 32
// pixels a step, then 16, then the scalar tail.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include "kj.esample_simd.h"

namespace kje {

void Sample_YccRows_avx2(const YccRows& rows) {
  Sample_YccRowsFrom(rows, Steps<W4>(rows, Steps<W8>(rows, 0)));
}

}  // namespace kje
#endif
