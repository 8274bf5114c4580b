// Edge cases of EncodeJPG that can really break: table clamping, byte
// stuffing across buffer flushes, final padding, exact buffer fills, the
// error lines and every failure path's memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kau/kau.h"
#include "kj.e/CJPGE.h"
#include "support/encodeutil.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

const std::string kEnc = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/";

std::string Line(const std::string& file, int line) {
  return "\n?!exception@ " + file + " +" + std::to_string(line) + " !?\n\n\n";
}

struct Writes {
  std::vector<unsigned> sizes;
  Bytes bytes;
};

// Records every Put; can cut one write short.
class RecordingStream : public MMStream, public Writes {
 public:
  RecordingStream() : MMStream(nullptr, 0) {}
  unsigned int Put(const void* buffer, unsigned int size) override {
    if (static_cast<int>(sizes.size()) == shortAt || (shortFinal && size != 4096)) return size - 1;
    sizes.push_back(size);
    const auto* p = static_cast<const uint8_t*>(buffer);
    bytes.insert(bytes.end(), p, p + size);
    return size;
  }
  int shortAt = -1;         // index of the Put to cut short
  bool shortFinal = false;  // cut the last, partial Put short
};

int EncodeTo(MMStream* stream, Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
             kiu::Format out, std::string* printed = nullptr) {
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = pixels.empty() ? nullptr : pixels.data();
  int rc = 0;
  std::string text = keltest::CaptureStdout([&] { rc = EncodeJPG(image, quality, stream, in, out); });
  if (printed != nullptr) *printed = text;
  return rc;
}

Bytes Packed(int width, int height, uint32_t seed) {
  return keltest::ToPacked4(keltest::PhotoLike(width, height, 3, seed), 0);
}

// The payload of the index-th segment with the given marker.
Bytes Segment(const Bytes& jpeg, int marker, int index = 0) {
  for (size_t i = 2; i + 4 <= jpeg.size() && jpeg[i] == 0xFF;) {
    size_t length = static_cast<size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3];
    if (jpeg[i + 1] == marker && index-- == 0)
      return Bytes(jpeg.begin() + i + 4, jpeg.begin() + i + 2 + length);
    if (jpeg[i + 1] == 0xDA) break;
    i += 2 + length;
  }
  return {};
}

// Entropy-coded bytes between the SOS header and EOI.
Bytes ScanData(const Bytes& jpeg) {
  for (size_t i = 2; i + 4 <= jpeg.size() && jpeg[i] == 0xFF;) {
    size_t length = static_cast<size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3];
    if (jpeg[i + 1] == 0xDA) return Bytes(jpeg.begin() + i + 2 + length, jpeg.end() - 2);
    i += 2 + length;
  }
  return {};
}

// ---------------------------------------------------------------------------

TEST(Quality, ClampsToBaselineTablesAtBothEnds) {
  const unsigned kK1First[4] = {16, 11, 12, 14};  // zigzag order
  const unsigned kK2First[4] = {17, 18, 18, 24};
  struct Case {
    int quality;
    int expectFlat;         // every entry equal to this, or 0
    unsigned lumaFirst[4];  // else the first zigzag entries
    unsigned chromaLast;
  } cases[] = {
      {0, 255, {}, 255},         {-5, 255, {}, 255},
      {1, 255, {}, 255},         {100, 1, {}, 1},
      {150, 1, {}, 1},           {50, 0, {kK1First[0], kK1First[1], kK1First[2], kK1First[3]}, 99},
      {75, 0, {8, 6, 6, 7}, 50},  // scale 50: 16 -> 8, 99 -> 50
  };
  for (const Case& c : cases) {
    const keltest::EncodeResult r =
        keltest::Encode(Packed(8, 8, 1), 8, 8, c.quality, kiu::FormatRGBA, kiu::FormatYUV);
    ASSERT_EQ(r.rc, 1) << c.quality;
    const Bytes luma = Segment(r.jpeg, 0xDB, 0), chroma = Segment(r.jpeg, 0xDB, 1);
    ASSERT_EQ(luma.size(), 65u);
    ASSERT_EQ(chroma.size(), 65u);
    EXPECT_EQ(luma[0], 0x00);
    EXPECT_EQ(chroma[0], 0x01);
    for (int k = 0; k < 64; ++k) {
      if (c.expectFlat != 0) {
        EXPECT_EQ(luma[1 + k], c.expectFlat) << c.quality << " entry " << k;
        EXPECT_EQ(chroma[1 + k], c.expectFlat) << c.quality << " entry " << k;
      }
    }
    if (c.expectFlat == 0) {
      for (int k = 0; k < 4; ++k) EXPECT_EQ(luma[1 + k], c.lumaFirst[k]) << c.quality;
      if (c.quality == 50) {
        for (int k = 0; k < 4; ++k) EXPECT_EQ(chroma[1 + k], kK2First[k]);
      }
    }
    EXPECT_EQ(chroma[64], c.chromaLast) << c.quality;
    EXPECT_EQ(Segment(r.jpeg, 0xC0).size(), 15u) << "always baseline SOF0";
  }
}

