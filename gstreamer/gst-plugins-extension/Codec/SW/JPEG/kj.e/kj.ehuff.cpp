#include "kj.jpeg.h"

#include "kj.e/kj.e.h"
#include "kj.e/kj.ekernels.h"

namespace kje {

namespace {
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.ehuff";
constexpr kau::Fault kSiteBadHuffTableNumber{kSource, 20, kau::Category::kInternal,
                                             "a Huffman table number above 3"};
constexpr kau::Fault kSiteMissingHuffTable{kSource, 22, kau::Category::kInternal,
                                           "a Huffman table is not defined"};
constexpr kau::Fault kSiteTooManyCodes{kSource, 31, kau::Category::kInternal,
                                       "a Huffman table has too many codes"};
constexpr kau::Fault kSiteCodeOverflow{kSource, 49, kau::Category::kInternal, "a Huffman table is overfull"};
constexpr kau::Fault kSiteBadSymbol{kSource, 59, kau::Category::kInternal,
                                    "a Huffman table has a bad or repeated value"};
constexpr kau::Fault kSiteDcTooLarge{kSource, 157, kau::Category::kInternal,
                                     "a DC difference beyond 11 bits"};
constexpr kau::Fault kSiteAcTooLarge{kSource, 182, kau::Category::kInternal, "an AC value beyond 10 bits"};
}  // namespace

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

  unsigned char sizes[256];
  uint32_t codes[256];
  const int total = kj::HuffmanCodes(table->bits, sizes, codes);
  if (total == kj::kTooManyCodes) kau::Throw(kSiteTooManyCodes);
  if (total == kj::kOverfull) kau::Throw(kSiteCodeOverflow);

  if (derived == nullptr) derived = static_cast<DerivedTable*>(heap_.Allocate(sizeof(DerivedTable)));
  kau::mem::Zero8(derived->length, 256);
  int maxSymbol = isDC ? 15 : 255;
  for (int i = 0; i < total; ++i) {
    int symbol = table->values[i];
    if (symbol > maxSymbol || derived->length[symbol] != 0) kau::Throw(kSiteBadSymbol);
    derived->code[symbol] = codes[i];
    derived->length[symbol] = sizes[i];
  }
  for (int i = 0; i < 256; ++i) derived->packed[i] = derived->code[i] << 8 | derived->length[i];
  if (isDC) return;

  // The fast path's entries: code and value-bit offset already shifted
  // together, so a coefficient costs one load and one add (see
  // Huff_EncodeBlock). Usable only when every symbol it can meet has a code.
  bool complete = derived->length[0] != 0 && derived->length[0xF0] != 0;
  for (int run = 0; run < 16; ++run) {
    for (int n = 1; n <= 10; ++n) {
      int symbol = run << 4 | n;
      complete = complete && derived->length[symbol] != 0;
      uint32_t base = derived->code[symbol] << n;
      uint32_t size = derived->length[symbol] + static_cast<uint32_t>(n);
      derived->fast[run * 32 + 2 * (n - 1)] = base << 5 | size;
      derived->fast[run * 32 + 2 * (n - 1) + 1] = (base + (1u << n) - 1) << 5 | size;
    }
  }
  derived->complete = complete;
}

void Encoder::Huff_StartPass() {
  Huff_AddTable(dcTables_[0], kj::kLuminanceDc.bits, kj::kLuminanceDc.values);
  Huff_AddTable(acTables_[0], kj::kLuminanceAc.bits, kj::kLuminanceAc.values);
  Huff_AddTable(dcTables_[1], kj::kChrominanceDc.bits, kj::kChrominanceDc.values);
  Huff_AddTable(acTables_[1], kj::kChrominanceAc.bits, kj::kChrominanceAc.values);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    int index = static_cast<int>(c - components_);
    if (c->dcTable < 0 || c->dcTable > 3 || c->acTable < 0 || c->acTable > 3)
      kau::Throw(kSiteBadHuffTableNumber);
    Huff_MakeDerivedTable(true, c->dcTable, dcDerived_[c->dcTable]);
    Huff_MakeDerivedTable(false, c->acTable, acDerived_[c->acTable]);
    lastDc_[index] = 0;
  }
  bitBuffer_ = 0;
  bitsFree_ = 64;
}

namespace {
constexpr ZigzagBits MakeZigzagBits() {
  int position[64] = {};
  for (int k = 0; k < 64; ++k) position[kNaturalOrder[k]] = k;
  ZigzagBits t{};
  for (int j = 0; j < 8; ++j)
    for (int b = 0; b < 256; ++b)
      for (int i = 0; i < 8; ++i)
        if (b >> i & 1) t.bits[j][b] |= uint64_t{1} << position[8 * j + i];
  return t;
}
}  // namespace

