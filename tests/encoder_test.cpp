// Edge cases of EncodeJPG the peer comparisons do not reach: qualities out of
// range, format codes, byte stuffing across buffer flushes, exact buffer fills, planar padding, the error
// lines and every failure path's memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "kau/kau.h"
#include "kiu/MMPageArrayStream.h"
#include "kj.e/kj.ekernels.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;
using keltest::kEncDir;
using keltest::Line;

// Records every Put; can cut one write short.
class RecordingStream : public MMStream {
 public:
  RecordingStream() : MMStream(nullptr, 0) {}
  unsigned int Put(const void* buffer, unsigned int size) override {
    if (static_cast<int>(sizes.size()) == shortAt || (shortFinal && size != 4096)) return size - 1;
    sizes.push_back(size);
    bytes.insert(bytes.end(), static_cast<const uint8_t*>(buffer),
                 static_cast<const uint8_t*>(buffer) + size);
    return size;
  }
  std::vector<unsigned> sizes;
  Bytes bytes;
  int shortAt = -1;         // index of the Put to cut short
  bool shortFinal = false;  // cut the last, partial Put short
};

Bytes Packed(int width, int height, uint32_t seed) {
  return keltest::ToPacked4(keltest::PhotoLike(width, height, 3, seed), 0);
}

Bytes Encoded(const Bytes& pixels, int w, int h, int quality, int in, int out) {
  return keltest::Encode(pixels, w, h, quality, kiu::Format(in), kiu::Format(out)).jpeg;
}

TEST(Quality, OutOfRangeClampsToOneAndToOneHundred) {
  const Bytes pixels = Packed(8, 8, 1);
  for (auto [quality, clamped] : {std::pair{0, 1}, {-5, 1}, {150, 100}, {101, 100}})
    EXPECT_EQ(Encoded(pixels, 8, 8, quality, 12, 16), Encoded(pixels, 8, 8, clamped, 12, 16)) << quality;
}

// Each range of format codes is treated alike.
TEST(Formats, EveryCodeOfARangeWritesTheSameFile) {
  const Bytes pixels = Packed(23, 17, 3);
  const Bytes ycc = Encoded(pixels, 23, 17, 70, 8, 16), rgb = Encoded(pixels, 23, 17, 70, 8, 8);
  ASSERT_FALSE(ycc.empty() || rgb.empty());
  for (int in = 8; in <= 13; ++in) {
    for (int out : {16, 17, 18, 19, 20, 21, 64})
      EXPECT_EQ(Encoded(pixels, 23, 17, 70, in, out), ycc) << in << "," << out;
    for (int out = 8; out <= 13; ++out)
      EXPECT_EQ(Encoded(pixels, 23, 17, 70, in, out), rgb) << in << "," << out;
  }
}

TEST(Buffer, StuffedZeroOpensTheNextPieceWhenFFEndsAPiece) {
  // Searches pictures over seeds and qualities for a 0xFF at the end of the first write.
  for (uint32_t seed = 1; seed < 400; ++seed) {
    const Bytes pixels = Packed(64, 48, seed);
    for (int quality = 20; quality <= 99; ++quality) {
      RecordingStream s;
      ASSERT_EQ(keltest::EncodeTo(&s, pixels, 64, 48, quality, kiu::FormatRGB, kiu::FormatRGB), 1);
      if (s.sizes.size() < 2 || s.bytes[4095] != 0xFF) continue;
      EXPECT_EQ(s.sizes[0], 4096u);
      EXPECT_EQ(s.bytes[4096], 0x00);
      return;
    }
  }
  FAIL() << "no candidate found";
}

TEST(Buffer, AFileThatFillsTheBufferBeforeEoiEndsWithATwoByteWrite) {
  // Flat grey RGB costs 18 bits per 8x8 MCU; 1671 MCUs make 3760 scan bytes,
  // which with the 336 header bytes fill the first 4096 exactly.
  const uint32_t width = 1671 * 8, height = 8;
  RecordingStream s;
  ASSERT_EQ(keltest::EncodeTo(&s, Bytes(width * height * 4, 128), width, height, 75, kiu::FormatRGB,
                              kiu::FormatRGB),
            1);
  EXPECT_EQ(s.sizes, (std::vector<unsigned>{4096, 2}));
  EXPECT_EQ(Bytes(s.bytes.end() - 3, s.bytes.end()),
            (Bytes{0x2B, 0xFF, 0xD9}));  // last block 001010, padded with 11
}

