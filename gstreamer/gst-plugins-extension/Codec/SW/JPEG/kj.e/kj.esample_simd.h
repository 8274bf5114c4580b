// Packed pixels to YCbCr 4:2:0 rows, written once over GCC's generic vectors
// and compiled per instruction set by kj.esample_sse2, kj.esample_avx2 and
// kj.esample_neon; the scalar twin Sample_YccRowsFrom takes the tails. As in
// the decoder's kernel headers, everything here has internal linkage, so no
// copy built for one instruction set can stand in for another's.
//
// A step reads 16 pixels of each row per 128-bit lane (AVX2 puts pixels
// 16..31 in lane 1, so its packs keep the order) and writes 16 Y samples of
// each row and 8 of Cb and Cr per lane. Each pixel's channels are the colour
// tables' sums computed as weight times sample, exactly: every product and
// sum fits 32 bits.
#ifndef KJ_E_KJ_ESAMPLE_SIMD_H
#define KJ_E_KJ_ESAMPLE_SIMD_H

#include <cstdint>

#include "kau/kausimd.h"
#include "kj.esample.h"

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

using kje::kYccWeights;

#if defined(__SSE2__)
// Two 16-bit weights per 32-bit lane, as pmaddwd takes them.
constexpr int32_t Pair(int32_t low, int32_t high) {
  return static_cast<int32_t>((static_cast<uint32_t>(high) << 16) | (static_cast<uint32_t>(low) & 0xffff));
}
constexpr bool Fits16(int32_t w) { return w >= -32768 && w <= 32767; }

// pmaddwd's signed 16-bit weights miss 38470 (G to Y) and 32768 (B to Cb,
// R to Cr): G's weight for Y goes in halved and the sum is doubled; Cb and Cr
// are taken negated, where -32768 fits, and subtracted from their constant.
constexpr kje::YccWeights kY = kYccWeights[0], kCb = kYccWeights[1], kCr = kYccWeights[2];
static_assert(kY.g % 2 == 0 && Fits16(kY.g / 2) && Fits16(kY.r) && Fits16(kY.b), "Y weights");
static_assert(Fits16(-kCb.r) && Fits16(-kCb.g) && Fits16(-kCb.b), "Cb weights");
static_assert(Fits16(-kCr.r) && Fits16(-kCr.g) && Fits16(-kCr.b), "Cr weights");
constexpr int32_t kYRb = Pair(kY.r, kY.b), kYG = Pair(kY.g / 2, 0);
constexpr int32_t kCbRb = Pair(-kCb.r, -kCb.b), kCbG = Pair(-kCb.g, 0);
constexpr int32_t kCrRb = Pair(-kCr.r, -kCr.b), kCrG = Pair(-kCr.g, 0);

inline W4 Madd(W4 a, W4 w) {
  return reinterpret_cast<W4>(_mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(w)));
}

// Sums of neighbouring words, one per 32-bit lane.
inline W4 PairSums(W4 words) { return Madd(words, W4{} + Pair(1, 1)); }

inline W4 Load(const unsigned char* p) {
  return reinterpret_cast<W4>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline void StoreY(W4 bytes, unsigned char* out) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), reinterpret_cast<__m128i>(bytes));
}
// Bytes 0..7 are Cb, 8..15 Cr.
inline void StoreChroma(W4 bytes, unsigned char* cb, unsigned char* cr) {
  const __m128i v = reinterpret_cast<__m128i>(bytes);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(cb), v);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(cr), _mm_unpackhi_epi64(v, v));
}

#if defined(__AVX2__)
typedef int32_t W8 __attribute__((vector_size(32)));

inline W8 Madd(W8 a, W8 w) {
  return reinterpret_cast<W8>(_mm256_madd_epi16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(w)));
}
inline W8 Words(W8 lo, W8 hi) {
  return reinterpret_cast<W8>(
      _mm256_packs_epi32(reinterpret_cast<__m256i>(lo), reinterpret_cast<__m256i>(hi)));
}
inline W8 Bytes(W8 lo, W8 hi) {
  return reinterpret_cast<W8>(
      _mm256_packus_epi16(reinterpret_cast<__m256i>(lo), reinterpret_cast<__m256i>(hi)));
}
inline W8 PairSums(W8 words) { return Madd(words, W8{} + Pair(1, 1)); }
// Pixels 0..3 in lane 0 and 16..19 in lane 1.
inline W8 Load(const unsigned char* p, W8) {
  const __m128i* q = reinterpret_cast<const __m128i*>(p);
  return reinterpret_cast<W8>(
      _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(q)), _mm_loadu_si128(q + 4), 1));
}
inline void StoreY(W8 bytes, unsigned char* out) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), reinterpret_cast<__m256i>(bytes));
}
// Per lane, Cb in bytes 0..7 and Cr in 8..15.
inline void StoreChroma(W8 bytes, unsigned char* cb, unsigned char* cr) {
  const __m256i v = _mm256_permute4x64_epi64(reinterpret_cast<__m256i>(bytes), 0xd8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(cb), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(cr), _mm256_extracti128_si256(v, 1));
}
#endif

