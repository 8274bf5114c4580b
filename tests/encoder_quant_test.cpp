// The encoder's division-free quantisation against the rounded division it
// replaces, for every divisor the tables can hold and every coefficient
// either transform can produce.
#include <gtest/gtest.h>

#include <algorithm>

#include "kj.e/kj.efdct.h"

namespace {

int32_t Divide(int32_t c, int32_t d) { return c < 0 ? -((-c + d / 2) / d) : (c + d / 2) / d; }

// Both sides depend on |c| + d / 2 only, through a non-decreasing function,
// and the division is constant on each run [j * d, j * d + d - 1]: agreeing
// at both ends of every run means agreeing everywhere, so checking the ends
// is exhaustive over |c| + d / 2 < 2^17. The same holds for the split form.
TEST(EncoderQuant, ReciprocalEqualsDivisionForEveryCoefficientAndDivisor) {
  constexpr int32_t kLimit = 1 << 17;
  // Accurate transform: quant 1..255 times 8; fast: up to (255 * 31521 + 1024) >> 11.
  for (int32_t d = 1; d < 4096; ++d) {
    const int32_t half = d / 2, m = kje::Fdct_Reciprocal(d);
    for (int32_t run = 0; run < kLimit; run += d) {
      for (int32_t x : {run, std::min(run + d - 1, kLimit - 1)}) {
        // The fast kernels' 16-bit form, for its dividends below 2^15.
        if (x < (1 << 15) && kje::Fdct_QuantizeSplit(x, m) != x / d) FAIL() << "split: x " << x << " d " << d;
        if (x < half) continue;
        for (int32_t c : {x - half, half - x}) {
          if (kje::Fdct_Quantize(c, half, m) != Divide(c, d)) {
            FAIL() << "c " << c << " d " << d << ": " << kje::Fdct_Quantize(c, half, m) << " vs "
                   << Divide(c, d);
          }
        }
      }
    }
  }
}

}  // namespace
