// Encoder sampling rows: the weights against the colour tables for every
// sample value, and every kernel variant against the per-pixel conversion
// followed by the plain 2:1 filters, edges included.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "kiu/kiu.h"
#include "kj.e/kj.ekernels.h"
#include "kj.e/kj.esample.h"

namespace {

// Every term of every channel: a one-pixel row whose other two samples are 0
// isolates the term (the constant rides on B for Y and Cb, on R for Cr).
TEST(EncoderSample, RowsMatchTheTablesForEverySampleValue) {
  const kiu::ColorTables& t = kiu::colorTables;
  const int32_t* terms[3][3] = {
      {t.rToY, t.gToY, t.bToY}, {t.rToCb, t.gToCb, t.bToCb}, {t.bToCb, t.gToCr, t.bToCr}};
  for (int ch = 0; ch < 3; ++ch) {
    for (int term = 0; term < 3; ++term) {
      // Zero samples contribute the table's entry 0 (the constant, if any).
      const int32_t zeros = terms[ch][0][0] + terms[ch][1][0] + terms[ch][2][0];
      for (int v = 0; v < 256; ++v) {
        unsigned char px[4] = {0, 0, 0, 0};
        px[term] = static_cast<unsigned char>(v);
        unsigned char got = 0;
        kje::Sample_YccRow(px, 1, 1, ch, &got);
        const int32_t want = (zeros - terms[ch][term][0] + terms[ch][term][v]) >> 16;
        ASSERT_EQ(got, want) << "channel " << ch << " term " << term << " value " << v;
      }
    }
  }
}

unsigned char Ref(const unsigned char* row, uint32_t width, uint32_t x, int ch) {
  const unsigned char* p = row + 4 * std::min(x, width - 1);
  unsigned char ycc[3];
  kiu::ConvertRGBtoYUV(p[0], p[1], p[2], ycc[0], ycc[1], ycc[2]);
  return ycc[ch];
}

TEST(EncoderSample, EveryVariantMatchesConvertThenDownsample) {
  const kje::Kernels* variants[8];
  const int count = kje::Kernels_Runnable(variants, 8);
  std::mt19937 rng(12);
  for (uint32_t width : {1u, 2u, 3u, 7u, 16u, 33u, 64u, 101u}) {
    const uint32_t outWidth = (width + 15) / 16 * 8;  // block-padded chroma
    std::vector<unsigned char> a(width * 4), b(width * 4);
    for (auto& s : a) s = static_cast<unsigned char>(rng());
    for (auto& s : b) s = static_cast<unsigned char>(rng());
    for (int ch = 0; ch < 3; ++ch) {
      std::vector<unsigned char> full(outWidth * 2), h2v1(outWidth), h2v2(outWidth);
      for (uint32_t x = 0; x < outWidth * 2; ++x) full[x] = Ref(a.data(), width, x, ch);
      for (uint32_t i = 0; i < outWidth; ++i) {
        const uint32_t x = 2 * i;
        h2v1[i] = static_cast<unsigned char>((full[x] + full[x + 1] + (i & 1)) >> 1);
        const int sum = full[x] + full[x + 1] + Ref(b.data(), width, x, ch) + Ref(b.data(), width, x + 1, ch);
        h2v2[i] = static_cast<unsigned char>((sum + 1 + (i & 1)) >> 2);
      }
      for (int k = 0; k < count; ++k) {
        SCOPED_TRACE(std::string(variants[k]->name) + " width " + std::to_string(width) + " channel " +
                     std::to_string(ch));
        std::vector<unsigned char> got(outWidth * 2);
        variants[k]->yccRow(a.data(), width, outWidth * 2, ch, got.data());
        EXPECT_EQ(got, full);
        got.assign(outWidth, 0);
        variants[k]->yccRowH2V1(a.data(), width, outWidth, ch, got.data());
        EXPECT_EQ(got, h2v1);
        variants[k]->yccRowH2V2(a.data(), b.data(), width, outWidth, ch, got.data());
        EXPECT_EQ(got, h2v2);
      }
    }
  }
}

}  // namespace
