// Image scaling: sizes and ownership, the documented filter results on small
// pictures, agreement of the three entry points, quality on a photo-like
// picture, and the failure paths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kau/kau.h"
#include "kiu/kiuscale.h"
#include "support/testutil.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Calls the three entry points alike: one picture of `channels` bytes per
// pixel (1: ScaleComponent, 3: ScaleImage24bpp, 4: ScaleImageRGB).
struct Scaled {
  Bytes pixels;
  unsigned long width = 0, height = 0;
  bool ok = false;
};

Scaled Scale(int channels, Bytes src, unsigned long w, unsigned long h, unsigned long dw, unsigned long dh) {
  kau::mem::Heap heap;
  Scaled s;
  unsigned char* data = src.data();
  unsigned long width = w, height = h;
  unsigned char* result = nullptr;
  if (channels == 1) {
    result = kiu::ScaleComponent(data, w, h, dw, dh, heap);
    width = dw;
    height = dh;
  } else if (channels == 3) {
    result = kiu::ScaleImage24bpp(data, width, height, dw, dh, heap);
  } else {
    result = kiu::ScaleImageRGB(data, width, height, dw, dh, heap);
  }
  EXPECT_EQ(result, data);
  if (result == nullptr) return s;
  EXPECT_NE(result, src.data()) << "a new buffer";
  s.ok = true;
  s.width = width;
  s.height = height;
  s.pixels.assign(result, result + dw * dh * channels);
  if (channels != 1) kau::mem::Delete(result);
  return s;
}

// A grey picture with `value` everywhere except (x, y).
Bytes Spot(int w, int h, int x, int y, unsigned char background, unsigned char value) {
  Bytes p(static_cast<size_t>(w) * h, background);
  p[static_cast<size_t>(y) * w + x] = value;
  return p;
}

// Repeats each grey sample into `channels` bytes (channel c offset by c).
Bytes Widen(const Bytes& grey, int channels) {
  Bytes out;
  for (unsigned char v : grey) {
    for (int c = 0; c < channels; ++c) out.push_back(static_cast<unsigned char>(v + c));
  }
  return out;
}

struct Size {
  unsigned long sw, sh, dw, dh;
};

const Size kSizes[] = {
    {1, 1, 7, 3},   {5, 1, 1, 1},   {1000, 3, 3, 1000}, {16, 16, 16, 16}, {16, 16, 8, 8},
    {9, 7, 27, 21}, {33, 17, 5, 3}, {2, 2, 1, 1},       {3, 1, 1, 5},     {7, 7, 3, 11},
};

TEST(Scale, UniformPicturesStayUniformAtAnySize) {
  for (int channels : {1, 3, 4}) {
    for (const Size& s : kSizes) {
      Bytes src(s.sw * s.sh * channels);
      for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(200 + i % channels);
      Scaled out = Scale(channels, src, s.sw, s.sh, s.dw, s.dh);
      ASSERT_TRUE(out.ok);
      EXPECT_EQ(out.width, s.dw);
      EXPECT_EQ(out.height, s.dh);
      for (size_t i = 0; i < out.pixels.size(); ++i) {
        ASSERT_EQ(out.pixels[i], 200 + i % channels) << channels << " channels, " << s.sw << "x" << s.sh
                                                     << " -> " << s.dw << "x" << s.dh << " at " << i;
      }
    }
  }
}

// The documented results on small grey pictures, checked through every entry
// point (each channel carries the same picture, offset by its index).
struct FilterCase {
  const char* what;
  int sw, sh;
  Bytes src;
  int dw, dh;
  Bytes expect;
};

