// YCbCr rows to RGBA, sixteen pixels a step, written once in GCC's generic
// vectors and compiled per instruction set by kj.drgba_sse2, kj.drgba_avx2
// and kj.drgba_neon; the scalar twins are kiu's ConvertYUV211toRGBARows and
// ConvertYUV111toRGBARow, which also take the tails. As with
// kj.didct_simd.h, everything here has internal linkage, so no copy built
// for one instruction set can stand in for another's.
//
// The chroma terms are the colour tables' own expressions in 32-bit lanes
// (the same weights, rounding terms and arithmetic shifts), narrowed to
// 16 bits where they fit; luma plus term saturates to a byte, which is what
// the clamp table gives for every index the sums reach.
#ifndef KJ_D_KJ_DRGBA_SIMD_H
#define KJ_D_KJ_DRGBA_SIMD_H

#include <cstdint>
#include <cstring>

#include "kau/kausimd.h"
#include "kiu/kiu.h"  // the weights and the scalar twins' declarations only

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

#if defined(__SSE2__)
// Sixteen pixels' channels, interleaved.
inline void StoreRgba(B16 r, B16 g, B16 b, B16 a, unsigned char* out) {
  const __m128i rg0 = _mm_unpacklo_epi8(reinterpret_cast<__m128i>(r), reinterpret_cast<__m128i>(g));
  const __m128i rg1 = _mm_unpackhi_epi8(reinterpret_cast<__m128i>(r), reinterpret_cast<__m128i>(g));
  const __m128i ba0 = _mm_unpacklo_epi8(reinterpret_cast<__m128i>(b), reinterpret_cast<__m128i>(a));
  const __m128i ba1 = _mm_unpackhi_epi8(reinterpret_cast<__m128i>(b), reinterpret_cast<__m128i>(a));
  __m128i* o = reinterpret_cast<__m128i*>(out);
  _mm_storeu_si128(o, _mm_unpacklo_epi16(rg0, ba0));
  _mm_storeu_si128(o + 1, _mm_unpackhi_epi16(rg0, ba0));
  _mm_storeu_si128(o + 2, _mm_unpacklo_epi16(rg1, ba1));
  _mm_storeu_si128(o + 3, _mm_unpackhi_epi16(rg1, ba1));
}
#elif defined(__ARM_NEON)
inline void StoreRgba(B16 r, B16 g, B16 b, B16 a, unsigned char* out) {
  uint8x16x4_t v;
  v.val[0] = reinterpret_cast<uint8x16_t>(r);
  v.val[1] = reinterpret_cast<uint8x16_t>(g);
  v.val[2] = reinterpret_cast<uint8x16_t>(b);
  v.val[3] = reinterpret_cast<uint8x16_t>(a);
  vst4q_u8(out, v);
}
#endif

#if defined(__SSE2__) || defined(__ARM_NEON)

