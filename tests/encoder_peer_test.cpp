// The encoder against an independent peer (libjpeg-turbo's cjpeg, djpeg and
// TurboJPEG), on pictures made at test time.
#include <gtest/gtest.h>

#include <algorithm>
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
Size SofSize(const Bytes& jpeg) {
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

// ---------------------------------------------------------------------------
// Planar I420 input (fast DCT).

// Planes in the encoder's padded layout, filled straight from photo-like data.
struct Planes {
  int width, height, pw, ph, cs;  // cs: chroma stride
  Bytes data;
  const uint8_t* y() const { return data.data(); }
  const uint8_t* cb() const { return data.data() + static_cast<size_t>(pw) * ph; }
  const uint8_t* cr() const { return cb() + static_cast<size_t>(cs) * ph / 2; }
};

// Photo-like content with its pixel noise softened by a 3x3 box, as a camera
// frame would be; the raw noise alone sits below 35 dB at quality 85.
Bytes Soften(const Bytes& rgb, int width, int height) {
  Bytes out(rgb.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 3; ++c) {
        int sum = 0, n = 0;
        for (int yy = y - 1; yy <= y + 1; ++yy) {
          for (int xx = x - 1; xx <= x + 1; ++xx) {
            if (yy < 0 || yy >= height || xx < 0 || xx >= width) continue;
            sum += rgb[(static_cast<size_t>(yy) * width + xx) * 3 + c];
            ++n;
          }
        }
        out[(static_cast<size_t>(y) * width + x) * 3 + c] = static_cast<uint8_t>((sum + n / 2) / n);
      }
    }
  }
  return out;
}

Planes MakePlanes(int width, int height) {
  Planes p{width, height, (width + 3) / 4 * 4, (height + 1) / 2 * 2, 0, {}};
  p.cs = (p.pw + 7) / 8 * 8 / 2;
  p.data =
      keltest::ToPaddedI420(Soften(keltest::PhotoLike(width, height, 3, 11), width, height), width, height);
  return p;
}

#ifdef KEL_HAVE_TURBOJPEG

const Size kSizesOf16[] = {{16, 16}, {48, 32}, {640, 480}};

// The peer's encode of the same planes, or empty on failure.
Bytes PeerEncode(const Planes& planes, int quality) {
  const unsigned char* src[3] = {planes.y(), planes.cb(), planes.cr()};
  const int strides[3] = {planes.pw, planes.cs, planes.cs};
  tjhandle handle = tjInitCompress();
  if (handle == nullptr) return {};
  unsigned char* peer = nullptr;
  unsigned long peerSize = 0;
  const int rc = tjCompressFromYUVPlanes(handle, src, planes.width, strides, planes.height, TJSAMP_420, &peer,
                                         &peerSize, quality, TJFLAG_FASTDCT);
  Bytes out = rc == 0 ? Bytes(peer, peer + peerSize) : Bytes();
  tjFree(peer);
  tjDestroy(handle);
  return out;
}

struct DecodedPlanes {
  Bytes y, cb, cr;  // width x height and ceil(width / 2) x ceil(height / 2), tightly packed
};

// Decodes with the peer; false on failure.
bool PeerDecode(const Bytes& jpeg, int width, int height, DecodedPlanes* out) {
  const int cw = (width + 1) / 2, ch = (height + 1) / 2;
  // The peer writes whole 4:2:0 row pairs, so give it its own plane sizes.
  Bytes y(tjPlaneSizeYUV(0, width, width, height, TJSAMP_420));
  Bytes cb(tjPlaneSizeYUV(1, width, cw, height, TJSAMP_420)), cr(cb.size());
  unsigned char* dst[3] = {y.data(), cb.data(), cr.data()};
  int strides[3] = {width, cw, cw};
  tjhandle handle = tjInitDecompress();
  if (handle == nullptr) return false;
  const int rc = tjDecompressToYUVPlanes(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), dst,
                                         width, strides, height, 0);
  tjDestroy(handle);
  y.resize(static_cast<size_t>(width) * height);
  cb.resize(static_cast<size_t>(cw) * ch);
  cr.resize(cb.size());
  *out = {y, cb, cr};
  return rc == 0;
}

struct PlanePsnr {
  double y, cb, cr;
};

PlanePsnr Compare(const Planes& planes, const DecodedPlanes& decoded) {
  const int cw = (planes.width + 1) / 2, ch = (planes.height + 1) / 2;
  auto crop = [](const uint8_t* plane, int stride, int w, int h) {
    Bytes out;
    for (int r = 0; r < h; ++r)
      out.insert(out.end(), plane + static_cast<size_t>(r) * stride, plane + r * stride + w);
    return out;
  };
  const Bytes y = crop(planes.y(), planes.pw, planes.width, planes.height);
  const Bytes cb = crop(planes.cb(), planes.cs, cw, ch), cr = crop(planes.cr(), planes.cs, cw, ch);
  return {keltest::Psnr(y.data(), decoded.y.data(), y.size()),
          keltest::Psnr(cb.data(), decoded.cb.data(), cb.size()),
          keltest::Psnr(cr.data(), decoded.cr.data(), cr.size())};
}