TEST(Headers, JfifForYCbCrAndAdobeWithRgbIdentifiersForRgb) {
  const keltest::EncodeResult ycc =
      keltest::Encode(Packed(9, 9, 2), 9, 9, 85, kiu::FormatRGB, kiu::FormatYUV);
  const uint8_t kJfifStart[] = {0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F',  'I',  'F', 0,    1, 1,
                                0,    0,    1,    0,    1, 0,  0,   0xFF, 0xDB, 0,   0x43, 0};
  ASSERT_GT(ycc.jpeg.size(), sizeof kJfifStart);
  EXPECT_TRUE(std::equal(std::begin(kJfifStart), std::end(kJfifStart), ycc.jpeg.begin()));

  const keltest::EncodeResult rgb =
      keltest::Encode(Packed(9, 9, 2), 9, 9, 85, kiu::FormatRGB, kiu::FormatBGR);
  const uint8_t kAdobe[] = {0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 0};
  ASSERT_GT(rgb.jpeg.size(), 2 + sizeof kAdobe);
  EXPECT_TRUE(std::equal(std::begin(kAdobe), std::end(kAdobe), rgb.jpeg.begin() + 2));
  const Bytes sof = Segment(rgb.jpeg, 0xC0), sos = Segment(rgb.jpeg, 0xDA);
  ASSERT_EQ(sof.size(), 15u);
  EXPECT_EQ(Bytes(sof.begin() + 6, sof.end()), (Bytes{'R', 0x11, 0, 'G', 0x11, 0, 'B', 0x11, 0}));
  EXPECT_EQ(sos, (Bytes{3, 'R', 0x00, 'G', 0x00, 'B', 0x00, 0, 63, 0}));
  EXPECT_TRUE(Segment(rgb.jpeg, 0xDB, 1).empty()) << "one table for RGB";
  EXPECT_TRUE(Segment(rgb.jpeg, 0xC4, 2).empty()) << "DC 0 and AC 0 only";
}

// Each range of format codes is treated alike.
TEST(Formats, EveryCodeOfARangeWritesTheSameFile) {
  const Bytes pixels = Packed(23, 17, 3);
  const Bytes ycc = keltest::Encode(pixels, 23, 17, 70, kiu::FormatABGR, kiu::FormatYUV).jpeg;
  const Bytes rgb = keltest::Encode(pixels, 23, 17, 70, kiu::FormatABGR, kiu::FormatABGR).jpeg;
  ASSERT_FALSE(ycc.empty());
  ASSERT_FALSE(rgb.empty());
  for (int in = 8; in <= 13; ++in) {
    for (int out : {16, 17, 18, 19, 20, 21, 64}) {
      EXPECT_EQ(keltest::Encode(pixels, 23, 17, 70, kiu::Format(in), kiu::Format(out)).jpeg, ycc)
          << in << "," << out;
    }
    for (int out = 8; out <= 13; ++out) {
      EXPECT_EQ(keltest::Encode(pixels, 23, 17, 70, kiu::Format(in), kiu::Format(out)).jpeg, rgb)
          << in << "," << out;
    }
  }
}

