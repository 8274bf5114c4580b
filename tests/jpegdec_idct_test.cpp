// Inverse DCT arithmetic: the documented numeric cases, the
// reduced transforms against their stated formulas, the accurate transform
// against a floating-point reference, and 1/2, 1/4, 1/8 decodes against an
// area-average of the full decode.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "kj.d/kj.d.h"
#include "support/jpegdec_util.h"
#include "support/testutil.h"

namespace {

using kjd::Coef;
using kjd::Decoder;

struct Out {
  unsigned char samples[8][16] = {};
  unsigned char* rows[8];
  Out() {
    for (int r = 0; r < 8; ++r) rows[r] = samples[r];
  }
};

int Clamp(long v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); }

// The range limit: masked 10-bit value, -128..127 -> 0..255, wrap period 1024.
int Limit(int64_t x) {
  int64_t m = x & 0x3FF;
  if (m < 128) return static_cast<int>(m + 128);
  if (m < 512) return 255;
  if (m < 896) return 0;
  return static_cast<int>(m - 896);
}

TEST(Idct, DcOnly8x8) {
  for (int d : {-3000, -1032, -8, -1, 0, 5, 100, 1016, 1024, 3000}) {
    Coef block[64] = {};
    block[0] = d;
    Out out;
    Decoder::IDCT_8x8(block, out.rows, 3);
    const int expect = Clamp(((d * 4 + 16) >> 5) + 128);
    for (int r = 0; r < 8; ++r)
      for (int c = 0; c < 8; ++c) ASSERT_EQ(out.samples[r][3 + c], expect) << "d=" << d;
  }
}

TEST(Idct, OneByOneCases) {
  struct {
    int dc, sample;
  } cases[] = {{1024, 255}, {-1032, 0}, {-8, 127}, {0, 128}, {8 * 127, 255}, {-8 * 128, 0}};
  for (auto c : cases) {
    Coef block[64] = {};
    block[0] = c.dc;
    Out out;
    Decoder::IDCT_1x1(block, out.rows, 2);
    EXPECT_EQ(out.samples[0][2], c.sample) << "dc=" << c.dc;
  }
  // Wrap with period 1024 before clamping: 1024 + 5 gives what 5 gives.
  Coef a[64] = {}, b[64] = {};
  a[0] = (1024 + 5) * 8;
  b[0] = 5 * 8;
  Out oa, ob;
  Decoder::IDCT_1x1(a, oa.rows, 0);
  Decoder::IDCT_1x1(b, ob.rows, 0);
  EXPECT_EQ(oa.samples[0][0], ob.samples[0][0]);
  EXPECT_EQ(ob.samples[0][0], 133);
}

TEST(Idct, TwoByTwoFormula) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> coef(-1500, 1500);
  for (int t = 0; t < 2000; ++t) {
    Coef block[64] = {};
    for (int& k : std::vector<int>{0, 1, 8, 9}) block[k] = coef(rng);
    const int64_t c00 = block[0], c01 = block[1], c10 = block[8], c11 = block[9];
    Out out;
    Decoder::IDCT_2x2(block, out.rows, 4);
    ASSERT_EQ(out.samples[0][4], Limit((c00 + c10 + c01 + c11) >> 3));
    ASSERT_EQ(out.samples[0][5], Limit((c00 + c10 - c01 - c11) >> 3));
    ASSERT_EQ(out.samples[1][4], Limit((c00 - c10 + c01 - c11) >> 3));
    ASSERT_EQ(out.samples[1][5], Limit((c00 - c10 - c01 + c11) >> 3));
  }
}

