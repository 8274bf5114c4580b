// The accurate 8x8 inverse DCT on four 32-bit lanes, written once in GCC's
// generic vectors and compiled per instruction set by kj.didct_sse2,
// kj.didct_avx2 and kj.didct_neon; its butterfly also serves the scalar twin
// (kj.didct). Each of those includes only this header
// and its own intrinsics: nothing here may be an inline function shared with
// other translation units, or the linker could keep the copy built with
// instructions the CPU lacks.
//
// The arithmetic is the scalar twin's (kj.didct): 32-bit wrapping products
// and sums, the same shortcuts per column and per row (which differ from the
// full butterfly only when values wrap), arithmetic shifts and the 10-bit
// wrap before the clamp. Sums wrap modulo 2^32, so their order is free.
#ifndef KJ_D_KJ_DIDCT_SIMD_H
#define KJ_D_KJ_DIDCT_SIMD_H

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

// The real factors times 8192, rounded.
constexpr uint32_t kFix0_298631336 = 2446;
constexpr uint32_t kFix0_390180644 = 3196;
constexpr uint32_t kFix0_541196100 = 4433;
constexpr uint32_t kFix0_765366865 = 6270;
constexpr uint32_t kFix0_899976223 = 7373;
constexpr uint32_t kFix1_175875602 = 9633;
constexpr uint32_t kFix1_501321110 = 12299;
constexpr uint32_t kFix1_847759065 = 15137;
constexpr uint32_t kFix1_961570560 = 16069;
constexpr uint32_t kFix2_053119869 = 16819;
constexpr uint32_t kFix2_562915447 = 20995;
constexpr uint32_t kFix3_072711026 = 25172;

typedef uint32_t U4 __attribute__((vector_size(16)));
typedef int32_t S4 __attribute__((vector_size(16)));
typedef uint64_t Q2 __attribute__((vector_size(16)));

inline bool AllZero(U4 v) {
  const Q2 q = reinterpret_cast<Q2>(v);
  return (q[0] | q[1]) == 0;
}

inline U4 Sar(U4 v, int n) { return reinterpret_cast<U4>(reinterpret_cast<S4>(v) >> n); }

// The sample for a value whose bits [shift, shift + 10) index the range
// limit: those ten bits sign-extended, plus 128 (the clamp comes at the store).
inline U4 Wrap10(U4 v, int shift) { return Sar(v << (22 - shift), 22) + 128u; }

// The 8-point butterfly of both passes, on one value (the scalar twin) or a
// vector of four: inputs c[0..7], the rounding term added to the even part,
// results before descaling. With kSparse, inputs 4..7 are known to be zero
// (the common sparse block); the compiler drops their terms, which leaves the
// same wrapping sums.
template <bool kSparse = false, class T>
inline void Butterfly(const T* in, uint32_t round, T* out) {
  const T zero{};
  const T c[8] = {in[0],
                  in[1],
                  in[2],
                  in[3],
                  kSparse ? zero : in[4],
                  kSparse ? zero : in[5],
                  kSparse ? zero : in[6],
                  kSparse ? zero : in[7]};
  T z1 = (c[2] + c[6]) * kFix0_541196100;
  const T t2 = z1 - c[6] * kFix1_847759065;
  const T t3 = z1 + c[2] * kFix0_765366865;
  const T t0 = ((c[0] + c[4]) << 13) + round;
  const T t1 = ((c[0] - c[4]) << 13) + round;
  const T t10 = t0 + t3, t13 = t0 - t3, t11 = t1 + t2, t12 = t1 - t2;

  z1 = (c[7] + c[1]) * (0u - kFix0_899976223);
  const T z2 = (c[5] + c[3]) * (0u - kFix2_562915447);
  T z3 = c[7] + c[3];
  T z4 = c[5] + c[1];
  const T z5 = (z3 + z4) * kFix1_175875602;
  z3 = z3 * (0u - kFix1_961570560) + z5;
  z4 = z4 * (0u - kFix0_390180644) + z5;
  const T o7 = c[7] * kFix0_298631336 + z1 + z3;
  const T o5 = c[5] * kFix2_053119869 + z2 + z4;
  const T o3 = c[3] * kFix3_072711026 + z2 + z3;
  const T o1 = c[1] * kFix1_501321110 + z1 + z4;

  out[0] = t10 + o1;
  out[7] = t10 - o1;
  out[1] = t11 + o3;
  out[6] = t11 - o3;
  out[2] = t12 + o5;
  out[5] = t12 - o5;
  out[3] = t13 + o7;
  out[4] = t13 - o7;
}

