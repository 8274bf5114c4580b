// The accurate 8x8 inverse DCT for AVX2 (compiled with -mavx2): eight lanes,
// so each pass is one butterfly over whole rows (or columns), with the same
// shortcuts and wrapping arithmetic as the four-lane kernel and the scalar
// twin.
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

void Idct8x8Wide(int32_t* block, unsigned char** rows, unsigned long column) {
  U8 r[8];
  __builtin_memcpy(r, block, sizeof r);
  const U8 ac = r[1] | r[2] | r[3] | r[4] | r[5] | r[6] | r[7];
  if (AllZero8(ac | (r[0] & U8{0, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u}))) {
    // DC only: every column takes its shortcut, then every row.
    const U8 v = Wrap10x8(U8{} + (static_cast<uint32_t>(block[0]) * 4u + 16u), 5);
    for (int y = 0; y < 8; ++y) Store8x8(rows[y] + column, v);
    return;
  }

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

void IDCT_8x8_avx2(int32_t* block, unsigned char** rows, unsigned long column) { Idct8x8Wide(block, rows, column); }

void IDCT_4x4_avx2(int32_t* block, unsigned char** rows, unsigned long column) { Idct4x4(block, rows, column); }

}  // namespace kjd
#endif
