// Core utilities: errors and the diagnostic line, the heap and its hooks,
// the primitives the product uses, and the 32-bit guards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "kau/kau.h"
#include "kiu/mmstream.h"
#include "support/testutil.h"

namespace {

using kau::Error;

std::string Diagnostic(void (*thrower)()) {
  return keltest::Printed([&] {
    try {
      thrower();
    } catch (...) {
      kau::ReportCurrentException(kau::Site{"some/catcher", 77});
    }
  });
}

TEST(Diagnostic, PrintsTheThreeFormats) {
  const std::string atCatcher = "\n?!exception@ some/catcher +77 !?\n\n\n";
  EXPECT_EQ(Diagnostic([] { Error::Throw("gstreamer/x/kj.dinput", 475, -1); }),
            "\n?!exception@ gstreamer/x/kj.dinput +475 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { throw "bad marker"; }), "\n?!bad marker@ some/catcher +77 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { throw static_cast<const char*>(nullptr); }), atCatcher);
  EXPECT_EQ(Diagnostic([] { throw 42; }), atCatcher);
  EXPECT_EQ(Diagnostic([] { Error::Throw(nullptr, 5, -1); }), "\n?!exception@  +5 !?\n\n\n");
  // New reports a throwing hook and returns null.
  kau::mem::SetExternalNewAndDelete([](unsigned long) -> void* { Error::Throw("hook/src", 9, -1); }, MMFree);
  EXPECT_EQ(keltest::Printed([] { EXPECT_EQ(kau::mem::New(10), nullptr); }),
            "\n?!exception@ hook/src +9 !?\n\n\n");
  kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
}

// Counts hook traffic so that tests can see what the heap releases.
struct HookCounter {
  static inline int allocations = 0, releases = 0;
  static void* Allocate(unsigned long n) {
    ++allocations;
    return MMAllocate(n);
  }
  static void Release(void* p) {
    releases += p != nullptr;
    MMFree(p);
  }
};

class HeapTest : public testing::Test {
 protected:
  void SetUp() override {
    HookCounter::allocations = HookCounter::releases = 0;
    kau::mem::SetExternalNewAndDelete(HookCounter::Allocate, HookCounter::Release);
  }
  void TearDown() override { kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree); }
};

TEST_F(HeapTest, BlocksAreAlignedAndReleasedAllAtOnce) {
  {
    kau::mem::Heap heap;
    for (unsigned long size : {0ul, 1ul, 3ul, 15ul, 16ul, 17ul, 1000ul}) {
      auto* p = static_cast<unsigned char*>(heap.Allocate(size));
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << size;
      std::memset(p, 0xAB, size);  // the whole user area is writable (ASan checks)
    }
    auto* z = static_cast<uint32_t*>(heap.AllocateAndZero(10));  // rounded to 12
    EXPECT_EQ(z[0] | z[1] | z[2], 0u);
    EXPECT_EQ(HookCounter::releases, 0);
    heap.FreeMemory();
    EXPECT_EQ(HookCounter::releases, 8);
    heap.Allocate(4);  // usable again
    EXPECT_NE(heap.AllocateAndZero(0), nullptr);
    EXPECT_THROW(heap.AllocateAndZero(0xFFFFFFFDul), Error);
    EXPECT_THROW(heap.Allocate(0xFFFFFFFFul), Error);  // size + header leaves 32 bits
  }
  EXPECT_EQ(HookCounter::releases, HookCounter::allocations);
}

TEST_F(HeapTest, ReallocateNeverShrinksKeepsContentsAndRejectsForeignBlocks) {
  kau::mem::Heap heap, other;
  auto* p = static_cast<unsigned char*>(heap.Allocate(32));
  for (int i = 0; i < 32; ++i) p[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(heap.Reallocate(p, 8), p);
  EXPECT_EQ(heap.Reallocate(p, 20), p);  // the recorded size is still 32
  heap.Allocate(5);                      // p is no longer the newest block
  auto* q = static_cast<unsigned char*>(heap.Reallocate(p, 64));
  ASSERT_NE(q, p);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 16, 0u);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(q[i], i);
  EXPECT_EQ(HookCounter::releases, 1);  // the old block went at once
  EXPECT_THROW(heap.Reallocate(other.Allocate(8), 100), Error);
}

