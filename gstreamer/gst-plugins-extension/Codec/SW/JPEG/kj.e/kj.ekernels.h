// The encoder's hot kernels, chosen once for the running CPU, as the
// decoder's are. Every SIMD kernel has a scalar twin (the reference the tests
// compare it with).
//
// This header is included by the SIMD translation units, which are built with
// their own instruction-set flags: it must declare, never define, functions.
#ifndef KJ_E_KJ_EKERNELS_H
#define KJ_E_KJ_EKERNELS_H

#include <cstdint>

namespace kje {

struct YccRows;

struct Kernels {
  const char* name;  // "scalar", "sse2", "avx2" or "neon"
  // Huffman coding: bit i set when coefficient i (natural order) is non-zero.
  uint64_t (*huffNonZero)(const int32_t* block);
  // Packed RGB rows to YCbCr 4:2:0 (kj.esample.h).
  void (*yccRows)(const YccRows& rows);
};

uint64_t Huff_NonZero_scalar(const int32_t* block);
uint64_t Huff_NonZero_sse2(const int32_t* block);
uint64_t Huff_NonZero_neon(const int32_t* block);
void Sample_YccRows_sse2(const YccRows& rows);
void Sample_YccRows_avx2(const YccRows& rows);
void Sample_YccRows_neon(const YccRows& rows);

// The best variant the running CPU supports, picked on first use.
const Kernels& Kernels_Active();
// Every variant the running CPU can run, the scalar one first; returns the
// number written (at most `capacity`).
int Kernels_Runnable(const Kernels** out, int capacity);

}  // namespace kje

#endif  // KJ_E_KJ_EKERNELS_H