// Y, Cb and Cr of packed pixels, one per 32-bit lane.
template <class V>
inline void Channels(V px, V& y, V& cb, V& cr) {
  const V rb = px & 0x00ff00ff;         // words R, B
  const V ga = (px >> 8) & 0x00ff00ff;  // words G and the fourth byte, weighted 0
  y = (Madd(rb, V{} + kYRb) + (Madd(ga, V{} + kYG) << 1) + kY.bias) >> 16;
  cb = (kCb.bias - Madd(rb, V{} + kCbRb) - Madd(ga, V{} + kCbG)) >> 16;
  cr = (kCr.bias - Madd(rb, V{} + kCrRb) - Madd(ga, V{} + kCrG)) >> 16;
}

#elif defined(__ARM_NEON)
// NEON multiplies 32-bit lanes at full rate: the sums as written.
template <class V>
inline V SumOf(V r, V g, V b, const kje::YccWeights& w) {
  return (r * w.r + g * w.g + b * w.b + w.bias) >> 16;
}
template <class V>
inline void Channels(V px, V& y, V& cb, V& cr) {
  const V r = px & 0xff, g = (px >> 8) & 0xff, b = (px >> 16) & 0xff;
  y = SumOf(r, g, b, kYccWeights[0]);
  cb = SumOf(r, g, b, kYccWeights[1]);
  cr = SumOf(r, g, b, kYccWeights[2]);
}
inline W4 PairSums(W4 words) { return reinterpret_cast<W4>(vpaddlq_s16(reinterpret_cast<int16x8_t>(words))); }
inline W4 Load(const unsigned char* p) { return reinterpret_cast<W4>(vld1q_u8(p)); }
inline void StoreY(W4 bytes, unsigned char* out) { vst1q_u8(out, reinterpret_cast<uint8x16_t>(bytes)); }
inline void StoreChroma(W4 bytes, unsigned char* cb, unsigned char* cr) {
  const uint8x16_t v = reinterpret_cast<uint8x16_t>(bytes);
  vst1_u8(cb, vget_low_u8(v));
  vst1_u8(cr, vget_high_u8(v));
}
#endif

#if defined(__SSE2__) || defined(__ARM_NEON)

inline W4 Load(const unsigned char* p, W4) { return Load(p); }
// 32-bit values that fit 16 bits, as words in lane order.
inline W4 Words(W4 lo, W4 hi) { return reinterpret_cast<W4>(Narrow(lo, hi)); }
// Words 0..255 as bytes.
inline W4 Bytes(W4 lo, W4 hi) {
  return reinterpret_cast<W4>(Saturate(reinterpret_cast<H8>(lo), reinterpret_cast<H8>(hi)));
}

// Luma of rows a and b, and chroma, at one stage of a step.
template <class V>
struct Ycc {
  V ya, yb, cb, cr;
};

// Four pixels of each row: Y, and Cb and Cr of each pixel pair above one
// another summed.
template <class V>
inline Ycc<V> QuadAt(const unsigned char* a, const unsigned char* b) {
  Ycc<V> q;
  V cbA, crA, cbB, crB;
  Channels(Load(a, V{}), q.ya, cbA, crA);
  Channels(Load(b, V{}), q.yb, cbB, crB);
  q.cb = cbA + cbB;
  q.cr = crA + crB;
  return q;
}

// Eight pixels of both rows per lane, packed as soon as they are made (the
// whole step at once would not fit the registers): Y of each row as words,
// and the four 2x2 means of Cb and of Cr.
template <class V>
inline Ycc<V> HalfAt(const unsigned char* a, const unsigned char* b) {
  V bias;  // 1, 2, 1, 2, ... by output sample
  for (unsigned i = 0; i < sizeof(V) / 4; ++i) bias[i] = 1 + static_cast<int32_t>(i & 1);
  const Ycc<V> q0 = QuadAt<V>(a, b), q1 = QuadAt<V>(a + 16, b + 16);
  return {Words(q0.ya, q1.ya), Words(q0.yb, q1.yb), (PairSums(Words(q0.cb, q1.cb)) + bias) >> 2,
          (PairSums(Words(q0.cr, q1.cr)) + bias) >> 2};
}

// One step from pixel `x` on: sizeof(V) pixels of each row.
template <class V>
inline void Step(const kje::YccRows& rows, uint32_t x) {
  const unsigned char *a = rows.in[0] + 4 * x, *b = rows.in[1] + 4 * x;
  const Ycc<V> h0 = HalfAt<V>(a, b), h1 = HalfAt<V>(a + 32, b + 32);
  StoreY(Bytes(h0.ya, h1.ya), rows.y[0] + x);
  StoreY(Bytes(h0.yb, h1.yb), rows.y[1] + x);
  StoreChroma(Bytes(Words(h0.cb, h1.cb), Words(h0.cr, h1.cr)), rows.cb + x / 2, rows.cr + x / 2);
}

// The whole steps from pixel `x` on; returns where they stopped.
template <class V>
inline uint32_t Steps(const kje::YccRows& rows, uint32_t x) {
  for (; x + sizeof(V) <= rows.width; x += sizeof(V)) Step<V>(rows, x);
  return x;
}

#endif

}  // namespace

#endif  // KJ_E_KJ_ESAMPLE_SIMD_H
