// The 128-bit vector types of the codec's SIMD kernel headers and the
// narrowing packs that GCC's generic vectors compile badly, one definition
// per instruction set. Internal linkage, as in those headers: each
// instruction set's translation unit gets its own copy.
#ifndef KAU_KAUSIMD_H
#define KAU_KAUSIMD_H

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

typedef uint8_t B16 __attribute__((vector_size(16)));
typedef int16_t H8 __attribute__((vector_size(16)));
typedef int32_t W4 __attribute__((vector_size(16)));

#if defined(__SSE2__)
// Two vectors of 32-bit values that fit in 16 bits, as one vector.
inline H8 Narrow(W4 lo, W4 hi) {
  return reinterpret_cast<H8>(_mm_packs_epi32(reinterpret_cast<__m128i>(lo), reinterpret_cast<__m128i>(hi)));
}
// Sixteen values, each saturated to 0..255.
inline B16 Saturate(H8 lo, H8 hi) {
  return reinterpret_cast<B16>(
      _mm_packus_epi16(reinterpret_cast<__m128i>(lo), reinterpret_cast<__m128i>(hi)));
}
#elif defined(__ARM_NEON)
inline H8 Narrow(W4 lo, W4 hi) {
  return reinterpret_cast<H8>(
      vcombine_s16(vmovn_s32(reinterpret_cast<int32x4_t>(lo)), vmovn_s32(reinterpret_cast<int32x4_t>(hi))));
}
inline B16 Saturate(H8 lo, H8 hi) {
  return reinterpret_cast<B16>(vcombine_u8(vqmovun_s16(reinterpret_cast<int16x8_t>(lo)),
                                           vqmovun_s16(reinterpret_cast<int16x8_t>(hi))));
}
#endif

}  // namespace

#endif  // KAU_KAUSIMD_H