constexpr ZigzagBits kHuffZigzagBits = MakeZigzagBits();

namespace {
// kNaturalOrder in bytes, for the coder's inner loop.
constexpr struct ZigzagBytes {
  unsigned char at[64];
  constexpr unsigned char operator[](int k) const { return at[k]; }
} kZigzagToNatural = [] {
  ZigzagBytes t{};
  for (int k = 0; k < 64; ++k) t.at[k] = static_cast<unsigned char>(kNaturalOrder[k]);
  return t;
}();

// The fast table's column for each value v in -1023..1023 (at v + 1023):
// 2 * (n - 1) + 1 if negative, n being the bit count of |v|.
constexpr struct ValueKeys {
  unsigned char of[2047];
} kValueKeys = [] {
  ValueKeys t{};
  for (int v = -1023; v <= 1023; ++v) {
    int magnitude = v < 0 ? -v : v;
    int n = 0;
    while (magnitude >> n) ++n;
    t.of[v + 1023] = static_cast<unsigned char>(v == 0 ? 0 : 2 * (n - 1) + (v < 0));
  }
  return t;
}();

inline bool HasByteFF(uint64_t word) {
  uint64_t inverted = ~word;  // a 0xFF byte becomes a zero byte
  return ((inverted - 0x0101010101010101u) & ~inverted & 0x8080808080808080u) != 0;
}
}  // namespace

uint64_t Huff_AcMask_scalar(const int32_t* block) {
  uint32_t low = 0;  // two halves: cheaper than one 64-bit value on 32-bit ARM
  uint32_t high = 0;
  uint32_t large = 0;
  for (int i = 1; i < 32; ++i) low |= static_cast<uint32_t>(block[i] != 0) << i;
  for (int i = 0; i < 32; ++i) high |= static_cast<uint32_t>(block[32 + i] != 0) << i;
  for (int i = 1; i < 64; ++i) large |= block[i] < -1023 || block[i] > 1023;
  uint64_t zigzag = large;
  for (int j = 0; j < 4; ++j) zigzag |= kHuffZigzagBits.bits[j][low >> (8 * j) & 0xFF];
  for (int j = 0; j < 4; ++j) zigzag |= kHuffZigzagBits.bits[4 + j][high >> (8 * j) & 0xFF];
  return zigzag;
}

unsigned char* Encoder::Huff_StoreWordSlow(unsigned char* next, uint64_t word) {
  if (outEnd_ - next >= 16) {
    // Room for every byte stuffed: a zero follows each 0xFF.
    for (int shift = 56; shift >= 0; shift -= 8) {
      unsigned char byte = static_cast<unsigned char>(word >> shift);
      next[0] = byte;
      next[1] = 0;
      next += 1 + (byte == 0xFF);
    }
    return next;
  }
  outNext_ = next;
  for (int shift = 56; shift >= 0; shift -= 8) {
    unsigned char byte = static_cast<unsigned char>(word >> shift);
    EmitByte(byte);
    if (byte == 0xFF) EmitByte(0);
  }
  return outNext_;
}

