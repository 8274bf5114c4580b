// The SIMD I420 kernels against their scalar twins. 4:2:0 rows: random rows,
// rows that clamp (extreme luma under saturated chroma), mixtures of both,
// every chroma pair under luma inside its safe range (the kernels compute
// the pair's terms in their own form), and widths around the vector steps,
// with guard bytes past every row; chroma averages of 4:4:4 and 4:2:2 rows.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "kiu/kiu.h"
#include "kj.d/kj.dkernels.h"

namespace {

enum class Fill { kRandom, kClamping, kMixed, kEveryChroma };

TEST(I420Kernels, EveryVariantMatchesTheScalarTwin) {
  const kjd::Kernels* kernels[4];
  const int n = kjd::Kernels_Runnable(kernels, 4);
  ASSERT_STREQ(kernels[0]->name, "scalar");
  std::string names;
  for (int i = 1; i < n; ++i) names += std::string(" ") + kernels[i]->name;
  std::printf("compared with the scalar kernel:%s\n", n > 1 ? names.c_str() : " none on this CPU");
  const uint32_t kWidths[] = {2, 3, 30, 32, 33, 34, 64, 66, 95, 127, 130, 512, 1920};
  const Fill kFills[] = {Fill::kRandom, Fill::kClamping, Fill::kMixed, Fill::kEveryChroma};
  const unsigned char kEdges[] = {0, 1, 2, 16, 235, 253, 254, 255};
  std::mt19937 rng(5);
  auto edge = [&] { return kEdges[rng() % 8]; };
  constexpr uint32_t kGuard = 40;
  for (const Fill fill : kFills) {
    for (const uint32_t width : kWidths) {
      // Cb runs over the row, Cr over the trials.
      const bool sweep = fill == Fill::kEveryChroma;
      if (sweep && width != 512) continue;
      for (int trial = 0; trial < (sweep ? 256 : 40); ++trial) {
        const uint32_t half = (width + 1) / 2;
        std::vector<unsigned char> in[4] = {
            std::vector<unsigned char>(width), std::vector<unsigned char>(width),
            std::vector<unsigned char>(half), std::vector<unsigned char>(half)};
        for (auto& row : in)
          for (unsigned char& s : row) {
            const bool extreme = fill == Fill::kClamping || (fill == Fill::kMixed && rng() % 16 == 0);
            s = extreme ? edge() : static_cast<unsigned char>(rng());
          }
        for (uint32_t i = 0; sweep && i < half; ++i) {
          in[2][i] = static_cast<unsigned char>(i);
          in[3][i] = static_cast<unsigned char>(trial);
          const kiu::RoundTrip t = kiu::RoundTripOf(in[2][i], in[3][i]);
          for (int k = 0; k < 4 && t.yLow <= t.yHigh; ++k)
            in[k / 2][2 * i + k % 2] = static_cast<unsigned char>(t.yLow + rng() % (t.yHigh - t.yLow + 1));
        }
        std::vector<unsigned char> want[4], got[4];
        auto run = [&](const kjd::Kernels& k, std::vector<unsigned char>* out) {
          for (int p = 0; p < 4; ++p) out[p].assign((p < 2 ? width : half) + kGuard, 0xa5);
          k.yuv420ToI420(width, in[0].data(), in[1].data(), in[2].data(), in[3].data(), out[0].data(),
                         out[1].data(), out[2].data(), out[3].data());
        };
        run(*kernels[0], want);
        for (int i = 1; i < n; ++i) {
          run(*kernels[i], got);
          for (int p = 0; p < 4; ++p)
            ASSERT_EQ(got[p], want[p]) << kernels[i]->name << " width " << width << " plane " << p << " fill "
                                       << static_cast<int>(fill) << " trial " << trial;
        }
      }
    }
  }
}

TEST(I420Kernels, ChromaAveragesMatchTheScalarTwin) {
  const kjd::Kernels* kernels[4];
  const int n = kjd::Kernels_Runnable(kernels, 4);
  std::mt19937 rng(7);
  for (const uint32_t pairs : {1u, 15u, 16u, 31u, 32u, 33u, 64u, 65u, 960u}) {
    for (const bool halved : {false, true}) {
      const uint32_t width = halved ? pairs : 2 * pairs;
      std::vector<unsigned char> a(width), b(width);
      for (uint32_t i = 0; i < width; ++i) {
        a[i] = static_cast<unsigned char>(rng());
        b[i] = static_cast<unsigned char>(i % 3 ? rng() : 255);
      }
      std::vector<unsigned char> want(pairs + 40, 0xa5), got;
      kernels[0]->i420Chroma(pairs, halved, a.data(), b.data(), want.data());
      for (int i = 1; i < n; ++i) {
        got.assign(want.size(), 0xa5);
        kernels[i]->i420Chroma(pairs, halved, a.data(), b.data(), got.data());
        ASSERT_EQ(got, want) << kernels[i]->name << " pairs " << pairs << " halved " << halved;
      }
    }
  }
}

}  // namespace
