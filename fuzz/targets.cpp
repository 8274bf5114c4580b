#include "targets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <vector>

#include "kau/kau.h"
#include "kiu/MMPageArrayStream.h"
#include "kiu/kiu.h"
#include "kiu/kiustartup.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.d/kj.dfeed.h"
#include "kj.e/CJPGE.h"

namespace kelfuzz {
namespace {

// Tight limits: memory and work follow the data, not what a header claims.
constexpr kjd::DecodeLimits kLimits{1u << 20, 32u << 20, 8, 100};

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "contract broken: %s\n", what);
  std::fflush(nullptr);
  std::abort();
}

// Parameters come off the front of the input; what is left is the payload.
struct Bytes {
  const uint8_t* p;
  size_t n;
  uint8_t U8() {
    if (n == 0) return 0;
    --n;
    return *p++;
  }
  uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
  uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
};

// A byte stream over `data`; the decoder only reads it.
MMStream* ByteStream(const uint8_t* data, size_t size) {
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, const_cast<uint8_t*>(data), static_cast<int>(size));
  MMStream* s = MMStreamNew(&rec, 1);
  Require(s != nullptr, "a byte stream over memory is made");
  MMStreamReady(s);
  return s;
}

// Reads every byte of a result, so that a buffer shorter than its record
// says shows under AddressSanitizer; returns it to the caller's heap.
// I420 drops an odd last column and row, so a picture one pixel wide or high
// comes back with no pixels at all.
void Consume(STImageSimple& image, uint64_t bytes) {
  Require(image.data != nullptr || bytes == 0, "a decoded picture has its bytes");
  unsigned sum = 0;
  for (uint64_t i = 0; i < bytes; ++i) sum += image.data[i];
  volatile unsigned sink = sum;
  (void)sink;
  if (image.data != nullptr) kau::mem::Delete(image.data);
}

// A requested side: negative bytes ask for 0..8 pixels per 8, the others for up to 508 pixels.
int RequestedSide(uint8_t b) {
  const int v = static_cast<int8_t>(b);
  return v < 0 ? v % 9 : v * 4;
}

// Runs `decode` on the payload from memory (null stream) or, with flag 2,
// through a byte stream; true when it decoded.
template <typename Fn>
bool Decoded(uint8_t flags, const Bytes& in, const STImageSimple& image, Fn decode) {
  MMStream* s = (flags & 2) != 0 ? ByteStream(in.p, in.n) : nullptr;
  const int rc = decode(s);
  MMStreamDelete(&s);
  Require(rc != 0 || image.data == nullptr, "a failed decode leaves the record alone");
  return rc != 0;
}

MMStream* PageStream(uint32_t pageSize) { return MMPageArrayStream::NewReady(pageSize); }

std::vector<uint8_t> StreamBytes(MMStream* s) {
  unsigned long size = 0;
  MMStreamSize(s, &size);
  std::vector<uint8_t> out(size);
  MMStreamSeek(s, 0, MMStreamSeekFromStart);
  if (size != 0) out.resize(MMStreamGet(s, out.data(), static_cast<unsigned>(size)));
  return out;
}

}  // namespace

int Decode(const uint8_t* data, size_t size) {
  kiu::StartUp();
  Bytes in{data, size};
  const uint8_t flags = in.U8();
  const unsigned long alpha = (flags & 1) != 0 ? 256u + in.U8() : in.U8();
  const int width = RequestedSide(in.U8()), height = RequestedSide(in.U8());
  if (in.n == 0) return 0;
  STImageSimple image{};
  if (!Decoded(flags, in, image, [&](MMStream* s) {
        return s != nullptr ? DecodeJPG(s, alpha, &image, width, height, kLimits)
                            : DecodeJPG(in.p, in.n, alpha, &image, width, height, kLimits);
      }))
    return 0;
  Require(alpha <= 255 && !(width < 0 && height < 0), "refused arguments are refused");
  Require(image.width > 0 && image.height > 0, "a decoded picture has pixels");
  Require(image.stride == image.width * 4 && image.bitsPerPixel == 32, "4-byte pixels");
  if (width > 0 && height > 0)
    Require(image.width <= uint32_t(width) && image.height <= uint32_t(height), "the picture fits the box");
  Consume(image, uint64_t(image.stride) * image.height);
  return 0;
}