// Codes one block into the writer `w`. Each symbol's code and its value bits
// are added in one step (at most 16 + 11 bits); whenever 64 bits are pending
// they are stored as eight bytes at once, byte by byte only when one of them
// is 0xFF (stuffing) or the output buffer is nearly full.
inline void Encoder::Huff_EncodeBlock(HuffWriter& w, const Coefficient* block, int lastDC,
                                      const DerivedTable* dc, const DerivedTable* ac,
                                      uint64_t (*acMask)(const int32_t*)) {
  auto put = [&](uint32_t bits, int size) {
    if (__builtin_expect(size < w.free, 1)) {
      w.bits = w.bits << size | bits;
      w.free -= size;
      return;
    }
    int over = size - w.free;  // 0 to 27: `free` is at least 1
    uint64_t word = w.bits << w.free | bits >> over;
    if (__builtin_expect(outEnd_ - w.next >= 16 && !HasByteFF(word), 1)) {
      for (int i = 0; i < 8; ++i) w.next[i] = static_cast<unsigned char>(word >> (56 - 8 * i));
      w.next += 8;
    } else {
      w.next = Huff_StoreWordSlow(w.next, word);
    }
    w.bits = bits;
    w.free = 64 - over;
  };
  auto code = [&](const DerivedTable* table, int symbol) {
    uint32_t entry = table->packed[symbol];
    if ((entry & 0xFF) == 0) kau::Throw(kSiteNoHuffmanCode);
    return entry;
  };
  // Magnitude category n = bit count of |value|; the n value bits are the
  // value itself, or value - 1 when negative (one's complement).
  int diff = block[0] - lastDC;
  uint32_t sign = static_cast<uint32_t>(diff >> 31);
  uint32_t magnitude = (static_cast<uint32_t>(diff) ^ sign) - sign;
  int n = magnitude == 0 ? 0 : 32 - __builtin_clz(magnitude);
  if (n > 11) kau::Throw(kSiteDcTooLarge);
  uint32_t entry = code(dc, n);
  put((entry >> 8) << n | ((static_cast<uint32_t>(diff) + sign) & ((1u << n) - 1)),
      static_cast<int>(entry & 0xFF) + n);

  uint64_t mask = acMask(block);
  int previous = 0;
  if (__builtin_expect((mask & 1) == 0 && ac->complete, 1)) {
    // Every value is within -1023..1023 and every symbol has a code. The
    // entry for (run, n - 1, sign) holds the code shifted above the value
    // bits plus 2^n - 1 when negative, so adding the value itself gives the
    // code followed by the value's n low bits, value - 1 when negative.
    const uint32_t* fast = ac->fast;
    const unsigned char* keys = kValueKeys.of + 1023;
    const unsigned char* at = kZigzagToNatural.at;  // the last position coded
    uint64_t ahead = mask >> 1;                     // bit j: position at + 1 + j
    while (ahead != 0) {
      unsigned run = static_cast<unsigned>(__builtin_ctzll(ahead));
      ahead >>= run + 1;  // at most 63: bit 63 of `ahead` is clear
      at += run + 1;
      if (__builtin_expect(run > 15, 0)) {
        entry = ac->packed[0xF0];
        do {
          put(entry >> 8, static_cast<int>(entry & 0xFF));
          run -= 16;
        } while (run > 15);
      }
      intptr_t value = block[*at];
      entry = fast[run * 32 + keys[value]];
      put((entry >> 5) + static_cast<uint32_t>(value), static_cast<int>(entry & 31));
    }
    previous = static_cast<int>(at - kZigzagToNatural.at);
  } else {
    mask &= ~uint64_t{1};
    while (mask != 0) {
      int k = __builtin_ctzll(mask);
      mask &= mask - 1;
      int run = k - previous - 1;
      previous = k;
      while (run > 15) {
        entry = code(ac, 0xF0);
        put(entry >> 8, static_cast<int>(entry & 0xFF));
        run -= 16;
      }
      int value = block[kNaturalOrder[k]];
      sign = static_cast<uint32_t>(value >> 31);
      magnitude = (static_cast<uint32_t>(value) ^ sign) - sign;
      n = 32 - __builtin_clz(magnitude);
      if (n > 10) kau::Throw(kSiteAcTooLarge);
      entry = code(ac, (run << 4) + n);
      put((entry >> 8) << n | ((static_cast<uint32_t>(value) + sign) & ((1u << n) - 1)),
          static_cast<int>(entry & 0xFF) + n);
    }
  }
  if (previous != 63) {
    entry = code(ac, 0);  // end of block
    put(entry >> 8, static_cast<int>(entry & 0xFF));
  }
}

void Encoder::EncodeOneBlock(int* block, int lastDC, DerivedTable* dc, DerivedTable* ac) {
  HuffWriter w{bitBuffer_, bitsFree_, outNext_};
  Huff_EncodeBlock(w, block, lastDC, dc, ac, Kernels_Active().huffAcMask);
  bitBuffer_ = w.bits;
  bitsFree_ = w.free;
  outNext_ = w.next;
}

void Encoder::Huff_EncodeMcu(Block** blocks) {
  HuffWriter w{bitBuffer_, bitsFree_, outNext_};
  uint64_t (*acMask)(const int32_t*) = Kernels_Active().huffAcMask;
  for (int b = 0; b < blocksInMcu_; ++b) {
    int ci = mcuBlockComponent_[b];
    const Component& c = components_[ci];
    const Coefficient* coef = blocks[b]->coef;
    Huff_EncodeBlock(w, coef, lastDc_[ci], dcDerived_[c.dcTable], acDerived_[c.acTable], acMask);
    lastDc_[ci] = coef[0];
  }
  bitBuffer_ = w.bits;
  bitsFree_ = w.free;
  outNext_ = w.next;
}

void Encoder::Huff_FinishPass() {
  // Store every whole byte, then the last one padded with 1-bits.
  int count = 64 - bitsFree_;
  auto emitByte = [&] {
    count -= 8;
    unsigned char byte = static_cast<unsigned char>(bitBuffer_ >> count);
    EmitByte(byte);
    if (byte == 0xFF) EmitByte(0);
  };
  while (count >= 8) emitByte();
  if (count > 0) {
    bitBuffer_ = bitBuffer_ << 7 | 0x7F;
    count += 7;
    emitByte();
  }
  bitBuffer_ = 0;
  bitsFree_ = 64;
}

}  // namespace kje
