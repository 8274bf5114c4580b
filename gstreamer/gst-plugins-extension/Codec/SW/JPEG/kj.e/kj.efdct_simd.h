// The encoder's forward DCTs and quantisation, written once: the 8-point
// passes as templates that serve plain ints (the scalar twin, kj.efdct) and
// NEON's 32-bit lanes, both transforms on 16-bit lanes for x86 (eight, or
// sixteen with AVX2: two blocks at once), compiled per instruction set by
// kj.efdct_sse2, kj.efdct_avx2 and kj.efdct_neon. Everything here has
// internal linkage: a shared inline function could be kept from a copy built
// with instructions the CPU lacks.
//
// The arithmetic is the scalar twin's: the same constants, products and
// shifts, rows first, then columns, and no sum ever wraps.
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

// The 16-bit lanes' own products (below), visible to FastPass.
#if defined(__SSE2__)
typedef int16_t W8 __attribute__((vector_size(16)));
inline W8 FastMul(W8 x, int32_t c);
#endif
#if defined(__AVX2__)
typedef int16_t W16 __attribute__((vector_size(32)));
inline W16 FastMul(W16 x, int32_t c);
#endif

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

#if defined(__ARM_NEON)
// The 32-bit lanes of NEON, which multiplies them natively.
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
inline S4 MulHigh30(S4 x, S4 m) {
  const uint32x4_t a = vreinterpretq_u32_s32(reinterpret_cast<int32x4_t>(x));
  const uint32x4_t b = vreinterpretq_u32_s32(reinterpret_cast<int32x4_t>(m));
  const uint32x2_t lo = vshrn_n_u64(vmull_u32(vget_low_u32(a), vget_low_u32(b)), 30);
  const uint32x2_t hi = vshrn_n_u64(vmull_u32(vget_high_u32(a), vget_high_u32(b)), 30);
  return reinterpret_cast<S4>(vreinterpretq_s32_u32(vcombine_u32(lo, hi)));
}

// Quantises coefficients out[i ...] = c as Fdct_Quantize: the rounded
// quotient of |c|, signed back.
inline void Quantize(S4 c, const int32_t* divisors, int i, int32_t* out) {
  S4 half, reciprocal;
  std::memcpy(&half, divisors + 64 + i, sizeof half);
  std::memcpy(&reciprocal, divisors + 128 + i, sizeof reciprocal);
  const S4 sign = c >> 31;
  const S4 q = MulHigh30(((c ^ sign) - sign) + half, reciprocal);
  const S4 result = (q ^ sign) - sign;
  std::memcpy(out + i, &result, sizeof result);
}

// Transforms and quantises `count` blocks side by side (see kje::Kernels).
// V holds L = 4 lanes; the block is (8 / L)^2 tiles of L x L, and each pass
// runs lane-wise over L rows (or columns) at once.
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
    for (int v = 0; v < 8; ++v)
      for (int hu = 0; hu < H; ++hu) Quantize(w[hu][v], divisors, 8 * v + L * hu, out);
  }
}
#endif

#if defined(__SSE2__)
// Both transforms on 16-bit lanes, one row per vector: eight lanes hold one
// block, sixteen (AVX2) two side by side. Level-shifted samples bound every
// sum a pass forms by 128 times the sum of the absolute weights of the
// samples in it. Fast transform: at most 1286 after the row pass and 12921
// after the column pass, 10288 for the largest product operand, and the
// truncations move these by a few units. So sums fit in 16 bits, and twice
// every operand of the 139 and 181 products fits as well, which the
// multiplies below need. Accurate transform: see SlowPass16.

