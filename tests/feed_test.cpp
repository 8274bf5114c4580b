// The feeding object: completion exactly at EOI however the bytes are split,
// concatenated images decoded one by one, markers hidden in segment payloads,
// and its error lines.
#include <gtest/gtest.h>

#include <random>

#include "kau/kau.h"
#include "kj.d/jpdyuv.h"
#include "kj.d/kj.dfeed.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

Bytes Decoded(const STImageSimple& image) {
  Bytes out(image.data, image.data + image.size);
  kau::mem::Delete(image.data);
  return out;
}

TEST(Feed, ConcatenatedFilesSplitAtRandomCompleteAtEachEoiAndDecode) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  const std::vector<Bytes> files = {keltest::MakeJpeg(101, 75, 3, 1, "-sample 2x2"),
                                    keltest::MakeJpeg(17, 9, 3, 2, "-progressive -sample 1x1"),
                                    keltest::MakeJpeg(33, 20, 1, 3, "-grayscale -restart 1"),
                                    keltest::MakeJpeg(1, 1, 3, 4, "-optimize")};
  Bytes all;
  size_t smallest = SIZE_MAX;
  std::vector<Bytes> expected;
  for (const Bytes& f : files) {
    all.insert(all.end(), f.begin(), f.end());
    smallest = std::min(smallest, f.size());
    STImageSimple image{};
    ASSERT_EQ(jpdyuv::DecodeJPG(f.data(), f.size(), &image, true), 1);
    expected.push_back(Decoded(image));
  }
  std::mt19937 rng(42);
  // A piece never spans a whole image: one piece completes at most one.
  for (size_t maxPiece : {size_t{1}, size_t{2}, size_t{7}, smallest / 3, smallest - 1}) {
    kjd::Input input;
    ASSERT_NE(input.Construct(), nullptr);
    std::vector<Bytes> got;
    for (size_t at = 0; at < all.size();) {
      const size_t n = std::min<size_t>(all.size() - at, rng() % maxPiece + 1);
      const int more = input.Push(all.data() + at, n);
      at += n;
      if (more != 0) continue;
      ASSERT_LT(got.size(), files.size());
      EXPECT_EQ(input.EndOfImage(), files[got.size()].size());
      MMStream* s = input.Stream();
      ASSERT_EQ(MMStreamReady(s), 1);
      STImageSimple image{};
      EXPECT_EQ(jpdyuv::DecodeJPG(s, &image, true), 1);
      got.push_back(Decoded(image));
      // The reset keeps what lies between the EOI and the read position.
      MMStreamSeek(s, 0, MMStreamSeekFromEnd);
      input.ResetStreamWithDataAfterEOI();
    }
    unsigned long left = 1;
    MMStreamSize(input.Stream(), &left);
    EXPECT_EQ(left, 0u);
    input.Destruct();
    EXPECT_EQ(got, expected) << "pieces up to " << maxPiece;
  }
}

TEST(Feed, MarkerBytesInsideSegmentsDoNotEndTheImage) {
  // SOI; an APP1 holding FF D9 and FF DA; a DQT-like segment; SOS with
  // stuffed data and a restart marker; EOI.
  const Bytes file = {0xFF, 0xD8, 0xFF, 0xE1, 0x00, 0x08, 0xFF, 0xD9, 0xFF, 0xDA, 0xFF, 0xD9,
                      0xFF, 0xDB, 0x00, 0x06, 0xFF, 0xD9, 0xFF, 0x00, 0xFF, 0xDA, 0x00, 0x02,
                      0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56, 0xFF, 0xFF, 0xD9};
  kjd::Input input;
  input.Construct();
  for (size_t i = 0; i + 1 < file.size(); ++i) ASSERT_EQ(input.Push(&file[i], 1), 1) << i;
  EXPECT_EQ(input.Push(&file.back(), 1), 0);
  EXPECT_EQ(input.EndOfImage(), file.size());
  input.Destruct();
}

TEST(Feed, BadPushesThrowAtTheirSites) {
  kjd::Input input;
  unsigned char b = 0;
  const struct {
    bool construct;
    const void* data;
    unsigned long size;
  } cases[] = {{false, &b, 1}, {true, nullptr, 1}, {true, &b, 0}};
  for (auto& c : cases) {
    if (c.construct) input.Construct();
    EXPECT_EQ(keltest::ThrownAt([&] { input.Push(c.data, c.size); }), keltest::kDecDir + "kj.dinput:746");
    input.Destruct();
  }
  // No stream: reported, not thrown.
  EXPECT_EQ(keltest::Printed([&] { input.ResetStreamWithDataAfterEOI(); }),
            keltest::Line(keltest::kDecDir + "kj.dinput", 826));
}

TEST(Feed, IsValidLooksAtTheFirstTwoMarkers) {
  const struct {
    Bytes data;
    int expected;
    int line;  // of the diagnostic, if any
  } cases[] = {
      {{0xFF, 0xD8, 0xFF, 0xE0}, 1, 0}, {{0x00, 0xFF, 0xFF, 0xD8, 0x12, 0xFF, 0x00, 0xFF, 0xDB}, 1, 0},
      {{0xFF, 0xD8, 0xFF, 0xC2}, 1, 0}, {{0xFF, 0xD8, 0xFF, 0xD9}, 1, 0},
      {{0xFF, 0xD8, 0xFF, 0xDA}, 0, 0}, {{0xFF, 0xD8, 0xFF, 0xC8}, 0, 0},
      {{0xFF, 0xD8, 0xFF, 0xD0}, 0, 0}, {{0xFF, 0xC0, 0xFF, 0xD8}, 0, 0},
      {{0xFF, 0xD8, 0x00}, 0, 82},      {{0xFF, 0xD8, 0xFF, 0xFF}, 0, 85},
  };
  for (auto& c : cases) {
    Bytes data = c.data;
    MMAttri rec;
    MMAttriFromAny(&rec, mmIdData, data.data(), static_cast<int>(data.size()));
    MMStream* s = MMStreamNew(&rec, 1);
    MMStreamReady(s);
    EXPECT_EQ(keltest::Printed([&] { EXPECT_EQ(kjd::Input::IsValid(s), c.expected); }),
              c.line == 0 ? "" : keltest::Line(keltest::kDecDir + "kj.dinput", c.line));
    MMStreamDelete(&s);
  }
  EXPECT_EQ(kjd::Input::IsValid(nullptr), 0);
}

}  // namespace
