// Decoding at full size to YUV.
#include "jpdyuv.h"

#include "kj.d.h"

namespace jpdyuv {
namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/jpdyuv";
constexpr kau::Site kSiteNullImage{kSource, 27};
constexpr kau::Site kSiteNoPixels{kSource, 30};
constexpr kau::Site kSiteNoYuv{kSource, 32};
constexpr kau::Site kSitePlanes{kSource, 41};
constexpr kau::Site kSiteDriverCatch{kSource, 99};
constexpr kau::Site kSiteStreamCatch{kSource, 115};
constexpr kau::Site kSiteMemoryCatch{kSource, 126};

int Decode(kjd::Decoder& decoder, STImageSimple* image, bool planar) {
  using Kind = kjd::Decoder::OutputKind;
  unsigned char* pixels = nullptr;
  try {
    if (image == nullptr) kau::Throw(kSiteNullImage);
    if (!planar) {
      decoder.output.kind = Kind::kPackedYuv;
      pixels = decoder.DecodeImage(0, 0);
      if (pixels == nullptr) kau::Throw(kSiteNoPixels);
      if (decoder.ScaleImageYUV(pixels) == nullptr) kau::Throw(kSiteNoYuv);
      image->width = static_cast<uint32_t>(decoder.OutputWidth());
      image->height = static_cast<uint32_t>(decoder.OutputHeight());
      image->data = pixels;
      image->stride = image->width * 3;
      image->bitsPerPixel = 24;
      return 1;
    }
    // I420 written straight into the caller's planes, row pair by row pair.
    decoder.output.kind = Kind::kI420;
    decoder.PlanOutput(0, 0);
    const uint32_t w = static_cast<uint32_t>(decoder.OutputWidth()) & ~1u;
    const uint32_t h = static_cast<uint32_t>(decoder.OutputHeight()) & ~1u;
    const uint32_t size = w * h / 2 * 3;
    pixels = static_cast<unsigned char*>(kau::mem::New(size));
    if (pixels == nullptr) kau::Throw(kSitePlanes);
    kjd::Decoder::OutputTarget target;
    target.planes[0] = pixels;
    target.planes[1] = pixels + w * h;
    target.planes[2] = target.planes[1] + w * h / 4;
    target.strides[0] = w;
    target.strides[1] = target.strides[2] = w / 2;
    target.width = w;
    target.height = h;
    if (!decoder.ProduceRows(target)) kau::Throw(kSiteNoPixels);
    image->width = w;
    image->height = h;
    image->size = size;
    image->data = pixels;
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteDriverCatch);
    kau::mem::Delete(pixels);
    return 0;
  }
}

}  // namespace

int DecodeJPG(const unsigned char* data, unsigned long size, STImageSimple* image, bool planar) {
  return DecodeJPG(data, size, image, planar, kjd::DecodeLimits{});
}

int DecodeJPG(MMStream* stream, STImageSimple* image, bool planar) {
  return DecodeJPG(stream, image, planar, kjd::DecodeLimits{});
}

int DecodeJPG(const unsigned char* data, unsigned long size, STImageSimple* image, bool planar,
              const kjd::DecodeLimits& limits) {
  try {
    kjd::Decoder decoder(data, size, 0);
    decoder.limits = limits;
    return Decode(decoder, image, planar);
  } catch (...) {
    kau::ReportCurrentException(kSiteMemoryCatch);
    return 0;
  }
}

int DecodeJPG(MMStream* stream, STImageSimple* image, bool planar, const kjd::DecodeLimits& limits) {
  try {
    kjd::Decoder decoder(stream, 0);
    decoder.limits = limits;
    return Decode(decoder, image, planar);
  } catch (...) {
    kau::ReportCurrentException(kSiteStreamCatch);
    return 0;
  }
}

}  // namespace jpdyuv
