#include "kj.e/CJPGE.h"

#include <cstdint>

#include "kj.e/kj.e.h"
#include "kj.e/kj.esample.h"

namespace kje {

namespace {
constexpr const char* kEncoderSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.e";
constexpr kau::Fault kSiteBadSize{kEncoderSource, 238, kau::Category::kBadArgument,
                                  "the width or height is 0 or above 65500"};
constexpr kau::Site kSiteConstructorCatch{kEncoderSource, 269};
constexpr kau::Fault kSiteConstructorFailed{kEncoderSource, 269, kau::Category::kInternal,
                                            "the encoder could not be built"};
constexpr kau::Fault kSiteNullStreamOrData{kEncoderSource, 274, kau::Category::kBadArgument,
                                           "no output stream or no pixels"};
}  // namespace

Encoder::Encoder(unsigned long width, unsigned long height, int quality, kiu::Format inputFormat,
                 kiu::Format outputFormat)
    : inputFormat_(inputFormat), outputFormat_(outputFormat) {
  try {
    if (width > UINT32_MAX || height > UINT32_MAX) kau::Throw(kSiteBadSize);
    width_ = static_cast<uint32_t>(width);
    height_ = static_cast<uint32_t>(height);
    if (IsPlanar(inputFormat)) {
      // Planes come padded to 4 columns and 2 rows; the file keeps the true size.
      paddedWidth_ = kau::RoundUp(width_, 4);
      paddedHeight_ = kau::RoundUp(height_, 2);
      fdct_ = &Encoder::Fdct_DoFast0;
    } else {
      paddedWidth_ = width_;
      paddedHeight_ = height_;
      fdct_ = &Encoder::Fdct_DoSlow0;
    }
    if (width_ > kj::kMaxDimension || height_ > kj::kMaxDimension || width_ * height_ == 0)
      kau::Throw(kSiteBadSize);
    Sampler_Start();
    Fdct_Start(quality);
    Huff_StartPass();
    outBuffer_ = heap_.AllocateArray<unsigned char>(kOutputBufferSize);
    outNext_ = outBuffer_;
    outEnd_ = outBuffer_ + kOutputBufferSize;
  } catch (...) {
    const kau::Fault cause = kau::ReportCurrentException(kSiteConstructorCatch);
    heap_.HandleExceptionInConstructor();
    kau::Throw(kSiteConstructorFailed, cause);
  }
}

void Encoder::Encode(unsigned char* data, MMStream* out) {
  if (out == nullptr || data == nullptr) kau::Throw(kSiteNullStreamOrData);
  stream_ = out;
  input_ = data;
  if (IsPlanar(inputFormat_)) {
    components_[0].planeRow = data;
    components_[1].planeRow = data + paddedWidth_ * paddedHeight_;
    components_[2].planeRow = components_[1].planeRow + components_[1].planeStride * paddedHeight_ / 2;
  }

  Markers_OutImageHeader();

  const uint32_t mcuRows = kau::CeilDiv(paddedHeight_, 8 * static_cast<uint32_t>(vmax_));
  const uint32_t mcuColumns = kau::CeilDiv(paddedWidth_, 8 * static_cast<uint32_t>(hmax_));
  lastMcuRow_ = mcuRows - 1;
  lastMcuColumn_ = mcuColumns - 1;
  Block* blocks[kMaxBlocksInMcu];
  for (int i = 0; i < blocksInMcu_; ++i) blocks[i] = &mcuBlocks_[i];

  for (mcuRow_ = 0; mcuRow_ < mcuRows; ++mcuRow_) {
    Sampler_FillOutRows();
    for (mcuColumn_ = 0; mcuColumn_ < mcuColumns; ++mcuColumn_) {
      int blkn = 0;
      for (Component* c = components_; c != componentsEnd_; ++c) {
        if (c + 1 < componentsEnd_ && Fdct_CanPair(c[0], c[1])) {
          // One block each, never outside the picture: transformed together.
          Fdct_DoPair(c, c + 1, &mcuBlocks_[blkn], mcuColumn_ * 8);
          blkn += 2;
          ++c;
          continue;
        }
        const uint32_t count = mcuColumn_ < lastMcuColumn_ ? c->mcuWidth : c->lastColumnBlocks;
        for (uint32_t yb = 0; yb < c->mcuHeight; ++yb) {
          Block* row = &mcuBlocks_[blkn];
          if (mcuRow_ < lastMcuRow_ || yb < c->lastRowBlocks) {
            Fdct_DoBlocks(c, c->blockRows, row, yb * 8, mcuColumn_ * c->mcuSampleWidth, count);
            // Blocks right of the picture: flat, continuing the DC.
            for (uint32_t bi = count; bi < c->mcuWidth; ++bi) {
              kau::mem::Zero8(row[bi].coef, sizeof(row[bi].coef));
              row[bi].coef[0] = row[bi - 1].coef[0];
            }
          } else {
            // A block row below the picture: flat, with the DC of the block before it.
            const int32_t dc = mcuBlocks_[blkn - 1].coef[0];
            for (uint32_t bi = 0; bi < c->mcuWidth; ++bi) {
              kau::mem::Zero8(row[bi].coef, sizeof(row[bi].coef));
              row[bi].coef[0] = dc;
            }
          }
          blkn += static_cast<int>(c->mcuWidth);
        }
      }
      Huff_EncodeMcu(blocks);
    }
  }

  Huff_FinishPass();
  Markers_OutImageTrailer();
}

}  // namespace kje

namespace {
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/CJPGE";
constexpr kau::Site kSiteCatch{kSource, 22};
// Refused before anything is printed; the entry point's own site.
constexpr kau::Fault kSiteNoPicture{kSource, 22, kau::Category::kBadArgument,
                                    "no pixels, or a width or height of 0"};
}  // namespace

int EncodeJPG(const STImageSimple& image, int quality, MMStream* out, kiu::Format inputFormat,
              kiu::Format outputFormat) {
  return EncodeJPG(image, quality, out, inputFormat, outputFormat, nullptr);
}

int EncodeJPG(const STImageSimple& image, int quality, MMStream* out, kiu::Format inputFormat,
              kiu::Format outputFormat, kau::Fault* failure) {
  if (image.data == nullptr || image.width == 0 || image.height == 0) {
    if (failure != nullptr && failure->file == nullptr) *failure = kSiteNoPicture;
    return 0;
  }
  try {
    kje::Encoder encoder(image.width, image.height, quality, inputFormat, outputFormat);
    encoder.Encode(image.data, out);
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteCatch, failure);
    return 0;
  }
}