int DecodeYuv(const uint8_t* data, size_t size) {
  kiu::StartUp();
  Bytes in{data, size};
  const uint8_t flags = in.U8();
  if (in.n == 0) return 0;
  const bool planar = (flags & 1) != 0;
  STImageSimple image{};
  if (!Decoded(flags, in, image, [&](MMStream* s) {
        return s != nullptr ? jpdyuv::DecodeJPG(s, &image, planar, kLimits)
                            : jpdyuv::DecodeJPG(in.p, in.n, &image, planar, kLimits);
      }))
    return 0;
  if (planar) {
    Require(image.width % 2 == 0 && image.height % 2 == 0, "I420 sides are even");
    Require(image.size == image.width * image.height * 3 / 2, "I420 size");
    Consume(image, image.size);
  } else {
    Require(image.stride == image.width * 3 && image.bitsPerPixel == 24, "3-byte pixels");
    Consume(image, uint64_t(image.stride) * image.height);
  }
  return 0;
}

// As the decoder element does it: pieces are pushed until one completes an
// image; while an image is held, further pieces are appended unscanned; each
// held image is decoded, then the bytes after its EOI start the next one.
int Feed(const uint8_t* data, size_t size) {
  kiu::StartUp();
  Bytes in{data, size};
  uint32_t state = in.U32() | 1;
  const bool planar = (state & 2) != 0;
  kjd::Input input;
  Require(input.Construct() != nullptr, "the feeding stream is made");
  bool held = false;
  auto decodeHeld = [&] {
    MMStream* s = input.Stream();
    Require(MMStreamReady(s) == 1, "the feeding stream can be read");
    {
      // The complete image ends with its EOI.
      const std::vector<uint8_t> all = StreamBytes(s);
      const uint32_t end = input.EndOfImage();
      Require(end >= 2 && end <= all.size() && all[end - 2] == 0xFF && all[end - 1] == 0xD9,
              "an image ends at its EOI");
      MMStreamReady(s);
    }
    STImageSimple image{};
    if (jpdyuv::DecodeJPG(s, &image, planar, kLimits) == 1) {
      Consume(image, planar ? image.size : uint64_t(image.width) * image.height * 3);
    }
    MMStreamSeek(s, 0, MMStreamSeekFromEnd);
    held = input.ResetStreamWithDataAfterEOI() == 0;
  };
  while (in.n > 0) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    // Mostly small pieces, now and then a large one.
    size_t piece = (state & 0x300) == 0 ? state % 4096 : state % 32 + 1;
    if (piece > in.n) piece = in.n;
    try {
      if (held) {
        input.Append(in.p, piece);
      } else {
        held = input.Push(in.p, piece) == 0;
      }
    } catch (const kau::Error&) {
      Require(piece == 0, "Push and Append refuse only an empty piece");
    }
    in.p += piece;
    in.n -= piece;
    if (held) decodeHeld();
  }
  size_t drained = 0;
  while (held) {
    Require(++drained <= size / 2, "each held image consumes its EOI");
    decodeHeld();
  }
  input.Destruct();
  return 0;
}

