// Truncated and corrupt input: zero bits and skipped
// restart intervals for data cut short, the listed errors otherwise, and no
// access outside buffers (run under -DKEL_SANITIZE=address,undefined). Also
// stream input through the 4,100-byte refill buffer and its sentinel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kiu/mmstream.h"
#include "kj.d/kj.d.h"
#include "support/jpegdec_util.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

// Offset of the first byte of entropy-coded data after the first SOS.
size_t FirstScanData(const Bytes& jpeg) {
  for (size_t i = 2; i + 3 < jpeg.size();) {
    if (jpeg[i] != 0xFF) return 0;
    const int marker = jpeg[i + 1];
    const size_t length = (jpeg[i + 2] << 8) | jpeg[i + 3];
    if (marker == 0xDA) return i + 2 + length;
    i += 2 + length;
  }
  return 0;
}

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
  size_t at_ = 0;
  size_t turn_ = 0;
};

std::vector<keltest::ComponentPlane> StreamPlanes(const Bytes& jpeg, std::vector<unsigned> pieces) {
  ChunkStream stream(jpeg, std::move(pieces));
  kjd::Decoder decoder(&stream, 255);
  kjd::Decoder::Plane planes[4] = {};
  decoder.Dcoef_DecodeToPlanes(8, planes);
  std::vector<keltest::ComponentPlane> out(decoder.componentCount);
  for (uint32_t i = 0; i < decoder.componentCount; ++i) {
    out[i].width = static_cast<int>(planes[i].width);
    out[i].height = static_cast<int>(planes[i].height);
    for (uint32_t y = 0; y < planes[i].height; ++y)
      out[i].samples.insert(out[i].samples.end(), planes[i].data + y * planes[i].stride,
                            planes[i].data + y * planes[i].stride + planes[i].width);
  }
  return out;
}

class Robust : public testing::Test {
 protected:
  void SetUp() override {
    if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg";
  }
};

TEST_F(Robust, StreamInputEqualsMemoryInput) {
  const char* configs[] = {"-quality 100 -sample 2x2", "-progressive -sample 2x1 -restart 2",
                           "-quality 60 -restart 1 -sample 1x1", "-grayscale -optimize"};
  for (const char* args : configs) {
    SCOPED_TRACE(args);
    Bytes jpeg =
        keltest::MakeJpeg(211, 97, std::string(args).find("gray") != std::string::npos ? 1 : 3, 4, args);
    ASSERT_FALSE(jpeg.empty());
    auto memory = keltest::DecodePlanes(jpeg);
    for (const std::vector<unsigned>& pieces :
         std::vector<std::vector<unsigned>>{{}, {1}, {2, 1, 3}, {7, 4096, 13}, {255, 1, 1, 1}}) {
      auto streamed = StreamPlanes(jpeg, pieces);
      ASSERT_EQ(streamed.size(), memory.size());
      for (size_t c = 0; c < memory.size(); ++c) EXPECT_EQ(streamed[c].samples, memory[c].samples);
    }
  }
}

TEST_F(Robust, TruncatedEntropyDataGivesFlatBlocks) {
  Bytes jpeg = keltest::MakeJpeg(101, 75, 3, 2, "-quality 90 -sample 2x2");
  ASSERT_FALSE(jpeg.empty());
  const size_t data = FirstScanData(jpeg);
  ASSERT_GT(data, 0u);
  Bytes cut(jpeg.begin(), jpeg.begin() + static_cast<long>(data + (jpeg.size() - data) / 2));
  // Not ending in EOI: the decoder copies it and appends one. Decodes without error.
  auto planes = keltest::DecodePlanes(cut);
  ASSERT_EQ(planes.size(), 3u);
  // The last iMCU row lies wholly after the cut: flat blocks (coefficients 0 -> 128).
  const auto& y = planes[0];
  for (int r = 64; r < y.height; ++r)
    for (int x = 0; x < y.width; ++x) ASSERT_EQ(y.samples[static_cast<size_t>(r) * y.width + x], 128);
  // The first rows are the real picture: they agree with the full decode.
  auto full = keltest::DecodePlanes(jpeg);
  EXPECT_TRUE(std::equal(y.samples.begin(), y.samples.begin() + 8 * y.width, full[0].samples.begin()));
  // Progressive input cut in a late scan decodes too (earlier scans' coefficients stay).
  Bytes progressive = keltest::MakeJpeg(101, 75, 3, 2, "-progressive -sample 2x2");
  Bytes pcut(progressive.begin(), progressive.begin() + static_cast<long>(progressive.size() * 3 / 4));
  EXPECT_NO_THROW(keltest::DecodePlanes(pcut));
}

