// Core utilities: errors and the diagnostic line, the heap, the primitives'
// quirks, the sort and the 32-bit guards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "kau/kau.h"

namespace {

using kau::Error;

std::string Diagnostic(void (*thrower)()) {
  testing::internal::CaptureStdout();
  try {
    thrower();
  } catch (...) {
    kau::ReportCurrentException(kau::Site{"some/catcher", 77});
  }
  return testing::internal::GetCapturedStdout();
}

TEST(Diagnostic, PrintsTheThreeFormats) {
  EXPECT_EQ(Diagnostic([] { Error::Throw("gstreamer/x/kj.dinput", 475, -1); }),
            "\n?!exception@ gstreamer/x/kj.dinput +475 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { throw "bad marker"; }), "\n?!bad marker@ some/catcher +77 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { throw static_cast<const char*>(nullptr); }),
            "\n?!exception@ some/catcher +77 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { throw 42; }), "\n?!exception@ some/catcher +77 !?\n\n\n");
  EXPECT_EQ(Diagnostic([] { Error::Throw(nullptr, 5, -1); }), "\n?!exception@  +5 !?\n\n\n");
}

TEST(Diagnostic, NewReportsAThrowingHookAndReturnsNull) {
  kau::mem::SetExternalNewAndDelete([](unsigned long) -> void* { Error::Throw("hook/src", 9, -1); },
                                    [](void*) {});
  testing::internal::CaptureStdout();
  void* p = kau::mem::New(10);
  std::string out = testing::internal::GetCapturedStdout();
  kau::mem::SetExternalNewAndDelete([](unsigned long n) { return std::malloc(n); }, std::free);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(out, "\n?!exception@ hook/src +9 !?\n\n\n");
}

// Counts hook traffic so that tests can see what the heap releases.
struct HookCounter {
  static inline int allocations = 0, releases = 0;
  static void* Allocate(unsigned long n) {
    ++allocations;
    return std::malloc(n);
  }
  static void Release(void* p) {
    if (p != nullptr) ++releases;
    std::free(p);
  }
};

class HeapTest : public testing::Test {
 protected:
  void SetUp() override {
    HookCounter::allocations = HookCounter::releases = 0;
    kau::mem::SetExternalNewAndDelete(HookCounter::Allocate, HookCounter::Release);
  }
  void TearDown() override {
    kau::mem::SetExternalNewAndDelete([](unsigned long n) { return std::malloc(n); }, std::free);
  }
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
  }
  EXPECT_EQ(HookCounter::releases, HookCounter::allocations);
}

TEST_F(HeapTest, ReallocateRules) {
  kau::mem::Heap heap, other;
  auto* p = static_cast<unsigned char*>(heap.Allocate(32));
  for (int i = 0; i < 32; ++i) p[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(heap.Reallocate(p, 8), p);   // never shrinks
  EXPECT_EQ(heap.Reallocate(p, 20), p);  // recorded size is still 32
  heap.Allocate(5);                      // p is no longer the newest block
  auto* q = static_cast<unsigned char*>(heap.Reallocate(p, 64));
  ASSERT_NE(q, p);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 16, 0u);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(q[i], i);
  EXPECT_EQ(HookCounter::releases, 1);  // the old block went at once
  void* foreign = other.Allocate(8);
  EXPECT_THROW(heap.Reallocate(foreign, 100), Error);
  EXPECT_NE(heap.Reallocate(nullptr, 4), nullptr);
}

TEST_F(HeapTest, SizesAreThirtyTwoBit) {
  kau::mem::Heap heap;
  EXPECT_NE(heap.AllocateAndZero(0), nullptr);
  EXPECT_THROW(heap.AllocateAndZero(0xFFFFFFFDul), Error);
  EXPECT_THROW(heap.Allocate(0xFFFFFFFFul), Error);  // size + header leaves 32 bits
  EXPECT_THROW(kau::mem::NewAligned(0xFFFFFFF0ul), Error);
}

TEST(Memory, AlignedBlocks) {
  for (unsigned long size : {0ul, 1ul, 100ul}) {
    void* p = kau::mem::NewAligned(size);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    kau::mem::DeleteAligned(p);
  }
  void* p = kau::mem::NewAligned(8);
  EXPECT_THROW(kau::mem::DeleteAligned(static_cast<char*>(p) + 4), Error);
  kau::mem::DeleteAligned(p);
}

TEST(Memory, HooksAreReplacedOnlyAsAPair) {
  static int calls = 0;
  auto counting = [](unsigned long n) -> void* {
    ++calls;
    return std::malloc(n);
  };
  kau::mem::SetExternalNewAndDelete(counting, nullptr);
  kau::mem::Delete(kau::mem::New(4));
  EXPECT_EQ(calls, 0);
  kau::mem::SetExternalNewAndDelete(counting, std::free);
  kau::mem::Delete(kau::mem::New(4));
  EXPECT_EQ(calls, 1);
  kau::mem::SetExternalNewAndDelete([](unsigned long n) { return std::malloc(n); }, std::free);
}

