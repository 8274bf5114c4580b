// Samples to I420 on whole vectors of chroma pairs (4:2:0 rows converted,
// other rows' chroma averaged): the algorithm once
// in GCC's generic vectors of 16-bit lanes, with a few helpers per
// instruction set for what generic vectors compile badly (widening,
// narrowing, multiply-high, paired multiply-adds, masks). Included by
// kj.di420_sse2, kj.di420_avx2 and kj.di420_neon; nothing here may be an
// inline function shared with other translation units, or the linker could
// keep the copy built with instructions the CPU lacks.
//
// Per pair the terms of kiu::RoundTripOf come from the same integer sums as
// its tables, rewritten so every factor fits 16 bits; where all four luma
// samples lie in the pair's safe range the output is Y + dy and the pair's
// U', V'. A pair outside it goes through the scalar routine, so every output
// equals the scalar twin's.
#ifndef KJ_D_KJ_DI420_SIMD_H
#define KJ_D_KJ_DI420_SIMD_H

#include <cstdint>
#include <cstring>

#include "kiu/kiu.h"

#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

#if defined(__AVX2__)
constexpr int kPairs = 16;
#else
constexpr int kPairs = 8;
#endif

typedef int16_t V16 __attribute__((vector_size(2 * kPairs)));  // one lane per pair
typedef uint16_t Words __attribute__((vector_size(2 * kPairs)));
typedef uint8_t Luma __attribute__((vector_size(2 * kPairs)));  // two samples per pair

// Per set: Widen (kPairs bytes to lanes), MulHi2 ((2 * x * f) >> 16),
// Dot3 ((r * wr + g * wg + b * wb + k) >> 16 in 32-bit sums, on the Terms
// of r, g, b), Dot2 (the same for two vectors), StoreChroma (lanes to bytes)
// and Flags (kFlagBits bits per pair, set for a true lane).
#if defined(__AVX2__) || defined(__SSE2__)
#if defined(__AVX2__)
typedef __m256i Reg;
#define KJ_I420(op) _mm256_##op
#else
typedef __m128i Reg;
#define KJ_I420(op) _mm_##op
#endif
constexpr int kFlagBits = 2;
inline Reg R(V16 v) { return reinterpret_cast<Reg>(v); }
inline Reg Weights(int16_t a, int16_t b) {
  return KJ_I420(set1_epi32)(
      static_cast<int32_t>(static_cast<uint16_t>(a) | uint32_t{static_cast<uint16_t>(b)} << 16));
}
inline V16 Widen(const unsigned char* p) {
#if defined(__AVX2__)
  return reinterpret_cast<V16>(_mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
#else
  return reinterpret_cast<V16>(
      _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128()));
#endif
}
inline V16 MulHi2(V16 x, int16_t f) {
  return reinterpret_cast<V16>(KJ_I420(mulhi_epi16)(R(x + x), KJ_I420(set1_epi16)(f)));
}
// r, g as lane pairs and b beside a one, for the multiply-adds.
struct Terms {
  Reg rgLo, rgHi, b1Lo, b1Hi;
};
inline Terms TermsOf(V16 r, V16 g, V16 b) {
  const Reg one = KJ_I420(set1_epi16)(1);
  return {KJ_I420(unpacklo_epi16)(R(r), R(g)), KJ_I420(unpackhi_epi16)(R(r), R(g)),
          KJ_I420(unpacklo_epi16)(R(b), one), KJ_I420(unpackhi_epi16)(R(b), one)};
}
// Unpacking and packing both work within 128-bit lanes, so the order holds.
inline V16 Narrow(Reg lo, Reg hi) {
  return reinterpret_cast<V16>(
      KJ_I420(packs_epi32)(KJ_I420(srai_epi32)(lo, 16), KJ_I420(srai_epi32)(hi, 16)));
}
inline V16 Dot3(const Terms& t, int16_t wr, int16_t wg, int16_t wb, int16_t k) {
  const Reg w = Weights(wr, wg), x = Weights(wb, k);
  return Narrow(KJ_I420(add_epi32)(KJ_I420(madd_epi16)(t.rgLo, w), KJ_I420(madd_epi16)(t.b1Lo, x)),
                KJ_I420(add_epi32)(KJ_I420(madd_epi16)(t.rgHi, w), KJ_I420(madd_epi16)(t.b1Hi, x)));
}
inline V16 Dot2(V16 x, V16 y, int16_t wx, int16_t wy, int32_t k) {
  const Reg w = Weights(wx, wy), kk = KJ_I420(set1_epi32)(k);
  const Reg lo = KJ_I420(unpacklo_epi16)(R(x), R(y)), hi = KJ_I420(unpackhi_epi16)(R(x), R(y));
  return Narrow(KJ_I420(add_epi32)(KJ_I420(madd_epi16)(lo, w), kk),
                KJ_I420(add_epi32)(KJ_I420(madd_epi16)(hi, w), kk));
}
inline void StoreChroma(V16 u, V16 v, unsigned char* outU, unsigned char* outV) {
#if defined(__AVX2__)
  const __m256i uv = _mm256_permute4x64_epi64(_mm256_packus_epi16(R(u), R(v)), 0xd8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(outU), _mm256_castsi256_si128(uv));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(outV), _mm256_extracti128_si256(uv, 1));
