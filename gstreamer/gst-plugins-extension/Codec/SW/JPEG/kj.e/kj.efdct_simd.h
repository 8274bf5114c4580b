// The encoder's forward DCTs and quantisation, written once: the 8-point
// passes as templates that serve plain ints (the scalar twin, kj.efdct) and
// GCC's generic vectors, and the block driver on 4 or 8 lanes of 32 bits,
// compiled per instruction set by kj.efdct_sse2, kj.efdct_avx2 and
// kj.efdct_neon. Everything here has internal linkage: a shared inline
// function could be kept from a copy built with instructions the CPU lacks.
//
// The arithmetic is the scalar twin's: the same constants, products and
// shifts, rows first, then columns. Level-shifted 8-bit samples keep every
// intermediate far below 2^31, so lanes never wrap.
#ifndef KJ_E_KJ_EFDCT_SIMD_H
#define KJ_E_KJ_EFDCT_SIMD_H

#include <cstdint>
#include <cstring>

#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

// Loeffler-Ligtenberg-Moschytz with 13-bit constants.
constexpr int32_t kFix0298631336 = 2446;
constexpr int32_t kFix0390180644 = 3196;
constexpr int32_t kFix0541196100 = 4433;
constexpr int32_t kFix0765366865 = 6270;
constexpr int32_t kFix0899976223 = 7373;
constexpr int32_t kFix1175875602 = 9633;
constexpr int32_t kFix1501321110 = 12299;
constexpr int32_t kFix1847759065 = 15137;
constexpr int32_t kFix1961570560 = 16069;
constexpr int32_t kFix2053119869 = 16819;
constexpr int32_t kFix2562915447 = 20995;
constexpr int32_t kFix3072711026 = 25172;

template <class T>
inline T Descale(T x, int n) {
  return (x + (1 << (n - 1))) >> n;
}

// One accurate 8-point pass over p[0..7] in place. The row pass keeps two
// extra bits (even outputs shifted up, odd descaled by 11); the column pass
// removes them (even by 2, odd by 15).
template <bool kRows, class T>
inline void SlowPass(T* p) {
  const T tmp0 = p[0] + p[7], tmp7 = p[0] - p[7];
  const T tmp1 = p[1] + p[6], tmp6 = p[1] - p[6];
  const T tmp2 = p[2] + p[5], tmp5 = p[2] - p[5];
  const T tmp3 = p[3] + p[4], tmp4 = p[3] - p[4];

  const T tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  const T tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  constexpr int kOddShift = kRows ? 11 : 15;
  if (kRows) {
    p[0] = (tmp10 + tmp11) * 4;
    p[4] = (tmp10 - tmp11) * 4;
  } else {
    p[0] = Descale(tmp10 + tmp11, 2);
    p[4] = Descale(tmp10 - tmp11, 2);
  }
  const T z1 = (tmp12 + tmp13) * kFix0541196100;
  p[2] = Descale(z1 + tmp13 * kFix0765366865, kOddShift);
  p[6] = Descale(z1 - tmp12 * kFix1847759065, kOddShift);

  const T z5 = (tmp4 + tmp6 + tmp5 + tmp7) * kFix1175875602;
  const T z1o = (tmp4 + tmp7) * -kFix0899976223;
  const T z2 = (tmp5 + tmp6) * -kFix2562915447;
  const T z3 = (tmp4 + tmp6) * -kFix1961570560 + z5;
  const T z4 = (tmp5 + tmp7) * -kFix0390180644 + z5;
  p[7] = Descale(tmp4 * kFix0298631336 + z1o + z3, kOddShift);
  p[5] = Descale(tmp5 * kFix2053119869 + z2 + z4, kOddShift);
  p[3] = Descale(tmp6 * kFix3072711026 + z2 + z3, kOddShift);
  p[1] = Descale(tmp7 * kFix1501321110 + z1o + z4, kOddShift);
}

// Arai-Agui-Nakajima with 8-bit constants; products are truncated.
constexpr int32_t kFast0382683433 = 98;
constexpr int32_t kFast0541196100 = 139;
constexpr int32_t kFast0707106781 = 181;
constexpr int32_t kFast1306562965 = 334;

template <class T>
inline T FastMul(T x, int32_t c) {
  return (x * c) >> 8;
}

