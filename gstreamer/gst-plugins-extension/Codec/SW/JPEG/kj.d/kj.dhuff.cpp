// Huffman entropy decoding: derived tables, the bit reader, the
// sequential and progressive MCU decoders and restart handling.
//
// Arithmetic that corrupt data can push past 32 bits (DC sums, products with
// 16-bit quantisation values, shifts by Al) is done in unsigned arithmetic so
// that it wraps as on the target instead of being undefined.
#include "kj.dhuff.h"

#include <type_traits>

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kjd {
namespace {

constexpr const char* kSrc = kSourceHuff;
constexpr kau::Fault kSiteNearMarker{kSrc, 94, kau::Category::kCorrupt, "a Huffman code is not in its table"};
constexpr kau::Fault kSiteLong{kSrc, 111, kau::Category::kCorrupt, "a Huffman code is longer than 16 bits"};
constexpr kau::Fault kSiteTableNumber{kSrc, 211, kau::Category::kCorrupt,
                                      "a scan names a Huffman table above 3"};
constexpr kau::Fault kSiteNoTable{kSrc, 213, kau::Category::kCorrupt,
                                  "a scan uses a Huffman table that is not defined"};
constexpr kau::Fault kSiteTooManyCodes{kSrc, 224, kau::Category::kCorrupt,
                                       "a Huffman table has too many codes"};
constexpr kau::Fault kSiteOverfull{kSrc, 239, kau::Category::kCorrupt, "a Huffman table is overfull"};
constexpr kau::Fault kSiteDcSymbol{kSrc, 288, kau::Category::kCorrupt,
                                   "a DC Huffman table has a value above 15"};
constexpr kau::Fault kSiteDcSe{kSrc, 423, kau::Category::kCorrupt,
                               "a progressive scan's spectral range is invalid"};
constexpr kau::Fault kSiteAcBand{kSrc, 428, kau::Category::kCorrupt,
                                 "a progressive scan's spectral range is invalid"};
constexpr kau::Fault kSiteAlAh{kSrc, 431, kau::Category::kCorrupt,
                               "a progressive scan's successive approximation is invalid"};
constexpr kau::Fault kSiteAcBeforeDc{kSrc, 439, kau::Category::kCorrupt,
                                     "a progressive AC scan comes before the DC scan"};
constexpr kau::Fault kSiteHistory{kSrc, 443, kau::Category::kCorrupt,
                                  "a progressive scan does not follow the previous one"};
constexpr kau::Fault kSiteRefineSymbol{kSrc, 600, kau::Category::kCorrupt,
                                       "a refinement code has a value other than 1"};

constexpr int32_t kExtendTest[16] = {0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384};
constexpr int32_t kExtendOffset[16] = {0,    -1,   -3,    -7,    -15,   -31,   -63,    -127,
                                       -255, -511, -1023, -2047, -4095, -8191, -16383, -32767};

inline int32_t Wrap(uint32_t v) { return static_cast<int32_t>(v); }

constexpr int kWordBits = static_cast<int>(sizeof(BitWord) * 8);
constexpr int kWordBytes = static_cast<int>(sizeof(BitWord));
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "word loads assume little-endian");

// The long lookahead: kLookBits of the next bits give, for a code of up to
// that length, the code's length and symbol, and when the magnitude bits fit
// too, the value they extend to and the length of both.
constexpr int kLookBits = 10;
constexpr uint32_t kLookLength = 0x1F;  // bits to consume; 0: the code is longer
constexpr uint32_t kLookValue = 0x20;   // bits 16..31 hold the extended value
static_assert(sizeof(DerivedTable::look) / sizeof(uint32_t) == 1u << kLookBits, "lookahead size");

inline uint32_t PlainSymbol(int symbol) { return static_cast<uint32_t>(symbol) << 8; }

// The bit reader with its state in locals; loaded from the decoder at the
// start of an MCU and stored back at its end.
struct BitReader {
  Decoder* d;
  const unsigned char* pos;
  BitWord buf;
  int32_t bits;

  explicit BitReader(Decoder* decoder)
      : d(decoder), pos(decoder->inputPosition), buf(decoder->bitBuffer), bits(decoder->bitsLeft) {}
  void Store() {
    d->inputPosition = pos;
    d->bitBuffer = buf;
    d->bitsLeft = bits;
  }
};

// Takes one byte into the bit buffer; false when a marker stands next (the
// position is then left in front of it).
inline bool TakeByte(Decoder* d, const unsigned char*& pos, BitWord& buf, int32_t& bits) {
  for (;;) {
    uint32_t c = *++pos;
    if (c != 0xFF) {
      buf = (buf << 8) | c;
      bits += 8;
      return true;
    }
    do c = *++pos;
    while (c == 0xFF);
    if (c == 0) {
      buf = (buf << 8) | 0xFF;
      bits += 8;
      return true;
    }
    if (c == 0x01 && pos == d->inputEnd + 1) {
      // The buffer's end sentinel: refill and go on. A copy goes out, so
      // that the caller's position never has its address taken (see
      // Search).
      const unsigned char* p = pos;
      Decoder::Input_Reload(d, p);
      pos = p;
      continue;
    }
    d->unreadMarker = c;
    pos -= 2;
    return false;
  }
}

inline BitWord LoadBigEndian(const unsigned char* p) {
  BitWord w;
  __builtin_memcpy(&w, p, sizeof w);
  if constexpr (sizeof(BitWord) == 8)
    return __builtin_bswap64(w);
  else
    return __builtin_bswap32(w);
}

// Fills the bit buffer. Where a whole word of input lies before the buffer's
// end and holds no 0xFF, it goes in at once (this is the fast path: no
// stuffing, no marker, no refill possible); elsewhere bytes go in one at a
// time, and near the buffer's end only up to the 25 bits the byte reader
// always held, so that the input is reloaded exactly when it was before. A
// marker stops the fill; zero bits then stand in when fewer than `need`
// remain (need 0: never).
inline void Fill(Decoder* d, const unsigned char*& pos, BitWord& buf, int32_t& bits, int32_t need) {
  constexpr BitWord kOnes = ~BitWord{0} / 0xFF;  // 0x0101...
  while (bits <= kWordBits - 8) {
    const bool far = d->inputEnd - pos > kWordBytes;
    if (far) {
      const BitWord w = LoadBigEndian(pos + 1);
      if (((~w - kOnes) & w & (kOnes << 7)) == 0) {  // no byte is 0xFF
        const int n = (kWordBits - bits) >> 3;       // 1 .. kWordBytes
        buf = ((buf << (8 * n - 8)) << 8) | (w >> (kWordBits - 8 * n));
        bits += 8 * n;
        pos += n;
        continue;
      }
    } else if (bits > 24) {
      return;
    }
    if (!TakeByte(d, pos, buf, bits)) {
      if (bits < need) {
        buf <<= (25 - bits);
        bits = 25;
        d->insufficientData = 1;
      }
      return;
    }
  }
}

inline uint32_t GetBits(BitWord buf, int32_t& bits, int32_t n) {
  bits -= n;
  return static_cast<uint32_t>(buf >> bits) & ((1u << n) - 1);
}

inline uint32_t ReadBits(BitReader& r, int32_t n) {
  if (r.bits < n) Fill(r.d, r.pos, r.buf, r.bits, n);
  return GetBits(r.buf, r.bits, n);
}

// The out-of-line code searches work on copies of the reader's state: were
// its own fields passed by reference, their addresses would escape, and the
// MCU loops would keep them in memory (every coefficient store might change
// them) instead of registers.
inline int Search(BitReader& r, const DerivedTable* t, bool nearMarker) {
  const unsigned char* pos = r.pos;
  BitWord buf = r.buf;
  int32_t bits = r.bits;
  const int symbol = nearMarker ? Decoder::Huff_DecodeNearMarker(r.d, pos, buf, bits, t)
                                : Decoder::Huff_DecodeLong(r.d, pos, buf, bits, t);
  r.pos = pos;
  r.buf = buf;
  r.bits = bits;
  return symbol;
}

// One symbol through the 8-bit lookahead, as the decoder reads near markers.
inline int Decode(BitReader& r, const DerivedTable* t) {
  if (r.bits < 8) {
    if (!TakeByte(r.d, r.pos, r.buf, r.bits)) return Search(r, t, true);
  }
  uint32_t look = static_cast<uint32_t>(r.buf >> (r.bits - 8)) & 0xFF;
  int n = t->lookNbits[look];
  if (n != 0) {
    r.bits -= n;
    return t->lookSym[look];
  }
  return Search(r, t, false);
}

// One symbol through the long lookahead, as a lookahead entry whose bits are
// consumed. With fewer bits than the lookahead left before a marker, the
// 8-bit path decides, so that running out of data is met where it always was.
inline uint32_t DecodeEntry(BitReader& r, const DerivedTable* t) {
  if (__builtin_expect(r.bits < kLookBits, 0)) {
    Fill(r.d, r.pos, r.buf, r.bits, 0);
    if (r.bits < kLookBits) return PlainSymbol(Decode(r, t));
  }
  const uint32_t e = t->look[static_cast<uint32_t>(r.buf >> (r.bits - kLookBits)) & ((1u << kLookBits) - 1)];
  if (__builtin_expect((e & kLookLength) != 0, 1)) {
    r.bits -= static_cast<int32_t>(e & kLookLength);
    return e;
  }
  return PlainSymbol(Search(r, t, false));
}

inline int32_t Extend(uint32_t v, int s) {
  int32_t x = static_cast<int32_t>(v);
  if (x < kExtendTest[s]) x += kExtendOffset[s];
  return x;
}

inline int32_t Receive(BitReader& r, int s) { return Extend(ReadBits(r, s), s); }

// The value of category `symbol & 15` that follows an entry's code.
// Most codes with their magnitude bits fit the lookahead: the compiler is
// told so, which keeps that path straight.
inline int32_t EntryValue(BitReader& r, uint32_t e) {
  if (__builtin_expect((e & kLookValue) != 0, 1)) return static_cast<int32_t>(e) >> 16;
  const int s = static_cast<int>(e >> 8) & 15;
  return s != 0 ? Receive(r, s) : 0;
}

// Bit k of kZigzagBits[row][m] is set when zigzag index k falls in `row`
// at a column whose bit is set in m: turns a row's non-zero mask into bits
// of zigzag indices.
struct ZigzagBits {
  uint64_t bits[8][256];
};
constexpr ZigzagBits MakeZigzagBits() {
  ZigzagBits z{};
  for (int k = 0; k < 64; ++k) {
    const int at = Decoder::jpegNaturalOrder[k];
    for (int m = 0; m < 256; ++m)
      if ((m >> (at & 7)) & 1) z.bits[at >> 3][m] |= uint64_t{1} << k;
  }
  return z;
}
constexpr ZigzagBits kZigzagBits = MakeZigzagBits();

// The non-zero coefficients of a block as bits of their zigzag indices.
inline uint64_t NonZeroZigzag(const Coef* block) {
  typedef int32_t S4 __attribute__((vector_size(16)));
  uint64_t m = 0;
  for (int row = 0; row < 8; ++row) {
    S4 a, b;
    __builtin_memcpy(&a, block + 8 * row, sizeof a);
    __builtin_memcpy(&b, block + 8 * row + 4, sizeof b);
    const S4 lanes = ((a != 0) & S4{1, 2, 4, 8}) | ((b != 0) & S4{16, 32, 64, 128});
    m |= kZigzagBits.bits[row][lanes[0] | lanes[1] | lanes[2] | lanes[3]];
  }
  return m;
}

// The same for a narrow block. SSE2 (every x86-64) compares two rows at once
// and takes their 16 flags with one mask move; elsewhere a plain loop.
inline uint64_t NonZeroZigzag(const int16_t* block) {
  uint64_t m = 0;
#if defined(__x86_64__) && defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (int row = 0; row < 8; row += 2) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 8 * row));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 8 * row + 8));
    const __m128i zeros = _mm_packs_epi16(_mm_cmpeq_epi16(a, zero), _mm_cmpeq_epi16(b, zero));
    const uint32_t flags = ~static_cast<uint32_t>(_mm_movemask_epi8(zeros));
    m |= kZigzagBits.bits[row][flags & 0xFF] | kZigzagBits.bits[row + 1][(flags >> 8) & 0xFF];
  }
#else
  for (int row = 0; row < 8; ++row) {
    uint32_t flags = 0;
    for (int i = 0; i < 8; ++i) flags |= static_cast<uint32_t>(block[8 * row + i] != 0) << i;
    m |= kZigzagBits.bits[row][flags];
  }
#endif
  return m;
}

}  // namespace

