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
// kiu::ConvertYUV420toI420's signature: two luma rows and their chroma row
// to two Y rows, one U and one V row.
using I420Kernel = void (*)(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                            const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                            unsigned char* outY1, unsigned char* outU, unsigned char* outV);

struct Kernels {
  const char* name;  // "scalar", "sse2", "avx2" or "neon"
  IdctKernel idct8x8;
  IdctKernel idct4x4;  // 1/2 scale
  I420Kernel yuv420ToI420;
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

// SIMD twins of kiu::ConvertYUV420toI420.
void YUV420toI420_sse2(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                       const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                       unsigned char* outY1, unsigned char* outU, unsigned char* outV);
void YUV420toI420_avx2(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                       const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                       unsigned char* outY1, unsigned char* outU, unsigned char* outV);
void YUV420toI420_neon(uint32_t width, const unsigned char* y0, const unsigned char* y1,
                       const unsigned char* cb, const unsigned char* cr, unsigned char* outY0,
                       unsigned char* outY1, unsigned char* outU, unsigned char* outV);

}  // namespace kjd

#endif  // KJ_D_KJ_DKERNELS_H
