// Forward DCT and quantisation tables of the encoder.
#ifndef KJ_E_KJ_EFDCT_H
#define KJ_E_KJ_EFDCT_H

namespace kje {

// Base quantisation tables (luminance, chrominance), natural order.
extern const unsigned long kLuminanceQuantization[64];
extern const unsigned long kChrominanceQuantization[64];
// 16384 * a(u) * a(v) for the scaled fast transform, natural order.
extern const short kFastScales[64];

// Quality (clamped to 1..100) to table scale in percent.
int QualityScale(int quality);

}  // namespace kje

#endif  // KJ_E_KJ_EFDCT_H
