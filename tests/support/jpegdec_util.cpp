#include "support/jpegdec_util.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "kj.d/kj.d.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace keltest {

Bytes MakeJpeg(int width, int height, int channels, uint32_t seed, const std::string& args,
               const std::string& scans, const std::string& jpegtranArgs) {
  static int counter = 0;
  const std::string tag = std::to_string(++counter);
  const std::string pnm = TempPath("src" + tag + (channels == 1 ? ".pgm" : ".ppm"));
  const std::string jpg = TempPath("out" + tag + ".jpg");
  WritePnm(pnm, PhotoLike(width, height, channels, seed), width, height, channels);
  std::string a = args;
  if (!scans.empty()) {
    const std::string scansPath = TempPath("scans" + tag + ".txt");
    WriteFile(scansPath, Bytes(scans.begin(), scans.end()));
    size_t at = a.find("@SCANS@");
    if (at != std::string::npos) a.replace(at, 7, scansPath);
  }
  if (Run("cjpeg " + a + " -outfile " + jpg + " " + pnm) != 0) return {};
  std::remove(pnm.c_str());
  if (!jpegtranArgs.empty()) {
    const std::string jpg2 = TempPath("tran" + tag + ".jpg");
    if (Run("jpegtran " + jpegtranArgs + " -outfile " + jpg2 + " " + jpg) != 0) return {};
    std::remove(jpg.c_str());
    Bytes out = ReadFile(jpg2);
    std::remove(jpg2.c_str());
    return out;
  }
  Bytes out = ReadFile(jpg);
  std::remove(jpg.c_str());
  return out;
}

std::vector<ComponentPlane> DecodePlanes(const Bytes& jpeg, int scale, bool specialised) {
  kjd::Decoder decoder(jpeg.data(), jpeg.size(), 255);
  kjd::Decoder::Plane planes[4] = {};
  decoder.Dcoef_DecodeToPlanes(static_cast<uint32_t>(scale), planes, specialised);
  std::vector<ComponentPlane> out(decoder.componentCount);
  for (uint32_t i = 0; i < decoder.componentCount; ++i) {
    out[i].width = static_cast<int>(planes[i].width);
    out[i].height = static_cast<int>(planes[i].height);
    out[i].samples.resize(static_cast<size_t>(out[i].width) * out[i].height);
    for (int y = 0; y < out[i].height; ++y)
      for (int x = 0; x < out[i].width; ++x)
        out[i].samples[static_cast<size_t>(y) * out[i].width + x] =
            planes[i].data[static_cast<size_t>(y) * planes[i].stride + x];
  }
  return out;
}

bool PeerPlanes(const Bytes& jpeg, std::vector<ComponentPlane>* planes, std::string* why) {
#ifdef KEL_HAVE_TURBOJPEG
  tjhandle handle = tjInitDecompress();
  if (handle == nullptr) {
    *why = "tjInitDecompress failed";
    return false;
  }
  std::unique_ptr<void, int (*)(tjhandle)> guard(handle, tjDestroy);
  int width = 0, height = 0, subsamp = 0, colorspace = 0;
  if (tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &width, &height,
                          &subsamp, &colorspace) != 0) {
    *why = tjGetErrorStr2(handle);
    return false;
  }
  const int count = subsamp == TJSAMP_GRAY ? 1 : 3;
  std::vector<Bytes> buffers(count);
  unsigned char* dst[3] = {};
  int strides[3] = {};
  for (int i = 0; i < count; ++i) {
    strides[i] = tjPlaneWidth(i, width, subsamp);
    buffers[i].resize(static_cast<size_t>(strides[i]) * tjPlaneHeight(i, height, subsamp));
    dst[i] = buffers[i].data();
  }
  if (tjDecompressToYUVPlanes(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), dst, width,
                              strides, height, TJFLAG_ACCURATEDCT) != 0) {
    *why = tjGetErrorStr2(handle);
    return false;
  }
  // Visible area from the sampling factors: TurboJPEG names them by subsamp.
  const int mcuW = tjMCUWidth[subsamp], mcuH = tjMCUHeight[subsamp];
  planes->assign(count, {});
  for (int i = 0; i < count; ++i) {
    const int h = i == 0 ? mcuW / 8 : 1, v = i == 0 ? mcuH / 8 : 1;
    const int hmax = mcuW / 8, vmax = mcuH / 8;
    ComponentPlane& p = (*planes)[i];
    p.width = (width * h + hmax - 1) / hmax;
    p.height = (height * v + vmax - 1) / vmax;
    p.samples.resize(static_cast<size_t>(p.width) * p.height);
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width; ++x)
        p.samples[static_cast<size_t>(y) * p.width + x] = buffers[i][static_cast<size_t>(y) * strides[i] + x];
  }
  return true;