// Appends bits to `code` one at a time until it fits a code of its length;
// returns that length (17 when the table has none, which callers reject).
static int ExtendCode(Decoder* d, const unsigned char*& pos, BitWord& buf, int32_t& bits,
                      const DerivedTable* t, int32_t& code, int l) {
  while (code > t->maxcode[l]) {
    if (bits < 1) Fill(d, pos, buf, bits, 1);
    code = (code << 1) | static_cast<int32_t>(GetBits(buf, bits, 1));
    ++l;
  }
  return l;
}

int Decoder::Huff_DecodeLong(Decoder* d, const unsigned char*& pos, BitWord& buf, int32_t& bits,
                             const DerivedTable* t) {
  if (bits < 9) Fill(d, pos, buf, bits, 9);
  int32_t code = static_cast<int32_t>(GetBits(buf, bits, 9));
  const int l = ExtendCode(d, pos, buf, bits, t, code, 9);
  if (l > 16) kau::Throw(kSiteLong);
  return t->symbols[code + t->valoffset[l]];
}

int Decoder::Huff_DecodeNearMarker(Decoder* d, const unsigned char*& pos, BitWord& buf, int32_t& bits,
                                   const DerivedTable* t) {
  if (bits < 1) Fill(d, pos, buf, bits, 1);
  int32_t code = static_cast<int32_t>(GetBits(buf, bits, 1));
  const int l = ExtendCode(d, pos, buf, bits, t, code, 1);
  if (l >= 17) kau::Throw(kSiteNearMarker);
  return t->symbols[code + t->valoffset[l]];
}

