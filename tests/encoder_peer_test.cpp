// The encoder against an independent peer (libjpeg-turbo's cjpeg and
// TurboJPEG), on pictures made at test time.
#include <gtest/gtest.h>

#include <tuple>

#include "support/testutil.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

using keltest::Bytes;

struct Size {
  int width, height;
};
std::string Name(const Size& s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

// Packed input: byte for byte what cjpeg writes for the same picture.
class PackedVersusCjpeg : public testing::TestWithParam<std::tuple<Size, int, bool>> {};

TEST_P(PackedVersusCjpeg, WritesTheSameBytes) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  const auto [size, quality, rgb] = GetParam();
  const Bytes pixels = keltest::PhotoLike(size.width, size.height, 3, 7);
  const Bytes expected = keltest::Cjpeg(
      pixels, size.width, size.height, 3,
      std::string("-baseline -dct int -quality ") + std::to_string(quality) + (rgb ? " -rgb" : ""));
  ASSERT_FALSE(expected.empty());
  // The fourth byte of each pixel must be ignored: fill it with noise.
  const keltest::EncodeResult ours =
      keltest::Encode(keltest::ToPacked4(pixels, 0xA5), size.width, size.height, quality, kiu::FormatRGB,
                      rgb ? kiu::FormatRGBA : kiu::FormatYUV);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  EXPECT_EQ(ours.printed, "");
  EXPECT_TRUE(ours.jpeg == expected);
}

INSTANTIATE_TEST_SUITE_P(AllSizesAndQualities, PackedVersusCjpeg,
                         testing::Combine(testing::Values(Size{1, 1}, Size{7, 9}, Size{16, 16}, Size{17, 9},
                                                          Size{101, 75}, Size{640, 480}, Size{1000, 600}),
                                          testing::Values(1, 10, 50, 75, 85, 95, 100), testing::Bool()),
                         [](const auto& info) {
                           return Name(std::get<0>(info.param)) + "_q" +
                                  std::to_string(std::get<1>(info.param)) +
                                  (std::get<2>(info.param) ? "_rgb" : "_ycc");
                         });

#ifdef KEL_HAVE_TURBOJPEG

// Planar I420 input (fast DCT): planes in the encoder's padded layout, each
// photo-like and softened as a camera frame would be (the raw noise alone
// sits below 35 dB at quality 85).
struct Planes {
  int width, height, pw, ph, cs;  // cs: chroma stride
  Bytes data;
  explicit Planes(int w, int h)
      : width(w), height(h), pw((w + 3) / 4 * 4), ph((h + 1) / 2 * 2), cs((pw + 7) / 8 * 8 / 2) {
    // Visible samples, the padding repeating the edge.
    for (auto [vw, vh, stride, rows, seed] : {std::tuple{w, h, pw, ph, 11},
                                              {(w + 1) / 2, (h + 1) / 2, cs, ph / 2, 12},
                                              {(w + 1) / 2, (h + 1) / 2, cs, ph / 2, 13}}) {
      const Bytes plane = keltest::BoxBlur(keltest::PhotoLike(vw, vh, 1, seed), vw, vh, 1, 1);
      for (int y = 0; y < rows; ++y)
        for (int x = 0; x < stride; ++x)
          data.push_back(plane[std::min(y, vh - 1) * vw + std::min(x, vw - 1)]);
    }
  }
  const uint8_t* Plane(int c) const {
    return data.data() +
           (c == 0 ? 0 : static_cast<size_t>(pw) * ph + (c - 1) * static_cast<size_t>(cs) * ph / 2);
  }
};

// The peer's encode of the same planes, or empty on failure.
Bytes PeerEncode(const Planes& planes, int quality) {
  const unsigned char* src[3] = {planes.Plane(0), planes.Plane(1), planes.Plane(2)};
  const int strides[3] = {planes.pw, planes.cs, planes.cs};
  tjhandle handle = tjInitCompress();
  unsigned char* peer = nullptr;
  unsigned long peerSize = 0;
  const int rc = tjCompressFromYUVPlanes(handle, src, planes.width, strides, planes.height, TJSAMP_420, &peer,
                                         &peerSize, quality, TJFLAG_FASTDCT);
  Bytes out = rc == 0 ? Bytes(peer, peer + peerSize) : Bytes();
  tjFree(peer);
  tjDestroy(handle);
  return out;
}

