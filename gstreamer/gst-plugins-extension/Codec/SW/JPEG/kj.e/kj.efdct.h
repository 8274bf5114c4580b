// Forward DCT and quantisation tables of the encoder.
#ifndef KJ_E_KJ_EFDCT_H
#define KJ_E_KJ_EFDCT_H

#include <cstdint>

namespace kje {

// Base quantisation tables (luminance, chrominance), natural order.
extern const unsigned long kLuminanceQuantization[64];
extern const unsigned long kChrominanceQuantization[64];
// 16384 * a(u) * a(v) for the scaled fast transform, natural order.
extern const short kFastScales[64];

// Rounded quantisation without a division: with m = Fdct_Reciprocal(d),
// Fdct_Quantize(c, d / 2, m) == (c < 0 ? -((-c + d / 2) / d) : (c + d / 2) / d)
// for every divisor 1..4095 and |c| + d / 2 < 2^17, far beyond what either
// transform produces (the tests check every pair). The reciprocal is rounded
// up; its error times the dividend stays below 2^30, so the floor is exact.
inline int32_t Fdct_Reciprocal(int32_t d) { return static_cast<int32_t>(((int64_t{1} << 30) + d - 1) / d); }
inline int32_t Fdct_Quantize(int32_t c, int32_t half, int32_t reciprocal) {
  const uint32_t sign = static_cast<uint32_t>(c >> 31);
  const uint64_t x = ((static_cast<uint32_t>(c) ^ sign) - sign) + static_cast<uint32_t>(half);
  const uint32_t q = static_cast<uint32_t>((x * static_cast<uint32_t>(reciprocal)) >> 30);
  return static_cast<int32_t>((q ^ sign) - sign);
}

// The fast transform's kernels work on 16-bit lanes, where the dividend
// x = |c| + d / 2 stays below 2^15, and split the reciprocal m (at most 2^30)
// as high * 2^16 + low: then floor(x * m / 2^30) equals
// (x * high + ((x * low) >> 16)) >> 14 (a floor inside a floor), and every
// product fits 16 x 16 bits. From the divisor table d (divisor, half,
// reciprocal) they take, per coefficient, the half, low, then high and 1 side
// by side.
inline void Fdct_Tables16(const int32_t* d, int16_t* t) {
  for (int i = 0; i < 64; ++i) {
    t[i] = static_cast<int16_t>(d[64 + i]);
    t[64 + i] = static_cast<int16_t>(static_cast<uint16_t>(d[128 + i] & 0xFFFF));
    t[128 + 2 * i] = static_cast<int16_t>(d[128 + i] >> 16);
    t[129 + 2 * i] = 1;
  }
}
inline int32_t Fdct_QuantizeSplit(int32_t x, int32_t reciprocal) {
  const uint32_t low = static_cast<uint32_t>(reciprocal) & 0xFFFF;
  return (x * (reciprocal >> 16) + static_cast<int32_t>((static_cast<uint32_t>(x) * low) >> 16)) >> 14;
}

// Quality (clamped to 1..100) to table scale in percent.
int QualityScale(int quality);

}  // namespace kje

#endif  // KJ_E_KJ_EFDCT_H