const FilterCase kFilterCases[] = {
    // Same size: the spot keeps 3/4 of its difference per direction and passes
    // 1/8 to each neighbour.
    {"same-size interior spot", 5, 5, Spot(5, 5, 2, 2, 100, 228), 5, 5, {100, 100, 100, 100, 100,  //
                                                                         100, 102, 112, 102, 100,  //
                                                                         100, 112, 172, 112, 100,  //
                                                                         100, 102, 112, 102, 100,  //
                                                                         100, 100, 100, 100, 100}},
    // At the corner the folded index repeats the edge pixel.
    {"same-size corner spot",
     4,
     3,
     Spot(4, 3, 0, 0, 100, 228),
     4,
     3,
     {198, 114, 100, 100,  //
      114, 102, 100, 100,  //
      100, 100, 100, 100}},
    // Enlarging centres on the rounded-down source index: no half-pixel shift.
    {"enlarged step", 2, 1, {0, 200}, 4, 1, {25, 25, 175, 175}},
    // Halving alternating columns: half of 251 rounds up.
    {"halved stripes", 8, 1, {0, 251, 0, 251, 0, 251, 0, 251}, 4, 1, {78, 126, 126, 141}},
    {"enlarged single pixel", 1, 1, {37}, 3, 2, {37, 37, 37, 37, 37, 37}},
};

TEST(Scale, FollowsTheBellFilterOnSmallPictures) {
  for (const FilterCase& c : kFilterCases) {
    for (int channels : {1, 3, 4}) {
      Scaled out = Scale(channels, Widen(c.src, channels), c.sw, c.sh, c.dw, c.dh);
      ASSERT_TRUE(out.ok) << c.what;
      for (size_t i = 0; i < c.expect.size(); ++i) {
        for (int ch = 0; ch < std::min(channels, 3); ++ch) {
          EXPECT_EQ(out.pixels[i * channels + ch], c.expect[i] + ch)
              << c.what << ", " << channels << " channels, pixel " << i << " channel " << ch;
        }
      }
    }
  }
}

TEST(Scale, HalvingNeverExceedsTheSampleRange) {
  const int w = 64, h = 40;
  Bytes src(static_cast<size_t>(w) * h);
  for (size_t i = 0; i < src.size(); ++i)
    src[i] = static_cast<unsigned char>(254 + ((i * 7 + i / w) % 3 == 0));
  Scaled out = Scale(1, src, w, h, w / 2, h / 2);
  ASSERT_TRUE(out.ok);
  for (unsigned char v : out.pixels) ASSERT_TRUE(v == 254 || v == 255) << int(v);
}

// The three-channel loops must give each channel what the one-channel path
// gives its plane; the fourth byte follows the centre source pixel.
TEST(Scale, ChannelsAgreeWithTheSinglePlanePath) {
  const int w = 41, h = 23;
  keltest::Bytes rgb = keltest::PhotoLike(w, h, 3, 21);
  Bytes rgbx;
  Bytes plane[3];
  for (size_t i = 0; i < rgb.size() / 3; ++i) {
    for (int c = 0; c < 3; ++c) {
      rgbx.push_back(rgb[i * 3 + c]);
      plane[c].push_back(rgb[i * 3 + c]);
    }
    rgbx.push_back(static_cast<unsigned char>(i));
  }
  for (const Size& s : {Size{w, h, 17, 30}, Size{w, h, 100, 9}, Size{w, h, w, h}}) {
    Scaled three = Scale(3, Bytes(rgb.begin(), rgb.end()), w, h, s.dw, s.dh);
    Scaled four = Scale(4, rgbx, w, h, s.dw, s.dh);
    ASSERT_TRUE(three.ok && four.ok);
    for (int c = 0; c < 3; ++c) {
      Scaled one = Scale(1, plane[c], w, h, s.dw, s.dh);
      for (size_t i = 0; i < one.pixels.size(); ++i) {
        ASSERT_EQ(three.pixels[i * 3 + c], one.pixels[i]) << "24bpp channel " << c << " pixel " << i;
        ASSERT_EQ(four.pixels[i * 4 + c], one.pixels[i]) << "RGB channel " << c << " pixel " << i;
      }
    }
    for (unsigned long y = 0; y < s.dh; ++y) {
      for (unsigned long x = 0; x < s.dw; ++x) {
        size_t centre = (y * h / s.dh) * w + x * w / s.dw;
        ASSERT_EQ(four.pixels[(y * s.dw + x) * 4 + 3], static_cast<unsigned char>(centre)) << x << "," << y;
      }
    }
  }
}

