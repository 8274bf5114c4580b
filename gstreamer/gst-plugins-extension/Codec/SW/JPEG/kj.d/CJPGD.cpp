// Decoding to 32-bit pixels with alpha.
#include "CJPGD.h"

#include "kj.d.h"

namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/CJPGD";
constexpr kau::Site kSiteStreamAlpha{kSource, 19};
constexpr kau::Site kSiteStreamNullImage{kSource, 20};
constexpr kau::Site kSiteStreamBothNegative{kSource, 22};
constexpr kau::Site kSiteStreamNoPixels{kSource, 25};
constexpr kau::Site kSiteStreamCatch{kSource, 46};
constexpr kau::Site kSiteNullData{kSource, 63};
constexpr kau::Site kSiteZeroSize{kSource, 64};
constexpr kau::Site kSiteAlpha{kSource, 65};
constexpr kau::Site kSiteNullImage{kSource, 66};
constexpr kau::Site kSiteBothNegative{kSource, 68};
constexpr kau::Site kSiteNoPixels{kSource, 71};
constexpr kau::Site kSiteCatch{kSource, 91};

// Decodes, post-processes and fills the record; `pixels` always holds the
// buffer the caller must free should anything throw.
void Finish(kjd::Decoder& decoder, unsigned char*& pixels, STImageSimple* image, int width, int height,
            const kjd::DecodeLimits& limits, const kau::Site& noPixels) {
  decoder.limits = limits;
  pixels = decoder.DecodeImage(width, height);
  if (pixels == nullptr) kau::Throw(noPixels);
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
    kau::ReportCurrentException(kSiteCatch);
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
    kau::ReportCurrentException(kSiteStreamCatch);
    kau::mem::Delete(pixels);
    return 0;
  }
}