int Encode(const uint8_t* data, size_t size) {
  kiu::StartUp();
  Bytes in{data, size};
  const uint8_t flags = in.U8();
  uint32_t width, height;
  if ((flags & 7) == 7) {
    // Wide, narrow or beyond the limit; rarely, as each costs a large encode and decode.
    width = in.U16();
    height = in.U16() % 2 + 1;
    if ((flags & 8) != 0) std::swap(width, height);
  } else {
    width = in.U8() % 48;
    height = in.U8() % 48;
  }
  const int quality = static_cast<int8_t>(in.U8());
  static const uint32_t kIn[] = {8, 9, 10, 11, 12, 13, 64, 16, 128, 0};
  static const uint32_t kOut[] = {8, 9, 10, 11, 12, 13, 16, 17, 18, 19, 20, 21, 64, 128, 256, 0};
  const uint8_t pickIn = in.U8(), pickOut = in.U8();
  const uint32_t inFormat = pickIn == 255 ? in.U32() : kIn[pickIn % 10];
  const uint32_t outFormat = pickOut == 255 ? in.U32() : kOut[pickOut % 16];
  const bool planarIn = inFormat == 64;
  // Planar: luma rows of the width padded to 4, chroma rows of that padded to 8 and halved.
  const uint64_t paddedW = (uint64_t(width) + 3) & ~3ull, paddedH = (uint64_t(height) + 1) & ~1ull;
  const uint64_t bytes =
      planarIn ? paddedW * paddedH + ((paddedW + 7) & ~7ull) / 2 * paddedH : uint64_t(width) * height * 4;
  std::vector<uint8_t> pixels(bytes + 1);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = in.n == 0 ? uint8_t(i * 7) : in.p[i % in.n];
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = pixels.data();
  MMStream* out = PageStream(4096);
  const int rc = EncodeJPG(image, quality, out, kiu::Format(inFormat), kiu::Format(outFormat));
  const bool packedIn = inFormat >= 8 && inFormat <= 13;
  const bool rgbOut = outFormat >= 8 && outFormat <= 13;
  const bool yuvOut = (outFormat >= 16 && outFormat <= 21) || outFormat == 64;
  const bool valid = width >= 1 && width <= 65500 && height >= 1 && height <= 65500 &&
                     ((packedIn && (rgbOut || yuvOut)) || (planarIn && yuvOut));
  Require(rc == (valid ? 1 : 0), "EncodeJPG succeeds exactly for valid arguments");
  if (rc == 1) {
    const std::vector<uint8_t> jpeg = StreamBytes(out);
    STImageSimple back{};
    Require(DecodeJPG(jpeg.data(), jpeg.size(), 255, &back, 0, 0) == 1, "our own file decodes");
    Require(back.width == width && back.height == height, "our own file keeps its size");
    Consume(back, uint64_t(back.stride) * back.height);
  }
  MMStreamDelete(&out);
  return 0;
}

