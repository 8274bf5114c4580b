// The non-zero mask of a block for x86-64's baseline SSE2: the 64 values are
// narrowed to bytes with saturation (which keeps zero and non-zero apart) and
// compared with zero 16 at a time.
#include "kj.ekernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>

namespace kje {

uint64_t Huff_NonZero_sse2(const int32_t* block) {
  const __m128i* in = reinterpret_cast<const __m128i*>(block);
  const __m128i zero = _mm_setzero_si128();
  uint64_t zeros = 0;
  for (int i = 0; i < 4; ++i, in += 4) {
    __m128i low = _mm_packs_epi32(_mm_loadu_si128(in), _mm_loadu_si128(in + 1));
    __m128i high = _mm_packs_epi32(_mm_loadu_si128(in + 2), _mm_loadu_si128(in + 3));
    __m128i bytes = _mm_packs_epi16(low, high);
    zeros |= static_cast<uint64_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero))) << (16 * i);
  }
  return ~zeros;
}

}  // namespace kje
#endif
