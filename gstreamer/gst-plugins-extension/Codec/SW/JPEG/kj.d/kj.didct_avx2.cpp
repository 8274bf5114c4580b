// The accurate 8x8 inverse DCT for AVX2 (compiled with -mavx2). Blocks whose
// coefficients fit the 16-bit bound (nearly all) take pmaddwd on 16-bit
// pairs; the rest take eight 32-bit lanes, so each pass is one butterfly over
// whole rows (or columns), with the same shortcuts and wrapping arithmetic
// as the four-lane kernel and the scalar twin.
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include <immintrin.h>

#include "kj.didct_simd.h"

namespace {

typedef uint32_t U8 __attribute__((vector_size(32)));
typedef int32_t S8 __attribute__((vector_size(32)));

inline bool AllZero8(U8 v) {
  const __m256i m = reinterpret_cast<__m256i>(v);
  return _mm256_testz_si256(m, m) != 0;
}

inline U8 Sar8(U8 v, int n) { return reinterpret_cast<U8>(reinterpret_cast<S8>(v) >> n); }

inline U8 Wrap10x8(U8 v, int shift) { return Sar8(v << (22 - shift), 22) + 128u; }

// in[i] lane j becomes out[j] lane i.
inline void Transpose8(const U8* in, U8* out) {
  __m256i t[8], u[8];
  for (int i = 0; i < 8; i += 2) {
    const __m256i a = reinterpret_cast<__m256i>(in[i]), b = reinterpret_cast<__m256i>(in[i + 1]);
    t[i] = _mm256_unpacklo_epi32(a, b);
    t[i + 1] = _mm256_unpackhi_epi32(a, b);
  }
  for (int i = 0; i < 8; i += 4) {
    u[i] = _mm256_unpacklo_epi64(t[i], t[i + 2]);
    u[i + 1] = _mm256_unpackhi_epi64(t[i], t[i + 2]);
    u[i + 2] = _mm256_unpacklo_epi64(t[i + 1], t[i + 3]);
    u[i + 3] = _mm256_unpackhi_epi64(t[i + 1], t[i + 3]);
  }
  for (int i = 0; i < 4; ++i) {
    out[i] = reinterpret_cast<U8>(_mm256_permute2x128_si256(u[i], u[i + 4], 0x20));
    out[i + 4] = reinterpret_cast<U8>(_mm256_permute2x128_si256(u[i], u[i + 4], 0x31));
  }
}

inline void Store8x8(unsigned char* out, U8 v) {
  const __m256i m = reinterpret_cast<__m256i>(v);
  const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
}

// The 16-bit path. Written out, each butterfly output is a sum of the eight
// inputs times fixed weights; pmaddwd forms two of those products per lane
// and adds them in 32 bits. Modulo 2^32 that is the 32-bit butterfly's
// value whatever the inputs, so it is exact as long as every input of both
// passes fits 16 bits: the coefficients (checked per block) and the column
// results, which the coefficient bound below guarantees. Without wrapping,
// the column and row shortcuts give what the full butterfly gives, so this
// path needs none.
//
// Weights of (c0, c4), (c2, c6) for t0, t1, t3, t2, and of (c1, c5), (c3, c7)
// for o1, o3, o5, o7: the butterfly's products gathered per input.
constexpr int16_t W(uint32_t v) { return static_cast<int16_t>(static_cast<int32_t>(v)); }
constexpr uint32_t kZ5 = kFix1_175875602;
constexpr int16_t kEvenWeights[4][2] = {{8192, 8192},
                                        {8192, -8192},
                                        {W(kFix0_541196100 + kFix0_765366865), W(kFix0_541196100)},
                                        {W(kFix0_541196100), W(kFix0_541196100 - kFix1_847759065)}};
constexpr int16_t kOddWeights[4][2][2] = {
    {{W(kFix1_501321110 - kFix0_899976223 - kFix0_390180644 + kZ5), W(kZ5 - kFix0_390180644)},
     {W(kZ5), W(kZ5 - kFix0_899976223)}},
    {{W(kZ5), W(kZ5 - kFix2_562915447)},
     {W(kFix3_072711026 - kFix2_562915447 - kFix1_961570560 + kZ5), W(kZ5 - kFix1_961570560)}},
    {{W(kZ5 - kFix0_390180644), W(kFix2_053119869 - kFix2_562915447 - kFix0_390180644 + kZ5)},
     {W(kZ5 - kFix2_562915447), W(kZ5)}},
    {{W(kZ5 - kFix0_899976223), W(kZ5)},
     {W(kZ5 - kFix1_961570560), W(kFix0_298631336 - kFix0_899976223 - kFix1_961570560 + kZ5)}}};

constexpr int Abs(int v) { return v < 0 ? -v : v; }

// The largest sum of absolute weights over the eight outputs (out[i] and
// out[7 - i] share theirs).
constexpr int MaxWeightSum() {
  int most = 0;
  for (int i = 0; i < 4; ++i) {
    const int t = i == 1 || i == 2 ? 1 : 0;  // t0 and t3, or t1 and t2
    const int even = Abs(kEvenWeights[t][0]) + Abs(kEvenWeights[t][1]) + Abs(kEvenWeights[2 + t][0]) +
                     Abs(kEvenWeights[2 + t][1]);
    int odd = 0;
    for (int p = 0; p < 2; ++p) odd += Abs(kOddWeights[i][p][0]) + Abs(kOddWeights[i][p][1]);
    if (even + odd > most) most = even + odd;
  }
  return most;
}

// Coefficients within +-kNarrowBound keep every column result, (sum + 1024)
// >> 11, inside 16 bits; dequantised coefficients of real pictures do.
constexpr int kNarrowBound = ((1 << 26) - 1025) / MaxWeightSum();
static_assert(kNarrowBound == 1096, "the weights changed");

inline __m256i Weights(const int16_t (&w)[2]) {
  return _mm256_set1_epi32(
      static_cast<int32_t>(static_cast<uint16_t>(w[0]) | (static_cast<uint32_t>(w[1]) << 16)));
}

// The butterfly on pairs e04 = (c0, c4), e26, o15, o37 per 32-bit lane.
inline void PairButterfly(__m256i e04, __m256i e26, __m256i o15, __m256i o37, int32_t round, __m256i* out) {
  const __m256i r = _mm256_set1_epi32(round);
  const __m256i t0 = _mm256_add_epi32(_mm256_madd_epi16(e04, Weights(kEvenWeights[0])), r);
  const __m256i t1 = _mm256_add_epi32(_mm256_madd_epi16(e04, Weights(kEvenWeights[1])), r);
  const __m256i t3 = _mm256_madd_epi16(e26, Weights(kEvenWeights[2]));
  const __m256i t2 = _mm256_madd_epi16(e26, Weights(kEvenWeights[3]));
  const __m256i even[4] = {_mm256_add_epi32(t0, t3), _mm256_add_epi32(t1, t2), _mm256_sub_epi32(t1, t2),
                           _mm256_sub_epi32(t0, t3)};
  for (int i = 0; i < 4; ++i) {
    const __m256i odd = _mm256_add_epi32(_mm256_madd_epi16(o15, Weights(kOddWeights[i][0])),
                                         _mm256_madd_epi16(o37, Weights(kOddWeights[i][1])));
    out[i] = _mm256_add_epi32(even[i], odd);
    out[7 - i] = _mm256_sub_epi32(even[i], odd);
  }
}

// Rows a and b (32-bit, within 16 bits) as (a, b) pairs per column, the
// columns in the order 0, 4, 2, 6, 1, 5, 3, 7: that order makes the column
// pass's results pack straight into the row pass's pairs.
inline __m256i ColumnPairs(__m256i packed) {
  const __m256i interleave = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15, 0, 1, 8,
                                              9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
  return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(packed, interleave),
                                     _mm256_setr_epi32(0, 4, 2, 6, 1, 5, 3, 7));
}

