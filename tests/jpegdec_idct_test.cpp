// Inverse DCT: every transform size against a floating-point reference, the
// range limit's wrap for corrupt data, and 1/2, 1/4, 1/8 decodes against an
// area average of the full decode.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "kj.d/kj.d.h"
#include "kj.d/kj.dkernels.h"
#include "support/testutil.h"

namespace {

using Idct = void (*)(kjd::Coef*, unsigned char**, unsigned long);

struct Transform {
  int n;
  Idct idct;
};
const Transform kTransforms[] = {{8, kjd::Decoder::IDCT_8x8},
                                 {4, kjd::Decoder::IDCT_4x4},
                                 {2, kjd::Decoder::IDCT_2x2},
                                 {1, kjd::Decoder::IDCT_1x1}};

// Runs `t` on `block` into samples written at column 3 of 8 rows.
std::vector<int> Apply(const Transform& t, kjd::Coef* block) {
  unsigned char samples[8][16] = {};
  unsigned char* rows[8];
  for (int r = 0; r < 8; ++r) rows[r] = samples[r];
  t.idct(block, rows, 3);
  std::vector<int> out;
  for (int y = 0; y < t.n; ++y)
    for (int x = 0; x < t.n; ++x) out.push_back(samples[y][3 + x]);
  return out;
}

// An n x n output is the n-point inverse DCT of the top-left n x n
// coefficients with the 8-point scale: 1/4 sum C(u)C(v)F(v,u)cos cos + 128,
// within one step, and without a bias beyond its rounding rule.
TEST(Idct, EverySizeFollowsTheReferenceWithItsRounding) {
  std::mt19937 rng(3);
  for (const Transform& t : kTransforms) {
    double bias = 0;
    int samples = 0;
    for (int trial = 0; trial < 500; ++trial) {
      kjd::Coef block[64] = {}, copy[64];
      for (int k = 0; k < 64; ++k) {
        const int range = k == 0 ? 600 : 120 / (1 + k / 8 + k % 8);
        block[k] = trial % 3 == 0 && k > 0 && k % 8 + k / 8 > 2
                       ? 0
                       : std::uniform_int_distribution<int>(-range, range)(rng);
      }
      std::copy(block, block + 64, copy);
      const std::vector<int> out = Apply(t, copy);
      for (int y = 0; y < t.n; ++y) {
        for (int x = 0; x < t.n; ++x) {
          double s = 0;
          for (int v = 0; v < t.n; ++v)
            for (int u = 0; u < t.n; ++u)
              s += (u == 0 ? M_SQRT1_2 : 1) * (v == 0 ? M_SQRT1_2 : 1) * block[v * 8 + u] *
                   std::cos((2 * x + 1) * u * M_PI / (2 * t.n)) *
                   std::cos((2 * y + 1) * v * M_PI / (2 * t.n));
          const double expected = std::clamp(s / 4 + 128, 0.0, 255.0);
          ASSERT_LE(std::abs(out[y * t.n + x] - expected), 1.5) << t.n << "x" << t.n << " trial " << trial;
          if (expected > 0.5 && expected < 254.5) {
            bias += out[y * t.n + x] - expected;
            ++samples;
          }
        }
      }
    }
    // The 8x8 transform rounds; the reduced ones truncate.
    EXPECT_NEAR(bias / samples, t.n == 8 ? 0.0 : -0.47, 0.07) << t.n << "x" << t.n << " mean error";
  }
}

// Out-of-range values wrap with period 1024 before the clamp, as libjpeg's
// range limit does: 1024 + 5 gives what 5 gives.
TEST(Idct, ValuesWrapEvery1024BeforeTheClamp) {
  for (const Transform& t : kTransforms) {
    for (auto [dc, sample] :
         {std::pair{(1024 + 5) * 8, 133}, {1024, 255}, {-1032, 0}, {-8, 127}, {3000, 255}}) {
      kjd::Coef block[64] = {};
      block[0] = dc;
      EXPECT_EQ(Apply(t, block), std::vector<int>(t.n * t.n, sample)) << t.n << "x" << t.n << " dc " << dc;
    }
  }
}

// Every SIMD kernel the CPU runs gives its scalar twin's bytes, over blocks
// of every shape the shortcuts tell apart, values that wrap, and blocks at
// the edge of the 16-bit path's bound (1096: a column of +-1096 gives the
// largest column results; 1097 takes the 32-bit path).
TEST(Idct, SimdKernelsMatchTheScalarTwin) {
  const std::vector<const kjd::Kernels*> kernels = keltest::DecoderKernels();
  const int n = static_cast<int>(kernels.size());
  ASSERT_STREQ(kernels[0]->name, "scalar");
  std::mt19937 rng(11);
  for (int trial = 0; trial < 24000; ++trial) {
    const int shape = trial % 10;
    const int32_t edge = 1096 + trial / 10 % 2;
    const int32_t range = shape == 7 ? INT32_MAX : shape == 6 ? 1 << 20 : shape >= 8 ? edge : 2048;
    kjd::Coef block[64] = {};
    for (int k = 0; k < 64; ++k) {
      const bool keep = shape == 0   ? k == 0               // DC only
                        : shape == 1 ? k % 8 == 0           // AC only down the columns
                        : shape == 2 ? k < 8                // first row only
                        : shape == 3 ? k % 8 < 4 && k < 32  // top-left quarter
                        : shape == 4 ? rng() % 6 == 0       // sparse
                                     : true;
      if (keep) block[k] = std::uniform_int_distribution<int32_t>(-range, range)(rng);
      if (shape == 9) block[k] = k % 8 == trial / 20 % 8 ? (trial / 160 % 2 ? edge : -edge) : 0;
    }
    for (int i = 1; i < n; ++i) {
      kjd::Coef a[64], b[64];
      std::copy(block, block + 64, a);
      std::copy(block, block + 64, b);
      unsigned char sa[8][24] = {}, sb[8][24] = {};
      unsigned char *ra[8], *rb[8];
      for (int r = 0; r < 8; ++r) ra[r] = sa[r], rb[r] = sb[r];
      const unsigned long column = trial % 17;
      const bool half = trial % 3 == 0;
      (half ? kernels[0]->idct4x4 : kernels[0]->idct8x8)(a, ra, column);
      (half ? kernels[i]->idct4x4 : kernels[i]->idct8x8)(b, rb, column);
      ASSERT_EQ(0, std::memcmp(sa, sb, sizeof sa))
          << kernels[i]->name << (half ? " 4x4" : " 8x8") << " trial " << trial;
    }
  }
}

TEST(Idct, ScaledDecodesMatchAreaAverage) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  for (const char* args :
       {"-quality 90 -sample 2x2", "-quality 90 -sample 2x2 -progressive", "-quality 85 -sample 1x1"}) {
    const keltest::Bytes jpeg = keltest::MakeJpeg(403, 301, 3, 11, args);
    ASSERT_FALSE(jpeg.empty());
    const auto full = keltest::DecodePlanes(jpeg, 8);
    for (int scale : {4, 2, 1}) {
      SCOPED_TRACE(std::string(args) + " scale " + std::to_string(scale));
      const keltest::ComponentPlane y = keltest::DecodePlanes(jpeg, scale)[0];
      EXPECT_EQ(y.width, (403 * scale + 7) / 8);
      EXPECT_EQ(y.height, (301 * scale + 7) / 8);
      const auto ref = keltest::AreaAverage(full[0].samples.data(), 403, 301, 1, 1, y.width, y.height);
      EXPECT_GE(keltest::Psnr(y.samples.data(), ref.data(), ref.size()), 30.0);
    }
  }
}

}  // namespace
