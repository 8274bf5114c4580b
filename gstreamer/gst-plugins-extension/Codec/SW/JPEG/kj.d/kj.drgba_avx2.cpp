// YCbCr rows to RGBA for AVX2 (compiled with -mavx2): 32 pixels a step.
// AVX2's packs and unpacks work within 128-bit lanes, so lane 0 of every
// vector carries pixels 0..15 of the step and lane 1 pixels 16..31, each
// lane doing what the four-lane kernel does; the stores put the lanes back
// in order. Rows shorter than a step go to the four-lane kernel.
#include "kj.dkernels.h"

#if defined(__x86_64__) && defined(__AVX2__)
#include <immintrin.h>

#include "kj.drgba_simd.h"

namespace {

typedef int32_t W8 __attribute__((vector_size(32)));

// 16-bit terms; which pixels each lane's words serve is up to the caller.
struct Terms16 {
  __m256i r, g, b;
};

// The terms of zero-extended 16-bit chroma samples, in the same places.
inline Terms16 TermsOfWords(__m256i cb, __m256i cr) {
  const __m256i zero = _mm256_setzero_si256();
  W8 r0, g0, b0, r1, g1, b1;
  TermsOf(reinterpret_cast<W8>(_mm256_unpacklo_epi16(cb, zero)),
          reinterpret_cast<W8>(_mm256_unpacklo_epi16(cr, zero)), r0, g0, b0);
  TermsOf(reinterpret_cast<W8>(_mm256_unpackhi_epi16(cb, zero)),
          reinterpret_cast<W8>(_mm256_unpackhi_epi16(cr, zero)), r1, g1, b1);
  const auto pack = [](W8 lo, W8 hi) {
    return _mm256_packs_epi32(reinterpret_cast<__m256i>(lo), reinterpret_cast<__m256i>(hi));
  };
  return {pack(r0, r1), pack(g0, g1), pack(b0, b1)};
}

inline __m256i Load32(const unsigned char* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// 32 pixels from their luma; `lo` holds the terms of pixels 0..7 (lane 0)
// and 16..23 (lane 1), `hi` those of 8..15 and 24..31.
inline void PutRgba32(__m256i y, const Terms16& lo, const Terms16& hi, __m256i alpha, unsigned char* out) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i yl = _mm256_unpacklo_epi8(y, zero), yh = _mm256_unpackhi_epi8(y, zero);
  const auto channel = [&](__m256i l, __m256i h) {
    return _mm256_packus_epi16(_mm256_add_epi16(yl, l), _mm256_add_epi16(yh, h));
  };
  const __m256i r = channel(lo.r, hi.r), g = channel(lo.g, hi.g), b = channel(lo.b, hi.b);
  const __m256i rg0 = _mm256_unpacklo_epi8(r, g), rg1 = _mm256_unpackhi_epi8(r, g);
  const __m256i ba0 = _mm256_unpacklo_epi8(b, alpha), ba1 = _mm256_unpackhi_epi8(b, alpha);
  const __m256i p0 = _mm256_unpacklo_epi16(rg0, ba0), p1 = _mm256_unpackhi_epi16(rg0, ba0);
  const __m256i p2 = _mm256_unpacklo_epi16(rg1, ba1), p3 = _mm256_unpackhi_epi16(rg1, ba1);
  __m256i* o = reinterpret_cast<__m256i*>(out);
  _mm256_storeu_si256(o, _mm256_permute2x128_si256(p0, p1, 0x20));
  _mm256_storeu_si256(o + 1, _mm256_permute2x128_si256(p2, p3, 0x20));
  _mm256_storeu_si256(o + 2, _mm256_permute2x128_si256(p0, p1, 0x31));
  _mm256_storeu_si256(o + 3, _mm256_permute2x128_si256(p2, p3, 0x31));
}

}  // namespace

namespace kjd {

void ConvertYUV211toRGBARows_avx2(uint32_t count, const unsigned char* y0, const unsigned char* y1,
                                  const unsigned char* cb, const unsigned char* cr, unsigned char alpha,
                                  unsigned char* out0, unsigned char* out1) {
  const __m256i a = _mm256_set1_epi8(static_cast<char>(alpha));
  uint32_t x = 0;
  for (; x + 32 <= count; x += 32) {
    // Chroma 0..7 in lane 0 and 8..15 in lane 1, each term then doubled.
    const Terms16 t =
        TermsOfWords(_mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cb + x / 2))),
                     _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cr + x / 2))));
    const Terms16 lo{_mm256_unpacklo_epi16(t.r, t.r), _mm256_unpacklo_epi16(t.g, t.g),
                     _mm256_unpacklo_epi16(t.b, t.b)};
    const Terms16 hi{_mm256_unpackhi_epi16(t.r, t.r), _mm256_unpackhi_epi16(t.g, t.g),
                     _mm256_unpackhi_epi16(t.b, t.b)};
    PutRgba32(Load32(y0 + x), lo, hi, a, out0 + 4 * x);
    if (y1 != nullptr) PutRgba32(Load32(y1 + x), lo, hi, a, out1 + 4 * x);
  }
  if (x < count)
    ToRgba211(count - x, y0 + x, y1 != nullptr ? y1 + x : nullptr, cb + x / 2, cr + x / 2, alpha,
              out0 + 4 * x, y1 != nullptr ? out1 + 4 * x : nullptr);
}

void ConvertYUV111toRGBARow_avx2(uint32_t count, const unsigned char* y, const unsigned char* cb,
                                 const unsigned char* cr, unsigned char alpha, unsigned char* out) {
  const __m256i a = _mm256_set1_epi8(static_cast<char>(alpha));
  const __m256i zero = _mm256_setzero_si256();
  uint32_t x = 0;
  for (; x + 32 <= count; x += 32) {
    // Chroma laid out as the luma is.
    const __m256i b = Load32(cb + x), r = Load32(cr + x);
    PutRgba32(Load32(y + x), TermsOfWords(_mm256_unpacklo_epi8(b, zero), _mm256_unpacklo_epi8(r, zero)),
              TermsOfWords(_mm256_unpackhi_epi8(b, zero), _mm256_unpackhi_epi8(r, zero)), a, out + 4 * x);
  }
  if (x < count) ToRgba111(count - x, y + x, cb + x, cr + x, alpha, out + 4 * x);
}

}  // namespace kjd
#endif