// The transform when every coefficient lies within kNarrowBound; false
// (nothing written) otherwise.
inline bool Idct8x8Narrow(const U8* r, unsigned char** rows, unsigned long column) {
  __m256i in[8];
  for (int i = 0; i < 8; ++i) in[i] = reinterpret_cast<__m256i>(r[i]);
  // Saturating packs keep out-of-range values out of range.
  const __m256i p04 = _mm256_packs_epi32(in[0], in[4]), p26 = _mm256_packs_epi32(in[2], in[6]);
  const __m256i p15 = _mm256_packs_epi32(in[1], in[5]), p37 = _mm256_packs_epi32(in[3], in[7]);
  const __m256i most = _mm256_max_epu16(_mm256_max_epu16(_mm256_abs_epi16(p04), _mm256_abs_epi16(p26)),
                                        _mm256_max_epu16(_mm256_abs_epi16(p15), _mm256_abs_epi16(p37)));
  const __m256i over = _mm256_subs_epu16(most, _mm256_set1_epi16(kNarrowBound));
  if (!_mm256_testz_si256(over, over)) return false;

  // Columns: w[y] is row y of the workspace, columns in ColumnPairs' order.
  __m256i w[8];
  PairButterfly(ColumnPairs(p04), ColumnPairs(p26), ColumnPairs(p15), ColumnPairs(p37), 1024, w);
  // v[y] (y < 4), 32-bit lanes: in the low half (x0, x4) and (x2, x6) of rows
  // y and y + 4, in the high half (x1, x5) and (x3, x7).
  __m256i v[4];
  for (int y = 0; y < 4; ++y)
    v[y] = _mm256_packs_epi32(_mm256_srai_epi32(w[y], 11), _mm256_srai_epi32(w[y + 4], 11));
  const __m256i lo01 = _mm256_unpacklo_epi32(v[0], v[1]), lo23 = _mm256_unpacklo_epi32(v[2], v[3]);
  const __m256i hi01 = _mm256_unpackhi_epi32(v[0], v[1]), hi23 = _mm256_unpackhi_epi32(v[2], v[3]);
  const __m256i a = _mm256_unpacklo_epi64(lo01, lo23), b = _mm256_unpackhi_epi64(lo01, lo23);
  const __m256i c = _mm256_unpacklo_epi64(hi01, hi23), d = _mm256_unpackhi_epi64(hi01, hi23);

  // Rows: lanes are rows 0..7, o[x] is output column x.
  __m256i o[8];
  PairButterfly(_mm256_permute2x128_si256(a, c, 0x20), _mm256_permute2x128_si256(b, d, 0x20),
                _mm256_permute2x128_si256(a, c, 0x31), _mm256_permute2x128_si256(b, d, 0x31), 131072, o);
  // Bits 18..27 sign-extended; the signed byte pack clamps to -128..127, and
  // flipping the top bit adds the 128.
  __m256i s[4];
  for (int x = 0; x < 8; x += 2)
    s[x / 2] = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_slli_epi32(o[x], 4), 22),
                                  _mm256_srai_epi32(_mm256_slli_epi32(o[x + 1], 4), 22));
  const __m256i flip = _mm256_set1_epi8(-128);
  // Bytes x * 4 + y per half (rows y and y + 4) to y * 4 + x.
  const __m256i transpose = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0, 4, 8,
                                             12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m256i left = _mm256_shuffle_epi8(_mm256_xor_si256(_mm256_packs_epi16(s[0], s[1]), flip), transpose);
  const __m256i right =
      _mm256_shuffle_epi8(_mm256_xor_si256(_mm256_packs_epi16(s[2], s[3]), flip), transpose);
  const __m256i rows01 = _mm256_unpacklo_epi32(left, right), rows23 = _mm256_unpackhi_epi32(left, right);
  const __m128i q[4] = {_mm256_castsi256_si128(rows01), _mm256_castsi256_si128(rows23),
                        _mm256_extracti128_si256(rows01, 1), _mm256_extracti128_si256(rows23, 1)};
  for (int i = 0; i < 4; ++i) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(rows[2 * i] + column), q[i]);
    const uint64_t high = static_cast<uint64_t>(_mm_extract_epi64(q[i], 1));
    __builtin_memcpy(rows[2 * i + 1] + column, &high, sizeof high);
  }
  return true;
}