// Zero-extended bytes 0..7 and 8..15.
inline H8 Low16(B16 v) {
  return reinterpret_cast<H8>(
      __builtin_shufflevector(v, B16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
}
inline H8 High16(B16 v) {
  return reinterpret_cast<H8>(
      __builtin_shufflevector(v, B16{}, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
}
inline W4 Low32(H8 v) {
  return reinterpret_cast<W4>(__builtin_shufflevector(v, H8{}, 0, 8, 1, 9, 2, 10, 3, 11));
}
inline W4 High32(H8 v) {
  return reinterpret_cast<W4>(__builtin_shufflevector(v, H8{}, 4, 12, 5, 13, 6, 14, 7, 15));
}

// The R, G, B terms of chroma samples, in 32-bit lanes (also used by the
// eight-lane AVX2 kernel).
template <class W>
inline void TermsOf(W cb, W cr, W& r, W& g, W& b) {
  const W db = cb - 128, dr = cr - 128;
  r = (dr * kiu::kCrToR + 32768) >> 16;
  g = ((db * kiu::kCbToG + 32768) + dr * kiu::kCrToG) >> 16;
  b = (db * kiu::kCbToB + 32768) >> 16;
}

// The terms of eight chroma samples, in 16-bit lanes.
struct Terms {
  H8 r, g, b;
};
inline Terms TermsOf(H8 cb, H8 cr) {
  W4 r0, g0, b0, r1, g1, b1;  // no arrays: they would go through memory
  TermsOf(Low32(cb), Low32(cr), r0, g0, b0);
  TermsOf(High32(cb), High32(cr), r1, g1, b1);
  return {Narrow(r0, r1), Narrow(g0, g1), Narrow(b0, b1)};
}

inline B16 Load16(const unsigned char* p) {
  B16 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Eight chroma samples in the low half.
inline B16 Load8(const unsigned char* p) {
  uint64_t bits;
  std::memcpy(&bits, p, sizeof bits);
  typedef uint64_t Q2 __attribute__((vector_size(16)));
  return reinterpret_cast<B16>(Q2{bits, 0});
}

// Sixteen pixels from their luma and the terms of pixels 0..7 and 8..15.
inline void PutRgba16(B16 y, const Terms& lo, const Terms& hi, B16 alpha, unsigned char* out) {
  const H8 yl = Low16(y), yh = High16(y);
  const B16 r = Saturate(yl + lo.r, yh + hi.r);
  const B16 g = Saturate(yl + lo.g, yh + hi.g);
  const B16 b = Saturate(yl + lo.b, yh + hi.b);
  StoreRgba(r, g, b, alpha, out);
}

// Each of eight terms for two neighbouring pixels.
inline Terms Doubled(const Terms& t, bool high) {
  if (high)
    return {__builtin_shufflevector(t.r, t.r, 4, 4, 5, 5, 6, 6, 7, 7),
            __builtin_shufflevector(t.g, t.g, 4, 4, 5, 5, 6, 6, 7, 7),
            __builtin_shufflevector(t.b, t.b, 4, 4, 5, 5, 6, 6, 7, 7)};
  return {__builtin_shufflevector(t.r, t.r, 0, 0, 1, 1, 2, 2, 3, 3),
          __builtin_shufflevector(t.g, t.g, 0, 0, 1, 1, 2, 2, 3, 3),
          __builtin_shufflevector(t.b, t.b, 0, 0, 1, 1, 2, 2, 3, 3)};
}

[[maybe_unused]] void ToRgba211(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                                const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                                unsigned char* out0, unsigned char* out1) {
  const B16 a = B16{} + alpha;
  uint32_t x = 0;
  for (; x + 16 <= count; x += 16) {
    const Terms t = TermsOf(Low16(Load8(cb + x / 2)), Low16(Load8(cr + x / 2)));
    const Terms lo = Doubled(t, false), hi = Doubled(t, true);
    PutRgba16(Load16(y0 + x), lo, hi, a, out0 + 4 * x);
    if (y1 != nullptr) PutRgba16(Load16(y1 + x), lo, hi, a, out1 + 4 * x);
  }
  if (x < count)
    kiu::ConvertYUV211toRGBARows(count - x, y0 + x, y1 != nullptr ? y1 + x : nullptr, cb + x / 2, cr + x / 2,
                                 alpha, out0 + 4 * x, y1 != nullptr ? out1 + 4 * x : nullptr);
}

[[maybe_unused]] void ToRgba111(uint32_t count, const unsigned char* y, const unsigned char* cb,
                                const unsigned char* cr, unsigned char alpha, unsigned char* out) {
  const B16 a = B16{} + alpha;
  uint32_t x = 0;
  for (; x + 16 <= count; x += 16) {
    const B16 b = Load16(cb + x), r = Load16(cr + x);
    PutRgba16(Load16(y + x), TermsOf(Low16(b), Low16(r)), TermsOf(High16(b), High16(r)), a, out + 4 * x);
  }
  if (x < count) kiu::ConvertYUV111toRGBARow(count - x, y + x, cb + x, cr + x, alpha, out + 4 * x);
}

#endif

}  // namespace

#endif  // KJ_D_KJ_DRGBA_SIMD_H
