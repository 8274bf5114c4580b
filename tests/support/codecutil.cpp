// Our decoder and encoder in memory, and the TurboJPEG peer.
#include <gtest/gtest.h>

#include "kiu/MMPageArrayStream.h"
#include "kj.e/CJPGE.h"
#include "support/testutil.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace keltest {

std::vector<ComponentPlane> DecodePlanes(kjd::Decoder& decoder, int scale, bool specialised) {
  kjd::Decoder::Plane planes[4] = {};
  decoder.Dcoef_DecodeToPlanes(static_cast<uint32_t>(scale), planes, specialised);
  std::vector<ComponentPlane> out(decoder.componentCount);
  for (uint32_t i = 0; i < decoder.componentCount; ++i) {
    out[i].width = static_cast<int>(planes[i].width);
    out[i].height = static_cast<int>(planes[i].height);
    for (uint32_t y = 0; y < planes[i].height; ++y) {
      const uint8_t* row = planes[i].data + static_cast<size_t>(y) * planes[i].stride;
      out[i].samples.insert(out[i].samples.end(), row, row + planes[i].width);
    }
  }
  return out;
}

std::vector<ComponentPlane> DecodePlanes(const Bytes& jpeg, int scale, bool specialised) {
  kjd::Decoder decoder(jpeg.data(), jpeg.size(), 255);
  return DecodePlanes(decoder, scale, specialised);
}

#ifdef KEL_HAVE_TURBOJPEG
namespace {
// A decompressor with the file's header read; false with `why` on failure.
struct Peer {
  tjhandle handle = tjInitDecompress();
  int width = 0, height = 0, subsamp = 0, colorspace = 0;
  ~Peer() {
    if (handle != nullptr) tjDestroy(handle);
  }
  bool Fail(std::string* why) {
    *why = handle == nullptr ? "tjInitDecompress failed" : tjGetErrorStr2(handle);
    return false;
  }
  bool Header(const Bytes& jpeg) {
    return handle != nullptr &&
           tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &width, &height,
                               &subsamp, &colorspace) == 0;
  }
};
}  // namespace

bool PeerPlanes(const Bytes& jpeg, std::vector<ComponentPlane>* planes, std::string* why) {
  Peer peer;
  if (!peer.Header(jpeg)) return peer.Fail(why);
  const int count = peer.subsamp == TJSAMP_GRAY ? 1 : 3;
  std::vector<Bytes> buffers(count);
  unsigned char* dst[3] = {};
  int strides[3] = {};
  for (int i = 0; i < count; ++i) {
    strides[i] = tjPlaneWidth(i, peer.width, peer.subsamp);
    buffers[i].resize(static_cast<size_t>(strides[i]) * tjPlaneHeight(i, peer.height, peer.subsamp));
    dst[i] = buffers[i].data();
  }
  if (tjDecompressToYUVPlanes(peer.handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), dst,
                              peer.width, strides, peer.height,
                              TJFLAG_ACCURATEDCT | TJFLAG_STOPONWARNING) != 0)
    return peer.Fail(why);
  // Visible area from the sampling factors: TurboJPEG names them by subsamp.
  const int hmax = tjMCUWidth[peer.subsamp] / 8, vmax = tjMCUHeight[peer.subsamp] / 8;
  planes->assign(count, {});
  for (int i = 0; i < count; ++i) {
    ComponentPlane& p = (*planes)[i];
    p.width = (peer.width * (i == 0 ? hmax : 1) + hmax - 1) / hmax;
    p.height = (peer.height * (i == 0 ? vmax : 1) + vmax - 1) / vmax;
    for (int y = 0; y < p.height; ++y) {
      const uint8_t* row = buffers[i].data() + static_cast<size_t>(y) * strides[i];
      p.samples.insert(p.samples.end(), row, row + p.width);
    }
  }
  return true;
}

bool PeerRgb(const Bytes& jpeg, Bytes* rgb, int* width, int* height, std::string* why, bool cmyk) {
  Peer peer;
  if (!peer.Header(jpeg)) return peer.Fail(why);
  *width = peer.width;
  *height = peer.height;
  const int bytes = cmyk ? 4 : 3;
  rgb->assign(static_cast<size_t>(*width) * *height * bytes, 0);
  if (tjDecompress2(peer.handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), rgb->data(), *width,
                    *width * bytes, *height, cmyk ? TJPF_CMYK : TJPF_RGB,
                    TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE) != 0)
    return peer.Fail(why);
  return true;
}
#else
bool PeerPlanes(const Bytes&, std::vector<ComponentPlane>*, std::string* why) {
  *why = "built without TurboJPEG";
  return false;
}
bool PeerRgb(const Bytes&, Bytes*, int*, int*, std::string* why, bool) {
  *why = "built without TurboJPEG";
  return false;
}
#endif

std::string Printed(const std::function<void()>& fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

int EncodeTo(MMStream* stream, Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
             kiu::Format out, std::string* printed) {
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = pixels.empty() ? nullptr : pixels.data();
  int rc = 0;
  const std::string text = Printed([&] { rc = EncodeJPG(image, quality, stream, in, out); });
  if (printed != nullptr) *printed = text;
  return rc;
}

EncodeResult Encode(Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
                    kiu::Format out) {
  EncodeResult result;
  MMStream* stream = MMPageArrayStream::NewReady(4096);
  result.rc = EncodeTo(stream, std::move(pixels), width, height, quality, in, out, &result.printed);
  result.jpeg = StreamBytes(stream);
  MMStreamDelete(&stream);
  return result;
}

Bytes StreamBytes(MMStream* stream) {
  unsigned long size = 0;
  if (MMStreamSize(stream, &size) != 1) return {};
  Bytes out(size);
  MMStreamSeek(stream, 0, MMStreamSeekFromStart);
  if (size != 0) out.resize(MMStreamGet(stream, out.data(), static_cast<unsigned>(size)));
  return out;
}

Bytes ToPacked4(const Bytes& rgb, uint8_t filler) {
  Bytes out;
  for (size_t i = 0; i + 2 < rgb.size(); i += 3)
    out.insert(out.end(), {rgb[i], rgb[i + 1], rgb[i + 2], filler});
  return out;
}

}  // namespace keltest
