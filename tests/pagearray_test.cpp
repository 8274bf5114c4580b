// The page array against a plain byte vector, under random pushes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kau/kau.h"
#include "kau/pagearray.h"

namespace {

TEST(PageArray, MatchesAByteVectorUnderRandomPushes) {
  std::mt19937 rng(1234);
  for (unsigned long pageSize : {1ul, 7ul, 64ul, 4096ul}) {
    kau::PageArray pages(0, pageSize);
    std::vector<unsigned char> model;
    for (int step = 0; step < 200; ++step) {
      std::vector<unsigned char> chunk(rng() % (3 * pageSize + 2));
      for (auto& b : chunk) b = static_cast<unsigned char>(rng());
      pages.PushBytes(chunk.data(), chunk.size());
      model.insert(model.end(), chunk.begin(), chunk.end());
      ASSERT_EQ(pages.ByteCount(), model.size());
      if (!model.empty()) {
        // Invariant: every page but the last is full.
        ASSERT_EQ(pages.PageCount(), (model.size() + pageSize - 1) / pageSize);
      }
      unsigned long offset = rng() % (model.size() + 1);
      unsigned long want = rng() % (2 * pageSize + 3) + 1;
      std::vector<unsigned char> got(want);
      unsigned long n = pages.GetBytes(got.data(), want, offset);
      ASSERT_EQ(n, std::min<unsigned long>(want, model.size() - offset));
      ASSERT_TRUE(std::equal(got.begin(), got.begin() + n, model.begin() + offset));
    }
    std::vector<unsigned char> whole(model.size());
    EXPECT_EQ(pages.CopyTo(whole.data()), 1);
    EXPECT_EQ(whole, model);
  }
}

TEST(PageArray, EdgesOfPages) {
  const unsigned char bytes[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  kau::PageArray pages(0, 4);
  pages.PushBytes(nullptr, 3);
  pages.PushBytes(bytes, 0);
  EXPECT_EQ(pages.PageCount(), 0u);
  unsigned char sentinel = 0x5A;
  EXPECT_EQ(pages.CopyTo(&sentinel), 0);
  EXPECT_EQ(sentinel, 0x5A);
  EXPECT_EQ(pages.GetBytes(&sentinel, 1, 0), 0u);

  pages.PushBytes(bytes, 4);  // exactly one page
  EXPECT_EQ(pages.PageCount(), 1u);
  EXPECT_EQ(pages.BytesInLastPage(), 4u);
  pages.PushBytes(bytes + 4, 1);  // the next push opens a new page
  EXPECT_EQ(pages.PageCount(), 2u);
  unsigned char out[4];
  EXPECT_EQ(pages.GetBytes(out, 4, 5), 0u);  // at the end
  EXPECT_EQ(pages.GetBytes(out, 4, 4), 1u);
  EXPECT_EQ(out[0], 5);

  EXPECT_THROW(kau::PageArray(16, 0), kau::Error);
  pages.PushBytes(bytes, 1);
  EXPECT_THROW(pages.CopyTo(nullptr), kau::Error);
}

}  // namespace