// The 128-bit and (AVX2) 256-bit forms of the operations below, by overload;
// the wide unpacks work within each 128-bit half.
inline __m128i MulHigh16(__m128i a, __m128i b) { return _mm_mulhi_epi16(a, b); }
inline __m128i Lo16(__m128i a, __m128i b) { return _mm_unpacklo_epi16(a, b); }
inline __m128i Hi16(__m128i a, __m128i b) { return _mm_unpackhi_epi16(a, b); }
inline __m128i Lo32(__m128i a, __m128i b) { return _mm_unpacklo_epi32(a, b); }
inline __m128i Hi32(__m128i a, __m128i b) { return _mm_unpackhi_epi32(a, b); }
inline __m128i Lo64(__m128i a, __m128i b) { return _mm_unpacklo_epi64(a, b); }
inline __m128i Hi64(__m128i a, __m128i b) { return _mm_unpackhi_epi64(a, b); }
inline __m128i Add16(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
inline __m128i MulHighU16(__m128i a, __m128i b) { return _mm_mulhi_epu16(a, b); }
inline __m128i Madd16(__m128i a, __m128i b) { return _mm_madd_epi16(a, b); }
inline __m128i Sar32(__m128i a, int n) { return _mm_srai_epi32(a, n); }
inline __m128i Add32(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
inline void Set32(int32_t v, __m128i& out) { out = _mm_set1_epi32(v); }
inline void Set16(int32_t v, __m128i& out) { out = _mm_set1_epi16(static_cast<int16_t>(v)); }
inline __m128i Pack32(__m128i a, __m128i b) { return _mm_packs_epi32(a, b); }
inline void LoadRow(const int16_t* p, __m128i& out) {
  out = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
#if defined(__SSSE3__)
inline __m128i Abs16(__m128i a) { return _mm_abs_epi16(a); }
inline __m128i Sign16(__m128i a, __m128i s) { return _mm_sign_epi16(a, s); }
#else
inline __m128i Abs16(__m128i a) { return _mm_max_epi16(a, _mm_sub_epi16(_mm_setzero_si128(), a)); }
inline __m128i Sign16(__m128i a, __m128i s) {
  const __m128i sign = _mm_srai_epi16(s, 15);
  return _mm_sub_epi16(_mm_xor_si128(a, sign), sign);
}
#endif
#if defined(__AVX2__)
inline __m256i MulHigh16(__m256i a, __m256i b) { return _mm256_mulhi_epi16(a, b); }
inline __m256i Lo16(__m256i a, __m256i b) { return _mm256_unpacklo_epi16(a, b); }
inline __m256i Hi16(__m256i a, __m256i b) { return _mm256_unpackhi_epi16(a, b); }
inline __m256i Lo32(__m256i a, __m256i b) { return _mm256_unpacklo_epi32(a, b); }
inline __m256i Hi32(__m256i a, __m256i b) { return _mm256_unpackhi_epi32(a, b); }
inline __m256i Lo64(__m256i a, __m256i b) { return _mm256_unpacklo_epi64(a, b); }
inline __m256i Hi64(__m256i a, __m256i b) { return _mm256_unpackhi_epi64(a, b); }
inline __m256i Add16(__m256i a, __m256i b) { return _mm256_add_epi16(a, b); }
inline __m256i MulHighU16(__m256i a, __m256i b) { return _mm256_mulhi_epu16(a, b); }
inline __m256i Madd16(__m256i a, __m256i b) { return _mm256_madd_epi16(a, b); }
inline __m256i Sar32(__m256i a, int n) { return _mm256_srai_epi32(a, n); }
inline __m256i Add32(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline void Set32(int32_t v, __m256i& out) { out = _mm256_set1_epi32(v); }
inline void Set16(int32_t v, __m256i& out) { out = _mm256_set1_epi16(static_cast<int16_t>(v)); }
inline __m256i Pack32(__m256i a, __m256i b) { return _mm256_packs_epi32(a, b); }
inline __m256i Abs16(__m256i a) { return _mm256_abs_epi16(a); }
inline __m256i Sign16(__m256i a, __m256i s) { return _mm256_sign_epi16(a, s); }
// The same row of the table for both blocks.
inline void LoadRow(const int16_t* p, __m256i& out) {
  out = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
#endif

// (x * c) >> 8 from the high half of a 16 x 16-bit product: for c below 128
// as x times c << 8, below 256 as 2x times c << 7, above 256 as x plus
// x times (c - 256) << 8.
template <class W, class M>
inline W FastMul16(W x, int32_t c) {
  const M a = reinterpret_cast<M>(x);
  M k;
  if (c < 128) {
    Set16(c << 8, k);
    return reinterpret_cast<W>(MulHigh16(a, k));
  }
  if (c < 256) {
    Set16(c << 7, k);
    return reinterpret_cast<W>(MulHigh16(reinterpret_cast<M>(x + x), k));
  }
  Set16((c - 256) << 8, k);
  return x + reinterpret_cast<W>(MulHigh16(a, k));
}
inline W8 FastMul(W8 x, int32_t c) { return FastMul16<W8, __m128i>(x, c); }

// Transposes the 8x8 of 16-bit values in w[0..7] into b[0..7] (per 128-bit
// half on 256 bits).
template <class W, class U>
inline void Transpose16(const W* w, W* b) {
  U a[8], t[8], u[8];
  for (int i = 0; i < 8; ++i) a[i] = reinterpret_cast<U>(w[i]);
  for (int i = 0; i < 8; i += 2) {
    t[i] = Lo16(a[i], a[i + 1]);
    t[i + 1] = Hi16(a[i], a[i + 1]);
  }
  for (int i = 0; i < 8; i += 4) {
    u[i] = Lo32(t[i], t[i + 2]);
    u[i + 1] = Hi32(t[i], t[i + 2]);
    u[i + 2] = Lo32(t[i + 1], t[i + 3]);
    u[i + 3] = Hi32(t[i + 1], t[i + 3]);
  }
  for (int i = 0; i < 4; ++i) {
    b[2 * i] = reinterpret_cast<W>(Lo64(u[i], u[i + 4]));
    b[2 * i + 1] = reinterpret_cast<W>(Hi64(u[i], u[i + 4]));
  }
}
inline void Transpose(const W8* a, W8* b) { Transpose16<W8, __m128i>(a, b); }
#if defined(__AVX2__)
inline W16 FastMul(W16 x, int32_t c) { return FastMul16<W16, __m256i>(x, c); }
inline void Transpose(const W16* a, W16* b) { Transpose16<W16, __m256i>(a, b); }
#endif

// The accurate transform on 16-bit lanes. Its products are regrouped per
// input, a * ka + b * kb + ..., and summed in 32 bits from 16 x 16-bit pairs;
// the scalar's sums never wrap, so any grouping gives its exact values.
// Bounds as above: at most 4096 after the row pass, column sums of eight
// within -32768..32640, product operands within 16320, coefficients within
// 8192 (the outputs are the true DCT times 8).
template <class U>
inline U Dot2(U ab, int16_t ka, int16_t kb) {
  U k;
  Set32(static_cast<int32_t>(static_cast<uint16_t>(ka) | static_cast<uint32_t>(static_cast<uint16_t>(kb))
                                                             << 16),
        k);
  return Madd16(ab, k);
}
// Rounds and descales the 32-bit halves lo and hi by n, back to 16 bits.
template <class W, class U>
inline W Descale16(U lo, U hi, int n) {
  U round;
  Set32(1 << (n - 1), round);
  return reinterpret_cast<W>(Pack32(Sar32(Add32(lo, round), n), Sar32(Add32(hi, round), n)));
}
template <class W, class U>
inline W Dot2Descaled(W a, W b, int16_t ka, int16_t kb, int n) {
  const U x = reinterpret_cast<U>(a), y = reinterpret_cast<U>(b);
  return Descale16<W>(Dot2(Lo16(x, y), ka, kb), Dot2(Hi16(x, y), ka, kb), n);
}
// ab and cd: two pairs of inputs, interleaved (low and high halves).
template <class W, class U>
inline W Dot4Descaled(const U* ab, const U* cd, int16_t ka, int16_t kb, int16_t kc, int16_t kd, int n) {
  return Descale16<W>(Add32(Dot2(ab[0], ka, kb), Dot2(cd[0], kc, kd)),
                      Add32(Dot2(ab[1], ka, kb), Dot2(cd[1], kc, kd)), n);
}

template <bool kRows, class W, class U>
inline void SlowPass16(W* p) {
  const W tmp0 = p[0] + p[7], tmp7 = p[0] - p[7];
  const W tmp1 = p[1] + p[6], tmp6 = p[1] - p[6];
  const W tmp2 = p[2] + p[5], tmp5 = p[2] - p[5];
  const W tmp3 = p[3] + p[4], tmp4 = p[3] - p[4];

  const W tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  const W tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  constexpr int kOddShift = kRows ? 11 : 15;
  if (kRows) {
    p[0] = (tmp10 + tmp11) << 2;
    p[4] = (tmp10 - tmp11) << 2;
  } else {
    p[0] = (tmp10 + tmp11 + 2) >> 2;
    p[4] = (tmp10 - tmp11 + 2) >> 2;
  }
  p[2] = Dot2Descaled<W, U>(tmp13, tmp12, kFix0541196100 + kFix0765366865, kFix0541196100, kOddShift);
  p[6] = Dot2Descaled<W, U>(tmp13, tmp12, kFix0541196100, kFix0541196100 - kFix1847759065, kOddShift);

  const U t4 = reinterpret_cast<U>(tmp4), t5 = reinterpret_cast<U>(tmp5);
  const U t6 = reinterpret_cast<U>(tmp6), t7 = reinterpret_cast<U>(tmp7);
  const U a[2] = {Lo16(t4, t5), Hi16(t4, t5)}, b[2] = {Lo16(t6, t7), Hi16(t6, t7)};
  // z5 feeds every input; z3 = tmp4 and tmp6, z4 = tmp5 and tmp7, z1 = tmp4
  // and tmp7, z2 = tmp5 and tmp6, each plus the input's own factor.
  constexpr int32_t z5 = kFix1175875602, z3 = z5 - kFix1961570560, z4 = z5 - kFix0390180644;
  constexpr int32_t z1 = -kFix0899976223, z2 = -kFix2562915447;
  p[7] = Dot4Descaled<W>(a, b, kFix0298631336 + z1 + z3, z5, z3, z1 + z5, kOddShift);
  p[5] = Dot4Descaled<W>(a, b, z5, kFix2053119869 + z2 + z4, z2 + z5, z4, kOddShift);
  p[3] = Dot4Descaled<W>(a, b, z3, z2 + z5, kFix3072711026 + z2 + z3, z5, kOddShift);
  p[1] = Dot4Descaled<W>(a, b, z1 + z5, z4, z5, kFix1501321110 + z1 + z4, kOddShift);
}

// Rows first, then columns; r holds rows in, coefficient rows out.
template <bool kFast, class W, class U>
inline void Transform16(W* r) {
  W t[8];
  Transpose(r, t);
  if (kFast)
    FastPass(t);
  else
    SlowPass16<true, W, U>(t);
  Transpose(t, r);
  if (kFast)
    FastPass(r);
  else
    SlowPass16<false, W, U>(r);
}

// Quantises coefficient row v (of each block in c) as Fdct_Quantize, by
// Fdct_QuantizeSplit with the 16-bit tables t (Fdct_Tables16); |c| + d / 2
// stays below 2^15 by the bounds above.
template <class U>
inline U QuantizeRow16(U c, const int16_t* t, int v) {
  U half, lowBits, highOne0, highOne1;
  LoadRow(t + 8 * v, half);
  LoadRow(t + 64 + 8 * v, lowBits);
  LoadRow(t + 128 + 16 * v, highOne0);
  LoadRow(t + 136 + 16 * v, highOne1);
  const U x = Add16(Abs16(c), half);
  const U low = MulHighU16(x, lowBits);
  const U q0 = Sar32(Madd16(Lo16(x, low), highOne0), 14);
  const U q1 = Sar32(Madd16(Hi16(x, low), highOne1), 14);
  // A zero coefficient quantises to 0 (half < divisor): its sign may clear it.
  return Sign16(Pack32(q0, q1), c);
}

// Where the 16-bit tables follow the 32-bit ones.
inline const int16_t* Tables16(const int32_t* divisors) {
  return reinterpret_cast<const int16_t*>(divisors + 192);
}

// One block.
template <bool kFast>
inline void Block16(unsigned char* const* rows, uint32_t column, const int32_t* divisors, int32_t* out) {
  W8 r[8];
  for (int y = 0; y < 8; ++y) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rows[y] + column));
    r[y] = reinterpret_cast<W8>(_mm_unpacklo_epi8(bytes, _mm_setzero_si128())) - 128;
  }
  Transform16<kFast, W8, __m128i>(r);
  const int16_t* t = Tables16(divisors);
  for (int v = 0; v < 8; ++v) {
    const __m128i q = QuantizeRow16(reinterpret_cast<__m128i>(r[v]), t, v);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * v), _mm_srai_epi32(_mm_unpacklo_epi16(q, q), 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * v + 4),
                     _mm_srai_epi32(_mm_unpackhi_epi16(q, q), 16));
  }
}
#endif