// PSNR of each plane of `jpeg` decoded by the peer against what went in.
std::vector<double> PlanePsnr(const Planes& planes, const Bytes& jpeg) {
  std::vector<keltest::ComponentPlane> decoded;
  std::string why;
  EXPECT_TRUE(keltest::PeerPlanes(jpeg, &decoded, &why)) << why;
  std::vector<double> out;
  for (size_t c = 0; c < decoded.size(); ++c) {
    const keltest::ComponentPlane& d = decoded[c];
    Bytes in;
    for (int r = 0; r < d.height; ++r)
      in.insert(in.end(), planes.Plane(c) + r * (c == 0 ? planes.pw : planes.cs),
                planes.Plane(c) + r * (c == 0 ? planes.pw : planes.cs) + d.width);
    out.push_back(keltest::Psnr(in.data(), d.samples.data(), in.size()));
  }
  return out;
}

class PlanarVersusTurboJpeg : public testing::TestWithParam<std::tuple<Size, int>> {};

TEST_P(PlanarVersusTurboJpeg, WritesTheSameBytesAsTheFastDctPeer) {
  const auto [size, quality] = GetParam();
  const Planes planes(size.width, size.height);
  const Bytes expected = PeerEncode(planes, quality);
  ASSERT_FALSE(expected.empty());
  const keltest::EncodeResult ours =
      keltest::Encode(planes.data, size.width, size.height, quality, kiu::FormatI420, kiu::FormatI420);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  EXPECT_TRUE(ours.jpeg == expected);
}

INSTANTIATE_TEST_SUITE_P(MultiplesOf16, PlanarVersusTurboJpeg,
                         testing::Combine(testing::Values(Size{16, 16}, Size{48, 32}, Size{640, 480}),
                                          testing::Values(1, 10, 50, 75, 85, 95)),
                         [](const auto& info) {
                           return Name(std::get<0>(info.param)) + "_q" +
                                  std::to_string(std::get<1>(info.param));
                         });

// Sizes that are not multiples of 16: the peer decodes them without a
// warning, SOF has the caller's size, and the planes come back close to what went in.
class PlanarRoundTrip : public testing::TestWithParam<Size> {};

TEST_P(PlanarRoundTrip, DecodesCleanlyInThePeerWithTheGivenSize) {
  const Size size = GetParam();
  const Planes planes(size.width, size.height);
  const keltest::EncodeResult ours =
      keltest::Encode(planes.data, size.width, size.height, 85, kiu::FormatI420, kiu::FormatYUV);
  ASSERT_EQ(ours.rc, 1) << ours.printed;
  const Bytes sof = keltest::Segment(ours.jpeg, 0xC0);
  ASSERT_EQ(sof.size(), 15u);
  EXPECT_EQ(sof[3] << 8 | sof[4], size.width);
  EXPECT_EQ(sof[1] << 8 | sof[2], size.height);
  // A few chroma samples around a hard edge keep the smallest pictures lower:
  // hold chroma to what the peer reaches on the same planes.
  const std::vector<double> psnr = PlanePsnr(planes, ours.jpeg),
                            peer = PlanePsnr(planes, PeerEncode(planes, 85));
  ASSERT_EQ(psnr.size(), 3u);
  EXPECT_GE(psnr[0], 35.0);
  for (int c = 1; c < 3; ++c) EXPECT_GE(psnr[c], std::min(35.0, peer[c] - 0.5)) << c;
}

INSTANTIATE_TEST_SUITE_P(OddSizes, PlanarRoundTrip,
                         testing::Values(Size{5, 3}, Size{17, 9}, Size{101, 75}, Size{1921, 1081}),
                         [](const auto& info) { return Name(info.param); });

// Planar input always takes the fast transform. The peer switches to its
// accurate transform from quality 96 up, whatever the flag says, so there the
// files share every header byte and differ in the scan only.
TEST(PlanarHighQuality, KeepsTheFastTransformWhereThePeerSwitchesToTheAccurateOne) {
  const Planes planes(48, 32);
  for (int quality : {96, 100}) {
    const Bytes peer = PeerEncode(planes, quality);
    const keltest::EncodeResult ours =
        keltest::Encode(planes.data, 48, 32, quality, kiu::FormatI420, kiu::FormatI420);
    ASSERT_EQ(ours.rc, 1);
    const size_t scan = keltest::ScanStart(peer);
    ASSERT_GT(scan, 600u);
    ASSERT_GT(ours.jpeg.size(), scan);
    EXPECT_TRUE(std::equal(peer.begin(), peer.begin() + scan, ours.jpeg.begin())) << quality;
    EXPECT_FALSE(peer == ours.jpeg) << quality;
    EXPECT_GE(PlanePsnr(planes, ours.jpeg)[0], 45.0) << quality;
  }
}

#endif  // KEL_HAVE_TURBOJPEG

}  // namespace