// ---------------------------------------------------------------------------
// Bits and buffers.

TEST(Bits, FinalByteIsPaddedWithOnesAndAnAlignedEndGetsNoPadByte) {
  // A mid-grey pixel: every block is DC 0 with an immediate end of block.
  const Bytes grey = {128, 128, 128, 0};
  // RGB: 3 x (DC "00" + EOB "1010") = 18 bits; the last 2 are padded with 1s.
  EXPECT_EQ(ScanData(keltest::Encode(grey, 1, 1, 75, kiu::FormatRGB, kiu::FormatRGB).jpeg),
            (Bytes{0x28, 0xA2, 0xBF}));
  // YCbCr: 4 x 6 luma bits + 2 x (DC "00" + EOB "00") = 32 bits, no pad byte.
  EXPECT_EQ(ScanData(keltest::Encode(grey, 1, 1, 75, kiu::FormatRGB, kiu::FormatYUV).jpeg),
            (Bytes{0x28, 0xA2, 0x8A, 0x00}));
}

// Searches pictures of one size over qualities and seeds until `want` holds
// for the recorded writes; returns them, or an empty stream when none does.
template <typename Want>
Writes FindEncode(int width, int height, Want want) {
  for (uint32_t seed = 1; seed < 400; ++seed) {
    const Bytes pixels = Packed(width, height, seed);
    for (int quality = 20; quality <= 99; ++quality) {
      RecordingStream s;
      if (EncodeTo(&s, pixels, width, height, quality, kiu::FormatRGB, kiu::FormatRGB) != 1) return {};
      if (want(s)) return static_cast<const Writes&>(s);
    }
  }
  return {};
}

TEST(Buffer, StuffedZeroOpensTheNextPieceWhenFFEndsAPiece) {
  const Writes s =
      FindEncode(64, 48, [](const Writes& r) { return r.sizes.size() >= 2 && r.bytes[4095] == 0xFF; });
  ASSERT_GE(s.sizes.size(), 2u) << "no candidate found";
  EXPECT_EQ(s.sizes[0], 4096u);
  EXPECT_EQ(s.bytes[4096], 0x00);
  // No unstuffed 0xFF anywhere in the scan.
  const Bytes scan = ScanData(s.bytes);
  for (size_t i = 0; i + 1 < scan.size(); ++i) {
    if (scan[i] == 0xFF) {
      ASSERT_EQ(scan[i + 1], 0x00) << i;
    }
  }
}

TEST(Buffer, AFileThatFillsTheBufferBeforeEoiEndsWithATwoByteWrite) {
  // Flat grey RGB costs 18 bits per 8x8 MCU; 1671 MCUs make 3760 scan bytes,
  // which with the 336 header bytes fill the first 4096 exactly.
  const uint32_t width = 1671 * 8, height = 8;
  RecordingStream s;
  ASSERT_EQ(EncodeTo(&s, Bytes(width * height * 4, 128), width, height, 75, kiu::FormatRGB, kiu::FormatRGB),
            1);
  EXPECT_EQ(s.sizes, (std::vector<unsigned>{4096, 2}));
  EXPECT_EQ(Bytes(s.bytes.end() - 2, s.bytes.end()), (Bytes{0xFF, 0xD9}));
  EXPECT_EQ(s.bytes[4095], 0x2B) << "last block 001010, padded with 11";
}

// ---------------------------------------------------------------------------
// Planar layout.

