// Image scaling: sizes and ownership, the documented filter results on small
// pictures, agreement of the three entry points, and the failure paths.
#include <gtest/gtest.h>

#include "kau/kau.h"
#include "kiu/kiuscale.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

// Calls one of the three entry points by bytes per pixel (1: ScaleComponent,
// 3: ScaleImage24bpp, 4: ScaleImageRGB); empty on failure. With `printed`,
// failures must leave data null and the size as it was.
Bytes Scale(int channels, Bytes src, unsigned long w, unsigned long h, unsigned long dw, unsigned long dh,
            std::string* printed = nullptr) {
  kau::mem::Heap heap;
  unsigned char* data = src.empty() ? nullptr : src.data();
  unsigned long width = w, height = h;
  unsigned char* result = nullptr;
  testing::internal::CaptureStdout();
  if (channels == 1) result = kiu::ScaleComponent(data, w, h, dw, dh, heap);
  if (channels == 3) result = kiu::ScaleImage24bpp(data, width, height, dw, dh, heap);
  if (channels == 4) result = kiu::ScaleImageRGB(data, width, height, dw, dh, heap);
  const std::string text = testing::internal::GetCapturedStdout();
  if (printed != nullptr) *printed = text;
  EXPECT_EQ(result, data);
  if (result == nullptr) {
    EXPECT_TRUE(width == w && height == h);
    return {};
  }
  EXPECT_NE(result, src.data()) << "a new buffer";
  EXPECT_EQ(text, "");
  EXPECT_TRUE(channels == 1 || (width == dw && height == dh));
  Bytes out(result, result + dw * dh * channels);
  if (channels != 1) kau::mem::Delete(result);
  return out;
}

TEST(Scale, UniformPicturesStayUniformAtAnySize) {
  const unsigned long sizes[][4] = {{1, 1, 7, 3},   {5, 1, 1, 1},   {1000, 3, 3, 1000}, {16, 16, 16, 16},
                                    {16, 16, 8, 8}, {9, 7, 27, 21}, {33, 17, 5, 3},     {2, 2, 1, 1},
                                    {3, 1, 1, 5},   {7, 7, 3, 11}};
  for (int channels : {1, 3, 4}) {
    for (const auto& s : sizes) {
      Bytes src(s[0] * s[1] * channels);
      for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(200 + i % channels);
      Bytes expected(s[2] * s[3] * channels);
      for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = static_cast<unsigned char>(200 + i % channels);
      EXPECT_EQ(Scale(channels, src, s[0], s[1], s[2], s[3]), expected)
          << channels << " channels, " << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3];
    }
  }
}

// A grey picture with `background` everywhere except `value` at (x, y).
Bytes Spot(int w, int h, int x, int y, unsigned char background, unsigned char value) {
  Bytes p(static_cast<size_t>(w) * h, background);
  p[static_cast<size_t>(y) * w + x] = value;
  return p;
}

// The documented results on small grey pictures, checked through every entry
// point (each channel carries the same picture, offset by its index).
TEST(Scale, FollowsTheBellFilterOnSmallPictures) {
  const struct {
    const char* what;
    int sw, sh;
    Bytes src;
    int dw, dh;
    Bytes expect;
  } cases[] = {
      // Same size: the spot keeps 3/4 of its difference per direction and
      // passes 1/8 to each neighbour.
      {"same-size interior spot", 5, 5, Spot(5, 5, 2, 2, 100, 228), 5, 5, {100, 100, 100, 100, 100, 100, 102,
                                                                           112, 102, 100, 100, 112, 172, 112,
                                                                           100, 100, 102, 112, 102, 100, 100,
                                                                           100, 100, 100, 100}},
      // At the corner the folded index repeats the edge pixel.
      {"same-size corner spot",
       4,
       3,
       Spot(4, 3, 0, 0, 100, 228),
       4,
       3,
       {198, 114, 100, 100, 114, 102, 100, 100, 100, 100, 100, 100}},
      // Enlarging centres on the rounded-down source index: no half-pixel shift.
      {"enlarged step", 2, 1, {0, 200}, 4, 1, {25, 25, 175, 175}},
      // Halving alternating columns: half of 251 rounds up.
      {"halved stripes", 8, 1, {0, 251, 0, 251, 0, 251, 0, 251}, 4, 1, {78, 126, 126, 141}},
      {"enlarged single pixel", 1, 1, {37}, 3, 2, {37, 37, 37, 37, 37, 37}},
  };
  for (const auto& c : cases) {
    for (int channels : {1, 3, 4}) {
      Bytes src, expect;
      for (unsigned char v : c.src)
        for (int k = 0; k < channels; ++k) src.push_back(static_cast<unsigned char>(v + k));
      const Bytes out = Scale(channels, src, c.sw, c.sh, c.dw, c.dh);
      ASSERT_EQ(out.size(), c.expect.size() * channels) << c.what;
      for (size_t i = 0; i < c.expect.size(); ++i)
        for (int k = 0; k < std::min(channels, 3); ++k)
          EXPECT_EQ(out[i * channels + k], c.expect[i] + k)
              << c.what << ", " << channels << " channels, pixel " << i;
    }
  }
}