// The primitives and their deliberate quirks.
TEST(Memory, PrimitivesKeepTheirQuirks) {
  unsigned char fill[12];
  std::memset(fill, 0xEE, sizeof fill);
  kau::mem::Set32(fill, 0x12345678ul, 2);  // a byte fill over the word count
  EXPECT_EQ(std::count(fill, fill + 8, 0x78) + (fill[8] == 0xEE), 9);
  EXPECT_EQ(kau::mem::StrEndsWith("PHOTO.JPG", ".jpg") + kau::mem::StrEndsWith("a.jpg", "xa.jpg") +
                kau::mem::StrEndsWith("\xe9", "\xc9"),
            1);
  EXPECT_EQ(kau::mem::AtStr("hello", "ell"), nullptr);  // inverted test, kept
  EXPECT_STREQ(kau::mem::AtStr("hello", nullptr), "hello");
  // Overlapping forward copy repeats the head, as a plain forward loop does.
  unsigned char run[8] = {1, 2, 0, 0, 0, 0, 0, 0};
  kau::mem::Copy8(run + 2, run, 6);
  EXPECT_EQ(std::vector<int>(run, run + 8), (std::vector<int>{1, 2, 1, 2, 1, 2, 1, 2}));
  const std::tuple<const char*, const char*, int> compares[] = {
      {nullptr, nullptr, 0}, {nullptr, "", -1}, {"", nullptr, 1}, {"", "", 0},
      {"abc", "ab", 1},      {"ab", "abc", -1}, {"\xff", "a", 1}, {"abc", "abd", -1}};
  for (auto [a, b, expected] : compares) EXPECT_EQ(kau::mem::Compare(a, b), expected) << a << "|" << b;
  EXPECT_EQ(kau::mem::Compare(nullptr, "x", 0), -1);
  char dst[8] = "xxxxxxx";
  kau::mem::CopyIncludingLast0(dst, nullptr);
  EXPECT_STREQ(dst, "");
  kau::mem::CopyIncludingLast0(dst, "jpg");
  EXPECT_STREQ(dst, "jpg");
  EXPECT_THROW(kau::mem::CopyIncludingLast0(nullptr, "x"), Error);
  kau::mem::CopyIncludingLast0(nullptr, nullptr);
  EXPECT_EQ(kau::mem::StrLen(nullptr), 0u);
}

// Documented routines the product itself never calls, each once.
TEST(Memory, UncalledRoutinesWork) {
  std::vector<int> v{5, -3, 9, 0, 7, 7, -8, 2};
  kau::Sort(v.data(), v.size(), sizeof(int), [](const void* a, const void* b) {
    return *static_cast<const int*>(a) - *static_cast<const int*>(b);
  });
  EXPECT_TRUE(std::is_sorted(v.begin(), v.end()));
  void* p = kau::mem::NewAligned(40);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
  EXPECT_THROW(kau::mem::DeleteAligned(static_cast<char*>(p) + 4), Error);
  kau::mem::DeleteAligned(p);
  const char text[] = "abcabc";
  EXPECT_EQ(kau::mem::AtChar(text, 'c', 6), text + 2);
  EXPECT_EQ(kau::mem::AtChar(text, 'c', 2), nullptr);
  EXPECT_EQ(kau::mem::CompareNonNull("ab", "ac", 2), -1);
}

// A failure raised for an earlier one stands for it: callers are told the
// first cause, in words.
TEST(Failures, TheFirstCauseIsDescribed) {
  constexpr kau::Fault inner{"x/kj.dinput", 475, kau::Category::kCorrupt, "a restart marker is missing"};
  constexpr kau::Fault outer{"x/kj.d", 70, kau::Category::kInternal, "the decoder could not be built"};
  kau::Fault first{};
  keltest::Printed([&] {
    try {
      try {
        kau::Throw(inner);
      } catch (...) {
        kau::Throw(outer, kau::ReportCurrentException({"c", 1}));
      }
    } catch (...) {
      kau::ReportCurrentException({"c", 2}, &first);
    }
  });
  EXPECT_EQ(kau::Describe(first), "corrupt JPEG data: a restart marker is missing (kj.dinput +475)");
  first = {};
  keltest::Printed([&] {
    try {
      throw std::bad_alloc();
    } catch (...) {
      kau::ReportCurrentException({"y/CJPGD", 91}, &first);
    }
  });
  EXPECT_EQ(kau::Describe(first), "out of memory (CJPGD +91)");
}

TEST(Guards, DetectThirtyTwoBitOverflowAtTheirSites) {
  const struct {
    uint32_t a, b;
    bool roundUp;
    long long expected;  // -1: throws
  } cases[] = {
      {10, 3, false, 4},
      {0, 7, false, 0},
      {9, 0, false, -1},
      {0xFFFFFFFFu, 1, false, 0xFFFFFFFFll},
      {0xFFFFFFFFu, 2, false, -1},
      {0xFFFFFFF8u, 8, false, 0x1FFFFFFFll},
      {0xFFFFFFF9u, 8, false, -1},
      {10, 4, true, 12},
      {0, 4, true, 0},
      {7, 0, true, -1},
      {4294967292u, 4, true, 4294967292ll},
      {4294967293u, 4, true, -1},
      {4294967295u, 2, true, -1},
  };
  for (auto& c : cases) {
    uint32_t got = 0;
    const std::string thrown =
        keltest::ThrownAt([&] { got = c.roundUp ? kau::RoundUp(c.a, c.b) : kau::CeilDiv(c.a, c.b); });
    EXPECT_EQ(c.expected >= 0 ? static_cast<long long>(got) : -1, c.expected) << c.a << " " << c.b;
    EXPECT_EQ(thrown, c.expected >= 0 ? "none"
                      : c.roundUp     ? "common/kau/kau:210"
                                      : "common/kau/kau:144")
        << c.a << " " << c.b;
  }
}

}  // namespace