TEST(Scale, HalvedPhotoIsCloseToTheAreaAverage) {
  const int w = 256, h = 192;
  keltest::Bytes photo = keltest::PhotoLike(w, h, 1, 4);
  Scaled out = Scale(1, Bytes(photo.begin(), photo.end()), w, h, w / 2, h / 2);
  ASSERT_TRUE(out.ok);
  Bytes average;
  for (int y = 0; y < h; y += 2) {
    for (int x = 0; x < w; x += 2) {
      int sum = photo[y * w + x] + photo[y * w + x + 1] + photo[(y + 1) * w + x] + photo[(y + 1) * w + x + 1];
      average.push_back(static_cast<unsigned char>((sum + 2) / 4));
    }
  }
  double psnr = keltest::Psnr(out.pixels.data(), average.data(), average.size());
  EXPECT_GT(psnr, 30.0);
}

// Failure paths: one diagnostic line, null result, null data.
std::string ScaleAndCapture(int channels, unsigned char* data, unsigned long w, unsigned long h,
                            unsigned long dw, unsigned long dh, bool* nulled) {
  kau::mem::Heap heap;
  unsigned long width = w, height = h;
  unsigned char* result = nullptr;
  testing::internal::CaptureStdout();
  if (channels == 1) result = kiu::ScaleComponent(data, w, h, dw, dh, heap);
  if (channels == 3) result = kiu::ScaleImage24bpp(data, width, height, dw, dh, heap);
  if (channels == 4) result = kiu::ScaleImageRGB(data, width, height, dw, dh, heap);
  std::string printed = testing::internal::GetCapturedStdout();
  *nulled = result == nullptr && data == nullptr && width == w && height == h;
  return printed;
}

std::string Line(int line) {
  return "\n?!exception@ common/kiu/kiuscale +" + std::to_string(line) + " !?\n\n\n";
}

TEST(ScaleFailure, ReportsAndReturnsNull) {
  unsigned char pixels[16] = {};
  struct Case {
    const char* what;
    unsigned char* data;
    unsigned long w, h, dw, dh;
    int line;
  } cases[] = {
      {"null data", nullptr, 2, 2, 4, 4, 160},
      {"zero source width", pixels, 0, 2, 4, 4, 162},
      {"zero target height", pixels, 2, 2, 4, 0, 162},
      {"side above 30 bits", pixels, 2, 2, 0x40000000ul, 1, 162},
      {"target above 32 bits", pixels, 1, 1, 0x10000ul, 0x10000ul, 164},
  };
  for (const Case& c : cases) {
    for (int channels : {1, 3, 4}) {
      bool nulled = false;
      EXPECT_EQ(ScaleAndCapture(channels, c.data, c.w, c.h, c.dw, c.dh, &nulled), Line(c.line))
          << c.what << ", " << channels << " channels";
      EXPECT_TRUE(nulled) << c.what << ", " << channels << " channels";
    }
  }
}

// Fails the one allocation of `failSize` bytes.
struct FailingHooks {
  static inline unsigned long failSize = 0;
  static void* Allocate(unsigned long n) { return n == failSize ? nullptr : std::malloc(n); }
  FailingHooks(unsigned long size) {
    failSize = size;
    kau::mem::SetExternalNewAndDelete(Allocate, std::free);
  }
  ~FailingHooks() {
    kau::mem::SetExternalNewAndDelete([](unsigned long n) { return std::malloc(n); }, std::free);
  }
};

TEST(ScaleFailure, FailedOutputAllocationLeavesDataNull) {
  Bytes src(6 * 5 * 4, 9);
  for (int channels : {3, 4}) {
    FailingHooks hooks(7ul * 11 * channels);
    bool nulled = false;
    EXPECT_EQ(ScaleAndCapture(channels, src.data(), 6, 5, 7, 11, &nulled), Line(180)) << channels;
    EXPECT_TRUE(nulled) << channels;
  }
  // The plane variant's output comes from the heap, whose own error is printed.
  FailingHooks hooks(7ul * 11 + 3 * sizeof(void*) + 16);  // the heap's block overhead
  bool nulled = false;
  EXPECT_EQ(ScaleAndCapture(1, src.data(), 6, 5, 7, 11, &nulled),
            "\n?!exception@ common/kau/kau +402 !?\n\n\n");
  EXPECT_TRUE(nulled);
}

}  // namespace