#else
  const __m128i uv = _mm_packus_epi16(R(u), R(v));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(outU), uv);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(outV), _mm_unpackhi_epi64(uv, uv));
#endif
}
inline uint64_t Flags(V16 v) { return static_cast<uint32_t>(KJ_I420(movemask_epi8)(R(v))); }
#undef KJ_I420
#elif defined(__ARM_NEON)
constexpr int kFlagBits = 8;
struct Terms {
  int16x8_t r, g, b;
};
inline int16x8_t R(V16 v) { return reinterpret_cast<int16x8_t>(v); }
inline V16 Widen(const unsigned char* p) { return reinterpret_cast<V16>(vmovl_u8(vld1_u8(p))); }
inline V16 MulHi2(V16 x, int16_t f) { return reinterpret_cast<V16>(vqdmulhq_n_s16(R(x), f)); }
inline Terms TermsOf(V16 r, V16 g, V16 b) { return {R(r), R(g), R(b)}; }
// Sums of up to three products on k; the weights as one vector, so they
// are built once outside the loop.
inline V16 Sum(int32_t k, int16x8_t x, int16x8_t y, int16x8_t z, int16_t wx, int16_t wy, int16_t wz) {
  const int16_t weights[4] = {wx, wy, wz, 0};
  const int16x4_t w = vld1_s16(weights);
  int32x4_t lo = vdupq_n_s32(k), hi = lo;
  lo = vmlal_lane_s16(vmlal_lane_s16(lo, vget_low_s16(x), w, 0), vget_low_s16(y), w, 1);
  hi = vmlal_lane_s16(vmlal_lane_s16(hi, vget_high_s16(x), w, 0), vget_high_s16(y), w, 1);
  if (wz != 0) {
    lo = vmlal_lane_s16(lo, vget_low_s16(z), w, 2);
    hi = vmlal_lane_s16(hi, vget_high_s16(z), w, 2);
  }
  return reinterpret_cast<V16>(vcombine_s16(vshrn_n_s32(lo, 16), vshrn_n_s32(hi, 16)));
}
inline V16 Dot3(const Terms& t, int16_t wr, int16_t wg, int16_t wb, int16_t k) {
  return Sum(k, t.r, t.g, t.b, wr, wg, wb);
}
inline V16 Dot2(V16 x, V16 y, int16_t wx, int16_t wy, int32_t k) {
  return Sum(k, R(x), R(y), R(x), wx, wy, 0);
}
inline void StoreChroma(V16 u, V16 v, unsigned char* outU, unsigned char* outV) {
  vst1_u8(outU, vqmovun_s16(R(u)));
  vst1_u8(outV, vqmovun_s16(R(v)));
}
inline uint64_t Flags(V16 v) {
  return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_s16(R(v)), 4)), 0);
}
#endif

// The bit of each pair's lowest flag.
constexpr uint64_t kFirstFlags = kFlagBits == 2 ? 0x5555555555555555u : 0x0101010101010101u;