// One fast 8-point pass over p[0..7] in place; rows and columns alike.
template <class T>
inline void FastPass(T* p) {
  const T tmp0 = p[0] + p[7], tmp7 = p[0] - p[7];
  const T tmp1 = p[1] + p[6], tmp6 = p[1] - p[6];
  const T tmp2 = p[2] + p[5], tmp5 = p[2] - p[5];
  const T tmp3 = p[3] + p[4], tmp4 = p[3] - p[4];

  const T tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  const T tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  p[0] = tmp10 + tmp11;
  p[4] = tmp10 - tmp11;
  const T z1 = FastMul(tmp12 + tmp13, kFast0707106781);
  p[2] = tmp13 + z1;
  p[6] = tmp13 - z1;

  const T odd10 = tmp4 + tmp5, odd11 = tmp5 + tmp6, odd12 = tmp6 + tmp7;
  const T z5 = FastMul(odd10 - odd12, kFast0382683433);
  const T z2 = FastMul(odd10, kFast0541196100) + z5;
  const T z4 = FastMul(odd12, kFast1306562965) + z5;
  const T z3 = FastMul(odd11, kFast0707106781);
  const T z11 = tmp7 + z3, z13 = tmp7 - z3;
  p[5] = z13 + z2;
  p[3] = z13 - z2;
  p[1] = z11 + z4;
  p[7] = z11 - z4;
}

template <bool kFast, bool kRows, class T>
inline void Pass(T* p) {
  if (kFast)
    FastPass(p);
  else
    SlowPass<kRows>(p);
}

#if defined(__SSE2__) || defined(__ARM_NEON)
typedef int32_t S4 __attribute__((vector_size(16)));

// Transposes the 4x4 of 32-bit values in a[0..3] into b[0..3].
inline void Transpose(const S4* a, S4* b) {
  const S4 lo01 = __builtin_shufflevector(a[0], a[1], 0, 4, 1, 5);
  const S4 hi01 = __builtin_shufflevector(a[0], a[1], 2, 6, 3, 7);
  const S4 lo23 = __builtin_shufflevector(a[2], a[3], 0, 4, 1, 5);
  const S4 hi23 = __builtin_shufflevector(a[2], a[3], 2, 6, 3, 7);
  b[0] = __builtin_shufflevector(lo01, lo23, 0, 1, 4, 5);
  b[1] = __builtin_shufflevector(lo01, lo23, 2, 3, 6, 7);
  b[2] = __builtin_shufflevector(hi01, hi23, 0, 1, 4, 5);
  b[3] = __builtin_shufflevector(hi01, hi23, 2, 3, 6, 7);
}

// Four level-shifted samples.
inline void LoadSamples(const unsigned char* in, S4& out) {
  typedef uint8_t B4 __attribute__((vector_size(4)));
  B4 b;
  std::memcpy(&b, in, sizeof b);
  out = __builtin_convertvector(b, S4) - 128;
}

// (x * m) >> 30 per lane, unsigned, x < 2^17 and m < 2^30: the product needs
// 64 bits, which only the widening multiplies give.
#if defined(__SSE2__)
inline S4 MulHigh30(S4 x, S4 m) {
  const __m128i a = reinterpret_cast<__m128i>(x), b = reinterpret_cast<__m128i>(m);
  const __m128i even = _mm_srli_epi64(_mm_mul_epu32(a, b), 30);
  const __m128i odd = _mm_slli_epi64(_mm_mul_epu32(_mm_srli_epi64(a, 32), _mm_srli_epi64(b, 32)), 2);
  return reinterpret_cast<S4>(_mm_or_si128(even, _mm_and_si128(odd, _mm_set_epi32(-1, 0, -1, 0))));
}
#else
inline S4 MulHigh30(S4 x, S4 m) {
  const uint32x4_t a = vreinterpretq_u32_s32(reinterpret_cast<int32x4_t>(x));
  const uint32x4_t b = vreinterpretq_u32_s32(reinterpret_cast<int32x4_t>(m));
  const uint32x2_t lo = vshrn_n_u64(vmull_u32(vget_low_u32(a), vget_low_u32(b)), 30);
  const uint32x2_t hi = vshrn_n_u64(vmull_u32(vget_high_u32(a), vget_high_u32(b)), 30);
  return reinterpret_cast<S4>(vreinterpretq_s32_u32(vcombine_u32(lo, hi)));
}
#endif
#endif

