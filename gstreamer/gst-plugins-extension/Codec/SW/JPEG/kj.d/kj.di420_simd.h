// 4:2:0 samples to I420 on whole vectors of chroma pairs, written once in
// GCC's generic vectors and compiled per instruction set by kj.di420_sse2,
// kj.di420_avx2 and kj.di420_neon (each sets KJ_I420_PAIRS first). Nothing
// here may be an inline function shared with other translation units, or
// the linker could keep the copy built with instructions the CPU lacks.
//
// Per pair the terms of kiu::RoundTripOf come from the same integer sums as
// its tables; where all four luma samples lie in the pair's safe range the
// output is Y + dy and the pair's U', V'. A pair outside it goes through
// the scalar routine, so every output equals the scalar twin's.
#ifndef KJ_D_KJ_DI420_SIMD_H
#define KJ_D_KJ_DI420_SIMD_H

#include <cstdint>
#include <cstring>

#include "kiu/kiu.h"

namespace {

constexpr int kPairs = KJ_I420_PAIRS;

typedef uint8_t Bytes __attribute__((vector_size(kPairs)));
typedef uint8_t Luma __attribute__((vector_size(2 * kPairs)));
typedef uint16_t Words __attribute__((vector_size(2 * kPairs)));
typedef int16_t SWords __attribute__((vector_size(2 * kPairs)));
typedef int32_t Ints __attribute__((vector_size(4 * kPairs)));
typedef uint64_t Quads __attribute__((vector_size(2 * kPairs)));

typedef uint8_t IntBytes __attribute__((vector_size(4 * kPairs)));

// Bytes to 32-bit lanes as a byte shuffle with zeros: the compiler keeps it
// in vector registers where a conversion may go lane by lane.
#if KJ_I420_PAIRS == 8
#define KJ_I420_WIDEN(x)                                                                                     \
  reinterpret_cast<Ints>(__builtin_shufflevector(x, Bytes{}, 0, 8, 8, 8, 1, 8, 8, 8, 2, 8, 8, 8, 3, 8, 8, 8, \
                                                 4, 8, 8, 8, 5, 8, 8, 8, 6, 8, 8, 8, 7, 8, 8, 8))
#else
#error "KJ_I420_PAIRS must be 8"
#endif

// Helpers taking or returning these vectors would change the calling
// convention with the vector width; the loop body keeps them local.
#define KJ_I420_MIN(a, b) ((a) < (b) ? (a) : (b))
#define KJ_I420_MAX(a, b) ((a) > (b) ? (a) : (b))

void Yuv420ToI420(uint32_t width, const unsigned char* y0, const unsigned char* y1, const unsigned char* cb,
                  const unsigned char* cr, unsigned char* outY0, unsigned char* outY1, unsigned char* outU,
                  unsigned char* outV) {
  const uint32_t pairs = width / 2;
  uint32_t i = 0;
  for (; i + kPairs <= pairs; i += kPairs) {
    Bytes cbs, crs;
    std::memcpy(&cbs, cb + i, sizeof cbs);
    std::memcpy(&crs, cr + i, sizeof crs);
    const Ints b0 = KJ_I420_WIDEN(cbs) - 128;
    const Ints r0 = KJ_I420_WIDEN(crs) - 128;
    // kiu's colour tables, as sums.
    const Ints r = (91881 * r0 + 32768) >> 16;
    const Ints g = (-22554 * b0 + 32768 - 46802 * r0) >> 16;
    const Ints b = (116130 * b0 + 32768) >> 16;
    const Ints dy = (19595 * r + 38470 * g + 7471 * b + 32768) >> 16;
    const Ints u = (-11059 * r - 21709 * g + 32768 * b + 8421375) >> 16;
    const Ints v = (32768 * r - 27439 * g - 5329 * b + 8421375) >> 16;
    const Ints zero{}, rgLo = KJ_I420_MIN(r, g), bLo = KJ_I420_MIN(b, zero);
    const Ints rgHi = KJ_I420_MAX(r, g), bHi = KJ_I420_MAX(b, zero);
    const Ints lo = KJ_I420_MIN(rgLo, bLo), hi = KJ_I420_MAX(rgHi, bHi);
    const Words yLow = __builtin_convertvector(-lo, Words);
    const Words yHigh = __builtin_convertvector(255 - hi, Words);

    // Luma as 16-bit words: the pair's left sample low, the right one high.
    Luma a0, a1;
    std::memcpy(&a0, y0 + 2 * i, sizeof a0);
    std::memcpy(&a1, y1 + 2 * i, sizeof a1);
    const Words w0 = reinterpret_cast<Words>(a0), w1 = reinterpret_cast<Words>(a1);
    const Words l0 = w0 & 0xff, h0 = w0 >> 8, l1 = w1 & 0xff, h1 = w1 >> 8;
    const Words lo0 = KJ_I420_MIN(l0, h0), lo1 = KJ_I420_MIN(l1, h1), least = KJ_I420_MIN(lo0, lo1);
    const Words hi0 = KJ_I420_MAX(l0, h0), hi1 = KJ_I420_MAX(l1, h1), most = KJ_I420_MAX(hi0, hi1);
    const SWords unsafe = reinterpret_cast<SWords>(least < yLow) | reinterpret_cast<SWords>(most > yHigh);

    // Inside the range Y + dy stays in 0..255: a byte-wise add is exact.
    const Luma step = reinterpret_cast<Luma>((__builtin_convertvector(dy, Words) & 0xff) * 0x0101);
    const Luma o0 = a0 + step, o1 = a1 + step;
    const Bytes us = __builtin_convertvector(u, Bytes), vs = __builtin_convertvector(v, Bytes);
    std::memcpy(outY0 + 2 * i, &o0, sizeof o0);
    std::memcpy(outY1 + 2 * i, &o1, sizeof o1);
    std::memcpy(outU + i, &us, sizeof us);
    std::memcpy(outV + i, &vs, sizeof vs);

    const Quads q = reinterpret_cast<Quads>(unsafe);
    uint64_t any = 0;
    for (int k = 0; k < kPairs / 4; ++k) any |= q[k];
    if (any == 0) continue;
    for (int k = 0; k < kPairs; ++k) {
      if (unsafe[k] == 0) continue;
      const uint32_t p = i + k;
      kiu::ConvertYUV420toI420(2, y0 + 2 * p, y1 + 2 * p, cb + p, cr + p, outY0 + 2 * p, outY1 + 2 * p,
                               outU + p, outV + p);
    }
  }
  if (i < pairs)
    kiu::ConvertYUV420toI420(width - 2 * i, y0 + 2 * i, y1 + 2 * i, cb + i, cr + i, outY0 + 2 * i,
                             outY1 + 2 * i, outU + i, outV + i);
}

}  // namespace

#undef KJ_I420_MIN
#undef KJ_I420_MAX
#undef KJ_I420_WIDEN

#endif  // KJ_D_KJ_DI420_SIMD_H
