// The encoder against an independent peer (libjpeg-turbo's cjpeg, djpeg and
// TurboJPEG), on pictures made at test time.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "support/encodeutil.h"
#include "support/testutil.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

using keltest::Bytes;

struct Size {
  int width;
  int height;
};

std::string Name(const Size& s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

// Frame size written in SOF0, or {0, 0} when there is none.
[[maybe_unused]] Size SofSize(const Bytes& jpeg) {
  for (size_t i = 2; i + 8 < jpeg.size();) {
    if (jpeg[i] != 0xFF) break;
    unsigned marker = jpeg[i + 1];
    size_t length = static_cast<size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3];
    if (marker == 0xC0) return {jpeg[i + 7] << 8 | jpeg[i + 8], jpeg[i + 5] << 8 | jpeg[i + 6]};
    i += 2 + length;
  }
  return {0, 0};
}

// ---------------------------------------------------------------------------
// Packed input: byte for byte what cjpeg writes for the same picture.

const Size kPackedSizes[] = {{1, 1}, {7, 9}, {16, 16}, {17, 9}, {101, 75}, {640, 480}, {1000, 600}};
const int kQualities[] = {1, 10, 50, 75, 85, 95, 100};

class PackedVersusCjpeg : public testing::TestWithParam<std::tuple<Size, int, bool>> {};

TEST_P(PackedVersusCjpeg, WritesTheSameBytes) {
  if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "cjpeg not installed";
  const auto [size, quality, rgb] = GetParam();
  const Bytes pixels = keltest::PhotoLike(size.width, size.height, 3, 7);
  const std::string ppm = keltest::TempPath("in.ppm"), peer = keltest::TempPath("peer.jpg");
  keltest::WritePnm(ppm, pixels, size.width, size.height, 3);
  const std::string command = std::string("cjpeg -baseline -dct int ") + (rgb ? "-rgb " : "") + "-quality " +
                              std::to_string(quality) + " -outfile " + peer + " " + ppm;
  ASSERT_EQ(keltest::Run(command), 0) << command;
  const Bytes expected = keltest::ReadFile(peer);
  std::remove(ppm.c_str());
  std::remove(peer.c_str());

  // The fourth byte of each pixel must be ignored: fill it with noise.
  const keltest::EncodeResult ours =
      keltest::Encode(keltest::ToPacked4(pixels, 0xA5), size.width, size.height, quality, kiu::FormatRGB,
                      rgb ? kiu::FormatRGBA : kiu::FormatYUV);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  EXPECT_EQ(ours.printed, "");
  ASSERT_EQ(ours.jpeg.size(), expected.size());
  EXPECT_TRUE(ours.jpeg == expected);
}

INSTANTIATE_TEST_SUITE_P(AllSizesAndQualities, PackedVersusCjpeg,
                         testing::Combine(testing::ValuesIn(kPackedSizes), testing::ValuesIn(kQualities),
                                          testing::Bool()),
                         [](const auto& info) {
                           return Name(std::get<0>(info.param)) + "_q" +
                                  std::to_string(std::get<1>(info.param)) +
                                  (std::get<2>(info.param) ? "_rgb" : "_ycc");
                         });

// Every packed input format (8..13) reads bytes 0..2 of a 4-byte pixel in
// the same way, whatever its name says.

}  // namespace
