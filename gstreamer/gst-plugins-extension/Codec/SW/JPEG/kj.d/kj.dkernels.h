// The decoder's hot kernels, chosen once for the running CPU. Every SIMD
// kernel has a scalar twin (the reference the tests compare it with).
//
// This header is included by the SIMD translation units, which are built with
// their own instruction-set flags: it must declare, never define, functions.
#ifndef KJ_D_KJ_DKERNELS_H
#define KJ_D_KJ_DKERNELS_H

#include <cstdint>

namespace kjd {

using IdctKernel = void (*)(int32_t* block, unsigned char** rows, unsigned long column);
// The row converters kiu::ConvertYUV211toRGBARows and ConvertYUV111toRGBARow.
using Rgba211Row = void(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                        const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                        unsigned char* out0, unsigned char* out1);
using Rgba111Row = void(uint32_t count, const unsigned char* y, const unsigned char* cb,
                        const unsigned char* cr, unsigned char alpha, unsigned char* out);
// kiu::ConvertYUV420toI420: two luma rows and their chroma row to two Y
// rows, one U and one V row.
using I420Rows = void(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                      const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                      unsigned char* outY1, unsigned char* outU, unsigned char* outV);
// kiu::AverageChromaRows: two chroma rows to one I420 chroma row.
using I420ChromaRows = void(uint32_t pairs, bool halved, const unsigned char* a, const unsigned char* b,
                            unsigned char* out);

struct Kernels {
  const char* name;  // "scalar", "sse2", "avx2" or "neon"
  IdctKernel idct8x8;
  IdctKernel idct4x4;   // 1/2 scale
  Rgba211Row* rgba211;  // 4:2:2 rows, and 4:2:0 row pairs
  Rgba111Row* rgba111;
  I420Rows* yuv420ToI420;
  I420ChromaRows* i420Chroma;  // 4:4:4 and 4:2:2 rows to I420
};

// The best variant the running CPU supports, picked on first use.
const Kernels& Kernels_Active();
// Every variant the running CPU can run, the scalar one first; returns the
// number written (at most `capacity`).
int Kernels_Runnable(const Kernels** out, int capacity);

// SIMD twins of Decoder::IDCT_8x8 and IDCT_4x4, compiled only for their
// targets.
void IDCT_8x8_sse2(int32_t* block, unsigned char** rows, unsigned long column);
void IDCT_8x8_avx2(int32_t* block, unsigned char** rows, unsigned long column);
void IDCT_8x8_neon(int32_t* block, unsigned char** rows, unsigned long column);
void IDCT_4x4_sse2(int32_t* block, unsigned char** rows, unsigned long column);
void IDCT_4x4_avx2(int32_t* block, unsigned char** rows, unsigned long column);
void IDCT_4x4_neon(int32_t* block, unsigned char** rows, unsigned long column);

// SIMD twins of kiu::ConvertYUV211toRGBARows and ConvertYUV111toRGBARow.
Rgba211Row ConvertYUV211toRGBARows_sse2, ConvertYUV211toRGBARows_avx2, ConvertYUV211toRGBARows_neon;
Rgba111Row ConvertYUV111toRGBARow_sse2, ConvertYUV111toRGBARow_avx2, ConvertYUV111toRGBARow_neon;
// SIMD twins of kiu::ConvertYUV420toI420.
I420Rows YUV420toI420_sse2, YUV420toI420_avx2, YUV420toI420_neon;
// SIMD twins of kiu::AverageChromaRows.
I420ChromaRows AverageChromaRows_sse2, AverageChromaRows_avx2, AverageChromaRows_neon;

}  // namespace kjd

#endif  // KJ_D_KJ_DKERNELS_H
