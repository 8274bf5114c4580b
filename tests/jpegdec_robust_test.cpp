// Input cut short or padded: zero bits for data cut short (or the restart
// error), fill bytes and a missing EOI change nothing, and stream input
// through the refill buffer and its sentinel equals memory input.
#include <gtest/gtest.h>

#include <cstring>

#include "kj.d/kj.d.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

// A stream that hands out its data in pieces of varying size.
class ChunkStream : public MMStream {
 public:
  ChunkStream(Bytes data, std::vector<unsigned> pieces)
      : MMStream(nullptr, 0), data_(std::move(data)), pieces_(std::move(pieces)) {}
  unsigned int Get(void* buffer, unsigned int size) override {
    unsigned n = pieces_.empty() ? size : pieces_[turn_++ % pieces_.size()];
    n = std::min<unsigned>({n, size, static_cast<unsigned>(data_.size() - at_)});
    if (n > 0) std::memcpy(buffer, data_.data() + at_, n);
    at_ += n;
    return n;
  }

 private:
  Bytes data_;
  std::vector<unsigned> pieces_;
  size_t at_ = 0, turn_ = 0;
};

// Planes decoded through a ChunkStream; empty when the decoder threw.
std::vector<keltest::ComponentPlane> StreamPlanes(const Bytes& jpeg, std::vector<unsigned> pieces) {
  ChunkStream stream(jpeg, std::move(pieces));
  std::vector<keltest::ComponentPlane> out;
  keltest::Printed([&] {
    try {
      kjd::Decoder decoder(&stream, 255);
      out = keltest::DecodePlanes(decoder);
    } catch (const kau::Error&) {
    }
  });
  return out;
}

class Robust : public testing::Test {
 protected:
  void SetUp() override {
    if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg";
  }
};

TEST_F(Robust, StreamInputEqualsMemoryInput) {
  for (const char* args : {"-quality 100 -sample 2x2", "-progressive -sample 2x1 -restart 2",
                           "-quality 60 -restart 1 -sample 1x1", "-grayscale -optimize"}) {
    SCOPED_TRACE(args);
    const Bytes jpeg = keltest::MakeJpeg(211, 97, std::strstr(args, "gray") != nullptr ? 1 : 3, 4, args);
    const auto memory = keltest::DecodePlanes(jpeg);
    for (const std::vector<unsigned>& pieces :
         std::vector<std::vector<unsigned>>{{}, {1}, {2, 1, 3}, {7, 4096, 13}, {255, 1, 1, 1}}) {
      const auto streamed = StreamPlanes(jpeg, pieces);
      ASSERT_EQ(streamed.size(), memory.size());
      for (size_t c = 0; c < memory.size(); ++c) EXPECT_TRUE(streamed[c].samples == memory[c].samples);
    }
  }
}

TEST_F(Robust, TruncatedEntropyDataGivesFlatBlocks) {
  // Cut half way into the data, or ten bytes into the first (DC) scan of a
  // progressive file, whose later bands no scan then reaches.
  for (const char* args : {"-quality 90 -sample 2x2", "-progressive -sample 2x2"}) {
    SCOPED_TRACE(args);
    const Bytes jpeg = keltest::MakeJpeg(101, 75, 3, 2, args);
    const size_t data = keltest::ScanStart(jpeg);
    ASSERT_GT(data, 0u);
    const bool progressive = std::strstr(args, "progressive") != nullptr;
    const size_t cut = progressive ? data + 10 : (data + jpeg.size()) / 2;
    // Not ending in EOI: the decoder copies it and appends one.
    const auto y = keltest::DecodePlanes(Bytes(jpeg.begin(), jpeg.begin() + cut))[0];
    // The last iMCU row lies wholly after the cut: flat blocks (coefficients 0 -> 128).
    for (size_t i = 64 * y.width; i < y.samples.size(); ++i) ASSERT_EQ(y.samples[i], 128) << i;
    // The first rows of the baseline file are the real picture.
    const auto full = keltest::DecodePlanes(jpeg)[0].samples;
    EXPECT_TRUE(progressive || std::equal(y.samples.begin(), y.samples.begin() + 8 * y.width, full.begin()));
  }
}

// 0xFF 0x00 is a data byte 0xFF and fill bytes before it are skipped; a file
// not ending in EOI decodes as if it did; fill bytes may precede SOI.
TEST_F(Robust, FillBytesAndAMissingEoiChangeNothing) {
  const Bytes jpeg = keltest::MakeJpeg(64, 64, 1, 3, "-grayscale -quality 100");
  const size_t data = keltest::ScanStart(jpeg);
  Bytes filled(jpeg.begin(), jpeg.begin() + data);
  for (size_t i = data; i < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && i + 1 < jpeg.size() && jpeg[i + 1] == 0x00)
      filled.insert(filled.end(), {0xFF, 0xFF});
    filled.push_back(jpeg[i]);
  }
  ASSERT_GT(filled.size(), jpeg.size());
  Bytes leading = jpeg;
  leading.insert(leading.begin(), 2, 0xFF);
  const auto expected = keltest::DecodePlanes(jpeg)[0].samples;
  for (const Bytes& variant : {filled, Bytes(jpeg.begin(), jpeg.end() - 2), leading})
    EXPECT_TRUE(keltest::DecodePlanes(variant)[0].samples == expected);
}

}  // namespace