void Idct8x8Wide(int32_t* block, unsigned char** rows, unsigned long column) {
  // Row loads one by one: a memcpy of the whole block went through a stack
  // copy in 16-byte halves, and each 32-byte reload then waited for both.
  U8 r[8];
  for (int y = 0; y < 8; ++y)
    r[y] = reinterpret_cast<U8>(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(block + 8 * y)));
  const U8 ac = r[1] | r[2] | r[3] | r[4] | r[5] | r[6] | r[7];
  if (AllZero8(ac | (r[0] & U8{0, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u}))) {
    // DC only: every column takes its shortcut, then every row.
    const U8 v = Wrap10x8(U8{} + (static_cast<uint32_t>(block[0]) * 4u + 16u), 5);
    for (int y = 0; y < 8; ++y) Store8x8(rows[y] + column, v);
    return;
  }
  if (Idct8x8Narrow(r, rows, column)) return;

  // Column pass; a column whose AC entries are zero becomes its DC times 4.
  U8 out[8], w[8];
  if (AllZero8(r[4] | r[5] | r[6] | r[7]))
    Butterfly<true>(r, 1024, out);
  else
    Butterfly(r, 1024, out);
  const S8 flatColumn = ac == 0u;
  const U8 dc = r[0] * 4u;
  for (int y = 0; y < 8; ++y) w[y] = flatColumn ? dc : Sar8(out[y], 11);

  // Row pass on columns of the workspace: lanes are rows.
  U8 t[8], s[8], o[8];
  Transpose8(w, t);
  if (AllZero8(t[4] | t[5] | t[6] | t[7]))
    Butterfly<true>(t, 131072, out);
  else
    Butterfly(t, 131072, out);
  const S8 flatRow = (t[1] | t[2] | t[3] | t[4] | t[5] | t[6] | t[7]) == 0u;
  const U8 rowDc = Wrap10x8(t[0] + 16u, 5);
  for (int x = 0; x < 8; ++x) s[x] = flatRow ? rowDc : Wrap10x8(out[x], 18);
  Transpose8(s, o);
  for (int y = 0; y < 8; ++y) Store8x8(rows[y] + column, o[y]);
}

}  // namespace

namespace kjd {

void IDCT_8x8_avx2(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct8x8Wide(block, rows, column);
}

void IDCT_4x4_avx2(int32_t* block, unsigned char** rows, unsigned long column) {
  Idct4x4(block, rows, column);
}

}  // namespace kjd
#endif
