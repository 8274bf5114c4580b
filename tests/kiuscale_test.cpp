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
  const std::string text = keltest::Printed([&] {
    if (channels == 1) result = kiu::ScaleComponent(data, w, h, dw, dh, heap);
    if (channels == 3) result = kiu::ScaleImage24bpp(data, width, height, dw, dh, heap);
    if (channels == 4) result = kiu::ScaleImageRGB(data, width, height, dw, dh, heap);
  });
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

// A grey picture with `background` everywhere except `value` at (x, y).
Bytes Spot(int w, int h, int x, int y, unsigned char background, unsigned char value) {
  Bytes p(static_cast<size_t>(w) * h, background);
  p[static_cast<size_t>(y) * w + x] = value;
  return p;
}

// The documented results on small grey pictures, and uniform pictures that
// stay uniform at any size, checked through every entry point (each channel
// carries the same picture offset by its index, so a channel mix-up shows).
TEST(Scale, FollowsTheBellFilterOnSmallPictures) {
  const struct {
    const char* what;
    int sw, sh;
    Bytes src;
    int dw, dh;
    Bytes expect;
  } cases[] = {
      // clang-format off
      // Same size: the spot keeps 3/4 of its difference per direction and passes 1/8 to each neighbour.
      {"same-size interior spot", 5, 5, Spot(5, 5, 2, 2, 100, 228), 5, 5,
       {100, 100, 100, 100, 100, 100, 102, 112, 102, 100, 100, 112, 172, 112, 100, 100, 102, 112, 102, 100, 100, 100, 100, 100, 100}},
      // At the corner the folded index repeats the edge pixel.
      {"same-size corner spot", 4, 3, Spot(4, 3, 0, 0, 100, 228), 4, 3, {198, 114, 100, 100, 114, 102, 100, 100, 100, 100, 100, 100}},
      // Enlarging centres on the rounded-down source index: no half-pixel shift.
      {"enlarged step", 2, 1, {0, 200}, 4, 1, {25, 25, 175, 175}},
      // Halving alternating columns: half of 251 rounds up.
      {"halved stripes", 8, 1, {0, 251, 0, 251, 0, 251, 0, 251}, 4, 1, {78, 126, 126, 141}},
      {"uniform 1x1 to 7x3", 1, 1, Bytes(1, 200), 7, 3, Bytes(21, 200)},
      {"uniform 5x1 to 1x1", 5, 1, Bytes(5, 200), 1, 1, Bytes(1, 200)},
      {"uniform 1000x3 to 3x1000", 1000, 3, Bytes(3000, 200), 3, 1000, Bytes(3000, 200)},
      {"uniform 16x16 to 8x8", 16, 16, Bytes(256, 200), 8, 8, Bytes(64, 200)},
      {"uniform 9x7 to 27x21", 9, 7, Bytes(63, 200), 27, 21, Bytes(567, 200)},
      {"uniform 33x17 to 5x3", 33, 17, Bytes(561, 200), 5, 3, Bytes(15, 200)},
      {"uniform 3x1 to 1x5", 3, 1, Bytes(3, 200), 1, 5, Bytes(5, 200)},
      {"uniform 7x7 to 3x11", 7, 7, Bytes(49, 200), 3, 11, Bytes(33, 200)},
      // clang-format on
  };
  for (const auto& c : cases) {
    for (int channels : {1, 3, 4}) {
      Bytes src, expect;
      for (size_t i = 0; i < c.src.size(); ++i)
        for (int k = 0; k < channels; ++k)
          src.push_back(static_cast<unsigned char>(k == 3 ? i : c.src[i] + k));
      // The fourth byte follows the centre source pixel.
      for (size_t i = 0; i < c.expect.size(); ++i) {
        const size_t centre = (i / c.dw * c.sh / c.dh) * c.sw + i % c.dw * c.sw / c.dw;
        for (int k = 0; k < channels; ++k)
          expect.push_back(static_cast<unsigned char>(k == 3 ? centre : c.expect[i] + k));
      }
      const Bytes out = Scale(channels, src, c.sw, c.sh, c.dw, c.dh);
      EXPECT_EQ(out, expect) << c.what << ", " << channels << " channels";
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

// Fails the one allocation of `failSize` bytes.
unsigned long g_failSize = 0;
void* FailingNew(unsigned long n) { return n == g_failSize ? nullptr : MMAllocate(n); }

TEST(ScaleFailure, ReportsAndReturnsNull) {
  const unsigned long heapOverhead = 3 * sizeof(void*) + 16;
  const char* ks = "common/kiu/kiuscale";
  const struct {
    const char* what;
    int channels;  // 0: all three
    bool data;
    unsigned long w, h, dw, dh, failSize;
    const char* file;
    int line;
  } cases[] = {
      // clang-format off
      {"null data", 0, false, 2, 2, 4, 4, 0, ks, 160},
      {"zero source width", 0, true, 0, 2, 4, 4, 0, ks, 162},
      {"zero target height", 0, true, 2, 2, 4, 0, 0, ks, 162},
      {"side above 30 bits", 0, true, 2, 2, 0x40000000ul, 1, 0, ks, 162},
      {"target above 32 bits", 0, true, 1, 1, 0x10000ul, 0x10000ul, 0, ks, 164},
      {"24bpp output", 3, true, 6, 5, 7, 11, 7 * 11 * 3, ks, 180},
      {"RGB output", 4, true, 6, 5, 7, 11, 7 * 11 * 4, ks, 180},
      {"plane output from the heap", 1, true, 6, 5, 7, 11, 7 * 11 + heapOverhead, "common/kau/kau", 402},
      // clang-format on
  };
  for (const auto& c : cases) {
    for (int channels : {1, 3, 4}) {
      if (c.channels != 0 && channels != c.channels) continue;
      SCOPED_TRACE(std::string(c.what) + ", " + std::to_string(channels) + " channels");
      g_failSize = c.failSize;
      if (c.failSize != 0) kau::mem::SetExternalNewAndDelete(FailingNew, MMFree);
      std::string printed;
      EXPECT_TRUE(Scale(channels, Bytes(c.data ? 6 * 5 * 4 : 0, 9), c.w, c.h, c.dw, c.dh, &printed).empty());
      kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
      EXPECT_EQ(printed, keltest::Line(c.file, c.line));
    }
  }
}

}  // namespace
