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

// The model test covers reads and page counts; here the empty array, a push
// that exactly fills a page, and the refused arguments.
TEST(PageArray, EdgesOfPages) {
  const unsigned char bytes[5] = {1, 2, 3, 4, 5};
  kau::PageArray pages(0, 4);
  pages.PushBytes(nullptr, 3);
  pages.PushBytes(bytes, 0);
  unsigned char sentinel = 0x5A;
  EXPECT_EQ(pages.PageCount() + pages.CopyTo(&sentinel) + pages.GetBytes(&sentinel, 1, 0), 0u);
  EXPECT_EQ(sentinel, 0x5A);
  pages.PushBytes(bytes, 4);
  EXPECT_EQ(pages.BytesInLastPage(), 4u);
  pages.PushBytes(bytes + 4, 1);  // opens the next page
  EXPECT_EQ(pages.PageCount(), 2u);
  EXPECT_THROW(kau::PageArray(16, 0), kau::Error);
  EXPECT_THROW(pages.CopyTo(nullptr), kau::Error);
}

}  // namespace