#else
  (void)jpeg;
  (void)planes;
  *why = "built without TurboJPEG";
  return false;
#endif
}

bool PeerRgb(const Bytes& jpeg, Bytes* rgb, int* width, int* height, std::string* why, bool cmyk) {
#ifdef KEL_HAVE_TURBOJPEG
  tjhandle handle = tjInitDecompress();
  if (handle == nullptr) {
    *why = "tjInitDecompress failed";
    return false;
  }
  std::unique_ptr<void, int (*)(tjhandle)> guard(handle, tjDestroy);
  int subsamp = 0, colorspace = 0;
  if (tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), width, height,
                          &subsamp, &colorspace) != 0) {
    *why = tjGetErrorStr2(handle);
    return false;
  }
  const int bytes = cmyk ? 4 : 3;
  rgb->assign(static_cast<size_t>(*width) * *height * bytes, 0);
  if (tjDecompress2(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), rgb->data(), *width,
                    *width * bytes, *height, cmyk ? TJPF_CMYK : TJPF_RGB,
                    TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE) != 0) {
    *why = tjGetErrorStr2(handle);
    return false;
  }
  return true;
#else
  (void)jpeg;
  (void)rgb;
  (void)width;
  (void)height;
  (void)cmyk;
  *why = "built without TurboJPEG";
  return false;
#endif
}

Bytes RewriteMarkers(const Bytes& jpeg, const std::vector<int>& ids) {
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  int map[256];
  for (int i = 0; i < 256; ++i) map[i] = i;
  size_t at = 2;
  while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF && jpeg[at + 1] != 0xDA) {
    const int code = jpeg[at + 1];
    const size_t length = static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3];
    if (code < 0xE0 || code > 0xEF) {
      const size_t start = out.size();
      out.insert(out.end(), jpeg.begin() + at, jpeg.begin() + at + 2 + length);
      if (code >= 0xC0 && code <= 0xC2) {
        for (size_t i = 0; i < ids.size(); ++i) {
          map[out[start + 10 + 3 * i]] = ids[i];
          out[start + 10 + 3 * i] = static_cast<uint8_t>(ids[i]);
        }
      }
    }
    at += 2 + length;
  }
  // Every SOS names its components by id; 0xFF 0xDA never occurs inside
  // entropy-coded data (0xFF is stuffed there).
  const size_t rest = out.size();
  out.insert(out.end(), jpeg.begin() + at, jpeg.end());
  for (size_t i = rest; i + 5 < out.size(); ++i) {
    if (out[i] != 0xFF || out[i + 1] != 0xDA) continue;
    for (int k = 0; k < out[i + 4] && i + 5 + 2 * k < out.size(); ++k)
      out[i + 5 + 2 * k] = static_cast<uint8_t>(map[out[i + 5 + 2 * k]]);
  }
  return out;
}

ErrorSite DecodeError(const Bytes& jpeg) {
  ErrorSite site;
  testing::internal::CaptureStdout();
  try {
    std::unique_ptr<kjd::Decoder> decoder;
    try {
      decoder.reset(new kjd::Decoder(jpeg.data(), jpeg.size(), 255));
    } catch (const kau::Error& e) {
      site.outer = std::string(e.FileName()) + ":" + std::to_string(e.Position());
      std::string printed = testing::internal::GetCapturedStdout();
      // "\n?!exception@ FILE +LINE !?\n\n\n"
      size_t at = printed.find("?!exception@ ");
      size_t plus = printed.find(" +", at);
      size_t end = printed.find(" !?", plus);
      if (at != std::string::npos && plus != std::string::npos && end != std::string::npos) {
        site.file = printed.substr(at + 13, plus - at - 13);
        site.line = std::stoi(printed.substr(plus + 2, end - plus - 2));
      } else {
        site.file = "?unparsed: " + printed;
      }
      return site;
    }
    kjd::Decoder::Plane planes[4] = {};
    decoder->Dcoef_DecodeToPlanes(8, planes);
  } catch (const kau::Error& e) {
    site.file = e.FileName();
    site.line = e.Position();
    site.outer = site.file + ":" + std::to_string(site.line);
  }
  testing::internal::GetCapturedStdout();
  return site;
}

}  // namespace keltest