// Transposes the 4x4 of 32-bit values in a[0..3] into b[0..3].
inline void Transpose4(const U4* a, U4* b) {
  const U4 lo01 = __builtin_shufflevector(a[0], a[1], 0, 4, 1, 5);
  const U4 hi01 = __builtin_shufflevector(a[0], a[1], 2, 6, 3, 7);
  const U4 lo23 = __builtin_shufflevector(a[2], a[3], 0, 4, 1, 5);
  const U4 hi23 = __builtin_shufflevector(a[2], a[3], 2, 6, 3, 7);
  b[0] = __builtin_shufflevector(lo01, lo23, 0, 1, 4, 5);
  b[1] = __builtin_shufflevector(lo01, lo23, 2, 3, 6, 7);
  b[2] = __builtin_shufflevector(hi01, hi23, 0, 1, 4, 5);
  b[3] = __builtin_shufflevector(hi01, hi23, 2, 3, 6, 7);
}

#if defined(__SSE2__)
// Eight samples, each clamped to 0..255, from two vectors of four.
inline void Store8(unsigned char* out, U4 lo, U4 hi) {
  const __m128i words = _mm_packs_epi32(reinterpret_cast<__m128i>(lo), reinterpret_cast<__m128i>(hi));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
}
inline void Store4(unsigned char* out, U4 v) {
  const __m128i words = _mm_packs_epi32(reinterpret_cast<__m128i>(v), reinterpret_cast<__m128i>(v));
  const uint32_t bytes = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(words, words)));
  std::memcpy(out, &bytes, 4);
}
#elif defined(__ARM_NEON)
inline void Store8(unsigned char* out, U4 lo, U4 hi) {
  const int16x8_t words =
      vcombine_s16(vqmovn_s32(reinterpret_cast<int32x4_t>(lo)), vqmovn_s32(reinterpret_cast<int32x4_t>(hi)));
  vst1_u8(out, vqmovun_s16(words));
}
inline void Store4(unsigned char* out, U4 v) {
  const int16x4_t words = vqmovn_s32(reinterpret_cast<int32x4_t>(v));
  const uint32_t bytes = vget_lane_u32(vreinterpret_u32_u8(vqmovun_s16(vcombine_s16(words, words))), 0);
  std::memcpy(out, &bytes, 4);
}
#endif