TEST(Planar, Width5IsReadAsPaddedTo8WhileSofSays5) {
  // 5x3 comes in as 8x4 luma, chroma rows of 4 (8 rounded to 8, halved).
  Bytes planes(8 * 4 + 2 * 4 * 2, 128);
  for (int i = 0; i < 8 * 4; ++i) planes[i] = static_cast<uint8_t>(40 + 7 * i);
  const keltest::EncodeResult r = keltest::Encode(planes, 5, 3, 85, kiu::FormatI420, kiu::FormatYUV);
  ASSERT_EQ(r.rc, 1) << r.printed;
  const Bytes sof = Segment(r.jpeg, 0xC0);
  ASSERT_EQ(sof.size(), 15u);
  EXPECT_EQ(sof[1] << 8 | sof[2], 3);  // height
  EXPECT_EQ(sof[3] << 8 | sof[4], 5);  // width
  EXPECT_EQ(Bytes(sof.begin() + 6, sof.end()), (Bytes{1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
  // The caller's padding columns are coded as given, not replaced by the edge.
  Bytes changed = planes;
  changed[7] = 255;
  EXPECT_NE(keltest::Encode(changed, 5, 3, 85, kiu::FormatI420, kiu::FormatYUV).jpeg, r.jpeg);
  // Padding row 3 (below the 4 luma rows' last real row 2) is read too.
  changed = planes;
  changed[3 * 8] = 0;
  EXPECT_NE(keltest::Encode(changed, 5, 3, 85, kiu::FormatI420, kiu::FormatYUV).jpeg, r.jpeg);
}

// ---------------------------------------------------------------------------
// Failures: the printed line, the result, and nothing thrown or leaked.

TEST(Errors, EachFailurePrintsItsLineAndReturnsZero) {
  const std::string kFull = "\n?!exception@ ";
  const std::string ctor = Line(kEnc + "kj.e", 269);
  Bytes small = Packed(4, 4, 1);
  struct Case {
    const char* what;
    uint32_t width, height;
    int in, out;
    bool nullStream;
    std::string printed;
  } cases[] = {
      {"null stream", 4, 4, 12, 16, true, Line(kEnc + "kj.e", 274)},
      {"width 65501", 65501, 1, 12, 16, false, Line(kEnc + "kj.e", 238) + ctor},
      {"height 65501", 1, 65501, 12, 12, false, Line(kEnc + "kj.e", 238) + ctor},
      {"planar width overflows the round-up", 4294967293u, 2, 64, 16, false,
       Line("common/kau/kau", 210) + ctor},
      {"planar height overflows the round-up", 4, 4294967295u, 64, 64, false,
       Line("common/kau/kau", 210) + ctor},
      {"planar input, RGB output", 4, 4, 64, 12, false, Line(kEnc + "kj.esample", 325) + ctor},
      {"YUV input", 4, 4, 16, 16, false, Line(kEnc + "kj.esample", 369) + ctor},
      {"CMYK input", 4, 4, 128, 64, false, Line(kEnc + "kj.esample", 369) + ctor},
      {"RGB input, RGB output from below the range", 4, 4, 7, 12, false,
       Line(kEnc + "kj.esample", 325) + ctor},
      {"output 14", 4, 4, 12, 14, false, Line(kEnc + "kj.esample", 372) + ctor},
      {"output 22", 4, 4, 12, 22, false, Line(kEnc + "kj.esample", 372) + ctor},
      {"output 32", 4, 4, 12, 32, false, Line(kEnc + "kj.esample", 372) + ctor},
      {"output 128", 4, 4, 12, 128, false, Line(kEnc + "kj.esample", 372) + ctor},
  };
  for (const Case& c : cases) {
    MMStream* stream = c.nullStream ? nullptr : keltest::NewPageStream();
    std::string printed;
    EXPECT_EQ(EncodeTo(stream, small, c.width, c.height, 85, kiu::Format(c.in), kiu::Format(c.out), &printed),
              0)
        << c.what;
    EXPECT_EQ(printed, c.printed) << c.what;
    if (stream != nullptr) {
      EXPECT_TRUE(keltest::StreamBytes(stream).empty()) << c.what << ": nothing written";
      MMStreamDelete(&stream);
    }
  }
}

TEST(Errors, ZeroSizeOrNoDataReturnsZeroSilently) {
  const Bytes pixels = Packed(2, 2, 1);
  const uint32_t sizes[][2] = {{0, 2}, {2, 0}, {0, 0}};
  for (const auto& s : sizes) {
    const keltest::EncodeResult r = keltest::Encode(pixels, s[0], s[1], 85, kiu::FormatRGB, kiu::FormatYUV);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.printed, "");
    EXPECT_TRUE(r.jpeg.empty());
  }
  const keltest::EncodeResult r = keltest::Encode({}, 2, 2, 85, kiu::FormatRGB, kiu::FormatYUV);
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.printed, "");
}

TEST(Errors, LargestSideIsAccepted) {
  const keltest::EncodeResult wide =
      keltest::Encode(Packed(65500, 1, 1), 65500, 1, 50, kiu::FormatRGB, kiu::FormatYUV);
  EXPECT_EQ(wide.rc, 1) << wide.printed;
  const keltest::EncodeResult tall =
      keltest::Encode(Bytes(4 * 65500 + 2 * 4 * 32750, 90), 1, 65500, 50, kiu::FormatI420, kiu::FormatI420);
  EXPECT_EQ(tall.rc, 1) << tall.printed;
}

TEST(Errors, ShortWritesFailAtTheirLinesAndKeepWhatWasWritten) {
  const Bytes pixels = Packed(200, 150, 5);
  RecordingStream midway;
  midway.shortAt = 1;
  std::string printed;
  EXPECT_EQ(EncodeTo(&midway, pixels, 200, 150, 90, kiu::FormatRGB, kiu::FormatYUV, &printed), 0);
  EXPECT_EQ(printed, Line(kEnc + "kj.e", 104));
  EXPECT_EQ(midway.sizes, std::vector<unsigned>{4096});

  RecordingStream last;
  last.shortFinal = true;
  EXPECT_EQ(EncodeTo(&last, pixels, 200, 150, 90, kiu::FormatRGB, kiu::FormatYUV, &printed), 0);
  EXPECT_EQ(printed, Line(kEnc + "kj.emarkers", 401));
  EXPECT_FALSE(last.sizes.empty());
}

// Allocation hooks that count live blocks and can fail the n-th request.
struct CountingHooks {
  static inline long live = 0;
  static inline long calls = 0;
  static inline long failAt = -1;
  static void* Allocate(unsigned long size) {
    if (calls++ == failAt) return nullptr;
    ++live;
    return std::malloc(size);
  }
  static void Release(void* p) {
    if (p != nullptr) --live;
    std::free(p);
  }
};

TEST(Errors, EveryFailedAllocationReturnsZeroAndReleasesAllBlocks) {
  const Bytes pixels = Packed(40, 24, 9);
  Bytes planes(40 * 24 * 3 / 2, 100);
  struct Run {
    const Bytes* data;
    int in, out;
  } runs[] = {{&pixels, 12, 16}, {&pixels, 12, 12}, {&planes, 64, 64}};
  for (const Run& run : runs) {
    kau::mem::SetExternalNewAndDelete(CountingHooks::Allocate, CountingHooks::Release);
    CountingHooks::live = 0;
    CountingHooks::calls = 0;
    CountingHooks::failAt = -1;
    RecordingStream ok;
    ASSERT_EQ(EncodeTo(&ok, *run.data, 40, 24, 80, kiu::Format(run.in), kiu::Format(run.out)), 1);
    const long total = CountingHooks::calls;
    EXPECT_EQ(CountingHooks::live, 0);
    for (long n = 0; n < total; ++n) {
      CountingHooks::calls = 0;
      CountingHooks::failAt = n;
      RecordingStream s;
      std::string printed;
      EXPECT_EQ(EncodeTo(&s, *run.data, 40, 24, 80, kiu::Format(run.in), kiu::Format(run.out), &printed), 0);
      EXPECT_EQ(CountingHooks::live, 0) << "allocation " << n;
      EXPECT_EQ(printed, Line("common/kau/kau", 402) + Line(kEnc + "kj.e", 269)) << "allocation " << n;
      EXPECT_TRUE(s.sizes.empty());
    }
    kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
  }
}

}  // namespace
