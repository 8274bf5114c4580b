// Copies a file through the stream framework: a file stream in, a page-array
// stream in between, a file stream out. A small check that the streams work.
#include <cstdio>
#include <vector>

#include "kiu/mmstream.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: mmcat INPUT OUTPUT\n");
    return 2;
  }
  MMAttri in[1], pages[2], out[2];
  unsigned char unused = 0;
  MMAttriFromString(&in[0], mmIdFileName, argv[1]);
  MMAttriFromAny(&pages[0], mmIdData, &unused, 1);
  MMAttriFromU32(&pages[1], mmIdPageSize, 4096);
  MMAttriFromString(&out[0], mmIdFileName, argv[2]);
  MMAttriFromString(&out[1], mmIdFileMode, "wb");
  MMStream* src = MMStreamNew(in, 1);
  MMStream* mid = MMStreamNew(pages, 2);
  MMStream* dst = MMStreamNew(out, 2);
  int rc = 1;
  if (MMStreamReady(src) && MMStreamReady(mid) && MMStreamReady(dst)) {
    std::vector<unsigned char> chunk(1000);
    unsigned int n;
    while ((n = MMStreamGet(src, chunk.data(), static_cast<unsigned>(chunk.size()))) != 0) {
      MMStreamPut(mid, chunk.data(), n);
    }
    unsigned long size = 0;
    MMStreamSize(mid, &size);
    MMStreamSeek(mid, 0, MMStreamSeekFromStart);
    unsigned long copied = 0;
    while ((n = MMStreamGet(mid, chunk.data(), static_cast<unsigned>(chunk.size()))) != 0) {
      copied += MMStreamPut(dst, chunk.data(), n);
    }
    std::printf("mmcat: %lu bytes in %lu pages of 4096 bytes, %lu written to %s\n", size,
                (size + 4095) / 4096, copied, argv[2]);
    rc = copied == size ? 0 : 1;
  } else {
    std::fprintf(stderr, "mmcat: cannot open the streams\n");
  }
  MMStreamDelete(&src);
  MMStreamDelete(&mid);
  MMStreamDelete(&dst);
  return rc;
}