// Operations on up to two streams, null among them; buffers handed to a
// stream live until the end, owned ones pass to the stream.
int Streams(const uint8_t* data, size_t size) {
  kiu::StartUp();
  Bytes in{data, size};
  static const char* const* kIds[] = {&mmIdData, &mmIdPageSize, &mmIdWidth, &mmIdHeight, &mmIdFileMode};
  MMStream* streams[2] = {};
  std::vector<std::vector<uint8_t>> keep;
  // Taking ownership twice, or of a buffer the stream never owned, is the
  // caller's mistake: only our own allocations are freed, once.
  std::set<void*> allocated, taken;
  std::vector<uint8_t> scratch(70000);
  size_t putBudget = 4096;
  // A ready stream may read its data buffer at any time, so only a new
  // stream gets one.
  auto record = [&](MMAttri* r, bool data) {
    *r = MMAttri{};  // a builder refusing its arguments leaves the record as it was
    const char* id = data ? *kIds[in.U8() % 5] : *kIds[1 + in.U8() % 4];
    const uint8_t kind = in.U8() % 5;
    if (kind == 0) {
      // A page size is the caller's to choose: kept below what a page may cost here.
      MMAttriFromU32(r, id, in.U8() % 2 == 0 ? in.U32() % 70000 : in.U8());
    } else if (kind == 1) {
      MMAttriFromI32(r, id, static_cast<int32_t>(in.U32()));
    } else if (kind == 2) {
      const int n = in.U8();
      void* p = MMAllocate(n + 1);
      Require(p != nullptr, "MMAllocate gives small blocks");
      allocated.insert(p);
      MMAttriFromAny(r, id, p, -(n + 1));
    } else if (kind == 3) {
      keep.emplace_back(in.U8() + 1u, 0);
      MMAttriFromAny(r, id, keep.back().data(), static_cast<int>(keep.back().size()));
    } else {
      MMAttriFromTag(r, id, MMAttriTag(in.U8() % 8));
    }
  };
  for (int ops = 0; in.n > 0 && ops < 256; ++ops) {
    const uint8_t op = in.U8();
    MMStream*& s = streams[op >> 7];
    switch (op & 15) {
      case 0:
      case 1: {
        MMAttri recs[3];
        const unsigned count = in.U8() % 4;
        for (unsigned i = 0; i < count; ++i) record(&recs[i], true);
        MMStreamDelete(&s);
        s = MMStreamNew(recs, count);
        // Records the registry did not take keep their owned buffers.
        if (s == nullptr)
          for (unsigned i = 0; i < count; ++i)
            if (recs[i].tag == MMAttriTagAny && recs[i].length < 0) MMFree(recs[i].value.pointer);
        break;
      }
      case 2:
        MMStreamDelete(&s);
        s = PageStream(in.U8() % 2 == 0 ? 1u + in.U8() : in.U32() % 70000);
        break;
      case 3: {
        // The page table grows by a fixed step, so one-byte pages cost the
        // square of the bytes put: the bytes of a run are bounded.
        const unsigned n = std::min<size_t>({in.U16() % scratch.size(), in.n, putBudget});
        putBudget -= n;
        // A page stream answers the distance its position moved, not the count.
        MMStreamPut(s, in.p, n);
        break;
      }
      case 4: {
        const unsigned n = in.U16() % scratch.size();
        Require(MMStreamGet(s, scratch.data(), n) <= n, "Get moves at most what is asked");
        break;
      }
      case 5:
        MMStreamSeek(s, static_cast<int32_t>(in.U32()), MMStreamSeekFrom(in.U8() % 4));
        break;
      case 6: {
        unsigned long position = 0, total = 0;
        MMStreamTell(s, &position);
        MMStreamSize(s, &total);
        break;
      }
      case 7: {
        MMAttri r;
        record(&r, false);
        if (MMStreamPutAttri(s, &r, 1) != 1 && r.tag == MMAttriTagAny && r.length < 0)
          MMFree(r.value.pointer);
        break;
      }
      case 8: {
        MMAttri r;
        MMAttriFromTag(&r, *kIds[in.U8() % 5], MMAttriTag(in.U8() % 8));
        r.length = in.U8() % 2 == 0 ? 0 : -1;  // -1 asks for ownership
        // A taken buffer may still be the one the stream reads: freed at the end.
        if (MMStreamGetAttri(s, &r, 1) == 1 && r.tag == MMAttriTagAny && r.length < 0)
          taken.insert(r.value.pointer);
        break;
      }
      case 9:
        MMStreamReady(s);
        break;
      case 10:
        MMStreamPlay(s);
        break;
      case 11:
        MMStreamNull(s);
        break;
      case 12:
        MMStreamContent(s);
        break;
      default:
        MMStreamDelete(&s);
        break;
    }
  }
  MMStreamDelete(&streams[0]);
  MMStreamDelete(&streams[1]);
  for (void* p : taken)
    if (allocated.count(p) != 0) MMFree(p);
  return 0;
}

const Target kTargets[5] = {
    {"decode", Decode}, {"decode_yuv", DecodeYuv}, {"feed", Feed}, {"encode", Encode}, {"streams", Streams},
};

}  // namespace kelfuzz