void Decoder::Huff_MakeDerivedTable(bool isDc, int slot, DerivedTable*& table) {
  if (slot < 0 || slot > 3) kau::Throw(kSiteTableNumber);
  const uint8_t* record = isDc ? dcHuffTables[slot] : acHuffTables[slot];
  if (record == nullptr) kau::Throw(kSiteNoTable);
  if (table == nullptr) table = static_cast<DerivedTable*>(Allocate(sizeof(DerivedTable)));
  DerivedTable* t = table;
  t->symbols = record + 17;

  uint8_t sizes[256];
  uint32_t codes[256];
  const int numSymbols = kj::HuffmanCodes(record, sizes, codes);
  if (numSymbols == kj::kTooManyCodes) kau::Throw(kSiteTooManyCodes);
  if (numSymbols == kj::kOverfull) kau::Throw(kSiteOverfull);

  int p = 0;
  for (int l = 1; l <= 16; ++l) {
    if (record[l] != 0) {
      t->valoffset[l] = p - static_cast<int32_t>(codes[p]);
      p += record[l];
      t->maxcode[l] = static_cast<int32_t>(codes[p - 1]);
    } else {
      t->maxcode[l] = -1;
    }
  }
  t->maxcode[17] = 0xFFFFF;

  kau::mem::Zero8(t->lookNbits, 256);
  p = 0;
  for (int l = 1; l <= 8; ++l) {
    for (int i = 1; i <= record[l]; ++i, ++p) {
      uint32_t look = codes[p] << (8 - l);
      for (int n = 1 << (8 - l); n > 0; --n, ++look) {
        t->lookNbits[look] = static_cast<uint8_t>(l);
        t->lookSym[look] = t->symbols[p];
      }
    }
  }

  // The long lookahead; codes are canonical, so the entries of one length
  // are consecutive.
  kau::mem::Zero8(t->look, sizeof t->look);
  p = 0;
  for (int l = 1; l <= kLookBits; ++l) {
    for (int i = 1; i <= record[l]; ++i, ++p) {
      const int symbol = t->symbols[p];
      const int s = symbol & 15;
      const int rest = kLookBits - l;
      const uint32_t first = codes[p] << rest;
      for (uint32_t suffix = 0; suffix < (1u << rest); ++suffix) {
        uint32_t e = PlainSymbol(symbol) | static_cast<uint32_t>(l);
        if (s != 0 && s <= rest) {
          const int32_t v = Extend(suffix >> (rest - s), s);
          e = (static_cast<uint32_t>(v) << 16) | PlainSymbol(symbol) | kLookValue |
              static_cast<uint32_t>(l + s);
        }
        t->look[first + suffix] = e;
      }
    }
  }

  if (isDc) {
    for (int i = 0; i < numSymbols; ++i)
      if (t->symbols[i] > 15) kau::Throw(kSiteDcSymbol);
  }
}