class PlanarVersusTurboJpeg : public testing::TestWithParam<std::tuple<Size, int>> {};

TEST_P(PlanarVersusTurboJpeg, WritesTheSameBytesAsTheFastDctPeer) {
  const auto [size, quality] = GetParam();
  const Planes planes = MakePlanes(size.width, size.height);
  const Bytes expected = PeerEncode(planes, quality);
  ASSERT_FALSE(expected.empty());

  const keltest::EncodeResult ours =
      keltest::Encode(planes.data, size.width, size.height, quality, kiu::FormatI420, kiu::FormatI420);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  ASSERT_EQ(ours.jpeg.size(), expected.size());
  EXPECT_TRUE(ours.jpeg == expected);
}

INSTANTIATE_TEST_SUITE_P(MultiplesOf16, PlanarVersusTurboJpeg,
                         testing::Combine(testing::ValuesIn(kSizesOf16),
                                          testing::Values(1, 10, 50, 75, 85, 95)),
                         [](const auto& info) {
                           return Name(std::get<0>(info.param)) + "_q" +
                                  std::to_string(std::get<1>(info.param));
                         });

// Sizes that are not multiples of 16: the peer decodes them cleanly, SOF has
// the caller's size, and the planes come back close to what went in.
class PlanarRoundTrip : public testing::TestWithParam<Size> {};

TEST_P(PlanarRoundTrip, DecodesCleanlyInThePeerWithTheGivenSize) {
  const Size size = GetParam();
  const Planes planes = MakePlanes(size.width, size.height);
  const keltest::EncodeResult ours =
      keltest::Encode(planes.data, size.width, size.height, 85, kiu::FormatI420, kiu::FormatYUV);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  const Size sof = SofSize(ours.jpeg);
  EXPECT_EQ(sof.width, size.width);
  EXPECT_EQ(sof.height, size.height);

  if (keltest::HaveTool("djpeg")) {
    const std::string jpg = keltest::TempPath("planar.jpg"), err = keltest::TempPath("djpeg.err");
    keltest::WriteFile(jpg, ours.jpeg);
    EXPECT_EQ(keltest::Run("djpeg -outfile /dev/null " + jpg + " 2>" + err), 0);
    EXPECT_TRUE(keltest::ReadFile(err).empty()) << "djpeg warned";
    std::remove(jpg.c_str());
    std::remove(err.c_str());
  }

  DecodedPlanes decoded;
  ASSERT_TRUE(PeerDecode(ours.jpeg, size.width, size.height, &decoded));
  const PlanePsnr psnr = Compare(planes, decoded);
  EXPECT_GE(psnr.y, 35.0);
  // A few chroma samples around a hard edge keep the smallest pictures lower:
  // hold chroma to what the peer reaches on the same planes.
  DecodedPlanes peerDecoded;
  ASSERT_TRUE(PeerDecode(PeerEncode(planes, 85), size.width, size.height, &peerDecoded));
  const PlanePsnr peer = Compare(planes, peerDecoded);
  EXPECT_GE(psnr.cb, std::min(35.0, peer.cb - 0.5));
  EXPECT_GE(psnr.cr, std::min(35.0, peer.cr - 0.5));
}

INSTANTIATE_TEST_SUITE_P(OddSizes, PlanarRoundTrip,
                         testing::Values(Size{5, 3}, Size{17, 9}, Size{101, 75}, Size{1921, 1081}),
                         [](const auto& info) { return Name(info.param); });

// Planar input always takes the fast transform. The peer switches to its
// accurate transform from quality 96 up, whatever the flag says, so there the
// files share every header byte and differ in the scan only.
TEST(PlanarHighQuality, KeepsTheFastTransformWhereThePeerSwitchesToTheAccurateOne) {
  const Planes planes = MakePlanes(48, 32);
  for (int quality : {96, 100}) {
    const Bytes peer = PeerEncode(planes, quality);
    const keltest::EncodeResult ours =
        keltest::Encode(planes.data, 48, 32, quality, kiu::FormatI420, kiu::FormatI420);
    ASSERT_EQ(ours.rc, 1);
    ASSERT_GT(peer.size(), 700u);
    const size_t headerBytes = 2 + 18 + 2 * 69 + 19 + 2 * 33 + 2 * 183 + 14;
    ASSERT_GT(ours.jpeg.size(), headerBytes);
    EXPECT_TRUE(std::equal(peer.begin(), peer.begin() + headerBytes, ours.jpeg.begin())) << quality;
    EXPECT_FALSE(peer == ours.jpeg) << quality;
    DecodedPlanes decoded;
    ASSERT_TRUE(PeerDecode(ours.jpeg, 48, 32, &decoded));
    EXPECT_GE(Compare(planes, decoded).y, 45.0) << quality;
  }
}

#endif  // KEL_HAVE_TURBOJPEG

}  // namespace
