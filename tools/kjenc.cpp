// Encodes a PPM picture or a raw I420 frame to JPEG with the codec's encoder.
//   kjenc [-q N] [--rgb] in.ppm out.jpg
//   kjenc [-q N] --i420 WxH in.yuv out.jpg
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kiu/MMPageArrayStream.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.e/CJPGE.h"

namespace {

using Bytes = std::vector<unsigned char>;

int Usage() {
  std::fprintf(stderr,
               "usage: kjenc [-q N] [--rgb] in.ppm out.jpg\n"
               "       kjenc [-q N] --i420 WxH in.yuv out.jpg\n");
  return 2;
}

bool ReadAll(const char* path, Bytes* out) {
  FILE* f = std::fopen(path, "rb");
  if (f == nullptr) return false;
  unsigned char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) != 0) out->insert(out->end(), chunk, chunk + n);
  std::fclose(f);
  return true;
}

// Next header number of a PNM file, skipping white space and comments.
bool PnmNumber(const Bytes& file, size_t* pos, unsigned* value) {
  while (*pos < file.size()) {
    unsigned char c = file[*pos];
    if (c == '#') {
      while (*pos < file.size() && file[*pos] != '\n') ++*pos;
    } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      ++*pos;
    } else {
      break;
    }
  }
  if (*pos >= file.size() || file[*pos] < '0' || file[*pos] > '9') return false;
  unsigned long v = 0;
  while (*pos < file.size() && file[*pos] >= '0' && file[*pos] <= '9' && v < 1000000)
    v = v * 10 + (file[(*pos)++] - '0');
  *value = static_cast<unsigned>(v);
  return true;
}

// Binary 8-bit PPM to 4-byte pixels (R, G, B, 0).
bool PpmToPacked(const Bytes& file, uint32_t* width, uint32_t* height, Bytes* pixels) {
  size_t pos = 2;
  unsigned w = 0, h = 0, maxval = 0;
  if (file.size() < 2 || file[0] != 'P' || file[1] != '6') return false;
  if (!PnmNumber(file, &pos, &w) || !PnmNumber(file, &pos, &h) || !PnmNumber(file, &pos, &maxval))
    return false;
  ++pos;  // the single white-space byte before the samples
  const size_t count = static_cast<size_t>(w) * h;
  if (maxval != 255 || w == 0 || h == 0 || file.size() < pos + count * 3) return false;
  pixels->assign(count * 4, 0);
  for (size_t i = 0; i < count; ++i) std::memcpy(&(*pixels)[i * 4], &file[pos + i * 3], 3);
  *width = w;
  *height = h;
  return true;
}

// A plain I420 frame to the encoder's layout: luma stride = width rounded up
// to 4, chroma stride = that rounded up to 8 and halved, height rounded up to
// 2; the padding repeats the edge samples.
bool I420ToPadded(const Bytes& file, uint32_t width, uint32_t height, Bytes* planes) {
  const size_t cw = (width + 1) / 2, ch = (height + 1) / 2;
  if (file.size() < static_cast<size_t>(width) * height + 2 * cw * ch) return false;
  const size_t pw = (width + 3) / 4 * 4, ph = (height + 1) / 2 * 2, cs = (pw + 7) / 8 * 8 / 2;
  planes->assign(pw * ph + 2 * cs * (ph / 2), 0);
  auto copy = [](const unsigned char* src, size_t w, size_t h, unsigned char* dst, size_t stride,
                 size_t rows) {
    for (size_t y = 0; y < rows; ++y) {
      const unsigned char* in = src + (y < h ? y : h - 1) * w;
      for (size_t x = 0; x < stride; ++x) dst[y * stride + x] = in[x < w ? x : w - 1];
    }
  };
  const unsigned char* y = file.data();
  const unsigned char* u = y + static_cast<size_t>(width) * height;
  const unsigned char* v = u + cw * ch;
  unsigned char* out = planes->data();
  copy(y, width, height, out, pw, ph);
  copy(u, cw, ch, out + pw * ph, cs, ph / 2);
  copy(v, cw, ch, out + pw * ph + cs * (ph / 2), cs, ph / 2);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int quality = 85;
  bool rgb = false, i420 = false;
  unsigned width = 0, height = 0;
  int arg = 1;
  for (; arg < argc && argv[arg][0] == '-'; ++arg) {
    if (std::strcmp(argv[arg], "-q") == 0 && arg + 1 < argc) {
      quality = std::atoi(argv[++arg]);
    } else if (std::strcmp(argv[arg], "--rgb") == 0) {
      rgb = true;
    } else if (std::strcmp(argv[arg], "--i420") == 0 && arg + 1 < argc) {
      i420 = true;
      if (std::sscanf(argv[++arg], "%ux%u", &width, &height) != 2 || width == 0 || height == 0)
        return Usage();
    } else {
      return Usage();
    }
  }
  if (argc - arg != 2 || (rgb && i420)) return Usage();
  const char* inPath = argv[arg];
  const char* outPath = argv[arg + 1];

  Bytes file, pixels;
  if (!ReadAll(inPath, &file)) {
    std::fprintf(stderr, "kjenc: cannot read %s\n", inPath);
    return 1;
  }
  if (i420 ? !I420ToPadded(file, width, height, &pixels) : !PpmToPacked(file, &width, &height, &pixels)) {
    std::fprintf(stderr, "kjenc: %s is not a %s\n", inPath,
                 i420 ? "whole I420 frame of that size" : "binary 8-bit PPM");
    return 1;
  }

  MMStream* stream = MMPageArrayStream::NewReady(4096);
  if (stream == nullptr) {
    std::fprintf(stderr, "kjenc: no page-array stream\n");
    MMStreamDelete(&stream);
    return 1;
  }
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = pixels.data();
  const kiu::Format in = i420 ? kiu::FormatI420 : kiu::FormatRGB;
  const kiu::Format out = rgb ? kiu::FormatRGB : kiu::FormatYUV;
  int rc = 1;
  if (EncodeJPG(image, quality, stream, in, out) == 1) {
    unsigned long size = 0;
    MMStreamSize(stream, &size);
    Bytes jpeg(size);
    MMStreamSeek(stream, 0, MMStreamSeekFromStart);
    jpeg.resize(MMStreamGet(stream, jpeg.data(), static_cast<unsigned>(size)));
    FILE* f = std::fopen(outPath, "wb");
    if (f != nullptr && std::fwrite(jpeg.data(), 1, jpeg.size(), f) == jpeg.size()) rc = 0;
    if (f != nullptr && std::fclose(f) != 0) rc = 1;
    if (rc != 0) std::fprintf(stderr, "kjenc: cannot write %s\n", outPath);
  } else {
    std::fprintf(stderr, "kjenc: encoding failed\n");
  }
  MMStreamDelete(&stream);
  return rc;
}