TEST(Memory, PrimitivesKeepTheirQuirks) {
  unsigned char buf[12];
  std::memset(buf, 0xEE, sizeof buf);
  kau::mem::Set32(buf, 0x12345678ul, 2);
  EXPECT_EQ(std::count(buf, buf + 8, 0x78), 8);
  EXPECT_EQ(buf[8], 0xEE);

  // Overlapping forward copy repeats the head, as a plain forward loop does.
  unsigned char run[8] = {1, 2, 0, 0, 0, 0, 0, 0};
  kau::mem::Copy8(run + 2, run, 6);
  EXPECT_EQ(std::vector<int>(run, run + 8), (std::vector<int>{1, 2, 1, 2, 1, 2, 1, 2}));

  struct {
    const char *a, *b;
    int expected;
  } compares[] = {{nullptr, nullptr, 0}, {nullptr, "", -1}, {"", nullptr, 1}, {"", "", 0},
                  {"abc", "ab", 1},      {"ab", "abc", -1}, {"\xff", "a", 1}, {"abc", "abd", -1}};
  for (auto& c : compares) EXPECT_EQ(kau::mem::Compare(c.a, c.b), c.expected) << c.a << "|" << c.b;
  EXPECT_EQ(kau::mem::Compare(nullptr, "x", 0), -1);
  EXPECT_EQ(kau::mem::CompareNonNull("\x80", "\x7f", 1), 1);

  struct {
    const char *s, *suffix;
    int expected;
  } ends[] = {{"PHOTO.JPG", ".jpg", 1}, {"photo.jpg", ".JPG", 1}, {"a.jpg", "xa.jpg", 0},
              {"abc", "", 1},           {nullptr, "", 0},         {"\xe9", "\xc9", 0}};
  for (auto& e : ends) EXPECT_EQ(kau::mem::StrEndsWith(e.s, e.suffix), e.expected);

  EXPECT_EQ(kau::mem::AtStr("hello", "ell"), nullptr);
  EXPECT_EQ(kau::mem::AtStr("hello", nullptr), std::string("hello"));
  EXPECT_EQ(kau::mem::AtStr("", nullptr), nullptr);
  const char text[] = "abcabc";
  EXPECT_EQ(kau::mem::AtChar(text, 'c', 6), text + 2);
  EXPECT_EQ(kau::mem::AtChar(text, 'c', 2), nullptr);

  char dst[8] = "xxxxxxx";
  kau::mem::CopyIncludingLast0(dst, nullptr);
  EXPECT_STREQ(dst, "");
  kau::mem::CopyIncludingLast0(dst, "jpg");
  EXPECT_STREQ(dst, "jpg");
  EXPECT_THROW(kau::mem::CopyIncludingLast0(nullptr, "x"), Error);
  kau::mem::CopyIncludingLast0(nullptr, nullptr);
  EXPECT_EQ(kau::mem::StrLen(nullptr), 0u);
}

struct Keyed {
  int key, order;
};

TEST(Sort, MatchesAReferenceSortOnRandomInput) {
  std::mt19937 rng(7);
  for (int count : {0, 1, 2, 7, 8, 9, 16, 100, 1000, 5000}) {
    std::vector<Keyed> items(count);
    for (int i = 0; i < count; ++i) items[i] = {static_cast<int>(rng() % (count / 3 + 1)), i};
    std::vector<int> expected;
    for (auto& k : items) expected.push_back(k.key);
    std::sort(expected.begin(), expected.end());
    kau::Sort(items.data(), count, sizeof(Keyed), [](const void* a, const void* b) {
      return static_cast<const Keyed*>(a)->key - static_cast<const Keyed*>(b)->key;
    });
    std::vector<int> got;
    for (auto& k : items) got.push_back(k.key);
    EXPECT_EQ(got, expected) << count;
  }
  std::vector<int> sorted(3000);
  for (int i = 0; i < 3000; ++i) sorted[i] = i / 2;  // presorted with ties: no stack overflow
  std::vector<int> copy = sorted;
  kau::Sort(copy.data(), copy.size(), sizeof(int), [](const void* a, const void* b) {
    return *static_cast<const int*>(a) - *static_cast<const int*>(b);
  });
  EXPECT_EQ(copy, sorted);
}

TEST(Guards, DetectThirtyTwoBitOverflowAtTheirSites) {
  struct {
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
    if (c.expected >= 0) {
      EXPECT_EQ(c.roundUp ? kau::RoundUp(c.a, c.b) : kau::CeilDiv(c.a, c.b), c.expected);
      continue;
    }
    try {
      c.roundUp ? kau::RoundUp(c.a, c.b) : kau::CeilDiv(c.a, c.b);
      ADD_FAILURE() << c.a << " " << c.b;
    } catch (const Error& e) {
      EXPECT_STREQ(e.FileName(), "common/kau/kau");
      EXPECT_EQ(e.Position(), c.roundUp ? 210 : 144);
      EXPECT_EQ(e.Code(), -1);
    }
  }
}

}  // namespace