void Decoder::Huff_StartPass() {
  for (int i = 0; i < componentsInScan; ++i) {
    Component* c = scanComponents[i];
    Huff_MakeDerivedTable(true, static_cast<int>(c->dcSlot), dcDerived[c->dcSlot & 3]);
    Huff_MakeDerivedTable(false, static_cast<int>(c->acSlot), acDerived[c->acSlot & 3]);
    c->lastDc = 0;
  }
  for (int b = 0; b < blocksInMcu; ++b) {
    Component* c = mcuMembership[b];
    blockDcTable[b] = dcDerived[c->dcSlot];
    blockAcTable[b] = acDerived[c->acSlot];
  }
  decodeMcu = Huff_DecodeMCU0;
  Input_EnterEntropyData();
  insufficientData = 0;
  restartsToGo = restartInterval;
  bitsLeft = 0;
  bitBuffer = 0;
}

void Decoder::Phuff_StartPass() {
  const bool dcScan = Ss == 0;
  if (dcScan) {
    if (Se != 0) kau::Throw(kSiteDcSe);
  } else {
    if (Ss > Se || Se >= 64 || componentsInScan != 1) kau::Throw(kSiteAcBand);
  }
  if (dcScan) {
    decodeMcu = Ah == 0 ? McuFn{Phuff_DecodeMCU_DC_first0} : McuFn{Phuff_DecodeMCU_DC_refine0};
    decodeMcu16 = Ah == 0 ? McuFn16{Phuff_DecodeMCU_DC_first0} : McuFn16{Phuff_DecodeMCU_DC_refine0};
  } else {
    decodeMcu = Ah == 0 ? McuFn{Phuff_DecodeMCU_AC_first0} : McuFn{Phuff_DecodeMCU_AC_refine0};
    decodeMcu16 = Ah == 0 ? McuFn16{Phuff_DecodeMCU_AC_first0} : McuFn16{Phuff_DecodeMCU_AC_refine0};
  }
  if ((Ah != 0 && Al != Ah - 1) || Al > 13) kau::Throw(kSiteAlAh);

  for (int i = 0; i < componentsInScan; ++i) {
    Component* c = scanComponents[i];
    int32_t* history = coefBits + c->index * 64;
    if (!dcScan && history[0] < 0) kau::Throw(kSiteAcBeforeDc);
    for (uint32_t k = Ss; k <= Se; ++k) {
      int32_t expected = history[k] < 0 ? 0 : history[k];
      if (static_cast<int32_t>(Ah) != expected) kau::Throw(kSiteHistory);
      history[k] = static_cast<int32_t>(Al);
    }
  }
  for (int i = 0; i < componentsInScan; ++i) {
    Component* c = scanComponents[i];
    if (!dcScan) {
      Huff_MakeDerivedTable(false, static_cast<int>(c->acSlot), progDerived[c->acSlot & 3]);
      progAcTable = progDerived[c->acSlot];
    } else if (Ah == 0) {
      Huff_MakeDerivedTable(true, static_cast<int>(c->dcSlot), progDerived[c->dcSlot & 3]);
    }
    c->lastDc = 0;
  }
  for (int b = 0; b < blocksInMcu; ++b) blockDcTable[b] = progDerived[mcuMembership[b]->dcSlot & 3];
  Input_EnterEntropyData();
  restartsToGo = restartInterval;
  eobRun = 0;
  bitsLeft = 0;
  bitBuffer = 0;
  insufficientData = 0;
}

