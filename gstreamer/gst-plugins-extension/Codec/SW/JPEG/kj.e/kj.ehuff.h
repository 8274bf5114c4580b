// Standard Huffman tables of the encoder (counts indexed by code length,
// entry 0 unused, then the symbol values).
#ifndef KJ_E_KJ_EHUFF_H
#define KJ_E_KJ_EHUFF_H

namespace kje {

extern const unsigned char kLuminanceDcBits[17];
extern const unsigned char kLuminanceDcValues[12];
extern const unsigned char kChrominanceDcBits[17];
extern const unsigned char kChrominanceDcValues[12];
extern const unsigned char kLuminanceAcBits[17];
extern const unsigned char kLuminanceAcValues[162];
extern const unsigned char kChrominanceAcBits[17];
extern const unsigned char kChrominanceAcValues[162];

}  // namespace kje

#endif  // KJ_E_KJ_EHUFF_H
