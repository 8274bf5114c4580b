#include "kj.e/kj.ehuff.h"

#include "kj.e/kj.e.h"

namespace kje {

namespace {
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.ehuff";
constexpr kau::Site kSiteBadHuffTableNumber{kSource, 20};
constexpr kau::Site kSiteMissingHuffTable{kSource, 22};
constexpr kau::Site kSiteTooManyCodes{kSource, 31};
constexpr kau::Site kSiteCodeOverflow{kSource, 49};
constexpr kau::Site kSiteBadSymbol{kSource, 59};
constexpr kau::Site kSiteDcTooLarge{kSource, 157};
constexpr kau::Site kSiteAcTooLarge{kSource, 182};
}  // namespace

const unsigned char kLuminanceDcBits[17] = {0, 0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
const unsigned char kLuminanceDcValues[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const unsigned char kChrominanceDcBits[17] = {0, 0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
const unsigned char kChrominanceDcValues[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

const unsigned char kLuminanceAcBits[17] = {0, 0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d};
const unsigned char kLuminanceAcValues[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22,
    0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33,
    0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34,
    0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55,
    0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76,
    0x77, 0x78, 0x79, 0x7a, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96,
    0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5,
    0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4,
    0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1,
    0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

const unsigned char kChrominanceAcBits[17] = {0, 0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77};
const unsigned char kChrominanceAcValues[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13,
    0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62,
    0x72, 0xd1, 0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29,
    0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54,
    0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75,
    0x76, 0x77, 0x78, 0x79, 0x7a, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94,
    0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3,
    0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2,
    0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea,
    0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

void Encoder::Huff_AddTable(HuffmanTable*& table, const unsigned char* bits, const unsigned char* values) {
  if (table == nullptr) table = static_cast<HuffmanTable*>(heap_.AllocateAndZero(sizeof(HuffmanTable)));
  kau::mem::Copy8(table->bits, bits, 17);
  unsigned long count = 0;
  for (int l = 1; l <= 16; ++l) count += bits[l];
  // More than 256 values is caught when the derived table is built.
  kau::mem::Copy8(table->values, values, count > 256 ? 256 : count);
  table->written = 0;
}

void Encoder::Huff_MakeDerivedTable(bool isDC, int number, DerivedTable*& derived) {
  if (number < 0 || number > 3) kau::Throw(kSiteBadHuffTableNumber);
  const HuffmanTable* table = isDC ? dcTables_[number] : acTables_[number];
  if (table == nullptr) kau::Throw(kSiteMissingHuffTable);

  unsigned char sizes[257];
  int total = 0;
  for (int l = 1; l <= 16; ++l) {
    for (int i = 0; i < table->bits[l]; ++i) {
      if (total >= 256) kau::Throw(kSiteTooManyCodes);
      sizes[total++] = static_cast<unsigned char>(l);
    }
  }
  sizes[total] = 0;

  // Canonical codes: consecutive within a length, doubled to the next length.
  uint32_t codes[256];
  uint32_t code = 0;
  int p = 0;
  int length = sizes[0];
  while (sizes[p] != 0) {
    while (sizes[p] == length) {
      codes[p++] = code++;
    }
    if (code >= (1u << length)) kau::Throw(kSiteCodeOverflow);
    code <<= 1;
    ++length;
  }

  if (derived == nullptr) derived = static_cast<DerivedTable*>(heap_.Allocate(sizeof(DerivedTable)));
  kau::mem::Zero8(derived->length, 256);
  int maxSymbol = isDC ? 15 : 255;
  for (int i = 0; i < total; ++i) {
    int symbol = table->values[i];
    if (symbol > maxSymbol || derived->length[symbol] != 0) kau::Throw(kSiteBadSymbol);
    derived->code[symbol] = codes[i];
    derived->length[symbol] = sizes[i];
  }
}

void Encoder::Huff_StartPass() {
  Huff_AddTable(dcTables_[0], kLuminanceDcBits, kLuminanceDcValues);
  Huff_AddTable(acTables_[0], kLuminanceAcBits, kLuminanceAcValues);
  Huff_AddTable(dcTables_[1], kChrominanceDcBits, kChrominanceDcValues);
  Huff_AddTable(acTables_[1], kChrominanceAcBits, kChrominanceAcValues);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    int index = static_cast<int>(c - components_);
    if (c->dcTable < 0 || c->dcTable > 3 || c->acTable < 0 || c->acTable > 3)
      kau::Throw(kSiteBadHuffTableNumber);
    Huff_MakeDerivedTable(true, c->dcTable, dcDerived_[c->dcTable]);
    Huff_MakeDerivedTable(false, c->acTable, acDerived_[c->acTable]);
    lastDc_[index] = 0;
  }
  bitBuffer_ = 0;
  bitCount_ = 0;
}

namespace {
// Number of bits of |value|: the magnitude category.
inline int Category(int value) {
  unsigned magnitude = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  int n = 0;
  while (magnitude != 0) {
    ++n;
    magnitude >>= 1;
  }
  return n;
}
}  // namespace

void Encoder::EncodeOneBlock(int* block, int lastDC, DerivedTable* dc, DerivedTable* ac) {
  int diff = block[0] - lastDC;
  int n = Category(diff);
  if (n > 11) kau::Throw(kSiteDcTooLarge);
  EmitSymbol(dc, n);
  // Negative values are sent as value - 1 in n bits (one's complement).
  if (n > 0) EmitBits(static_cast<uint32_t>(diff < 0 ? diff - 1 : diff), n);

  int run = 0;
  for (int k = 1; k < 64; ++k) {
    int value = block[kNaturalOrder[k]];
    if (value == 0) {
      ++run;
      continue;
    }
    while (run > 15) {
      EmitSymbol(ac, 0xF0);
      run -= 16;
    }
    n = Category(value);
    if (n > 10) kau::Throw(kSiteAcTooLarge);
    EmitSymbol(ac, (run << 4) + n);
    EmitBits(static_cast<uint32_t>(value < 0 ? value - 1 : value), n);
    run = 0;
  }
  if (run > 0) EmitSymbol(ac, 0);
}

void Encoder::Huff_EncodeMcu(Block** blocks) {
  for (int b = 0; b < blocksInMcu_; ++b) {
    int ci = mcuBlockComponent_[b];
    const Component& c = components_[ci];
    int* coef = blocks[b]->coef;
    EncodeOneBlock(coef, lastDc_[ci], dcDerived_[c.dcTable], acDerived_[c.acTable]);
    lastDc_[ci] = coef[0];
  }
}

void Encoder::Huff_FinishPass() {
  EmitBits(0x7F, 7);  // pad the last byte with 1-bits
  bitBuffer_ = 0;
  bitCount_ = 0;
}

}  // namespace kje