TEST(Idct, FourByFourFormula) {
  std::mt19937 rng(9);
  std::uniform_int_distribution<int> coef(-800, 800);
  for (int t = 0; t < 2000; ++t) {
    Coef block[64] = {};
    int64_t c[4][4];
    for (int r = 0; r < 4; ++r)
      for (int k = 0; k < 4; ++k) c[r][k] = block[r * 8 + k] = (t % 3 == 0 && r + k > 2) ? 0 : coef(rng);
    int64_t ws[4][4];
    for (int col = 0; col < 4; ++col) {
      const int64_t z = (c[1][col] + c[3][col]) * 4433;
      const int64_t o1 = (z + c[1][col] * 6270) >> 11, o2 = (z - c[3][col] * 15137) >> 11;
      const int64_t e0 = (c[0][col] + c[2][col]) * 4, e1 = (c[0][col] - c[2][col]) * 4;
      ws[0][col] = e0 + o1;
      ws[1][col] = e1 + o2;
      ws[2][col] = e1 - o2;
      ws[3][col] = e0 - o1;
    }
    Out out;
    Decoder::IDCT_4x4(block, out.rows, 8);
    for (int r = 0; r < 4; ++r) {
      const int64_t z = (ws[r][1] + ws[r][3]) * 4433;
      const int64_t o1 = z + ws[r][1] * 6270, o2 = z - ws[r][3] * 15137;
      const int64_t e0 = (ws[r][0] + ws[r][2]) * 8192, e1 = (ws[r][0] - ws[r][2]) * 8192;
      ASSERT_EQ(out.samples[r][8], Limit((e0 + o1) >> 18));
      ASSERT_EQ(out.samples[r][9], Limit((e1 + o2) >> 18));
      ASSERT_EQ(out.samples[r][10], Limit((e1 - o2) >> 18));
      ASSERT_EQ(out.samples[r][11], Limit((e0 - o1) >> 18));
    }
  }
}

TEST(Idct, EightByEightNearReference) {
  std::mt19937 rng(3);
  for (int t = 0; t < 500; ++t) {
    Coef block[64] = {};
    double ref[64] = {};
    for (int k = 0; k < 64; ++k) {
      int range = k == 0 ? 600 : 120 / (1 + k / 8 + k % 8);
      block[k] = std::uniform_int_distribution<int>(-range, range)(rng);
    }
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        double s = 0;
        for (int v = 0; v < 8; ++v)
          for (int u = 0; u < 8; ++u) {
            double cu = u == 0 ? std::sqrt(0.5) : 1.0, cv = v == 0 ? std::sqrt(0.5) : 1.0;
            s += cu * cv * block[v * 8 + u] * std::cos((2 * x + 1) * u * M_PI / 16) *
                 std::cos((2 * y + 1) * v * M_PI / 16);
          }
        ref[y * 8 + x] = s / 4 + 128;
      }
    Out out;
    Decoder::IDCT_8x8(block, out.rows, 0);
    for (int k = 0; k < 64; ++k) {
      const int expect = Clamp(std::lround(ref[k]));
      ASSERT_LE(std::abs(out.samples[k / 8][k % 8] - expect), 1) << "t=" << t << " k=" << k;
    }
  }
}

// Area average of `factor` x `factor` cells over the full-scale plane.
std::vector<uint8_t> AreaAverage(const keltest::ComponentPlane& full, int factor, int w, int h) {
  std::vector<uint8_t> out(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      int sum = 0, n = 0;
      for (int dy = 0; dy < factor && y * factor + dy < full.height; ++dy)
        for (int dx = 0; dx < factor && x * factor + dx < full.width; ++dx, ++n)
          sum += full.samples[static_cast<size_t>(y * factor + dy) * full.width + x * factor + dx];
      out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>((sum + n / 2) / n);
    }
  return out;
}

TEST(Idct, ScaledDecodesMatchAreaAverage) {
  if (!keltest::HaveTool("cjpeg")) GTEST_SKIP() << "no cjpeg";
  for (const char* args :
       {"-quality 90 -sample 2x2", "-quality 90 -sample 2x2 -progressive", "-quality 85 -sample 1x1"}) {
    keltest::Bytes jpeg = keltest::MakeJpeg(403, 301, 3, 11, args);
    ASSERT_FALSE(jpeg.empty());
    auto full = keltest::DecodePlanes(jpeg, 8);
    for (int scale : {4, 2, 1}) {
      SCOPED_TRACE(std::string(args) + " scale " + std::to_string(scale));
      auto small = keltest::DecodePlanes(jpeg, scale);
      const int factor = 8 / scale;
      const keltest::ComponentPlane& y = small[0];
      EXPECT_EQ(y.width, (403 + factor - 1) / factor);
      EXPECT_EQ(y.height, (301 + factor - 1) / factor);
      auto ref = AreaAverage(full[0], factor, y.width, y.height);
      const double psnr = keltest::Psnr(y.samples.data(), ref.data(), ref.size());
      EXPECT_GE(psnr, 30.0);
    }
  }
}

}  // namespace