TEST_F(Robust, TruncatedWithRestartIntervalReportsRestart) {
  Bytes jpeg = keltest::MakeJpeg(101, 75, 3, 2, "-quality 90 -sample 2x2 -restart 1");
  ASSERT_FALSE(jpeg.empty());
  const size_t data = FirstScanData(jpeg);
  Bytes cut(jpeg.begin(), jpeg.begin() + static_cast<long>(data + (jpeg.size() - data) / 2));
  keltest::ErrorSite site = keltest::DecodeError(cut);
  EXPECT_EQ(site.file, "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dinput");
  EXPECT_EQ(site.line, 475);
}

TEST_F(Robust, EveryTruncationPointIsSafe) {
  for (const char* args : {"-sample 2x2 -restart 1", "-progressive -sample 2x1"}) {
    Bytes jpeg = keltest::MakeJpeg(23, 17, 3, 8, args);
    ASSERT_FALSE(jpeg.empty());
    for (size_t n = 0; n <= jpeg.size(); ++n) {
      Bytes cut(jpeg.begin(), jpeg.begin() + static_cast<long>(n));
      keltest::ErrorSite site = keltest::DecodeError(cut);
      if (!site.file.empty()) {
        EXPECT_TRUE(site.file.rfind("gstreamer/", 0) == 0 || site.file == "common/kau/kau") << site.file;
      }
      // The same through a stream, one byte at a time.
      try {
        testing::internal::CaptureStdout();
        StreamPlanes(cut, {1});
        testing::internal::GetCapturedStdout();
      } catch (const kau::Error&) {
        testing::internal::GetCapturedStdout();
      }
    }
  }
}

