// The JPEG format as both codecs see it (ISO/IEC 10918-1): marker codes, the
// zigzag order, the size limits, the standard Huffman tables of Annex K and
// the canonical code builder. Each has this one home.
#ifndef KJ_JPEG_H
#define KJ_JPEG_H

#include <cstdint>

namespace kj {

// Marker codes: the byte after 0xFF.
enum Marker : uint8_t {
  kTEM = 0x01,
  kSOF0 = 0xC0,  // baseline
  kSOF1 = 0xC1,  // extended sequential
  kSOF2 = 0xC2,  // progressive
  kSOF3 = 0xC3,  // lossless; C5..C7 hierarchical, C9..CB and CD..CF arithmetic
  kDHT = 0xC4,
  kSOF5 = 0xC5,
  kSOF7 = 0xC7,
  kJPG = 0xC8,
  kSOF9 = 0xC9,
  kSOF11 = 0xCB,
  kDAC = 0xCC,
  kSOF13 = 0xCD,
  kSOF15 = 0xCF,
  kRST0 = 0xD0,
  kRST7 = 0xD7,
  kSOI = 0xD8,
  kEOI = 0xD9,
  kSOS = 0xDA,
  kDQT = 0xDB,
  kDNL = 0xDC,
  kDRI = 0xDD,
  kDHP = 0xDE,
  kEXP = 0xDF,
  kAPP0 = 0xE0,
  kAPP1 = 0xE1,
  kAPP2 = 0xE2,
  kAPP13 = 0xED,
  kAPP14 = 0xEE,
  kAPP15 = 0xEF,
  kJPG0 = 0xF0,
  kJPG13 = 0xFD,
  kCOM = 0xFE,
};

// Zigzag position to natural (row-major) index, then 16 entries of 63: a
// corrupt run length that steps past position 63 lands on coefficient 63.
inline constexpr int32_t kNaturalOrder[80] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                              12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                              35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                              58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
                                              63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63};

// The largest width or height either codec takes.
inline constexpr uint32_t kMaxDimension = 65500;
// Blocks in one MCU of an interleaved scan the decoder takes. The standard
// allows 10; 18 is deliberate (4x4 luma and two 1x1 chroma components).
inline constexpr int kMaxBlocksInMcu = 18;

// A Huffman table as a DHT segment carries it: bits[l] codes of length l
// (bits[0] unused), then the values in code order.
struct HuffmanSpec {
  uint8_t bits[17];
  uint8_t values[162];
  int Count() const {
    int n = 0;
    for (int l = 1; l <= 16; ++l) n += bits[l];
    return n;
  }
};

// The tables of Annex K.3, which baseline encoders write and which decoders
// assume where a stream has no DHT.
extern const HuffmanSpec kLuminanceDc, kLuminanceAc, kChrominanceDc, kChrominanceAc;

// Canonical codes (Annex C): from bits[1..16], each value's code length and
// code, in value order. Returns the number of codes, kTooManyCodes beyond 256,
// or kOverfull when the counts overflow the code space of a length.
constexpr int kTooManyCodes = -1;
constexpr int kOverfull = -2;
int HuffmanCodes(const uint8_t bits[17], uint8_t lengths[256], uint32_t codes[256]);

}  // namespace kj

#endif  // KJ_JPEG_H
