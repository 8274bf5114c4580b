// The AC mask of a block with AVX2: the 64 values are narrowed to bytes with
// saturation (zero stays zero, large stays large) and byte shuffles put them
// in zigzag order before one compare with zero per 32, so no table is needed.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include <immintrin.h>

namespace kje {
namespace {

// Narrowing rows 0-3 and 4-7 leaves four 16-byte sources: source s holds rows
// 4 * (s >> 1) to + 3, columns 4 * (s & 1) to + 3, at byte 4 * (row & 3) +
// (column & 3). kPick[half][s] picks, for zigzag positions 32 * half to + 31,
// the bytes of source s (0x80, a zero byte, where another source has them).
struct Picks {
  unsigned char at[2][4][32];
};
constexpr Picks kPick = [] {
  Picks t{};
  for (int k = 0; k < 64; ++k) {
    const int row = kNaturalOrder[k] / 8;
    const int column = kNaturalOrder[k] % 8;
    const int source = (row >> 2) * 2 + (column >> 2);
    for (int s = 0; s < 4; ++s)
      t.at[k / 32][s][k % 32] = static_cast<unsigned char>(s == source ? 4 * (row & 3) + (column & 3) : 0x80);
  }
  return t;
}();

}  // namespace

uint64_t Huff_AcMask_avx2(const int32_t* block) {
  const __m256i* in = reinterpret_cast<const __m256i*>(block);
  // Lane 0 of a 16-bit pack holds columns 0-3 of its two rows, lane 1 columns 4-7.
  __m256i rows01 = _mm256_packs_epi32(_mm256_loadu_si256(in), _mm256_loadu_si256(in + 1));
  const __m256i rows23 = _mm256_packs_epi32(_mm256_loadu_si256(in + 2), _mm256_loadu_si256(in + 3));
  const __m256i rows45 = _mm256_packs_epi32(_mm256_loadu_si256(in + 4), _mm256_loadu_si256(in + 5));
  const __m256i rows67 = _mm256_packs_epi32(_mm256_loadu_si256(in + 6), _mm256_loadu_si256(in + 7));
  rows01 = _mm256_and_si256(
      rows01, _mm256_setr_epi16(0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));  // no DC

  const __m256i highest =
      _mm256_max_epi16(_mm256_max_epi16(rows01, rows23), _mm256_max_epi16(rows45, rows67));
  const __m256i lowest = _mm256_min_epi16(_mm256_min_epi16(rows01, rows23), _mm256_min_epi16(rows45, rows67));
  const __m256i extreme = _mm256_max_epi16(highest, _mm256_subs_epi16(_mm256_setzero_si256(), lowest));
  const uint64_t large = _mm256_movemask_epi8(_mm256_cmpgt_epi16(extreme, _mm256_set1_epi16(1023))) != 0;

  const __m256i top = _mm256_packs_epi16(rows01, rows23);     // sources 0 (lane 0) and 1
  const __m256i bottom = _mm256_packs_epi16(rows45, rows67);  // sources 2 and 3
  const __m256i source[4] = {
      _mm256_permute2x128_si256(top, top, 0x00), _mm256_permute2x128_si256(top, top, 0x11),
      _mm256_permute2x128_si256(bottom, bottom, 0x00), _mm256_permute2x128_si256(bottom, bottom, 0x11)};
  uint64_t zeros = 0;
  for (int half = 0; half < 2; ++half) {
    __m256i zigzag = _mm256_setzero_si256();
    for (int s = 0; s < 4; ++s) {
      const __m256i pick = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(kPick.at[half][s]));
      zigzag = _mm256_or_si256(zigzag, _mm256_shuffle_epi8(source[s], pick));
    }
    const uint32_t bits =
        static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(zigzag, _mm256_setzero_si256())));
    zeros |= static_cast<uint64_t>(bits) << (32 * half);
  }
  return ~zeros | large;
}

}  // namespace kje
#endif