#if defined(__AVX2__)
typedef int32_t S8 __attribute__((vector_size(32)));

// a[i] lane j becomes b[j] lane i.
inline void Transpose(const S8* a, S8* b) {
  S8 t[8], u[8];
  for (int i = 0; i < 8; i += 2) {
    t[i] = __builtin_shufflevector(a[i], a[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
    t[i + 1] = __builtin_shufflevector(a[i], a[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
  }
  for (int i = 0; i < 8; i += 4) {
    for (int k = 0; k < 2; ++k) {
      u[i + 2 * k] = __builtin_shufflevector(t[i + k], t[i + k + 2], 0, 1, 8, 9, 4, 5, 12, 13);
      u[i + 2 * k + 1] = __builtin_shufflevector(t[i + k], t[i + k + 2], 2, 3, 10, 11, 6, 7, 14, 15);
    }
  }
  for (int i = 0; i < 4; ++i) {
    b[i] = __builtin_shufflevector(u[i], u[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
    b[i + 4] = __builtin_shufflevector(u[i], u[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
  }
}

inline void LoadSamples(const unsigned char* in, S8& out) {
  const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in));
  out = reinterpret_cast<S8>(_mm256_cvtepu8_epi32(b)) - 128;
}

inline S8 MulHigh30(S8 x, S8 m) {
  const __m256i a = reinterpret_cast<__m256i>(x), b = reinterpret_cast<__m256i>(m);
  const __m256i even = _mm256_srli_epi64(_mm256_mul_epu32(a, b), 30);
  const __m256i odd =
      _mm256_slli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32)), 2);
  return reinterpret_cast<S8>(_mm256_blend_epi32(even, odd, 0xAA));
}
#endif

#if defined(__SSE2__) || defined(__ARM_NEON)
// Transforms and quantises `count` blocks side by side (see kje::Kernels).
// V holds L = 4 or 8 lanes; the block is (8 / L)^2 tiles of L x L, and each
// pass runs lane-wise over L rows (or columns) at once.
template <class V, bool kFast>
[[maybe_unused]] void FdctBlocks(unsigned char* const* rows, uint32_t column, uint32_t count,
                                 const int32_t* divisors, int32_t* out) {
  constexpr int L = sizeof(V) / sizeof(int32_t), H = 8 / L;
  for (uint32_t n = 0; n < count; ++n, column += 8, out += 64) {
    // r[h][y]: sample row y, columns L * h ...
    V r[H][8];
    for (int y = 0; y < 8; ++y)
      for (int h = 0; h < H; ++h) LoadSamples(rows[y] + column + L * h, r[h][y]);
    // t[hr][x]: column x, rows L * hr ...; the row pass turns x into u.
    V t[H][8];
    for (int hr = 0; hr < H; ++hr)
      for (int h = 0; h < H; ++h) Transpose(&r[h][L * hr], &t[hr][L * h]);
    for (int hr = 0; hr < H; ++hr) Pass<kFast, true>(t[hr]);
    // w[hu][y]: row y, coefficient columns L * hu ...; the column pass turns y into v.
    V w[H][8];
    for (int hu = 0; hu < H; ++hu)
      for (int hr = 0; hr < H; ++hr) Transpose(&t[hr][L * hu], &w[hu][L * hr]);
    for (int hu = 0; hu < H; ++hu) Pass<kFast, false>(w[hu]);

    // Quantisation as Fdct_Quantize: the rounded quotient of |c|, signed back.
    for (int v = 0; v < 8; ++v) {
      for (int hu = 0; hu < H; ++hu) {
        const int i = 8 * v + L * hu;
        V half, reciprocal;
        std::memcpy(&half, divisors + 64 + i, sizeof half);
        std::memcpy(&reciprocal, divisors + 128 + i, sizeof reciprocal);
        const V c = w[hu][v];
        const V sign = c >> 31;
        const V q = MulHigh30(((c ^ sign) - sign) + half, reciprocal);
        const V result = (q ^ sign) - sign;
        std::memcpy(out + i, &result, sizeof result);
      }
    }
  }
}
#endif

}  // namespace

#endif  // KJ_E_KJ_EFDCT_SIMD_H