TEST_F(Robust, CorruptEntropyDataOnlyThrowsListedErrors) {
  std::mt19937 rng(1234);
  const char* configs[] = {"-sample 2x2", "-sample 2x2 -restart 2", "-progressive -sample 2x2",
                           "-grayscale -progressive -restart 1", "-quality 100 -sample 1x1"};
  int errors = 0, decoded = 0;
  for (const char* args : configs) {
    Bytes jpeg =
        keltest::MakeJpeg(45, 37, std::string(args).find("gray") != std::string::npos ? 1 : 3, 6, args);
    ASSERT_FALSE(jpeg.empty());
    const size_t data = FirstScanData(jpeg);
    for (int trial = 0; trial < 150; ++trial) {
      Bytes bad = jpeg;
      const int edits = 1 + trial % 4;
      for (int e = 0; e < edits; ++e) {
        // Mostly entropy data, sometimes anywhere.
        const size_t lo = trial % 5 == 0 ? 2 : data;
        const size_t at = lo + rng() % (bad.size() - 2 - lo);
        switch (rng() % 3) {
          case 0:
            bad[at] = static_cast<uint8_t>(rng());
            break;
          case 1:
            bad[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
            break;
          default:
            bad[at] = 0xFF;
            break;
        }
      }
      // Through a stream in small pieces too (refill boundaries inside corrupt data).
      try {
        testing::internal::CaptureStdout();
        StreamPlanes(bad, {3, 1, 5});
        testing::internal::GetCapturedStdout();
      } catch (const kau::Error&) {
        testing::internal::GetCapturedStdout();
      }
      keltest::ErrorSite site = keltest::DecodeError(bad);
      if (site.file.empty()) {
        ++decoded;
      } else {
        ++errors;
        EXPECT_TRUE(site.file.rfind("gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/", 0) == 0 ||
                    site.file == "common/kau/kau")
            << site.file;
      }
    }
  }
  EXPECT_GT(decoded, 0);
  EXPECT_GT(errors, 0);
}

// 0xFF 0x00 is a data byte 0xFF and fill bytes before it are skipped:
// a run-length-only stream whose every byte is a stuffed 0xFF decodes the
// same as with extra fill bytes.
TEST_F(Robust, StuffedAndFillBytes) {
  Bytes jpeg = keltest::MakeJpeg(64, 64, 1, 3, "-grayscale -quality 100");
  ASSERT_FALSE(jpeg.empty());
  const size_t data = FirstScanData(jpeg);
  Bytes filled(jpeg.begin(), jpeg.begin() + static_cast<long>(data));
  int stuffed = 0;
  for (size_t i = data; i < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && i + 1 < jpeg.size() && jpeg[i + 1] == 0x00) {
      filled.push_back(0xFF);
      filled.push_back(0xFF);
      ++stuffed;
    }
    filled.push_back(jpeg[i]);
  }
  ASSERT_GT(stuffed, 0);
  EXPECT_EQ(keltest::DecodePlanes(filled)[0].samples, keltest::DecodePlanes(jpeg)[0].samples);
}

TEST_F(Robust, MemoryInputNotEndingInEoiIsDecodedAsIfItDid) {
  Bytes jpeg = keltest::MakeJpeg(33, 21, 3, 1, "-sample 2x2");
  Bytes noEoi(jpeg.begin(), jpeg.end() - 2);
  EXPECT_EQ(keltest::DecodePlanes(noEoi)[0].samples, keltest::DecodePlanes(jpeg)[0].samples);
  // Leading fill bytes before SOI are accepted.
  Bytes fill(jpeg.size() + 2, 0xFF);
  std::copy(jpeg.begin(), jpeg.end(), fill.begin() + 2);
  EXPECT_EQ(keltest::DecodePlanes(fill)[1].samples, keltest::DecodePlanes(jpeg)[1].samples);
}

}  // namespace

namespace {

// Performance shape: a single-scan image is decoded through the MCU buffer
// with no whole-image store; a multi-scan one gets the stores; memory input
// that already ends in EOI is read in place.
TEST_F(Robust, SingleScanImagesUseNoWholeImageStore) {
  Bytes baseline = keltest::MakeJpeg(64, 48, 3, 5, "-sample 2x2");
  Bytes progressive = keltest::MakeJpeg(64, 48, 3, 5, "-sample 2x2 -progressive");
  {
    kjd::Decoder d(baseline.data(), baseline.size(), 255);
    EXPECT_EQ(d.inputEnd, baseline.data() + baseline.size());  // not copied
    kjd::Decoder::Plane planes[4] = {};
    d.Dcoef_DecodeToPlanes(8, planes);
    EXPECT_TRUE(d.singleScan);
    EXPECT_NE(d.mcuBuffer, nullptr);
    for (uint32_t i = 0; i < d.componentCount; ++i) EXPECT_EQ(d.components[i].wholeImage, nullptr);
  }
  {
    kjd::Decoder d(progressive.data(), progressive.size(), 255);
    kjd::Decoder::Plane planes[4] = {};
    d.Dcoef_DecodeToPlanes(8, planes);
    EXPECT_FALSE(d.singleScan);
    EXPECT_EQ(d.mcuBuffer, nullptr);
    for (uint32_t i = 0; i < d.componentCount; ++i) EXPECT_NE(d.components[i].wholeImage, nullptr);
  }
}

}  // namespace
