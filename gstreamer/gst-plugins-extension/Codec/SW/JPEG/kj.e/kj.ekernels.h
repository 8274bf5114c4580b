// The encoder's hot kernels, chosen once for the running CPU, as the
// decoder's are. Every SIMD kernel has a scalar twin (the reference the tests
// compare it with).
//
// This header is included by the SIMD translation units, which are built with
// their own instruction-set flags: it must declare, never define, functions.
#ifndef KJ_E_KJ_EKERNELS_H
#define KJ_E_KJ_EKERNELS_H

#include <cstdint>

#include "kj.jpeg.h"

namespace kje {

struct YccRows;

// The zigzag order, under the encoder's name.
using kj::kNaturalOrder;

// Forward DCT and quantisation of `count` blocks side by side: block n's
// samples are rows[0..7] + column + 8 * n; `divisors` is a quantisation
// table's divisors, halves and reciprocals (64 each, kj.efdct); each block's
// 64 coefficients go to out + 64 * n in natural order.
using FdctBlocksRoutine = void(unsigned char* const* rows, uint32_t column, uint32_t count,
                               const int32_t* divisors, int32_t* out);

struct Kernels {
  const char* name;  // "scalar", "sse2", "avx2" or "neon"
  // Huffman coding: bit k (1 to 63) set when the AC coefficient at zigzag
  // position k is non-zero; bit 0 set when an AC value lies outside
  // -1023..1023, beyond what the coder's fast path handles.
  uint64_t (*huffAcMask)(const int32_t* block);
  // Packed RGB rows to YCbCr 4:2:0 (kj.esample.h).
  void (*yccRows)(const YccRows& rows);
  // The accurate transform (packed input) and the fast one (planar input).
  FdctBlocksRoutine* fdctSlowBlocks;
  FdctBlocksRoutine* fdctFastBlocks;
  // The transforms take two adjacent blocks in one pass (AVX2): worth
  // copying two single blocks side by side.
  bool fdctPairs;
};

// kHuffZigzagBits.bits[j][b]: the zigzag-order bits of the natural positions
// 8j..8j+7 set in b, so that a natural-order mask is reordered with 8 loads.
struct ZigzagBits {
  uint64_t bits[8][256];
};
extern const ZigzagBits kHuffZigzagBits;

uint64_t Huff_AcMask_scalar(const int32_t* block);
uint64_t Huff_AcMask_sse2(const int32_t* block);
uint64_t Huff_AcMask_avx2(const int32_t* block);
uint64_t Huff_AcMask_neon(const int32_t* block);
void Sample_YccRows_sse2(const YccRows& rows);
void Sample_YccRows_avx2(const YccRows& rows);
void Sample_YccRows_neon(const YccRows& rows);
FdctBlocksRoutine Fdct_SlowBlocks_scalar, Fdct_SlowBlocks_sse2, Fdct_SlowBlocks_avx2, Fdct_SlowBlocks_neon;
FdctBlocksRoutine Fdct_FastBlocks_scalar, Fdct_FastBlocks_sse2, Fdct_FastBlocks_avx2, Fdct_FastBlocks_neon;

// The best variant the running CPU supports, picked on first use.
const Kernels& Kernels_Active();
// Every variant the running CPU can run, the scalar one first; returns the
// number written (at most `capacity`).
int Kernels_Runnable(const Kernels** out, int capacity);

}  // namespace kje

#endif  // KJ_E_KJ_EKERNELS_H
