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

// Packed Y, U, V (rows width * 3 bytes apart) to I420 planes of the even
// size w x h; chroma is the rounded average of each 2x2 block.
void PackedToI420(const unsigned char* in, uint32_t width, uint32_t w, uint32_t h, unsigned char* out) {
  unsigned char* py = out;
  unsigned char* pu = out + w * h;
  unsigned char* pv = pu + w * h / 4;
  const uint32_t inStride = width * 3;
  for (uint32_t y = 0; y < h; y += 2) {
    const unsigned char* r0 = in + y * inStride;
    const unsigned char* r1 = r0 + inStride;
    unsigned char* y0 = py + y * w;
    unsigned char* y1 = y0 + w;
    unsigned char* u = pu + y / 2 * (w / 2);
    unsigned char* v = pv + y / 2 * (w / 2);
    for (uint32_t x = 0; x < w; x += 2) {
      const unsigned char* a = r0 + 3 * x;
      const unsigned char* b = r1 + 3 * x;
      y0[x] = a[0];
      y0[x + 1] = a[3];
      y1[x] = b[0];
      y1[x + 1] = b[3];
      u[x / 2] = static_cast<unsigned char>((a[1] + a[4] + b[1] + b[4] + 2) / 4);
      v[x / 2] = static_cast<unsigned char>((a[2] + a[5] + b[2] + b[5] + 2) / 4);
    }
  }
}

int Decode(kjd::Decoder& decoder, STImageSimple* image, bool planar) {
  unsigned char* pixels = nullptr;
  unsigned char* planes = nullptr;
  try {
    if (image == nullptr) kau::Throw(kSiteNullImage);
    decoder.yuvWanted = 1;
    pixels = decoder.DecodeImage(0, 0);
    if (pixels == nullptr) kau::Throw(kSiteNoPixels);
    if (decoder.ScaleImageYUV(pixels) == nullptr) kau::Throw(kSiteNoYuv);
    const uint32_t width = static_cast<uint32_t>(decoder.OutputWidth());
    const uint32_t height = static_cast<uint32_t>(decoder.OutputHeight());
    if (!planar) {
      image->width = width;
      image->height = height;
      image->data = pixels;
      image->stride = width * 3;
      image->bitsPerPixel = 24;
      return 1;
    }
    const uint32_t w = width & ~1u;
    const uint32_t h = height & ~1u;
    const uint32_t size = w * h / 2 * 3;
    planes = static_cast<unsigned char*>(kau::mem::New(size));
    if (planes == nullptr) kau::Throw(kSitePlanes);
    PackedToI420(pixels, width, w, h, planes);
    kau::mem::Delete(pixels);
    image->width = w;
    image->height = h;
    image->size = size;
    image->data = planes;
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteDriverCatch);
    kau::mem::Delete(pixels);
    kau::mem::Delete(planes);
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
