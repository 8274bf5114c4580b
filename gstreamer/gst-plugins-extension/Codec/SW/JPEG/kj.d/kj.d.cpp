// The decoder object: construction from memory and from a stream, the decode
// driver and its post-processing, the component helpers and the shared
// constant tables.
#include "kj.d.h"

#include "kiu/kiu.h"
#include "kiu/kiuscale.h"
#include "kiu/mmstream.h"
#include "kj.dinput.h"
#include "kj.dkernels.h"

namespace kjd {
namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.d";
constexpr kau::Fault kSiteTooShort{kSource, 45, kau::Category::kTruncated,
                                   "the data is too short to be a JPEG"};
constexpr kau::Fault kSiteNoLeadingFF{kSource, 57, kau::Category::kCorrupt,
                                      "the data does not start with a marker"};
constexpr kau::Fault kSiteNoSOI{kSource, 60, kau::Category::kCorrupt, "the data does not start with SOI"};
constexpr kau::Site kSiteMemoryCatch{kSource, 66};
constexpr kau::Fault kSiteMemoryFailed{kSource, 70, kau::Category::kInternal,
                                       "the decoder could not be built"};
constexpr kau::Fault kSiteNullStream{kSource, 78, kau::Category::kBadArgument, "no stream to decode"};
constexpr kau::Site kSiteStreamCatch{kSource, 87};
constexpr kau::Fault kSiteStreamFailed{kSource, 91, kau::Category::kInternal,
                                       "the decoder could not be built"};
constexpr kau::Fault kSiteAfterEOI{kSource, 106, kau::Category::kTruncated,
                                   "the image ends before its pixel data"};
constexpr kau::Fault kSiteOutputTooWide{kSource, 140, kau::Category::kOverLimit,
                                        "the decoded picture would be too wide"};
constexpr kau::Fault kSiteOutputTooLarge{kSource, 141, kau::Category::kOverLimit,
                                         "the decoded picture would be too large"};
// A caller's DecodeLimits: frame or box pixels, blocks beyond what the input
// can code, whole-image memory.
constexpr kau::Fault kSiteOverPixels{kSource, 142, kau::Category::kOverLimit,
                                     "the image has more pixels than the caller's limit"};
constexpr kau::Fault kSiteOverData{kSource, 143, kau::Category::kTruncated,
                                   "the header claims far more blocks than the data can hold"};
constexpr kau::Fault kSiteOverMemory{kSource, 144, kau::Category::kOverLimit,
                                     "the image needs more memory than the caller's limit"};
constexpr kau::Fault kSitePixelBuffer{kSource, 176, kau::Category::kOutOfMemory,
                                      "no memory for the decoded picture"};
constexpr kau::Site kSiteRowsCatch{kSource, 188};
constexpr kau::Fault kSiteYuvScale{kSource, 203, kau::Category::kOutOfMemory,
                                   "no memory to resample the picture"};
constexpr kau::Fault kSiteYuvBuffer{kSource, 210, kau::Category::kOutOfMemory,
                                    "no memory for the YUV picture"};
constexpr kau::Fault kSiteRgbScale{kSource, 251, kau::Category::kOutOfMemory,
                                   "no memory to resample the picture"};

constexpr unsigned long kRefillBytes = 4100;

}  // namespace

// kiu::ubyteRangeLimit is constant-initialised, so this dynamic initialiser
// always sees it.
// Derived from the table's address, not from the pointer, so that it is
// constant-initialised too and no start-up order matters.
const unsigned char* const Decoder::idctRangeLimit = kiu::rangeLimitTable.bytes + 256 + 128;