TEST(Planar, Width5IsReadAsPaddedTo8WhileSofSays5) {
  // 5x3 comes in as 8x4 luma, chroma rows of 4 (8 rounded to 8, halved).
  Bytes planes(8 * 4 + 2 * 4 * 2, 128);
  for (int i = 0; i < 8 * 4; ++i) planes[i] = static_cast<uint8_t>(40 + 7 * i);
  const Bytes jpeg = Encoded(planes, 5, 3, 85, 64, 16);
  const Bytes sof = keltest::Segment(jpeg, 0xC0);
  EXPECT_EQ(sof, (Bytes{8, 0, 3, 0, 5, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
  // The caller's padding column 7 and padding row 3 are coded as given, not replaced by the edge.
  for (size_t at : {7, 3 * 8}) {
    Bytes changed = planes;
    changed[at] ^= 0xFF;
    EXPECT_NE(Encoded(changed, 5, 3, 85, 64, 16), jpeg) << at;
  }
}

TEST(Errors, EachFailurePrintsItsLineAndReturnsZeroWritingNothing) {
  const std::string ctor = Line(kEncDir + "kj.e", 269), kau = "common/kau/kau";
  const std::string esample = kEncDir + "kj.esample", kje = kEncDir + "kj.e";
  const struct {
    const char* what;
    uint32_t width, height;
    int in, out;
    std::string printed;
  } cases[] = {
      {"null stream", 4, 4, 12, 16, Line(kje, 274)},
      {"width 65501", 65501, 1, 12, 16, Line(kje, 238) + ctor},
      {"height 65501", 1, 65501, 12, 12, Line(kje, 238) + ctor},
      {"planar width overflows the round-up", 4294967293u, 2, 64, 16, Line(kau, 210) + ctor},
      {"planar height overflows the round-up", 4, 4294967295u, 64, 64, Line(kau, 210) + ctor},
      {"planar input, RGB output", 4, 4, 64, 12, Line(esample, 325) + ctor},
      {"YUV input", 4, 4, 16, 16, Line(esample, 369) + ctor},
      {"CMYK input", 4, 4, 128, 64, Line(esample, 369) + ctor},
      {"RGB input, RGB output from below the range", 4, 4, 7, 12, Line(esample, 325) + ctor},
      {"output 14", 4, 4, 12, 14, Line(esample, 372) + ctor},
      {"output 128", 4, 4, 12, 128, Line(esample, 372) + ctor},
      {"zero width", 0, 2, 12, 16, ""},
      {"zero height", 2, 0, 12, 16, ""},
      {"no data", 2, 2, 12, 16, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MMStream* stream = std::string(c.what) == "null stream" ? nullptr : MMPageArrayStream::NewReady(4096);
    std::string printed;
    const Bytes pixels = std::string(c.what) == "no data" ? Bytes() : Packed(4, 4, 1);
    EXPECT_EQ(keltest::EncodeTo(stream, pixels, c.width, c.height, 85, kiu::Format(c.in), kiu::Format(c.out),
                                &printed),
              0);
    EXPECT_EQ(printed, c.printed);
    EXPECT_TRUE(keltest::StreamBytes(stream).empty());
    MMStreamDelete(&stream);
  }
}

TEST(Errors, LargestSideIsAccepted) {
  EXPECT_EQ(keltest::Encode(Packed(65500, 1, 1), 65500, 1, 50, kiu::FormatRGB, kiu::FormatYUV).rc, 1);
  EXPECT_EQ(
      keltest::Encode(Bytes(4 * 65500 + 2 * 4 * 32750, 90), 1, 65500, 50, kiu::FormatI420, kiu::FormatI420)
          .rc,
      1);
}

TEST(Errors, ShortWritesFailAtTheirLinesAndKeepWhatWasWritten) {
  const Bytes pixels = Packed(200, 150, 5);
  for (bool final : {false, true}) {
    RecordingStream s;
    s.shortAt = final ? -1 : 1;
    s.shortFinal = final;
    std::string printed;
    EXPECT_EQ(keltest::EncodeTo(&s, pixels, 200, 150, 90, kiu::FormatRGB, kiu::FormatYUV, &printed), 0);
    EXPECT_EQ(printed, final ? Line(kEncDir + "kj.emarkers", 401) : Line(kEncDir + "kj.e", 104));
    EXPECT_EQ(s.sizes, std::vector<unsigned>(final ? s.sizes.size() : 1, 4096));
    EXPECT_FALSE(s.sizes.empty());
  }
}

// Allocation hooks that count live blocks and can fail the n-th request.
struct CountingHooks {
  static inline long live = 0, calls = 0, failAt = -1;
  static void* Allocate(unsigned long size) {
    if (calls++ == failAt) return nullptr;
    ++live;
    return MMAllocate(size);
  }
  static void Release(void* p) {
    if (p != nullptr) --live;
    MMFree(p);
  }
};

TEST(Errors, EveryFailedAllocationReturnsZeroAndReleasesAllBlocks) {
  const Bytes pixels = Packed(40, 24, 9), planes(40 * 24 * 3 / 2, 100);
  for (auto [data, in, out] : {std::tuple{&pixels, 12, 16}, {&pixels, 12, 12}, {&planes, 64, 64}}) {
    kau::mem::SetExternalNewAndDelete(CountingHooks::Allocate, CountingHooks::Release);
    CountingHooks::live = CountingHooks::calls = 0;
    CountingHooks::failAt = -1;
    RecordingStream ok;
    ASSERT_EQ(keltest::EncodeTo(&ok, *data, 40, 24, 80, kiu::Format(in), kiu::Format(out)), 1);
    const long total = CountingHooks::calls;
    EXPECT_EQ(CountingHooks::live, 0);
    for (long n = 0; n < total; ++n) {
      CountingHooks::calls = 0;
      CountingHooks::failAt = n;
      RecordingStream s;
      std::string printed;
      EXPECT_EQ(keltest::EncodeTo(&s, *data, 40, 24, 80, kiu::Format(in), kiu::Format(out), &printed), 0);
      EXPECT_EQ(CountingHooks::live, 0) << "allocation " << n;
      EXPECT_EQ(printed, Line("common/kau/kau", 402) + Line(kEncDir + "kj.e", 269)) << "allocation " << n;
      EXPECT_TRUE(s.sizes.empty());
    }
    kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
  }
}

TEST(Kernels, AcMasksMatchTheScalarTwin) {
  const kje::Kernels* kernels[4];
  const int n = kje::Kernels_Runnable(kernels, 4);
  ASSERT_STREQ(kernels[0]->name, "scalar");
  // Values that narrowing could turn into zero (or small) if it wrapped
  // instead of saturating, and the edges of the fast coder's range.
  const int32_t kTricky[] = {1,    -1,    256,  -256,  65536,     -65536,   0x10000 * 3,
                             1023, -1023, 1024, -1024, INT32_MIN, INT32_MAX};
  constexpr int kCount = sizeof kTricky / sizeof kTricky[0];
  std::mt19937 rng(5);
  for (int trial = 0; trial < 5000; ++trial) {
    int32_t block[64] = {};
    for (int k = 0; k < 64; ++k)
      if (rng() % (1 + trial % 9) == 0) block[k] = kTricky[rng() % kCount];
    uint64_t expected = 0;
    for (int k = 1; k < 64; ++k) {
      const int32_t v = block[kje::kNaturalOrder[k]];
      expected |= uint64_t{v != 0} << k | (v < -1023 || v > 1023);
    }
    for (int i = 0; i < n; ++i) ASSERT_EQ(expected, kernels[i]->huffAcMask(block)) << kernels[i]->name;
  }
}

}  // namespace