#if defined(__SSE2__) || defined(__ARM_NEON)
[[maybe_unused]] void Idct8x8(int32_t* block, unsigned char** rows, unsigned long column) {
  // Vectors hold four columns (or rows) each; [half][i] keeps every pass's
  // input contiguous, so nothing is copied between the passes.
  U4 r[2][8];
  for (int y = 0; y < 8; ++y)
    for (int h = 0; h < 2; ++h) std::memcpy(&r[h][y], block + 8 * y + 4 * h, sizeof(U4));

  const U4 ac0 = r[0][1] | r[0][2] | r[0][3] | r[0][4] | r[0][5] | r[0][6] | r[0][7];
  const U4 ac1 = r[1][1] | r[1][2] | r[1][3] | r[1][4] | r[1][5] | r[1][6] | r[1][7];
  if (AllZero(ac0 | ac1 | r[1][0] | (r[0][0] & U4{0, ~0u, ~0u, ~0u}))) {
    // DC only: every column takes its shortcut, then every row.
    const U4 v = Wrap10(U4{0, 0, 0, 0} + (static_cast<uint32_t>(block[0]) * 4u + 16u), 5);
    for (int y = 0; y < 8; ++y) Store8(rows[y] + column, v, v);
    return;
  }

  // Column pass; a column whose AC entries are zero becomes its DC times 4.
  U4 w[2][8];
  const U4 ac[2] = {ac0, ac1};
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    if (AllZero(ac[h] | r[h][0])) {
      for (int y = 0; y < 8; ++y) w[h][y] = U4{0, 0, 0, 0};
      continue;
    }
    U4 out[8];
    if (AllZero(r[h][4] | r[h][5] | r[h][6] | r[h][7]))
      Butterfly<true>(r[h], 1024, out);
    else
      Butterfly(r[h], 1024, out);
    const S4 flat = ac[h] == 0u;
    const U4 dc = r[h][0] * 4u;
    for (int y = 0; y < 8; ++y) w[h][y] = flat ? dc : Sar(out[y], 11);
  }

  // t[hr][x]: column x, rows 4 * hr .. 4 * hr + 3.
  U4 t[2][8];
  for (int hr = 0; hr < 2; ++hr)
    for (int h = 0; h < 2; ++h) Transpose4(&w[h][4 * hr], &t[hr][4 * h]);

  // Row pass; a row whose AC entries are zero is its rounded DC.
  U4 s[2][8];
#pragma GCC unroll 2
  for (int hr = 0; hr < 2; ++hr) {
    const U4* c = t[hr];
    U4 out[8];
    if (AllZero(c[4] | c[5] | c[6] | c[7]))
      Butterfly<true>(c, 131072, out);
    else
      Butterfly(c, 131072, out);
    const S4 flat = (c[1] | c[2] | c[3] | c[4] | c[5] | c[6] | c[7]) == 0u;
    const U4 dc = Wrap10(c[0] + 16u, 5);
    for (int x = 0; x < 8; ++x) s[hr][x] = flat ? dc : Wrap10(out[x], 18);
  }

  // Back to rows and out.
  for (int hr = 0; hr < 2; ++hr) {
    U4 lo[4], hi[4];
    Transpose4(&s[hr][0], lo);
    Transpose4(&s[hr][4], hi);
    for (int y = 0; y < 4; ++y) Store8(rows[4 * hr + y] + column, lo[y], hi[y]);
  }
}

// The reduced 4x4 transform for 1/2 scale: no shortcuts, no rounding terms,
// truncating shifts, as its scalar twin.
[[maybe_unused]] void Idct4x4(int32_t* block, unsigned char** rows, unsigned long column) {
  U4 c[4], w[4], t[4], s[4], o[4];
  for (int y = 0; y < 4; ++y) std::memcpy(&c[y], block + 8 * y, sizeof(U4));
  const U4 z = (c[1] + c[3]) * kFix0_541196100;
  const U4 o1 = Sar(z + c[1] * kFix0_765366865, 11);
  const U4 o2 = Sar(z - c[3] * kFix1_847759065, 11);
  const U4 e0 = (c[0] + c[2]) * 4u;
  const U4 e1 = (c[0] - c[2]) * 4u;
  w[0] = e0 + o1;
  w[1] = e1 + o2;
  w[2] = e1 - o2;
  w[3] = e0 - o1;
  Transpose4(w, t);
  const U4 zr = (t[1] + t[3]) * kFix0_541196100;
  const U4 r1 = zr + t[1] * kFix0_765366865;
  const U4 r2 = zr - t[3] * kFix1_847759065;
  const U4 f0 = (t[0] + t[2]) << 13;
  const U4 f1 = (t[0] - t[2]) << 13;
  s[0] = Wrap10(f0 + r1, 18);
  s[1] = Wrap10(f1 + r2, 18);
  s[2] = Wrap10(f1 - r2, 18);
  s[3] = Wrap10(f0 - r1, 18);
  Transpose4(s, o);
  for (int y = 0; y < 4; ++y) Store4(rows[y] + column, o[y]);
}
#endif

}  // namespace

#endif  // KJ_D_KJ_DIDCT_SIMD_H
