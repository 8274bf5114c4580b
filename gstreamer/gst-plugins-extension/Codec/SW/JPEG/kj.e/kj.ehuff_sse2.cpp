// The AC mask of a block for x86-64's baseline SSE2: the 64 values are
// narrowed to 16 bits with saturation (which keeps zero and non-zero apart,
// and large values large), their extremes kept for the range bit, then
// narrowed to bytes and compared with zero 16 at a time; the natural-order
// mask is then put in zigzag order by table.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>

namespace kje {

uint64_t Huff_AcMask_sse2(const int32_t* block) {
  const __m128i* in = reinterpret_cast<const __m128i*>(block);
  const __m128i zero = _mm_setzero_si128();
  __m128i highest = zero;
  __m128i lowest = zero;
  uint64_t zeros = 0;
  for (int i = 0; i < 4; ++i, in += 4) {
    __m128i low = _mm_packs_epi32(_mm_loadu_si128(in), _mm_loadu_si128(in + 1));
    __m128i high = _mm_packs_epi32(_mm_loadu_si128(in + 2), _mm_loadu_si128(in + 3));
    if (i == 0) low = _mm_and_si128(low, _mm_set_epi16(-1, -1, -1, -1, -1, -1, -1, 0));  // no DC
    highest = _mm_max_epi16(highest, _mm_max_epi16(low, high));
    lowest = _mm_min_epi16(lowest, _mm_min_epi16(low, high));
    __m128i bytes = _mm_packs_epi16(low, high);
    zeros |= static_cast<uint64_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero))) << (16 * i);
  }
  __m128i extreme = _mm_max_epi16(highest, _mm_subs_epi16(zero, lowest));
  uint64_t large = _mm_movemask_epi8(_mm_cmpgt_epi16(extreme, _mm_set1_epi16(1023))) != 0;
  const uint64_t natural = ~zeros;
  uint64_t zigzag = large;
  for (int j = 0; j < 8; ++j) zigzag |= kHuffZigzagBits.bits[j][natural >> (8 * j) & 0xFF];
  return zigzag;
}

}  // namespace kje
#endif