TEST(Scale, HalvingNeverExceedsTheSampleRange) {
  const int w = 64, h = 40;
  Bytes src(static_cast<size_t>(w) * h);
  for (size_t i = 0; i < src.size(); ++i)
    src[i] = static_cast<unsigned char>(254 + ((i * 7 + i / w) % 3 == 0));
  for (unsigned char v : Scale(1, src, w, h, w / 2, h / 2)) ASSERT_TRUE(v == 254 || v == 255) << int(v);
}

// The three-channel loops must give each channel what the one-channel path
// gives its plane; the fourth byte follows the centre source pixel.
TEST(Scale, ChannelsAgreeWithTheSinglePlanePath) {
  const unsigned long w = 41, h = 23;
  const Bytes rgb = keltest::PhotoLike(w, h, 3, 21);
  Bytes rgbx = keltest::ToPacked4(rgb, 0), plane[3];
  for (size_t i = 0; i < w * h; ++i) {
    rgbx[4 * i + 3] = static_cast<unsigned char>(i);
    for (int c = 0; c < 3; ++c) plane[c].push_back(rgb[i * 3 + c]);
  }
  for (auto [dw, dh] : {std::pair{17ul, 30ul}, {100ul, 9ul}, {w, h}}) {
    const Bytes three = Scale(3, rgb, w, h, dw, dh), four = Scale(4, rgbx, w, h, dw, dh);
    for (int c = 0; c < 3; ++c) {
      const Bytes one = Scale(1, plane[c], w, h, dw, dh);
      for (size_t i = 0; i < one.size(); ++i) {
        ASSERT_EQ(three[i * 3 + c], one[i]) << "24bpp channel " << c << " pixel " << i;
        ASSERT_EQ(four[i * 4 + c], one[i]) << "RGB channel " << c << " pixel " << i;
      }
    }
    for (unsigned long y = 0; y < dh; ++y)
      for (unsigned long x = 0; x < dw; ++x)
        ASSERT_EQ(four[(y * dw + x) * 4 + 3], static_cast<unsigned char>((y * h / dh) * w + x * w / dw))
            << x << "," << y;
  }
}

std::string Line(int line) { return keltest::Line("common/kiu/kiuscale", line); }

TEST(ScaleFailure, ReportsAndReturnsNull) {
  const struct {
    const char* what;
    bool data;
    unsigned long w, h, dw, dh;
    int line;
  } cases[] = {
      {"null data", false, 2, 2, 4, 4, 160},
      {"zero source width", true, 0, 2, 4, 4, 162},
      {"zero target height", true, 2, 2, 4, 0, 162},
      {"side above 30 bits", true, 2, 2, 0x40000000ul, 1, 162},
      {"target above 32 bits", true, 1, 1, 0x10000ul, 0x10000ul, 164},
  };
  for (const auto& c : cases) {
    for (int channels : {1, 3, 4}) {
      std::string printed;
      EXPECT_TRUE(Scale(channels, Bytes(c.data ? 16 : 0), c.w, c.h, c.dw, c.dh, &printed).empty());
      EXPECT_EQ(printed, Line(c.line)) << c.what << ", " << channels << " channels";
    }
  }
}

// Fails the one allocation of `failSize` bytes.
struct FailingHooks {
  static inline unsigned long failSize = 0;
  static void* Allocate(unsigned long n) { return n == failSize ? nullptr : MMAllocate(n); }
  explicit FailingHooks(unsigned long size) {
    failSize = size;
    kau::mem::SetExternalNewAndDelete(Allocate, MMFree);
  }
  ~FailingHooks() { kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree); }
};

TEST(ScaleFailure, FailedOutputAllocationLeavesDataNull) {
  const Bytes src(6 * 5 * 4, 9);
  for (int channels : {3, 4}) {
    FailingHooks hooks(7ul * 11 * channels);
    std::string printed;
    EXPECT_TRUE(Scale(channels, src, 6, 5, 7, 11, &printed).empty());
    EXPECT_EQ(printed, Line(180)) << channels;
  }
  // The plane variant's output comes from the heap, whose own error is printed.
  FailingHooks hooks(7ul * 11 + 3 * sizeof(void*) + 16);  // the heap's block overhead
  std::string printed;
  EXPECT_TRUE(Scale(1, src, 6, 5, 7, 11, &printed).empty());
  EXPECT_EQ(printed, keltest::Line("common/kau/kau", 402));
}

}  // namespace
