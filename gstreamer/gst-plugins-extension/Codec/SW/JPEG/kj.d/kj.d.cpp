// The decoder object: construction from memory and from a stream (Parts 4.1,
// 4.5), the component helpers and the shared constant tables.
#include "kj.d.h"

#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.dinput.h"

namespace kjd {
namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.d";
constexpr kau::Site kSiteTooShort{kSource, 45};
constexpr kau::Site kSiteNoLeadingFF{kSource, 57};
constexpr kau::Site kSiteNoSOI{kSource, 60};
constexpr kau::Site kSiteMemoryCatch{kSource, 66};
constexpr kau::Site kSiteMemoryFailed{kSource, 70};
constexpr kau::Site kSiteNullStream{kSource, 78};
constexpr kau::Site kSiteStreamCatch{kSource, 87};
constexpr kau::Site kSiteStreamFailed{kSource, 91};
constexpr kau::Site kSiteAfterEOI{kSource, 106};

constexpr unsigned long kRefillBytes = 4100;

}  // namespace

const int32_t Decoder::jpegNaturalOrder[80] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33,
    40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36,
    29, 22, 15, 23, 30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54,
    47, 55, 62, 63,
    // Guard: a corrupt run length lands on coefficient 63.
    63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63, 63};

// kiu::ubyteRangeLimit is constant-initialised, so this dynamic initialiser
// always sees it.
const unsigned char* const Decoder::idctRangeLimit = kiu::ubyteRangeLimit + 128;

Decoder::Decoder(const unsigned char* data, unsigned long size, unsigned char alpha) {
  try {
    ReadHeadersFromMemory(data, size);
    alphaValue = alpha;
    consumeInput = Input_ReadMarkers0;
    Input_ReadMarkers0(this);
  } catch (...) {
    kau::ReportCurrentException(kSiteMemoryCatch);
    heap.HandleExceptionInConstructor();
    kau::Throw(kSiteMemoryFailed);
  }
}

void Decoder::ReadHeadersFromMemory(const unsigned char* data, unsigned long size) {
  if (data == nullptr || size < 4) kau::Throw(kSiteTooShort);
  const unsigned char* begin = data;
  unsigned long length = size;
  if (!(data[size - 2] == 0xFF && data[size - 1] == 0xD9)) {
    unsigned char* copy = static_cast<unsigned char*>(Allocate(size + 2));
    kau::mem::Copy8(copy, data, size);
    copy[size] = 0xFF;
    copy[size + 1] = 0xD9;
    begin = copy;
    length = size + 2;
  }
  inputEnd = begin + length;
  sourceStream = nullptr;
  if (begin[0] != 0xFF) kau::Throw(kSiteNoLeadingFF);
  unsigned long i = 1;
  while (begin[i] == 0xFF) ++i;  // the data ends in 0xFF 0xD9: always stops
  if (begin[i] != 0xD8) kau::Throw(kSiteNoSOI);
  inputPosition = begin - 1;
}

Decoder::Decoder(MMStream* stream, unsigned char alpha) {
  try {
    if (stream == nullptr) kau::Throw(kSiteNullStream);
    sourceStream = stream;
    inputBuffer = static_cast<unsigned char*>(Allocate(kRefillBytes));
    inputBuffer[0] = 0;
    inputPosition = Input_Load(inputBuffer + 1);
    alphaValue = alpha;
    consumeInput = Input_ReadMarkers0;
    Input_ReadMarkers0(this);
  } catch (...) {
    kau::ReportCurrentException(kSiteStreamCatch);
    heap.HandleExceptionInConstructor();
    kau::Throw(kSiteStreamFailed);
  }
}

Decoder::~Decoder() = default;

unsigned char* Decoder::Input_Load(unsigned char* destination) {
  unsigned int n = MMStreamGet(sourceStream, destination, 4096);
  if (n > 0) {
    destination[n] = 0xFF;
    destination[n + 1] = 0x01;
    inputEnd = destination + n;
    inputExhausted = 0;
  } else {
    inputExhausted = 1;
    destination[0] = 0xFF;
    destination[1] = 0xD9;
    inputEnd = destination + 2;
  }
  return inputBuffer;
}

const unsigned char* Decoder::Input_Reload(Decoder* d, const unsigned char*& position) {
  if (position[-2] == 0xFF) {
    d->inputBuffer[1] = 0xFF;
    position = d->Input_Load(d->inputBuffer + 2);
  } else {
    position = d->Input_Load(d->inputBuffer + 1);
  }
  return position;
}

unsigned Decoder::RefillForByte() {
  if (sourceStream != nullptr) {
    inputPosition = Input_Load(inputBuffer + 1) + 1;
    return *inputPosition;
  }
  // Memory input ends in 0xFF 0xD9: reading past it yields EOI for ever.
  inputPosition = inputEnd - 2;
  return *inputPosition;
}

void Decoder::SkipInput(long count) {
  while (count > 0) {
    long available = static_cast<long>(inputEnd - inputPosition) - 1;
    if (available > 0) {
      long step = available < count ? available : count;
      inputPosition += step;
      count -= step;
    } else {
      GetInputByte();
      --count;
    }
  }
}

// Part 4.5 builds the full driver on top of Dcoef_Prepare and the upsampler;
// until then the picture output is not available.
unsigned char* Decoder::DecodeImage(long, long) {
  if (eoiReached) kau::Throw(kSiteAfterEOI);
  return nullptr;
}

void Component::SelectDctTable() {
  switch (dctScaledSize) {
    case 1:
      idct = Decoder::IDCT_1x1;
      break;
    case 2:
      idct = Decoder::IDCT_2x2;
      break;
    case 4:
      idct = Decoder::IDCT_4x4;
      break;
    default:
      dctScaledSize = 8;
      idct = Decoder::IDCT_8x8;
      break;
  }
  // Coefficients reach the inverse DCT already dequantised (Parts 4.2, 4.3).
  dctTable = quantTable;
}

Component::WholeImage* Component::WholeImage::Create(Decoder* decoder, uint32_t rowCount,
                                                      uint32_t blocksPerRow) {
  uint64_t blocks = uint64_t{rowCount} * blocksPerRow;
  if (blocks > UINT32_MAX / sizeof(Block)) kau::Throw(kau::kSiteRoundUp);
  auto* image = static_cast<WholeImage*>(decoder->Allocate(sizeof(WholeImage)));
  image->rowCount = rowCount;
  image->blocksPerRow = blocksPerRow;
  image->rows = decoder->heap.AllocateArray<Block*>(rowCount == 0 ? 1 : rowCount);
  Block* all = decoder->heap.AllocateZeroedArray<Block>(blocks == 0 ? 1 : static_cast<uint32_t>(blocks));
  for (uint32_t r = 0; r < rowCount; ++r) image->rows[r] = all + uint64_t{r} * blocksPerRow;
  return image;
}

}  // namespace kjd
