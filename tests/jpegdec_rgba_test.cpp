// The RGBA row kernels: every SIMD variant the CPU runs gives its scalar
// twin's bytes, over every chroma pair with extreme and random luma, and over
// short odd rows that end in the scalar tail.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/testutil.h"

namespace {

using keltest::Bytes;

enum class Layout { k111, k211, k420 };

// Output rows of `layout` from one kernel table; exact-size buffers, so a
// write past the row shows under the sanitizers.
Bytes Convert(const kjd::Kernels& k, Layout layout, uint32_t width, const Bytes& y0, const Bytes& y1,
              const Bytes& cb, const Bytes& cr, unsigned char alpha) {
  Bytes out0(4 * size_t{width}, 0x5a), out1(out0);
  if (layout == Layout::k111)
    k.rgba111(width, y0.data(), cb.data(), cr.data(), alpha, out0.data());
  else
    k.rgba211(width, y0.data(), layout == Layout::k420 ? y1.data() : nullptr, cb.data(), cr.data(), alpha,
              out0.data(), layout == Layout::k420 ? out1.data() : nullptr);
  out0.insert(out0.end(), out1.begin(), out1.end());
  return out0;
}

TEST(RgbaKernels, SimdMatchesTheScalarTwin) {
  const std::vector<const kjd::Kernels*> kernels = keltest::DecoderKernels();
  const int n = static_cast<int>(kernels.size());
  ASSERT_STREQ(kernels[0]->name, "scalar");

  std::mt19937 rng(5);
  const auto byte = [&rng] { return static_cast<unsigned char>(rng()); };
  // Luma fills: 0 and 255 meet both ends of the clamp, the others cross it.
  enum Fill { kZero, kFull, kRandom, kMixed };
  struct Case {
    Layout layout;
    uint32_t width;
    bool everyChromaPair;  // chroma sample i is the pair (i & 255, i >> 8)
  };
  std::vector<Case> cases;
  for (Layout l : {Layout::k111, Layout::k211, Layout::k420}) {
    // Each chroma sample takes one pixel (4:4:4) or two.
    cases.push_back({l, l == Layout::k111 ? 65536u : 2 * 65536u + 1, true});
    for (uint32_t w = 1; w <= 50; ++w) cases.push_back({l, w, false});
    cases.push_back({l, 1920, false});
  }
  for (const Case& c : cases) {
    const uint32_t chroma = c.layout == Layout::k111 ? c.width : (c.width + 1) / 2;
    for (Fill fill : {kZero, kFull, kRandom, kMixed}) {
      Bytes y[2], cb(chroma), cr(chroma);
      for (Bytes& row : y) {
        row.resize(c.width);
        for (unsigned char& v : row)
          v = fill == kZero ? 0 : fill == kFull ? 255 : fill == kRandom ? byte() : (byte() & 1) * 255;
      }
      for (uint32_t i = 0; i < chroma; ++i) {
        cb[i] = c.everyChromaPair ? static_cast<unsigned char>(i) : byte();
        cr[i] = c.everyChromaPair ? static_cast<unsigned char>(i >> 8) : byte();
      }
      const unsigned char alpha = byte();
      const Bytes expected = Convert(*kernels[0], c.layout, c.width, y[0], y[1], cb, cr, alpha);
      for (int i = 1; i < n; ++i) {
        const Bytes got = Convert(*kernels[i], c.layout, c.width, y[0], y[1], cb, cr, alpha);
        ASSERT_TRUE(got == expected) << kernels[i]->name << " layout " << static_cast<int>(c.layout)
                                     << " width " << c.width << " fill " << fill
                                     << ": first difference at byte "
                                     << std::mismatch(got.begin(), got.end(), expected.begin()).first -
                                            got.begin();
      }
    }
  }
}

}  // namespace
