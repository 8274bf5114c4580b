// The feeding object: completion exactly at EOI however the bytes are split,
// concatenated images one by one, markers hidden in segment payloads.
#include <gtest/gtest.h>

#include <random>

#include "kau/kau.h"
#include "kj.d/kj.dfeed.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

// A small real JPEG from the peer encoder, or a hand-made one when absent.
Bytes MakeJpeg(int width, int height, uint32_t seed) {
  if (keltest::HaveTool("cjpeg")) {
    std::string ppm = keltest::TempPath("feed-" + std::to_string(seed) + ".ppm");
    std::string jpg = ppm + ".jpg";
    keltest::WritePnm(ppm, keltest::PhotoLike(width, height, 3, seed), width, height, 3);
    if (keltest::Run("cjpeg -optimize -outfile " + jpg + " " + ppm) == 0) {
      Bytes out = keltest::ReadFile(jpg);
      std::remove(ppm.c_str());
      std::remove(jpg.c_str());
      return out;
    }
  }
  // SOI, a DQT-like segment holding marker-looking bytes, SOS with stuffed data, EOI.
  return {0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x06, 0xFF, 0xD9, 0xFF, 0x00, 0xFF, 0xDA,
          0x00, 0x02, 0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56, 0xFF, 0xFF, 0xD9};
}

// Pushes `data` split at random points and collects the images the way the
// decoder element does: one image per piece that completes one.
std::vector<Bytes> FeedInPieces(const Bytes& data, std::mt19937& rng, size_t maxPiece) {
  kjd::Input input;
  EXPECT_NE(input.Construct(), nullptr);
  std::vector<Bytes> images;
  for (size_t at = 0; at < data.size();) {
    size_t n = std::min<size_t>(data.size() - at, rng() % maxPiece + 1);
    int more = input.Push(data.data() + at, n);
    at += n;
    if (more != 0) continue;
    // Read everything, as the decoder's chunked reads do; the position then
    // marks how much of the leftover the reset keeps.
    unsigned long size = 0;
    MMStreamSize(input.Stream(), &size);
    Bytes stored(size);
    MMStreamReady(input.Stream());
    EXPECT_EQ(MMStreamGet(input.Stream(), stored.data(), static_cast<unsigned>(size)), size);
    images.emplace_back(stored.begin(), stored.begin() + input.EndOfImage());
    input.ResetStreamWithDataAfterEOI();
  }
  input.Destruct();
  return images;
}

TEST(Feed, CompletesExactlyAtEachEOIHoweverSplit) {
  std::vector<Bytes> files = {MakeJpeg(17, 9, 1), MakeJpeg(64, 48, 2), MakeJpeg(1, 1, 3)};
  Bytes all;
  for (auto& f : files) all.insert(all.end(), f.begin(), f.end());
  std::mt19937 rng(99);
  size_t smallest = std::min({files[0].size(), files[1].size(), files[2].size()});
  // A piece never spans a whole image: one piece completes at most one.
  for (size_t maxPiece : {size_t{1}, size_t{2}, size_t{7}, smallest / 3, smallest - 1}) {
    std::vector<Bytes> got = FeedInPieces(all, rng, maxPiece);
    ASSERT_EQ(got.size(), files.size()) << "pieces up to " << maxPiece;
    for (size_t i = 0; i < files.size(); ++i) EXPECT_EQ(got[i], files[i]) << i;
  }
}

TEST(Feed, ReportsCompletionInThePieceHoldingTheEOI) {
  Bytes file = MakeJpeg(33, 20, 5);
  kjd::Input input;
  input.Construct();
  for (size_t i = 0; i + 1 < file.size(); ++i) ASSERT_EQ(input.Push(&file[i], 1), 1) << i;
  EXPECT_EQ(input.Push(&file.back(), 1), 0);
  EXPECT_EQ(input.EndOfImage(), file.size());
  input.ResetStreamWithDataAfterEOI();  // nothing left: a fresh, empty stream
  unsigned long size = 1;
  MMStreamSize(input.Stream(), &size);
  EXPECT_EQ(size, 0u);
  input.Destruct();
}

TEST(Feed, MarkerBytesInsideSegmentsDoNotEndTheImage) {
  Bytes file = MakeJpeg(8, 8, 6);
  // An APP1 segment whose payload holds FF D9 and FF DA, right after SOI.
  Bytes app = {0xFF, 0xE1, 0x00, 0x08, 0xFF, 0xD9, 0xFF, 0xDA, 0xFF, 0xD9};
  file.insert(file.begin() + 2, app.begin(), app.end());
  kjd::Input input;
  input.Construct();
  EXPECT_EQ(input.Push(file.data(), file.size()), 0);
  EXPECT_EQ(input.EndOfImage(), file.size());
  input.Destruct();
}

TEST(Feed, BadPushesThrowAtTheirSites) {
  kjd::Input input;
  unsigned char b = 0;
  struct {
    bool construct;
    const void* data;
    unsigned long size;
  } cases[] = {{false, &b, 1}, {true, nullptr, 1}, {true, &b, 0}};
  for (auto& c : cases) {
    if (c.construct) input.Construct();
    try {
      input.Push(c.data, c.size);
      ADD_FAILURE();
    } catch (const kau::Error& e) {
      EXPECT_EQ(e.Position(), 746);
      EXPECT_STREQ(e.FileName(), "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dinput");
    }
    input.Destruct();
  }
  testing::internal::CaptureStdout();
  input.ResetStreamWithDataAfterEOI();  // no stream: reported, not thrown
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n?!exception@ gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dinput +826 !?\n\n\n");
}

TEST(Feed, IsValidLooksAtTheFirstTwoMarkers) {
  struct {
    Bytes data;
    int expected;
    const char* printed;  // diagnostic expected, if any
  } cases[] = {
      {{0xFF, 0xD8, 0xFF, 0xE0}, 1, nullptr},
      {{0x00, 0xFF, 0xFF, 0xD8, 0x12, 0xFF, 0x00, 0xFF, 0xDB}, 1, nullptr},
      {{0xFF, 0xD8, 0xFF, 0xC2}, 1, nullptr},
      {{0xFF, 0xD8, 0xFF, 0xD9}, 1, nullptr},
      {{0xFF, 0xD8, 0xFF, 0xDA}, 0, nullptr},
      {{0xFF, 0xD8, 0xFF, 0xC8}, 0, nullptr},
      {{0xFF, 0xD8, 0xFF, 0xD0}, 0, nullptr},
      {{0xFF, 0xC0, 0xFF, 0xD8}, 0, nullptr},
      {{0xFF, 0xD8, 0x00}, 0, "kj.dinput +82 !?"},
      {{0xFF, 0xD8, 0xFF, 0xFF}, 0, "kj.dinput +85 !?"},
  };
  for (auto& c : cases) {
    MMAttri rec;
    MMAttriFromAny(&rec, mmIdData, c.data.data(), static_cast<int>(c.data.size()));
    MMStream* s = MMStreamNew(&rec, 1);
    MMStreamReady(s);
    testing::internal::CaptureStdout();
    EXPECT_EQ(kjd::Input::IsValid(s), c.expected);
    std::string out = testing::internal::GetCapturedStdout();
    if (c.printed != nullptr) {
      EXPECT_NE(out.find(c.printed), std::string::npos) << out;
    } else {
      EXPECT_EQ(out, "");
    }
    MMStreamDelete(&s);
  }
  EXPECT_EQ(kjd::Input::IsValid(nullptr), 0);
}

}  // namespace
