// Packed pixels to YCbCr 4:2:0 rows for x86-64's baseline SSE2.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include "kj.esample_simd.h"

namespace kje {

void Sample_YccRows_sse2(const YccRows& rows) { Sample_YccRowsFrom(rows, Steps<W4>(rows, 0)); }

}  // namespace kje
#endif
