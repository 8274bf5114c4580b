// Every forward DCT kernel against its scalar twin on the same blocks: random
// ones and the extremes (flat 0 and 255, checkerboards, stripes) that push the
// transforms' intermediates to their bounds, both transforms, luminance and
// chrominance divisors at qualities 1, 50, 85 and 100.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "kj.e/kj.e.h"
#include "kj.e/kj.ekernels.h"

namespace {

constexpr uint32_t kBlocks = 24;

// Eight rows of kBlocks blocks, each block filled by one pattern.
std::vector<unsigned char> Picture(uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<unsigned char> rows(8 * 8 * kBlocks);
  const uint32_t stride = 8 * kBlocks;
  for (uint32_t b = 0; b < kBlocks; ++b) {
    for (uint32_t y = 0; y < 8; ++y) {
      for (uint32_t x = 0; x < 8; ++x) {
        unsigned v = rng() & 255;
        switch (b % 8) {
          case 0:
            v = 0;
            break;
          case 1:
            v = 255;
            break;
          case 2:
            v = (x + y) % 2 ? 255 : 0;
            break;
          case 3:
            v = (x + y) % 2 ? 0 : 255;
            break;
          case 4:
            v = x < 4 ? 255 : 0;
            break;
          case 5:
            v = (y % 2) * 255;
            break;
          case 6:
            v = (x ^ y) & 4 ? 255 : v;
            break;
          default:
            break;  // random
        }
        rows[y * stride + b * 8 + x] = static_cast<unsigned char>(v);
      }
    }
  }
  return rows;
}

TEST(EncoderFdct, EveryVariantMatchesTheScalarTwin) {
  const kje::Kernels* variants[8];
  const int count = kje::Kernels_Runnable(variants, 8);
  ASSERT_STREQ(variants[0]->name, "scalar");
  for (bool fast : {false, true}) {
    for (int quality : {1, 50, 85, 100}) {
      // Planar input picks the fast transform, packed the accurate one.
      kje::Encoder encoder(16, 16, quality, fast ? kiu::FormatI420 : kiu::FormatRGB,
                           fast ? kiu::FormatI420 : kiu::FormatYUV);
      for (int table : {0, 1}) {
        for (uint32_t seed = 0; seed < 4; ++seed) {
          std::vector<unsigned char> picture = Picture(seed);
          unsigned char* rows[8];
          for (int y = 0; y < 8; ++y) rows[y] = picture.data() + y * 8 * kBlocks;
          const int32_t* divisors = encoder.divisors_[table];
          // From column 8 on as well: kernels must honour the start column.
          for (uint32_t first : {0u, 1u}) {
            std::vector<int32_t> want(64 * kBlocks), got(64 * kBlocks);
            const uint32_t n = kBlocks - first;
            auto routine = [fast](const kje::Kernels* k) {
              return fast ? k->fdctFastBlocks : k->fdctSlowBlocks;
            };
            routine(variants[0])(rows, 8 * first, n, divisors, want.data());
            for (int k = 1; k < count; ++k) {
              routine(variants[k])(rows, 8 * first, n, divisors, got.data());
              ASSERT_EQ(got, want) << variants[k]->name << (fast ? " fast" : " accurate") << " quality "
                                   << quality << " table " << table << " seed " << seed;
            }
          }
        }
      }
    }
  }
}

}  // namespace
