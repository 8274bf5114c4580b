// Decodes a JPEG file through the decoder's entry points: to a PPM at full
// size or at a requested size (-s WxH), or to raw I420 planes (--i420).
#include <cstdio>
#include <cstring>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"

namespace {

int Usage() {
  std::fprintf(stderr, "usage: kjdec [-s WxH | --i420] INPUT.jpg OUTPUT\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int width = 0, height = 0;
  bool i420 = false;
  int arg = 1;
  for (; arg < argc && argv[arg][0] == '-'; ++arg) {
    if (std::strcmp(argv[arg], "--i420") == 0) {
      i420 = true;
    } else if (std::strcmp(argv[arg], "-s") == 0 && arg + 1 < argc &&
               std::sscanf(argv[arg + 1], "%dx%d", &width, &height) == 2) {
      ++arg;
    } else {
      return Usage();
    }
  }
  if (argc - arg != 2 || (i420 && (width != 0 || height != 0))) return Usage();

  MMAttri name;
  MMAttriFromString(&name, mmIdFileName, argv[arg]);
  MMStream* in = MMStreamNew(&name, 1);
  if (in == nullptr || MMStreamReady(in) != 1) {
    std::fprintf(stderr, "kjdec: cannot open %s\n", argv[arg]);
    MMStreamDelete(&in);
    return 1;
  }
  STImageSimple image{};
  const int ok = i420 ? jpdyuv::DecodeJPG(in, &image, true) : DecodeJPG(in, 255, &image, width, height);
  MMStreamDelete(&in);
  if (ok != 1) {
    std::fprintf(stderr, "kjdec: cannot decode %s\n", argv[arg]);
    return 1;
  }
  std::FILE* out = std::fopen(argv[arg + 1], "wb");
  bool written = out != nullptr;
  if (written && i420) {
    written = std::fwrite(image.data, 1, image.size, out) == image.size;
  } else if (written) {
    std::fprintf(out, "P6\n%u %u\n255\n", image.width, image.height);
    for (uint32_t y = 0; y < image.height && written; ++y) {
      const unsigned char* row = image.data + static_cast<size_t>(y) * image.stride;
      for (uint32_t x = 0; x < image.width && written; ++x)
        written = std::fwrite(row + 4 * x, 1, 3, out) == 3;
    }
  }
  if (out != nullptr && std::fclose(out) != 0) written = false;
  kau::mem::Delete(image.data);
  if (!written) {
    std::fprintf(stderr, "kjdec: cannot write %s\n", argv[arg + 1]);
    return 1;
  }
  std::printf("%s: %ux%u\n", argv[arg + 1], image.width, image.height);
  return 0;
}