Decoder::Decoder(const unsigned char* data, unsigned long size, unsigned char alpha) {
  try {
    ReadHeadersFromMemory(data, size);
    alphaValue = alpha;
    consumeInput = Input_ReadMarkers0;
    Input_ReadMarkers0(this);
  } catch (...) {
    const kau::Fault cause = kau::ReportCurrentException(kSiteMemoryCatch);
    heap.HandleExceptionInConstructor();
    kau::Throw(kSiteMemoryFailed, cause);
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
  inputBytes = size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
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
    unsigned long total = 0, at = 0;
    if (MMStreamSize(stream, &total) != 0 && MMStreamTell(stream, &at) != 0 && total > at)
      inputBytes = total - at > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(total - at);
    inputBuffer = static_cast<unsigned char*>(Allocate(kRefillBytes));
    inputBuffer[0] = 0;
    inputPosition = Input_Load(inputBuffer + 1);
    alphaValue = alpha;
    consumeInput = Input_ReadMarkers0;
    Input_ReadMarkers0(this);
  } catch (...) {
    const kau::Fault cause = kau::ReportCurrentException(kSiteStreamCatch);
    heap.HandleExceptionInConstructor();
    kau::Throw(kSiteStreamFailed, cause);
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

namespace {

// Float to int32 as a C cast would do on the target for finite in-range
// values; out of range saturates (NaN gives 0) instead of being undefined.
int32_t TruncToInt32(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0f) return INT32_MAX;
  if (v <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

}  // namespace

void Decoder::PlanOutput(long width, long height) {
  if (eoiReached) kau::Throw(kSiteAfterEOI);
  // Requested sizes are 32-bit on the target.
  const int32_t w = static_cast<int32_t>(width);
  const int32_t h = static_cast<int32_t>(height);
  int32_t& targetWidth = output.targetWidth;
  int32_t& targetHeight = output.targetHeight;
  if (w >= 0 && h >= 0) {
    targetWidth = w == 0 ? static_cast<int32_t>(imageWidth) : w;
    targetHeight = h == 0 ? static_cast<int32_t>(imageHeight) : h;
  } else {
    // Pixels per 8 source pixels. A mixed-sign pair lands here too and gives
    // a non-positive target for its non-negative side; kept so on purpose.
    targetWidth = static_cast<int32_t>((0u - static_cast<uint32_t>(w)) * kau::CeilDiv(imageWidth, 8));
    targetHeight = static_cast<int32_t>((0u - static_cast<uint32_t>(h)) * kau::CeilDiv(imageHeight, 8));
  }
  const int32_t iw = static_cast<int32_t>(imageWidth);
  const int32_t ih = static_cast<int32_t>(imageHeight);
  bool rescale = false;
  if (targetWidth == iw && targetHeight == ih) {
    dctScaledSize = 8;
    outputWidth = imageWidth;
    outputHeight = imageHeight;
  } else {
    uint32_t d = 2;
    uint32_t rw = kau::CeilDiv(imageWidth, 2);
    uint32_t rh = kau::CeilDiv(imageHeight, 2);
    while (!(targetHeight >= static_cast<int32_t>(rh) && targetWidth >= static_cast<int32_t>(rw)) &&
           uint64_t{rw} * rh != 0 && d < 8) {
      d *= 2;
      rw = kau::CeilDiv(rw, 2);
      rh = kau::CeilDiv(rh, 2);
    }
    // Never smaller than the target on both sides.
    if (static_cast<int32_t>(rh) < targetHeight && targetWidth > static_cast<int32_t>(rw)) d /= 2;
    dctScaledSize = 8 / d;
    outputWidth = kau::CeilDiv(imageWidth, d);
    outputHeight = kau::CeilDiv(imageHeight, d);
    rescale = static_cast<int32_t>(outputWidth) != targetWidth ||
              static_cast<int32_t>(outputHeight) != targetHeight;
  }
  if (outputWidth > 0x3FFFFFFF) kau::Throw(kSiteOutputTooWide);
  if (uint64_t{outputHeight} * outputWidth * 4 > UINT32_MAX) kau::Throw(kSiteOutputTooLarge);

  Upsample_Init(rescale);
  CheckLimits();
  Input_StartScan();
  // The merged and raw plans need the layout-specific controllers; the rows
  // they write are the same as the general controller's.
  decompress = Dcoef_Prepare(!output.Upsampled());
}

bool Decoder::ProduceRows(const OutputTarget& target) {
  try {
    Upsample_ProcessSingleRows(target);
    return true;
  } catch (...) {
    rowsFailure = kau::ReportCurrentException(kSiteRowsCatch);
    return false;
  }
}

unsigned char* Decoder::DecodeImage(long width, long height) {
  PlanOutput(width, height);
  const OutputPlan plan = output.plan;
  const bool threeBytes = output.kind != OutputKind::kRgba && plan != OutputPlan::kResampled;
  OutputTarget target;
  target.stride = outputWidth * (threeBytes ? 3 : 4);
  const uint32_t total = outputHeight * static_cast<uint32_t>(target.stride);
  target.pixels = static_cast<unsigned char*>(kau::mem::New(total));
  if (target.pixels == nullptr) kau::Throw(kSitePixelBuffer);
  target.end = target.pixels + total;
  if (!ProduceRows(target)) {
    kau::mem::Delete(target.pixels);
    return nullptr;
  }
  return target.pixels;
}

void Decoder::CheckLimits() const {
  const uint64_t frame = uint64_t{imageWidth} * imageHeight;
  const int32_t tw = output.targetWidth, th = output.targetHeight;
  const uint64_t box = NeedsRescale() && tw > 0 && th > 0 ? uint64_t(uint32_t(tw)) * uint32_t(th) : 0;
  if (limits.maxPixels != 0 && (frame > limits.maxPixels || box > limits.maxPixels))
    kau::Throw(kSiteOverPixels);
  if (limits.maxBlocksPerByte != 0 && inputBytes != 0) {
    uint64_t blocks = 0;
    for (const Component* c = components; c != componentsEnd; ++c)
      blocks += uint64_t{c->widthInBlocks} * c->heightInBlocks;
    if (blocks > uint64_t{inputBytes} * limits.maxBlocksPerByte) kau::Throw(kSiteOverData);
  }
  if (limits.maxMemory != 0) {
    // The largest set alive at once: the stores and what the plan writes
    // (4-byte pixels, packed YUV or the I420 planes), plus the resampled box
    // and its YUV rows when the picture is resampled.
    const uint64_t out = uint64_t{outputWidth} * outputHeight;
    uint64_t bytes = Dcoef_StoreBytes();
    if (NeedsRescale())
      bytes += out * 4 + box * (output.kind == OutputKind::kRgba ? 4 : 7);
    else if (output.kind == OutputKind::kRgba)
      bytes += out * 4;
    else
      bytes += output.kind == OutputKind::kPackedYuv ? out * 3 : out * 3 / 2;
    if (bytes > limits.maxMemory) kau::Throw(kSiteOverMemory);
  }
}

unsigned char* Decoder::ScaleImageAndFillAlpha(unsigned char*& pixels) {
  const int32_t targetWidth = output.targetWidth;
  const int32_t targetHeight = output.targetHeight;
  if (NeedsRescale()) {
    // Keep the aspect ratio: fit inside the requested box.
    const float a = static_cast<float>(outputWidth) / static_cast<float>(targetWidth);
    const float b = static_cast<float>(outputHeight) / static_cast<float>(targetHeight);
    int32_t tw = targetWidth;
    int32_t th = targetHeight;
    if (a > b) {
      th = TruncToInt32(static_cast<float>(outputHeight) / a);
      if (th == 0) th = 1;
    } else {
      tw = TruncToInt32(static_cast<float>(outputWidth) / b);
      if (tw == 0) tw = 1;
    }
    unsigned char* data = pixels;
    unsigned long w = outputWidth;
    unsigned long h = outputHeight;
    unsigned char* scaled =
        kiu::ScaleImageRGB(data, w, h, static_cast<uint32_t>(tw), static_cast<uint32_t>(th), heap);
    if (scaled == nullptr) kau::Throw(kSiteRgbScale);
    kau::mem::Delete(pixels);
    pixels = scaled;
    outputWidth = static_cast<uint32_t>(w);
    outputHeight = static_cast<uint32_t>(h);
  }
  if (output.plan == OutputPlan::kReplicated || output.plan == OutputPlan::kResampled) {
    const uint32_t count = outputWidth * outputHeight;
    unsigned char* p = pixels + 3;
    const unsigned char alpha = alphaValue;
    for (uint32_t i = 0; i < count; ++i) p[4 * i] = alpha;
  }
  return pixels;
}

unsigned char* Decoder::ScaleImageYUV(unsigned char*& pixels) {
  // Only a resampled picture is still 4-byte RGB here; every other plan wrote YUV.
  if (!NeedsRescale()) return pixels;
  unsigned char* data = pixels;
  unsigned long w = outputWidth;
  unsigned long h = outputHeight;
  unsigned char* scaled = kiu::ScaleImageRGB(data, w, h, static_cast<uint32_t>(output.targetWidth),
                                             static_cast<uint32_t>(output.targetHeight), heap);
  if (scaled == nullptr) kau::Throw(kSiteYuvScale);
  kau::mem::Delete(pixels);
  pixels = scaled;
  outputWidth = static_cast<uint32_t>(w);
  outputHeight = static_cast<uint32_t>(h);
  const uint64_t count = uint64_t{outputWidth} * outputHeight;
  unsigned char* yuv = nullptr;
  if (count * 3 <= UINT32_MAX)
    yuv = static_cast<unsigned char*>(kau::mem::New(static_cast<uint32_t>(count * 3)));
  if (yuv == nullptr) kau::Throw(kSiteYuvBuffer);
  for (uint32_t y = 0; y < outputHeight; ++y) {
    const uint64_t row = uint64_t{y} * outputWidth;
    kiu::ConvertRGBtoYUV(outputWidth, pixels + row * 4, yuv + row * 3);
  }
  kau::mem::Delete(pixels);
  pixels = yuv;
  return pixels;
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
      idct = Kernels_Active().idct4x4;
      break;
    default:
      dctScaledSize = 8;
      idct = Kernels_Active().idct8x8;
      break;
  }
  // Coefficients reach the inverse DCT already dequantised.
  dctTable = quantTable;
}

}  // namespace kjd
