// Encoder sampling rows: every kernel variant against the colour tables term
// by term, and against the per-pixel conversion followed by the plain 2:1
// filters, edges included.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "kiu/kiu.h"
#include "kj.e/kj.ekernels.h"
#include "kj.e/kj.esample.h"

namespace {

std::vector<const kje::Kernels*> Variants() {
  const kje::Kernels* v[8];
  return std::vector<const kje::Kernels*>(v, v + kje::Kernels_Runnable(v, 8));
}

struct Planes {
  std::vector<unsigned char> y0, y1, cb, cr;
  bool operator==(const Planes& o) const { return y0 == o.y0 && y1 == o.y1 && cb == o.cb && cr == o.cr; }
};

// Output lengths as the encoder pads them: luma to blocks, chroma to MCUs.
Planes Sample(void (*kernel)(const kje::YccRows&), const std::vector<unsigned char>& a,
              const std::vector<unsigned char>& b) {
  const uint32_t width = static_cast<uint32_t>(a.size() / 4);
  Planes p{std::vector<unsigned char>((width + 7) / 8 * 8),
           {},
           std::vector<unsigned char>((width + 15) / 16 * 8),
           {}};
  p.y1 = p.y0;
  p.cr = p.cb;
  kernel({{a.data(), b.data()},
          width,
          static_cast<uint32_t>(p.y0.size()),
          static_cast<uint32_t>(p.cb.size()),
          {p.y0.data(), p.y1.data()},
          p.cb.data(),
          p.cr.data()});
  return p;
}

// Every term of every channel, through the vector steps: pixels 2v and 2v+1
// of both rows carry sample v in one place and zeros in the others, so Y of
// pixel 2v and the 2x2 means are that pixel's own values.
TEST(EncoderSample, EveryVariantMatchesTheTablesForEverySampleValue) {
  const kiu::ColorTables& t = kiu::colorTables;
  const int32_t* terms[3][3] = {
      {t.rToY, t.gToY, t.bToY}, {t.rToCb, t.gToCb, t.bToCb}, {t.bToCb, t.gToCr, t.bToCr}};
  for (int term = 0; term < 3; ++term) {
    std::vector<unsigned char> row(512 * 4);
    for (int p = 0; p < 512; ++p) row[4 * p + term] = static_cast<unsigned char>(p / 2);
    for (const kje::Kernels* k : Variants()) {
      const Planes got = Sample(k->yccRows, row, row);
      for (int v = 0; v < 256; ++v) {
        const unsigned char out[3] = {got.y0[2 * v], got.cb[v], got.cr[v]};
        for (int ch = 0; ch < 3; ++ch) {
          // Zero samples contribute the table's entry 0 (the constant, if any).
          const int32_t zeros = terms[ch][0][0] + terms[ch][1][0] + terms[ch][2][0];
          ASSERT_EQ(out[ch], (zeros - terms[ch][term][0] + terms[ch][term][v]) >> 16)
              << k->name << " channel " << ch << " term " << term << " value " << v;
        }
      }
    }
  }
}

// The rows as the per-pixel conversion and the plain filters make them.
Planes Reference(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b) {
  Planes p = Sample(kje::Sample_YccRows, a, b);  // only for the lengths
  const uint32_t width = static_cast<uint32_t>(a.size() / 4);
  const auto ycc = [width](const std::vector<unsigned char>& row, uint32_t x, int ch) {
    const unsigned char* px = &row[4 * std::min(x, width - 1)];
    unsigned char out[3];
    kiu::ConvertRGBtoYUV(px[0], px[1], px[2], out[0], out[1], out[2]);
    return static_cast<int>(out[ch]);
  };
  for (uint32_t x = 0; x < p.y0.size(); ++x) {
    p.y0[x] = static_cast<unsigned char>(ycc(a, x, 0));
    p.y1[x] = static_cast<unsigned char>(ycc(b, x, 0));
  }
  for (uint32_t i = 0; i < p.cb.size(); ++i) {
    int sum[3] = {};
    for (int ch = 1; ch < 3; ++ch)
      for (const auto* row : {&a, &b}) sum[ch] += ycc(*row, 2 * i, ch) + ycc(*row, 2 * i + 1, ch);
    p.cb[i] = static_cast<unsigned char>((sum[1] + 1 + (i & 1)) >> 2);
    p.cr[i] = static_cast<unsigned char>((sum[2] + 1 + (i & 1)) >> 2);
  }
  return p;
}

// Widths through every step size and tail; samples mostly 0 or 255 (the
// extremes of every channel) or random; the fourth byte, where the packed
// orders differ, random too; the bottom row given twice as well.
TEST(EncoderSample, EveryVariantMatchesConvertThenDownsample) {
  std::vector<uint32_t> widths{1919, 1920, 1921};
  for (uint32_t w = 1; w <= 50; ++w) widths.push_back(w);
  std::mt19937 rng(12);
  const auto sample = [&rng] {
    const unsigned r = rng();
    return static_cast<unsigned char>(r % 3 == 0 ? 0 : r % 3 == 1 ? 255 : r >> 8);
  };
  for (uint32_t width : widths) {
    std::vector<unsigned char> a(width * 4), b(width * 4);
    for (auto& s : a) s = sample();
    for (auto& s : b) s = sample();
    for (bool same : {false, true}) {
      const std::vector<unsigned char>& second = same ? a : b;
      const Planes want = Reference(a, second);
      for (const kje::Kernels* k : Variants())
        EXPECT_TRUE(Sample(k->yccRows, a, second) == want)
            << k->name << " width " << width << " same " << same;
    }
  }
}

}  // namespace
