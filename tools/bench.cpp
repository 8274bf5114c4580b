#include "bench.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

#include "codecio.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.e/CJPGE.h"
#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace keljpeg {
namespace {

// Median megapixels per second of `run` over repeats filling `seconds` (at least 3).
double MegapixelsPerSecond(double megapixels, double seconds, const std::function<bool()>& run) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> rates;
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  while (rates.size() < 3 || Clock::now() < end) {
    const Clock::time_point start = Clock::now();
    if (!run()) return 0;
    rates.push_back(megapixels / std::chrono::duration<double>(Clock::now() - start).count());
  }
  std::nth_element(rates.begin(), rates.begin() + rates.size() / 2, rates.end());
  return rates[rates.size() / 2];
}

bool OurDecode(const Bytes& jpeg) {
  STImageSimple image{};
  if (DecodeJPG(jpeg.data(), jpeg.size(), 255, &image, 0, 0) != 1) return false;
  MMFree(image.data);
  return true;
}

bool OurEncode(const Picture& picture, MMStream* stream) {
  STImageSimple image{};
  image.width = picture.width;
  image.height = picture.height;
  image.data = const_cast<unsigned char*>(picture.pixels.data());
  // Put always appends: empty the stream before each encode.
  if (MMStreamNull(stream) != 1 || MMStreamReady(stream) != 1) return false;
  return EncodeJPG(image, 85, stream, kiu::FormatRGBA, kiu::FormatYUV) == 1;
}

}  // namespace

Picture GeneratePicture(uint32_t width, uint32_t height) {
  Picture p;
  p.width = width;
  p.height = height;
  p.pixels.resize(static_cast<size_t>(width) * height * 4);
  uint32_t seed = 12345;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      seed = seed * 1664525u + 1013904223u;
      const int noise = static_cast<int>(seed >> 28) - 8;
      const bool edge = ((x / 64) + (y / 48)) % 2 == 0;
      unsigned char* px = &p.pixels[(static_cast<size_t>(y) * width + x) * 4];
      const int v[3] = {static_cast<int>(x * 255 / width), static_cast<int>(y * 255 / height),
                        edge ? 200 : 60};
      for (int c = 0; c < 3; ++c) px[c] = static_cast<unsigned char>(std::clamp(v[c] + noise, 0, 255));
      px[3] = 255;
    }
  }
  return p;
}

std::string RunBench(const Bytes& jpeg, double seconds, std::FILE* out) {
  Picture picture;
  Failure why;
  if (!DecodeRgba(jpeg, 255, {}, &picture, &why)) return "the decoder refuses it: " + why.Describe();
  const double mp = static_cast<double>(picture.width) * picture.height / 1e6;
  MMStream* stream = nullptr;
  {
    MMAttri pages[2];
    unsigned char unused = 0;
    MMAttriFromAny(&pages[0], mmIdData, &unused, 1);
    MMAttriFromU32(&pages[1], mmIdPageSize, 65536);
    stream = MMStreamNew(pages, 2);
    if (stream == nullptr || MMStreamReady(stream) != 1) {
      MMStreamDelete(&stream);
      return "no memory for the output stream";
    }
  }
  std::fprintf(out, "%ux%u, %zu bytes; encode at quality 85, 4:2:0, accurate integer DCT\n", picture.width,
               picture.height, jpeg.size());
  std::fprintf(out, "%-10s %12s %14s\n", "", "decode MP/s", "encode MP/s");
  const double dec = MegapixelsPerSecond(mp, seconds, [&] { return OurDecode(jpeg); });
  const double enc = MegapixelsPerSecond(mp, seconds, [&] { return OurEncode(picture, stream); });
  MMStreamDelete(&stream);
  std::fprintf(out, "%-10s %12.1f %14.1f\n", "keljpeg", dec, enc);
#ifdef KEL_HAVE_TURBOJPEG
  tjhandle decoder = tjInitDecompress(), encoder = tjInitCompress();
  Bytes pixels(picture.pixels.size());
  const int flags = TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE;
  const double tdec = MegapixelsPerSecond(mp, seconds, [&] {
    return tjDecompress2(decoder, jpeg.data(), jpeg.size(), pixels.data(), picture.width, 0, picture.height,
                         TJPF_RGBA, flags) == 0;
  });
  unsigned char* buffer = nullptr;
  unsigned long size = 0;  // the buffer's size, kept between calls as TurboJPEG expects
  const double tenc = MegapixelsPerSecond(mp, seconds, [&] {
    return tjCompress2(encoder, picture.pixels.data(), picture.width, 0, picture.height, TJPF_RGBX, &buffer,
                       &size, TJSAMP_420, 85, TJFLAG_ACCURATEDCT) == 0;
  });
  tjFree(buffer);
  tjDestroy(decoder);
  tjDestroy(encoder);
  std::fprintf(out, "%-10s %12.1f %14.1f\n", "TurboJPEG", tdec, tenc);
#else
  std::fprintf(out, "TurboJPEG: not measured (the tool was built without it)\n");
#endif
  return "";
}

}  // namespace keljpeg
