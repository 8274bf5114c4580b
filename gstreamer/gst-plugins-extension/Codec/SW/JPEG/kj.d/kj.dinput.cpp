// Marker reader and scan set-up.
#include "kj.dinput.h"

namespace kjd {
namespace {

constexpr const char* kSrc = kSourceInput;
constexpr kau::Fault kSiteSecondSOI{kSrc, 124, kau::Category::kCorrupt,
                                    "a second SOI marker inside the image"};
constexpr kau::Fault kSiteSecondSOF{kSrc, 138, kau::Category::kCorrupt, "a second frame header"};
constexpr kau::Fault kSitePrecision{kSrc, 142, kau::Category::kUnsupported,
                                    "the sample precision is not 8 bits"};
constexpr kau::Fault kSiteTooLarge{kSrc, 147, kau::Category::kOverLimit,
                                   "the width or height is above 65500"};
constexpr kau::Fault kSiteTooManyComponents{kSrc, 149, kau::Category::kUnsupported,
                                            "the frame has more than 4 components"};
constexpr kau::Fault kSiteEmptyFrame{kSrc, 153, kau::Category::kCorrupt,
                                     "the frame has no width, height or components"};
constexpr kau::Fault kSiteSOFLength{kSrc, 154, kau::Category::kCorrupt,
                                    "the frame header's length does not match its components"};
constexpr kau::Fault kSiteSOSBeforeSOF{kSrc, 176, kau::Category::kCorrupt,
                                       "a scan comes before the frame header"};
constexpr kau::Fault kSiteSOSLength{kSrc, 179, kau::Category::kCorrupt,
                                    "the scan header's length or component count is wrong"};
constexpr kau::Fault kSiteScanComponent{kSrc, 189, kau::Category::kCorrupt,
                                        "a scan names a component the frame does not have"};
constexpr kau::Fault kSiteSecondScan{kSrc, 206, kau::Category::kCorrupt,
                                     "a further scan after a scan that held every component"};
// More scans than the caller's DecodeLimits allow.
constexpr kau::Fault kSiteScanLimit{kSrc, 207, kau::Category::kOverLimit,
                                    "the image has more scans than the caller's limit"};
constexpr kau::Fault kSiteSampling{kSrc, 217, kau::Category::kCorrupt, "a sampling factor is outside 1..4"};
constexpr kau::Fault kSiteDHTCount{kSrc, 252, kau::Category::kCorrupt,
                                   "a Huffman table has more values than its segment holds"};
constexpr kau::Fault kSiteDHTSlot{kSrc, 266, kau::Category::kCorrupt, "a Huffman table number is above 3"};
constexpr kau::Fault kSiteDHTLength{kSrc, 272, kau::Category::kCorrupt,
                                    "a Huffman table segment's length is wrong"};
constexpr kau::Fault kSiteDQTSlot{kSrc, 284, kau::Category::kCorrupt,
                                  "a quantisation table number is above 3"};
constexpr kau::Fault kSiteDQTLength{kSrc, 297, kau::Category::kCorrupt,
                                    "a quantisation table segment's length is wrong"};
constexpr kau::Fault kSiteDRILength{kSrc, 303, kau::Category::kCorrupt,
                                    "the restart interval segment's length is wrong"};
constexpr kau::Fault kSiteJFIFVersion{kSrc, 340, kau::Category::kUnsupported, "the JFIF version is not 1.x"};
constexpr kau::Fault kSiteRestart{kSrc, 475, kau::Category::kCorrupt,
                                  "a restart marker is missing or out of order"};
constexpr kau::Fault kSiteScanCount{kSrc, 502, kau::Category::kCorrupt,
                                    "a scan holds more than 4 components"};
constexpr kau::Fault kSiteMcuBlocks{kSrc, 518, kau::Category::kUnsupported,
                                    "an MCU holds more than 18 blocks"};
constexpr kau::Fault kSiteQuantTable{kSrc, 530, kau::Category::kCorrupt,
                                     "a component's quantisation table is not defined"};
constexpr kau::Fault kSiteUnsupportedSOF{
    kSrc, 601, kau::Category::kUnsupported,
    "lossless, hierarchical and arithmetic-coded JPEG are not supported"};
constexpr kau::Fault kSiteNoScan{kSrc, 609, kau::Category::kTruncated,
                                 "the image ends before its first scan"};
constexpr kau::Fault kSiteUnknownMarker{kSrc, 657, kau::Category::kCorrupt, "an unknown or reserved marker"};

}  // namespace

void Decoder::GetSOI() {
  if (soiSeen) kau::Throw(kSiteSecondSOI);
  soiSeen = 1;
  restartInterval = 0;
  markers = ColourMarkers{};
}

void Decoder::GetSOF() {
  if (sofSeen) kau::Throw(kSiteSecondSOF);
  unsigned length = GetInputUint16();
  if (GetInputByte() != 8) kau::Throw(kSitePrecision);
  imageHeight = GetInputUint16();
  imageWidth = GetInputUint16();
  if (imageHeight > kj::kMaxDimension || imageWidth > kj::kMaxDimension) kau::Throw(kSiteTooLarge);
  unsigned count = GetInputByte();
  if (count > 4) kau::Throw(kSiteTooManyComponents);
  if (imageHeight == 0 || imageWidth == 0 || count == 0) kau::Throw(kSiteEmptyFrame);
  if (length != 8 + 3 * count) kau::Throw(kSiteSOFLength);
  componentCount = count;
  if (components == nullptr) {
    components = static_cast<Component*>(heap.AllocateAndZero(sizeof(Component) * count));
    componentsEnd = components + count;
  }
  for (unsigned i = 0; i < count; ++i) {
    Component& c = components[i];
    c.index = i;
    c.id = GetInputByte();
    unsigned hv = GetInputByte();
    c.h = hv >> 4;
    c.v = hv & 15;
    c.quantSlot = GetInputByte();
  }
  sofSeen = 1;
}

void Decoder::GetDQT() {
  long remaining = static_cast<long>(GetInputUint16()) - 2;
  while (remaining > 0) {
    unsigned pqtq = GetInputByte();
    unsigned pq = pqtq >> 4;
    unsigned tq = pqtq & 15;
    if (tq > 3) kau::Throw(kSiteDQTSlot);
    if (quantTables[tq] == nullptr) quantTables[tq] = static_cast<uint32_t*>(Allocate(256));
    uint32_t* table = quantTables[tq];
    for (int k = 0; k < 64; ++k) {
      unsigned value = pq != 0 ? GetInputUint16() : GetInputByte();
      table[jpegNaturalOrder[k]] = value;
    }
    remaining -= 65;
    if (pq != 0) remaining -= 64;
  }
  if (remaining != 0) kau::Throw(kSiteDQTLength);
}

void Decoder::GetDHT() {
  long remaining = static_cast<long>(GetInputUint16()) - 2;
  while (remaining > 16) {
    unsigned classSlot = GetInputByte();
    uint8_t counts[17];
    counts[0] = 0;
    long total = 0;
    for (int l = 1; l <= 16; ++l) {
      counts[l] = static_cast<uint8_t>(GetInputByte());
      total += counts[l];
    }
    if (total > 256 || total > remaining - 17) kau::Throw(kSiteDHTCount);
    uint8_t values[256];
    for (long i = 0; i < total; ++i) values[i] = static_cast<uint8_t>(GetInputByte());
    uint8_t** slot;
    if (classSlot & 0x10) {
      unsigned n = classSlot - 16;
      if (n > 3) kau::Throw(kSiteDHTSlot);
      slot = &acHuffTables[n];
    } else {
      if (classSlot > 3) kau::Throw(kSiteDHTSlot);
      slot = &dcHuffTables[classSlot];
    }
    if (*slot == nullptr) *slot = static_cast<uint8_t*>(Allocate(273));
    uint8_t* table = *slot;
    kau::mem::Copy8(table, counts, 17);
    if (total > 0) kau::mem::Copy8(table + 17, values, static_cast<unsigned long>(total));
    remaining -= 17 + total;
  }
  if (remaining != 0) kau::Throw(kSiteDHTLength);
}

void Decoder::GetDRI() {
  if (GetInputUint16() != 4) kau::Throw(kSiteDRILength);
  restartInterval = GetInputUint16();
}

void Decoder::GetAPPn() {
  unsigned marker = unreadMarker;
  long length = static_cast<long>(GetInputUint16()) - 2;
  long count = length < 14 ? length : 14;
  uint8_t b[14];
  for (long i = 0; i < count; ++i) b[i] = static_cast<uint8_t>(GetInputByte());
  if (marker == kj::kAPP0 && count >= 14 && b[0] == 'J' && b[1] == 'F' && b[2] == 'I' && b[3] == 'F' &&
      b[4] == 0) {
    markers.jfifSeen = 1;
    markers.jfifMajor = b[5];
    markers.jfifMinor = b[6];
    if (markers.jfifMajor != 1) kau::Throw(kSiteJFIFVersion);
  } else if (marker == kj::kAPP14 && count >= 12 && b[0] == 'A' && b[1] == 'd' && b[2] == 'o' &&
             b[3] == 'b' && b[4] == 'e') {
    markers.adobeSeen = 1;
    markers.adobeTransform = b[11];
  }
  SkipInput(length - count);
}

void Decoder::GetAPP1() { SkipInput(static_cast<long>(GetInputUint16()) - 2); }

void Decoder::SkipVariable() { SkipInput(static_cast<long>(GetInputUint16()) - 2); }

void Decoder::GetSOS() {
  if (!sofSeen) kau::Throw(kSiteSOSBeforeSOF);
  unsigned length = GetInputUint16();
  unsigned ns = GetInputByte();
  if (ns == 0 || ns > 4 || length != 6 + 2 * ns) kau::Throw(kSiteSOSLength);
  componentsInScan = static_cast<int32_t>(ns);
  for (unsigned i = 0; i < ns; ++i) {
    unsigned cs = GetInputByte();
    unsigned tables = GetInputByte();
    Component* c = components;
    while (c != componentsEnd && c->id != cs) ++c;
    if (c == componentsEnd) kau::Throw(kSiteScanComponent);
    c->dcSlot = tables >> 4;
    c->acSlot = tables & 15;
    scanComponents[i] = c;
  }
  Ss = GetInputByte();
  Se = GetInputByte();
  unsigned ahal = GetInputByte();
  Ah = ahal >> 4;
  Al = ahal & 15;
  nextRestart = 0;
  ++scansSeen;
  if (limits.maxScans != 0 && scansSeen > limits.maxScans) kau::Throw(kSiteScanLimit);
  if (scansSeen == 1) {
    maxH = 0;
    maxV = 0;
    for (Component* c = components; c != componentsEnd; ++c) {
      if (c->h < 1 || c->h > 4 || c->v < 1 || c->v > 4) kau::Throw(kSiteSampling);
      if (c->h > maxH) maxH = c->h;
      if (c->v > maxV) maxV = c->v;
    }
    for (Component* c = components; c != componentsEnd; ++c) {
      c->widthInBlocks = kau::CeilDiv(imageWidth * c->h, 8 * maxH);
      c->heightInBlocks = kau::CeilDiv(imageHeight * c->v, 8 * maxV);
    }
    mcuRows = kau::CeilDiv(imageHeight, 8 * maxV);
    singleScan = (ns == componentCount && !progressive) ? 1 : 0;
  } else {
    if (singleScan) kau::Throw(kSiteSecondScan);
    Input_StartScan();
  }
}

void Decoder::Input_StartScan() {
  if (componentsInScan == 1) {
    Component* c = scanComponents[0];
    uint32_t size = c->dctScaledSize != 0 ? c->dctScaledSize : 8;
    mcusPerRow = c->widthInBlocks;
    c->mcuWidth = 1;
    c->mcuHeight = 1;
    c->mcuBlocks = 1;
    c->mcuSampleWidth = size;
    uint32_t rest = c->heightInBlocks % c->v;
    c->lastRowHeight = rest != 0 ? rest : c->v;
    c->lastColWidth = 1;
    mcuMembership[0] = c;
    blocksInMcu = 1;
  } else {
    if (componentsInScan < 2 || componentsInScan > 4) kau::Throw(kSiteScanCount);
    mcusPerRow = kau::CeilDiv(imageWidth, 8 * maxH);
    blocksInMcu = 0;
    for (int i = 0; i < componentsInScan; ++i) {
      Component* c = scanComponents[i];
      uint32_t size = c->dctScaledSize != 0 ? c->dctScaledSize : 8;
      c->mcuWidth = c->h;
      c->mcuHeight = c->v;
      c->mcuBlocks = c->h * c->v;
      c->mcuSampleWidth = c->h * size;
      uint32_t rest = c->widthInBlocks % c->h;
      c->lastColWidth = rest != 0 ? rest : c->h;
      rest = c->heightInBlocks % c->v;
      c->lastRowHeight = rest != 0 ? rest : c->v;
      if (blocksInMcu + static_cast<int32_t>(c->mcuBlocks) > kj::kMaxBlocksInMcu) kau::Throw(kSiteMcuBlocks);
      for (uint32_t b = 0; b < c->mcuBlocks; ++b) mcuMembership[blocksInMcu++] = c;
    }
  }
  for (int i = 0; i < componentsInScan; ++i) {
    Component* c = scanComponents[i];
    uint32_t size = c->dctScaledSize != 0 ? c->dctScaledSize : 8;
    c->scaledWidth = c->widthInBlocks * size;
    if (c->quantTable == nullptr) {
      if (c->quantSlot > 3 || quantTables[c->quantSlot] == nullptr) kau::Throw(kSiteQuantTable);
      c->quantTable = static_cast<uint32_t*>(Allocate(256));
      kau::mem::Copy32(c->quantTable, quantTables[c->quantSlot], 64);
      c->SelectDctTable();
    }
  }
  if (progressive)
    Phuff_StartPass();
  else
    Huff_StartPass();
  inputImcuRow = 0;
  consumeInput = Dcoef_ReadMultiScan0;
}

void Decoder::Input_GetNextMarker() {
  if (unreadMarker != 0) {
    // The entropy decoder stopped in front of it: step over its two bytes.
    GetInputByte();
    GetInputByte();
    return;
  }
  for (;;) {
    unsigned c = GetInputByte();
    while (c != 0xFF) c = GetInputByte();
    do c = GetInputByte();
    while (c == 0xFF);
    if (c != 0) {
      unreadMarker = c;
      return;
    }
  }
}

void Decoder::Input_ReadRestartMarker() {
  Input_GetNextMarker();
  if (unreadMarker != kj::kRST0 + nextRestart) kau::Throw(kSiteRestart);
  nextRestart = (nextRestart + 1) & 7;
  unreadMarker = 0;
}

namespace {

// What the marker reader does with a marker code.
enum class MarkerAction : uint8_t {
  kIgnore,
  kFrame,
  kProgressiveFrame,
  kUnsupportedFrame,
  kTables,
  kSkip,
  kStart,
  kEnd,
  kScan,
  kQuantTables,
  kRestartInterval,
  kColourSegment,
  kExif,
  kUnknown,
};

MarkerAction ActionOf(unsigned m) {
  using namespace kj;
  if (m == kTEM || (m >= kRST0 && m <= kRST7)) return MarkerAction::kIgnore;
  if (m == kSOF0 || m == kSOF1) return MarkerAction::kFrame;
  if (m == kSOF2) return MarkerAction::kProgressiveFrame;
  if (m == kDHT) return MarkerAction::kTables;
  // Lossless, hierarchical, JPG and arithmetic-coded frames.
  if (m >= kSOF3 && m <= kSOF15 && m != kDAC) return MarkerAction::kUnsupportedFrame;
  if (m == kDAC || m == kDNL || (m >= kAPP2 && m <= kAPP13) || m == kAPP15 || m == kCOM)
    return MarkerAction::kSkip;
  switch (m) {
    case kSOI:
      return MarkerAction::kStart;
    case kEOI:
      return MarkerAction::kEnd;
    case kSOS:
      return MarkerAction::kScan;
    case kDQT:
      return MarkerAction::kQuantTables;
    case kDRI:
      return MarkerAction::kRestartInterval;
    case kAPP0:
    case kAPP14:
      return MarkerAction::kColourSegment;
    case kAPP1:
      return MarkerAction::kExif;
    default:
      return MarkerAction::kUnknown;  // reserved: 0x02..0xBF, DHP, EXP, JPG0..JPG13
  }
}

}  // namespace

int Decoder::Input_ReadMarkers0(Decoder* d) {
  if (d->eoiReached) return 1;
  for (;;) {
    d->Input_GetNextMarker();
    switch (ActionOf(d->unreadMarker)) {
      case MarkerAction::kIgnore:
        break;
      case MarkerAction::kFrame:
        d->GetSOF();
        break;
      case MarkerAction::kProgressiveFrame:
        d->GetSOF();
        d->progressive = 1;
        d->coefBits = d->heap.AllocateArray<int32_t>(d->componentCount * 64);
        for (uint32_t i = 0; i < d->componentCount * 64; ++i) d->coefBits[i] = -1;
        break;
      case MarkerAction::kUnsupportedFrame:
        kau::Throw(kSiteUnsupportedSOF);
      case MarkerAction::kTables:
        d->GetDHT();
        break;
      case MarkerAction::kSkip:
        d->SkipVariable();
        break;
      case MarkerAction::kStart:
        d->GetSOI();
        break;
      case MarkerAction::kEnd:
        d->eoiReached = 1;
        if (d->sofSeen && d->scansSeen == 0) kau::Throw(kSiteNoScan);
        d->unreadMarker = 0;
        return 1;
      case MarkerAction::kScan:
        d->GetSOS();
        d->unreadMarker = 0;
        return 0;
      case MarkerAction::kQuantTables:
        d->GetDQT();
        break;
      case MarkerAction::kRestartInterval:
        d->GetDRI();
        break;
      case MarkerAction::kColourSegment:
        d->GetAPPn();
        break;
      case MarkerAction::kExif:
        d->GetAPP1();
        break;
      case MarkerAction::kUnknown:
        kau::Throw(kSiteUnknownMarker);
    }
    d->unreadMarker = 0;
  }
}

}  // namespace kjd
