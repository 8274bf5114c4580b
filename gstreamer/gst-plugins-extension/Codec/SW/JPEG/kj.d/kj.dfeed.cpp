#include "kj.d/kj.dfeed.h"

#include "kau/kau.h"
#include "kiu/MMPageArrayStream.h"
#include "kj.jpeg.h"

#include <algorithm>
#include <cstring>

namespace kjd {
namespace {

// The feeding object reports under the input module's source name.
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dinput";
constexpr kau::Fault kSiteNoMarkerData{kSource, 82, kau::Category::kTruncated,
                                       "the data ends before the next marker"};
constexpr kau::Fault kSiteNoFillData{kSource, 85, kau::Category::kTruncated, "the data ends inside a marker"};
constexpr kau::Site kSiteIsValidCatch{kSource, 740};
constexpr kau::Fault kSitePushBadArgs{kSource, 746, kau::Category::kBadArgument,
                                      "no data or no stream to push into"};
constexpr kau::Fault kSitePushShortWrite{kSource, 747, kau::Category::kOutOfMemory,
                                         "the data could not be stored"};
constexpr kau::Fault kSiteResetNoStream{kSource, 826, kau::Category::kBadArgument, "no stream to reset"};
constexpr kau::Fault kSiteResetTell{kSource, 827, kau::Category::kIo, "the stream position cannot be read"};
constexpr kau::Fault kSiteResetBeyond{kSource, 828, kau::Category::kInternal,
                                      "the image ends beyond the stream position"};
constexpr kau::Fault kSiteResetSeek{kSource, 836, kau::Category::kIo, "the stream cannot be positioned"};
constexpr kau::Fault kSiteResetAlloc{kSource, 837, kau::Category::kOutOfMemory,
                                     "no memory for the data after the image"};
constexpr kau::Fault kSiteResetRead{kSource, 838, kau::Category::kIo,
                                    "the data after the image cannot be read"};
constexpr kau::Site kSiteResetCatch{kSource, 841};

enum : int32_t { kLengthHigh = 0, kLengthLow = 1, kScanning = 2 };

// Markers followed by a length field: SOFn with DHT and DAC (not JPG),
// SOS, DQT, DRI, DHP, APPn and COM.
inline bool HasLength(unsigned char code) {
  using namespace kj;
  return (code >= kSOF0 && code <= kSOF15 && code != kJPG) || code == kSOS || code == kDQT || code == kDRI ||
         code == kDHP || (code >= kAPP0 && code <= kAPP15) || code == kCOM;
}

// Reads the next marker code: scans to 0xFF, skips fill bytes; a 0x00 code
// (stuffing) continues the scan.
unsigned char ReadMarker(MMStream* stream) {
  unsigned char b = 0;
  for (;;) {
    do {
      if (MMStreamGet(stream, &b, 1) != 1) kau::Throw(kSiteNoMarkerData);
    } while (b != 0xFF);
    do {
      if (MMStreamGet(stream, &b, 1) != 1) kau::Throw(kSiteNoFillData);
    } while (b == 0xFF);
    if (b != 0x00) return b;
  }
}

}  // namespace

MMStream* Input::Construct() {
  stream_ = nullptr;
  lastByte_ = 0;
  toSkip_ = 0;
  state_ = kScanning;
  endOfImage_ = 0;
  MMStream* stream = MMPageArrayStream::NewReady(kPageSize);
  stream_ = stream;
  return stream_;
}

void Input::Destruct() { MMStreamDelete(&stream_); }

void Input::ResetStream() {
  Destruct();
  Construct();
}

int Input::Push(const void* data, unsigned long size) {
  if (data == nullptr || stream_ == nullptr || size == 0) kau::Throw(kSitePushBadArgs);
  if (size > UINT32_MAX || MMStreamPut(stream_, data, static_cast<unsigned int>(size)) != size) {
    kau::Throw(kSitePushShortWrite);
  }
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (uint32_t i = 0; i < size; ++i) {
    unsigned char b = bytes[i];
    switch (state_) {
      case kLengthHigh:
        toSkip_ = b;
        state_ = kLengthLow;
        break;
      case kLengthLow:
        toSkip_ = toSkip_ * 256 + b - 2;
        state_ = kScanning;
        break;
      default:
        if (toSkip_ > 0) {
          // A segment's body holds no marker: step over what of it is here.
          const uint32_t n = std::min(static_cast<uint32_t>(toSkip_), static_cast<uint32_t>(size) - i);
          toSkip_ -= static_cast<int32_t>(n);
          i += n - 1;
          lastByte_ = 0;
        } else if (lastByte_ == 0xFF) {
          lastByte_ = b;
          if (HasLength(b)) {
            state_ = kLengthHigh;
          } else if (b == 0xD9) {
            endOfImage_ += i + 1;
            return 0;
          }
        } else {
          // Only an 0xFF can start a marker: jump to the next one.
          const void* ff = std::memchr(bytes + i, 0xFF, size - i);
          i = ff == nullptr ? static_cast<uint32_t>(size) - 1
                            : static_cast<uint32_t>(static_cast<const unsigned char*>(ff) - bytes);
          lastByte_ = bytes[i];
        }
    }
  }
  endOfImage_ += static_cast<uint32_t>(size);
  return 1;
}

void Input::Append(const void* data, unsigned long size) {
  if (data == nullptr || stream_ == nullptr || size == 0) kau::Throw(kSitePushBadArgs);
  if (size > UINT32_MAX || MMStreamPut(stream_, data, static_cast<unsigned int>(size)) != size) {
    kau::Throw(kSitePushShortWrite);
  }
}

int Input::ResetStreamWithDataAfterEOI() {
  void* rest = nullptr;
  int more = 1;
  try {
    if (stream_ == nullptr) kau::Throw(kSiteResetNoStream);
    unsigned long position = 0;
    if (MMStreamTell(stream_, &position) == 0) kau::Throw(kSiteResetTell);
    if (endOfImage_ > position) kau::Throw(kSiteResetBeyond);
    auto count = static_cast<uint32_t>(position - endOfImage_);
    if (count == 0) {
      ResetStream();
      return 1;
    }
    if (MMStreamSeek(stream_, static_cast<long>(endOfImage_), MMStreamSeekFromStart) == 0) {
      kau::Throw(kSiteResetSeek);
    }
    rest = kau::mem::New(count);
    if (rest == nullptr) kau::Throw(kSiteResetAlloc);
    if (MMStreamGet(stream_, rest, count) < count) kau::Throw(kSiteResetRead);
    ResetStream();
    more = Push(rest, count);
  } catch (...) {
    kau::ReportCurrentException(kSiteResetCatch);
    more = 1;
  }
  kau::mem::Delete(rest);
  return more;
}

int Input::IsValid(MMStream* stream) {
  if (stream == nullptr) return 0;
  try {
    if (ReadMarker(stream) != 0xD8) return 0;
    unsigned char code = ReadMarker(stream);
    return HasLength(code) && code != 0xDA ? 1 : code == 0xD9 ? 1 : 0;
  } catch (...) {
    kau::ReportCurrentException(kSiteIsValidCatch);
    return 0;
  }
}

int Input::FrameSize(MMStream* stream, uint32_t* width, uint32_t* height) {
  if (stream == nullptr || width == nullptr || height == nullptr) return 0;
  try {
    if (ReadMarker(stream) != 0xD8) return 0;
    for (;;) {
      const unsigned char code = ReadMarker(stream);
      if (!HasLength(code) || code == 0xDA) return 0;
      unsigned char b[7];
      if (MMStreamGet(stream, b, 2) != 2) return 0;
      const long length = b[0] * 256 + b[1];
      if (length < 2) return 0;
      // SOFn: every C0..CF but DHT (C4), JPG (C8) and DAC (CC).
      if (code <= 0xCF && code != 0xC4 && code != 0xCC) {
        if (length < 7 || MMStreamGet(stream, b, 5) != 5) return 0;
        *height = b[1] * 256u + b[2];
        *width = b[3] * 256u + b[4];
        return 1;
      }
      if (length > 2 && MMStreamSeek(stream, length - 2, MMStreamSeekFromCurrent) == 0) return 0;
    }
  } catch (const kau::Error&) {
    return 0;  // ran out of data while looking for a marker
  }
}

}  // namespace kjd