void Yuv420ToI420(uint32_t width, const unsigned char* y0, const unsigned char* y1, const unsigned char* cb,
                  const unsigned char* cr, unsigned char* outY0, unsigned char* outY1, unsigned char* outU,
                  unsigned char* outV) {
  const uint32_t pairs = width / 2;
  const V16 zero{};
  uint32_t i = 0;
  for (; i + kPairs <= pairs; i += kPairs) {
    // kiu's colour tables as 16-bit forms, each factor split off its
    // multiple of 65536: r = (91881 r0 + 32768) >> 16, b = (116130 b0 +
    // 32768) >> 16, g = (-22554 b0 - 46802 r0 + 32768) >> 16. (x + 32768)
    // >> 16 is ((2x >> 16) + 1) >> 1, and 2 * r0 fits 16 bits.
    const V16 b0 = Widen(cb + i) - 128, r0 = Widen(cr + i) - 128;
    const V16 r = r0 + ((MulHi2(r0, 26345) + 1) >> 1);
    const V16 b = b0 + b0 + ((MulHi2(b0, -14942) + 1) >> 1);
    const V16 g = Dot2(b0, r0, -22554, 18734, 32768) - r0;
    // r, g, b lie within -227..226; the round trip's sums with the factors
    // of 65536 split off the same way ((x + 32768) >> 16 is ((x - 32768) >>
    // 16) + 1, 8421375 is 128 * 65536 + 32767). Their 32-bit sums are below
    // 2^24 in size.
    const Terms t = TermsOf(r, g, b);
    const V16 dy = g + 1 + Dot3(t, 19595, -27066, 7471, -32768);
    const V16 u = b + 128 + Dot3(t, -11059, -21709, -32768, 32767);
    const V16 v = r + 128 + Dot3(t, -32768, -27439, -5329, 32767);
    const V16 rgLo = r < g ? r : g, bLo = b < zero ? b : zero, lo = rgLo < bLo ? rgLo : bLo;
    const V16 rgHi = r > g ? r : g, bHi = b > zero ? b : zero, hi = rgHi > bHi ? rgHi : bHi;

    // The least and most of each pair's four luma samples, as lanes.
    Luma a0, a1;
    std::memcpy(&a0, y0 + 2 * i, sizeof a0);
    std::memcpy(&a1, y1 + 2 * i, sizeof a1);
    const Words least2 = reinterpret_cast<Words>(a0 < a1 ? a0 : a1);
    const Words most2 = reinterpret_cast<Words>(a0 > a1 ? a0 : a1);
    const V16 l0 = reinterpret_cast<V16>(least2 & 0xff), l1 = reinterpret_cast<V16>(least2 >> 8);
    const V16 m0 = reinterpret_cast<V16>(most2 & 0xff), m1 = reinterpret_cast<V16>(most2 >> 8);
    const V16 least = l0 < l1 ? l0 : l1, most = m0 > m1 ? m0 : m1;
    // Safe: least >= -lo and most <= 255 - hi, so no channel clamps.
    const V16 unsafe = (least + lo < 0) | (most + hi > 255);

    // Inside the range Y + dy stays in 0..255: a byte-wise add is exact.
    const Luma step = reinterpret_cast<Luma>((reinterpret_cast<Words>(dy) & 0xff) * 0x0101);
    const Luma o0 = a0 + step, o1 = a1 + step;
    std::memcpy(outY0 + 2 * i, &o0, sizeof o0);
    std::memcpy(outY1 + 2 * i, &o1, sizeof o1);
    StoreChroma(u, v, outU + i, outV + i);

    for (uint64_t flags = Flags(unsafe) & kFirstFlags; flags != 0; flags &= flags - 1) {
      const uint32_t p = i + static_cast<uint32_t>(__builtin_ctzll(flags)) / kFlagBits;
      kiu::ConvertYUV420toI420(2, y0 + 2 * p, y1 + 2 * p, cb + p, cr + p, outY0 + 2 * p, outY1 + 2 * p,
                               outU + p, outV + p);
    }
  }
  if (i < pairs)
    kiu::ConvertYUV420toI420(width - 2 * i, y0 + 2 * i, y1 + 2 * i, cb + i, cr + i, outY0 + 2 * i,
                             outY1 + 2 * i, outU + i, outV + i);
}

// kiu::AverageChromaRows: 2 * kPairs samples a step.
void AverageChroma(uint32_t pairs, bool halved, const unsigned char* a, const unsigned char* b,
                   unsigned char* out) {
  uint32_t i = 0;
  if (halved) {
    for (; i + 2 * kPairs <= pairs; i += 2 * kPairs) {
      Luma x, y;
      std::memcpy(&x, a + i, sizeof x);
      std::memcpy(&y, b + i, sizeof y);
      // (x + y + 1) / 2 without leaving the bytes.
      const Luma o = (x | y) - ((x ^ y) >> 1);
      std::memcpy(out + i, &o, sizeof o);
    }
  } else {
    for (; i + 2 * kPairs <= pairs; i += 2 * kPairs) {
      V16 o[2];
      for (int h = 0; h < 2; ++h) {
        Words x, y;
        std::memcpy(&x, a + 2 * i + h * sizeof x, sizeof x);
        std::memcpy(&y, b + 2 * i + h * sizeof y, sizeof y);
        o[h] = reinterpret_cast<V16>(((x & 0xff) + (x >> 8) + (y & 0xff) + (y >> 8) + 2) >> 2);
      }
      StoreChroma(o[0], o[1], out + i, out + i + kPairs);
    }
  }
  if (i < pairs)
    kiu::AverageChromaRows(pairs - i, halved, a + (halved ? i : 2 * i), b + (halved ? i : 2 * i), out + i);
}

}  // namespace

#endif  // KJ_D_KJ_DI420_SIMD_H
