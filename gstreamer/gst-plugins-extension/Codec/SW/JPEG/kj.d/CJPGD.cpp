// Decoding to 32-bit pixels with alpha.
#include "CJPGD.h"

#include "kj.d.h"

namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/CJPGD";
constexpr kau::Fault kSiteStreamAlpha{kSource, 19, kau::Category::kBadArgument, "an alpha value above 255"};
constexpr kau::Fault kSiteStreamNullImage{kSource, 20, kau::Category::kBadArgument,
                                          "no image record to fill"};
constexpr kau::Fault kSiteStreamBothNegative{kSource, 22, kau::Category::kBadArgument,
                                             "both requested sides are negative"};
constexpr kau::Fault kSiteStreamNoPixels{kSource, 25, kau::Category::kInternal, "no picture was decoded"};
constexpr kau::Site kSiteStreamCatch{kSource, 46};
constexpr kau::Fault kSiteNullData{kSource, 63, kau::Category::kBadArgument, "no data to decode"};
constexpr kau::Fault kSiteZeroSize{kSource, 64, kau::Category::kTruncated, "the data is empty"};
constexpr kau::Fault kSiteAlpha{kSource, 65, kau::Category::kBadArgument, "an alpha value above 255"};
constexpr kau::Fault kSiteNullImage{kSource, 66, kau::Category::kBadArgument, "no image record to fill"};
constexpr kau::Fault kSiteBothNegative{kSource, 68, kau::Category::kBadArgument,
                                       "both requested sides are negative"};
constexpr kau::Fault kSiteNoPixels{kSource, 71, kau::Category::kInternal, "no picture was decoded"};
constexpr kau::Site kSiteCatch{kSource, 91};

// Decodes, post-processes and fills the record; `pixels` always holds the
// buffer the caller must free should anything throw.
void Finish(kjd::Decoder& decoder, unsigned char*& pixels, STImageSimple* image, int width, int height,
            const kjd::DecodeLimits& limits, const kau::Fault& noPixels) {
  decoder.limits = limits;
  pixels = decoder.DecodeImage(width, height);
  if (pixels == nullptr) kau::Throw(noPixels, decoder.RowsFailure());
  decoder.ScaleImageAndFillAlpha(pixels);
  image->width = static_cast<uint32_t>(decoder.OutputWidth());
  image->height = static_cast<uint32_t>(decoder.OutputHeight());
  image->stride = image->width * 4;
  image->bitsPerPixel = 32;
  image->data = pixels;
}

}  // namespace

int DecodeJPG(const unsigned char* data, unsigned long size, unsigned long alpha, STImageSimple* image,
              int width, int height) {
  return DecodeJPG(data, size, alpha, image, width, height, kjd::DecodeLimits{});
}

int DecodeJPG(const unsigned char* data, unsigned long size, unsigned long alpha, STImageSimple* image,
              int width, int height, const kjd::DecodeLimits& limits) {
  unsigned char* pixels = nullptr;
  try {
    if (data == nullptr) kau::Throw(kSiteNullData);
    if (size == 0) kau::Throw(kSiteZeroSize);
    if (alpha > 255) kau::Throw(kSiteAlpha);
    if (image == nullptr) kau::Throw(kSiteNullImage);
    if (width < 0 && height < 0) kau::Throw(kSiteBothNegative);
    kjd::Decoder decoder(data, size, static_cast<unsigned char>(alpha));
    Finish(decoder, pixels, image, width, height, limits, kSiteNoPixels);
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteCatch, limits.failure);
    kau::mem::Delete(pixels);
    return 0;
  }
}

int DecodeJPG(MMStream* stream, unsigned long alpha, STImageSimple* image, int width, int height) {
  return DecodeJPG(stream, alpha, image, width, height, kjd::DecodeLimits{});
}

int DecodeJPG(MMStream* stream, unsigned long alpha, STImageSimple* image, int width, int height,
              const kjd::DecodeLimits& limits) {
  unsigned char* pixels = nullptr;
  try {
    if (alpha > 255) kau::Throw(kSiteStreamAlpha);
    if (image == nullptr) kau::Throw(kSiteStreamNullImage);
    if (width < 0 && height < 0) kau::Throw(kSiteStreamBothNegative);
    kjd::Decoder decoder(stream, static_cast<unsigned char>(alpha));
    Finish(decoder, pixels, image, width, height, limits, kSiteStreamNoPixels);
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteStreamCatch, limits.failure);
    kau::mem::Delete(pixels);
    return 0;
  }
}
