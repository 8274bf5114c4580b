#include "support/encodeutil.h"

#include "kiu/MMPageArrayStream.h"
#include "kj.e/CJPGE.h"

namespace keltest {

MMStream* NewPageStream() { return MMPageArrayStream::NewReady(4096); }

Bytes StreamBytes(MMStream* stream) {
  unsigned long size = 0;
  if (MMStreamSize(stream, &size) != 1) return {};
  Bytes out(size);
  MMStreamSeek(stream, 0, MMStreamSeekFromStart);
  if (size != 0) out.resize(MMStreamGet(stream, out.data(), static_cast<unsigned>(size)));
  return out;
}

EncodeResult Encode(Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
                    kiu::Format out) {
  EncodeResult result;
  MMStream* stream = NewPageStream();
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = pixels.empty() ? nullptr : pixels.data();
  result.printed = CaptureStdout([&] { result.rc = EncodeJPG(image, quality, stream, in, out); });
  result.jpeg = StreamBytes(stream);
  MMStreamDelete(&stream);
  return result;
}

Bytes ToPacked4(const Bytes& rgb, uint8_t filler) {
  Bytes out(rgb.size() / 3 * 4);
  for (size_t i = 0, j = 0; i + 2 < rgb.size(); i += 3, j += 4) {
    out[j] = rgb[i];
    out[j + 1] = rgb[i + 1];
    out[j + 2] = rgb[i + 2];
    out[j + 3] = filler;
  }
  return out;
}

Bytes ToPaddedI420(const Bytes& rgb, int width, int height) {
  const int pw = (width + 3) / 4 * 4, ph = (height + 1) / 2 * 2;
  const int cs = (pw + 7) / 8 * 8 / 2, ch = ph / 2;
  Bytes out(static_cast<size_t>(pw) * ph + 2 * static_cast<size_t>(cs) * ch, 0);
  auto pixel = [&](int x, int y, int c) {
    x = x < width ? x : width - 1;
    y = y < height ? y : height - 1;
    return rgb[(static_cast<size_t>(y) * width + x) * 3 + c];
  };
  // Integer BT.601 full range, rounded; any fixed rule will do for tests.
  auto luma = [&](int x, int y) {
    int r = pixel(x, y, 0), g = pixel(x, y, 1), b = pixel(x, y, 2);
    return static_cast<uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
  };
  for (int y = 0; y < ph; ++y)
    for (int x = 0; x < pw; ++x) out[static_cast<size_t>(y) * pw + x] = luma(x, y);
  uint8_t* cb = out.data() + static_cast<size_t>(pw) * ph;
  uint8_t* cr = cb + static_cast<size_t>(cs) * ch;
  for (int y = 0; y < ch; ++y) {
    for (int x = 0; x < cs; ++x) {
      int sx = 2 * x < pw ? 2 * x : pw - 2, sy = 2 * y;
      int r = pixel(sx, sy, 0), g = pixel(sx, sy, 1), b = pixel(sx, sy, 2);
      int u = (-11059 * r - 21709 * g + 32768 * b + 8421375) >> 16;
      int v = (32768 * r - 27439 * g - 5329 * b + 8421375) >> 16;
      cb[static_cast<size_t>(y) * cs + x] = static_cast<uint8_t>(u);
      cr[static_cast<size_t>(y) * cs + x] = static_cast<uint8_t>(v);
    }
  }
  return out;
}

}  // namespace keltest