void Decoder::Huff_RestartProcess() {
  Input_ReadRestartMarker();
  Input_EnterEntropyData();
  for (int i = 0; i < componentsInScan; ++i) scanComponents[i]->lastDc = 0;
  restartsToGo = restartInterval;
  insufficientData = 0;
  bitsLeft = 0;
  bitBuffer = 0;
}

void Decoder::Phuff_RestartProcess() {
  Huff_RestartProcess();
  eobRun = 0;
}

void Decoder::Huff_DecodeMCU0(Decoder* d, Block** blocks) {
  BitReader r(d);
  const int32_t* natural = jpegNaturalOrder;
  for (int b = 0; b < d->blocksInMcu; ++b) {
    Coef* block = blocks[b]->coef;
    Component* c = d->mcuMembership[b];
    const uint32_t* q = c->quantTable;
    const int32_t diff = EntryValue(r, DecodeEntry(r, d->blockDcTable[b]));
    c->lastDc = Wrap(static_cast<uint32_t>(c->lastDc) + static_cast<uint32_t>(diff));
    block[0] = Wrap(static_cast<uint32_t>(c->lastDc) * q[0]);
    const DerivedTable* ac = d->blockAcTable[b];
    for (int k = 1; k < 64;) {
      const uint32_t e = DecodeEntry(r, ac);
      const int run = static_cast<int>(e >> 12) & 15;
      if ((e & 0xF00) != 0) {
        k += run;
        const int32_t v = EntryValue(r, e);
        const int32_t at = natural[k];
        block[at] = Wrap(static_cast<uint32_t>(v) * q[at]);
        ++k;
      } else if (run == 15) {
        k += 16;
      } else {
        break;
      }
    }
  }
  r.Store();
}