#if defined(__AVX2__)
// Two adjacent blocks: block n's rows in the low halves, block n + 1's in the high.
template <bool kFast>
inline void Pair16(unsigned char* const* rows, uint32_t column, const int32_t* divisors, int32_t* out) {
  W16 r[8];
  for (int y = 0; y < 8; ++y) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[y] + column));
    r[y] = reinterpret_cast<W16>(_mm256_cvtepu8_epi16(bytes)) - 128;
  }
  Transform16<kFast, W16, __m256i>(r);
  const int16_t* t = Tables16(divisors);
  for (int v = 0; v < 8; ++v) {
    const __m256i q = QuantizeRow16(reinterpret_cast<__m256i>(r[v]), t, v);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 8 * v),
                        _mm256_cvtepi16_epi32(_mm256_castsi256_si128(q)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 64 + 8 * v),
                        _mm256_cvtepi16_epi32(_mm256_extracti128_si256(q, 1)));
  }
}
#endif

#if defined(__SSE2__)
// Transforms and quantises `count` blocks side by side (see kje::Kernels):
// two at once with AVX2, one at a time with SSE2.
template <bool kFast>
[[maybe_unused]] void FdctBlocks16(unsigned char* const* rows, uint32_t column, uint32_t count,
                                   const int32_t* divisors, int32_t* out) {
  uint32_t n = 0;
#if defined(__AVX2__)
  for (; n + 2 <= count; n += 2) Pair16<kFast>(rows, column + 8 * n, divisors, out + 64 * n);
#endif
  for (; n < count; ++n) Block16<kFast>(rows, column + 8 * n, divisors, out + 64 * n);
}
#endif

}  // namespace

#endif  // KJ_E_KJ_EFDCT_SIMD_H
