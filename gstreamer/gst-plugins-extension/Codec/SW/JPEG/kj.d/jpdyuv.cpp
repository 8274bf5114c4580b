// Decoding at full size to YUV.
#include "jpdyuv.h"

#include "kj.d.h"

namespace jpdyuv {
namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/jpdyuv";
constexpr kau::Fault kSiteNullImage{kSource, 27, kau::Category::kBadArgument, "no image record to fill"};
constexpr kau::Fault kSiteNoPixels{kSource, 30, kau::Category::kInternal, "no picture was decoded"};
constexpr kau::Fault kSiteNoYuv{kSource, 32, kau::Category::kOutOfMemory, "no memory for the YUV picture"};
constexpr kau::Fault kSitePlanes{kSource, 41, kau::Category::kOutOfMemory, "no memory for the I420 planes"};
constexpr kau::Site kSiteDriverCatch{kSource, 99};
constexpr kau::Site kSiteStreamCatch{kSource, 115};
constexpr kau::Site kSiteMemoryCatch{kSource, 126};

// I420 written straight into the supplied planes, row pair by row pair.
// False when `supply` declined; throws on failure.
bool IntoRows(kjd::Decoder& decoder, SupplyPlanesFn supply, void* context) {
  decoder.output.kind = kjd::Decoder::OutputKind::kI420;
  decoder.PlanOutput(0, 0);
  kjd::Decoder::OutputTarget target;
  target.width = static_cast<uint32_t>(decoder.OutputWidth()) & ~1u;
  target.height = static_cast<uint32_t>(decoder.OutputHeight()) & ~1u;
  I420Planes planes{};
  if (!supply(context, target.width, target.height, &planes)) return false;
  for (int p = 0; p < 3; ++p) {
    target.planes[p] = planes.planes[p];
    target.strides[p] = planes.strides[p];
  }
  if (!decoder.ProduceRows(target)) kau::Throw(kSiteNoPixels, decoder.RowsFailure());
  return true;
}

int Decode(kjd::Decoder& decoder, STImageSimple* image, bool planar) {
  unsigned char* pixels = nullptr;
  try {
    if (image == nullptr) kau::Throw(kSiteNullImage);
    if (!planar) {
      decoder.output.kind = kjd::Decoder::OutputKind::kPackedYuv;
      pixels = decoder.DecodeImage(0, 0);
      if (pixels == nullptr) kau::Throw(kSiteNoPixels, decoder.RowsFailure());
      if (decoder.ScaleImageYUV(pixels) == nullptr) kau::Throw(kSiteNoYuv);
      image->width = static_cast<uint32_t>(decoder.OutputWidth());
      image->height = static_cast<uint32_t>(decoder.OutputHeight());
      image->data = pixels;
      image->stride = image->width * 3;
      image->bitsPerPixel = 24;
      return 1;
    }
    // Planes of our own, handed to the caller.
    const auto own = [](void* context, uint32_t w, uint32_t h, I420Planes* planes) {
      auto* block = static_cast<unsigned char**>(context);
      *block = static_cast<unsigned char*>(kau::mem::New(w * h / 2 * 3));
      if (*block == nullptr) kau::Throw(kSitePlanes);
      *planes = PackedPlanes(*block, w, h);
      return true;
    };
    IntoRows(decoder, own, &pixels);
    image->width = static_cast<uint32_t>(decoder.OutputWidth()) & ~1u;
    image->height = static_cast<uint32_t>(decoder.OutputHeight()) & ~1u;
    image->size = image->width * image->height / 2 * 3;
    image->data = pixels;
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteDriverCatch, decoder.limits.failure);
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
    kau::ReportCurrentException(kSiteMemoryCatch, limits.failure);
    return 0;
  }
}

int DecodeJPG(MMStream* stream, STImageSimple* image, bool planar, const kjd::DecodeLimits& limits) {
  try {
    kjd::Decoder decoder(stream, 0);
    decoder.limits = limits;
    return Decode(decoder, image, planar);
  } catch (...) {
    kau::ReportCurrentException(kSiteStreamCatch, limits.failure);
    return 0;
  }
}

IntoResult DecodeI420Into(MMStream* stream, const kjd::DecodeLimits& limits, SupplyPlanesFn supply,
                          void* context) {
  try {
    kjd::Decoder decoder(stream, 0);
    decoder.limits = limits;
    try {
      return IntoRows(decoder, supply, context) ? IntoResult::kDecoded : IntoResult::kDeclined;
    } catch (...) {
      kau::ReportCurrentException(kSiteDriverCatch, limits.failure);
      return IntoResult::kFailed;
    }
  } catch (...) {
    kau::ReportCurrentException(kSiteStreamCatch, limits.failure);
    return IntoResult::kFailed;
  }
}

}  // namespace jpdyuv