namespace {

// Stores a progressive coefficient. A narrow block keeps the low 16 bits and,
// when the value does not fit, records it for the controller to widen.
inline void Put(Decoder*, Coef* at, int32_t v) { *at = v; }
inline void Put(Decoder* d, int16_t* at, int32_t v) {
  *at = static_cast<int16_t>(v);
  if (static_cast<uint32_t>(v) + 0x8000u > 0xFFFFu) d->spills[d->spillCount++] = {at, v};
}

template <class B>
void DcFirst(Decoder* d, B** blocks) {
  BitReader r(d);
  for (int b = 0; b < d->blocksInMcu; ++b) {
    Component* c = d->mcuMembership[b];
    const int32_t diff = EntryValue(r, DecodeEntry(r, d->blockDcTable[b]));
    c->lastDc = Wrap(static_cast<uint32_t>(c->lastDc) + static_cast<uint32_t>(diff));
    Put(d, blocks[b]->coef, Wrap(static_cast<uint32_t>(c->lastDc) << d->Al));
  }
  r.Store();
}

// Setting bit Al (at most 13) of a value keeps it within its width.
template <class B>
void DcRefine(Decoder* d, B** blocks) {
  BitReader r(d);
  const uint32_t p1 = 1u << d->Al;
  for (int b = 0; b < d->blocksInMcu; ++b) {
    auto& dc = blocks[b]->coef[0];
    if (ReadBits(r, 1) != 0) dc = static_cast<std::decay_t<decltype(dc)>>(static_cast<uint32_t>(dc) | p1);
  }
  r.Store();
}

template <class B>
void AcFirst(Decoder* d, B** blocks) {
  if (d->eobRun != 0) {
    --d->eobRun;
    return;
  }
  BitReader r(d);
  auto* block = blocks[0]->coef;
  const DerivedTable* t = d->progAcTable;
  const int se = static_cast<int>(d->Se);
  const uint32_t al = d->Al;
  for (int k = static_cast<int>(d->Ss); k <= se; ++k) {
    const uint32_t e = DecodeEntry(r, t);
    const int run = static_cast<int>(e >> 12) & 15;
    if ((e & 0xF00) != 0) {
      k += run;
      const int32_t v = EntryValue(r, e);
      Put(d, block + Decoder::jpegNaturalOrder[k], Wrap(static_cast<uint32_t>(v) << al));
    } else if (run == 15) {
      k += 15;
    } else {
      uint32_t eob = 1u << run;
      if (run != 0) eob += ReadBits(r, run);
      d->eobRun = eob - 1;
      break;
    }
  }
  r.Store();
}

template <class B>
void AcRefine(Decoder* d, B** blocks) {
  BitReader r(d);
  auto* block = blocks[0]->coef;
  const DerivedTable* t = d->progAcTable;
  const int se = static_cast<int>(d->Se);
  const int32_t p1 = static_cast<int32_t>(1u << d->Al);
  const int32_t m1 = -p1;
  const int32_t* natural = Decoder::jpegNaturalOrder;
  const uint64_t band = (~uint64_t{0} >> (63 - se)) & (~uint64_t{0} << d->Ss);
  // Non-zero coefficients of the band by zigzag index: the walks visit only
  // those (for correction bits) and count zero ones by bits, not one by one.
  uint64_t nonZero = NonZeroZigzag(block) & band;
  auto correct = [&](uint64_t which) {
    for (; which != 0; which &= which - 1) {
      auto* coef = block + natural[__builtin_ctzll(which)];
      const int32_t v = *coef;
      if (ReadBits(r, 1) != 0 && (v & p1) == 0)
        Put(d, coef, Wrap(static_cast<uint32_t>(v) + (v >= 0 ? p1 : m1)));
    }
  };
  int k = static_cast<int>(d->Ss);
  if (d->eobRun == 0) {
    while (k <= se) {
      const uint32_t e = DecodeEntry(r, t);
      int run = static_cast<int>(e >> 12) & 15;
      const int s = static_cast<int>(e >> 8) & 15;
      int32_t value = 0;
      if (s != 0) {
        if (s != 1) kau::Throw(kSiteRefineSymbol);
        const bool positive = (e & kLookValue) != 0 ? static_cast<int32_t>(e) > 0 : ReadBits(r, 1) != 0;
        value = positive ? p1 : m1;
      } else if (run != 15) {
        d->eobRun = 1u << run;
        if (run != 0) d->eobRun += ReadBits(r, run);
        break;
      }
      // Stop on the zero coefficient after `run` others, or past Se; every
      // non-zero one on the way takes a correction bit.
      const uint64_t ahead = band & (~uint64_t{0} << k);
      uint64_t zeros = ahead & ~nonZero;
      for (; run > 0 && zeros != 0; --run) zeros &= zeros - 1;
      const uint64_t stopBit = zeros & (0 - zeros);
      const int stop = stopBit != 0 ? __builtin_ctzll(stopBit) : se + 1;
      correct(nonZero & ahead & (stopBit - 1));
      if (value != 0) {
        Put(d, block + natural[stop], value);
        nonZero |= stopBit;
      }
      k = stop + 1;
    }
  }
  if (d->eobRun > 0) {
    if (k <= se) correct(nonZero & (~uint64_t{0} << k));
    --d->eobRun;
  }
  r.Store();
}

}  // namespace

void Decoder::Phuff_DecodeMCU_DC_first0(Decoder* d, Block** blocks) { DcFirst(d, blocks); }
void Decoder::Phuff_DecodeMCU_DC_refine0(Decoder* d, Block** blocks) { DcRefine(d, blocks); }
void Decoder::Phuff_DecodeMCU_AC_first0(Decoder* d, Block** blocks) { AcFirst(d, blocks); }
void Decoder::Phuff_DecodeMCU_AC_refine0(Decoder* d, Block** blocks) { AcRefine(d, blocks); }
void Decoder::Phuff_DecodeMCU_DC_first0(Decoder* d, Block16** blocks) { DcFirst(d, blocks); }
void Decoder::Phuff_DecodeMCU_DC_refine0(Decoder* d, Block16** blocks) { DcRefine(d, blocks); }
void Decoder::Phuff_DecodeMCU_AC_first0(Decoder* d, Block16** blocks) { AcFirst(d, blocks); }
void Decoder::Phuff_DecodeMCU_AC_refine0(Decoder* d, Block16** blocks) { AcRefine(d, blocks); }

}  // namespace kjd
