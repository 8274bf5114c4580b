#include "kau.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace kau {
namespace {

constexpr const char* kSource = "common/kau/kau";
constexpr Site kSiteNewCatch{kSource, 57};
constexpr Fault kSiteNewAlignedNull{kSource, 79, Category::kOutOfMemory, "no memory for an aligned block"};
constexpr Fault kSiteDeleteAlignedMisaligned{kSource, 93, Category::kBadArgument,
                                             "a block released as aligned is not aligned"};
constexpr Fault kSiteCopyNullDst{kSource, 318, Category::kBadArgument, "a copy into a null pointer"};
constexpr Fault kSiteHeapAllocateNull{kSource, 402, Category::kOutOfMemory, "no memory for a working buffer"};
constexpr Fault kSiteHeapZeroTooLarge{kSource, 421, Category::kOverLimit, "a working buffer beyond 32 bits"};
constexpr Fault kSiteHeapForeignBlock{kSource, 446, Category::kBadArgument,
                                      "a block that is not on this heap"};

void* DefaultAllocate(unsigned long size) { return new char[size]; }

void DefaultRelease(void* p) {
  if (p != nullptr) delete[] static_cast<char*>(p);
}

// Process-wide by design: set once at start-up, before any allocation.
mem::AllocateHook g_allocate = DefaultAllocate;
mem::ReleaseHook g_release = DefaultRelease;

inline bool Overlaps(const void* dst, const void* src, unsigned long n) {
  auto d = reinterpret_cast<uintptr_t>(dst);
  auto s = reinterpret_cast<uintptr_t>(src);
  return d < s + n && s < d + n;
}

// Adds `extra` to a 32-bit size; false when the sum leaves 32 bits, so the
// target and a 64-bit host reject the same sizes.
inline bool Add32(unsigned long size, unsigned long extra, unsigned long* sum) {
  if (size > UINT32_MAX || extra > UINT32_MAX - size) return false;
  *sum = size + extra;
  return true;
}

}  // namespace

Error::Error(const char* file, int line, int code)
    : file_(file), line_(line), code_(code), cause_{file, line, Category::kInternal, nullptr} {}

Error::Error(const Fault& site) : Error(site, site) {}

Error::Error(const Fault& site, const Fault& cause)
    : file_(site.file), line_(site.line), code_(-1), cause_(cause) {}

const char* Error::FileName() const { return file_ != nullptr ? file_ : ""; }

int Error::Position() const { return line_; }

void Error::Throw(const char* file, int line, int code) { throw Error(file, line, code); }

void Throw(const Fault& site) { throw Error(site); }

void Throw(const Fault& site, const Fault& cause) { throw Error(site, cause); }

Fault ReportCurrentException(const Site& site, Fault* first) {
  Fault cause{site.file, site.line, Category::kInternal, nullptr};
  try {
    throw;
  } catch (const Error& e) {
    std::printf("\n?!exception@ %s +%d !?\n\n\n", e.FileName(), e.Position());
    cause = e.Cause();
  } catch (const char* text) {
    std::printf("\n?!%s@ %s +%d !?\n\n\n", text != nullptr ? text : "exception", site.file, site.line);
  } catch (const std::bad_alloc&) {
    std::printf("\n?!exception@ %s +%d !?\n\n\n", site.file, site.line);
    cause.category = Category::kOutOfMemory;
  } catch (...) {
    std::printf("\n?!exception@ %s +%d !?\n\n\n", site.file, site.line);
  }
  std::fflush(nullptr);
  if (first != nullptr && first->file == nullptr) *first = cause;
  return cause;
}

const char* CategoryText(Category category) {
  switch (category) {
    case Category::kBadArgument:
      return "invalid arguments";
    case Category::kTruncated:
      return "truncated JPEG data";
    case Category::kCorrupt:
      return "corrupt JPEG data";
    case Category::kUnsupported:
      return "unsupported JPEG";
    case Category::kOverLimit:
      return "over a limit";
    case Category::kOutOfMemory:
      return "out of memory";
    case Category::kIo:
      return "a read or write failed";
    case Category::kInternal:
      break;
  }
  return "internal error";
}

std::string Describe(const Fault& fault) {
  if (fault.file == nullptr) return "no failure";
  std::string text = CategoryText(fault.category);
  if (fault.what != nullptr) text = text + ": " + fault.what;
  const char* slash = std::strrchr(fault.file, '/');
  // snprintf, not std::to_string: that one would export a libstdc++ table.
  char where[32];
  std::snprintf(where, sizeof where, " +%d)", fault.line);
  return text + " (" + (slash != nullptr ? slash + 1 : fault.file) + where;
}

namespace mem {

void* New(unsigned long size) {
  try {
    return g_allocate(size);
  } catch (...) {
    ReportCurrentException(kSiteNewCatch);
    return nullptr;
  }
}

void Delete(void* p) { g_release(p); }

void SetExternalNewAndDelete(AllocateHook allocate, ReleaseHook release) {
  if (allocate == nullptr || release == nullptr) return;
  g_allocate = allocate;
  g_release = release;
}

void* NewAligned(unsigned long size) {
  constexpr unsigned long kWord = sizeof(void*);
  unsigned long total = 0;
  void* raw = Add32(size, kWord + 16, &total) ? New(total) : nullptr;
  if (raw == nullptr) Throw(kSiteNewAlignedNull);
  auto user = (reinterpret_cast<uintptr_t>(raw) + kWord + 15) & ~uintptr_t{15};
  reinterpret_cast<void**>(user)[-1] = raw;
  return reinterpret_cast<void*>(user);
}

void DeleteAligned(void* p) {
  if ((reinterpret_cast<uintptr_t>(p) & 15) != 0) Throw(kSiteDeleteAlignedMisaligned);
  Delete(static_cast<void**>(p)[-1]);
}

void Copy8(void* dst, const void* src, unsigned long n) {
  if (n == 0) return;
  if (!Overlaps(dst, src, n)) {
    std::memcpy(dst, src, n);
    return;
  }
  // Overlapping regions copy strictly forward, byte by byte.
  auto* d = static_cast<unsigned char*>(dst);
  const auto* s = static_cast<const unsigned char*>(src);
  for (unsigned long i = 0; i < n; ++i) d[i] = s[i];
}

void Copy32(void* dst, const void* src, unsigned long count) {
  if (count == 0) return;
  if (!Overlaps(dst, src, count * 4)) {
    std::memcpy(dst, src, count * 4);
    return;
  }
  auto* d = static_cast<uint32_t*>(dst);
  const auto* s = static_cast<const uint32_t*>(src);
  for (unsigned long i = 0; i < count; ++i) d[i] = s[i];
}

void Zero8(void* p, unsigned long n) {
  if (n != 0) std::memset(p, 0, n);
}

void Zero32(void* p, unsigned long count) {
  if (count != 0) std::memset(p, 0, count * 4);
}

void Set8(void* p, unsigned char value, unsigned long n) {
  if (n != 0) std::memset(p, value, n);
}

void Set32(void* p, unsigned long value, unsigned long count) {
  if (count != 0) std::memset(p, static_cast<unsigned char>(value), count * 4);
}

unsigned long StrLen(const char* s) { return s == nullptr ? 0 : std::strlen(s); }

int Compare(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  const auto* x = reinterpret_cast<const unsigned char*>(a);
  const auto* y = reinterpret_cast<const unsigned char*>(b);
  for (;; ++x, ++y) {
    if (*x != *y) return *x > *y ? 1 : -1;  // an ended b (0) is smaller
    if (*x == 0) return 0;
  }
}

int Compare(const void* a, const void* b, unsigned long n) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  return CompareNonNull(a, b, n);
}

int CompareNonNull(const void* a, const void* b, unsigned long n) {
  const auto* x = static_cast<const unsigned char*>(a);
  const auto* y = static_cast<const unsigned char*>(b);
  for (unsigned long i = 0; i < n; ++i) {
    if (x[i] != y[i]) return x[i] > y[i] ? 1 : -1;
  }
  return 0;
}

const void* AtChar(const void* p, char c, unsigned long n) {
  if (p == nullptr || n == 0) return nullptr;
  return std::memchr(p, static_cast<unsigned char>(c), n);
}

const char* AtStr(const char* s, const char* sub) {
  if (sub != nullptr || s == nullptr) return nullptr;
  return *s != 0 ? s : nullptr;
}

int StrEndsWith(const char* s, const char* suffix) {
  if (s == nullptr || suffix == nullptr) return 0;
  unsigned long n = StrLen(s), k = StrLen(suffix);
  if (k > n) return 0;
  auto upper = [](unsigned char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; };
  const auto* x = reinterpret_cast<const unsigned char*>(s) + (n - k);
  const auto* y = reinterpret_cast<const unsigned char*>(suffix);
  for (unsigned long i = 0; i < k; ++i) {
    if (upper(x[i]) != upper(y[i])) return 0;
  }
  return 1;
}

void CopyIncludingLast0(char* dst, const char* src) {
  if (dst == nullptr) {
    if (src != nullptr) Throw(kSiteCopyNullDst);
    return;
  }
  unsigned long n = StrLen(src);
  Copy8(dst, src, n);
  dst[n] = 0;
}

Heap::~Heap() { FreeMemory(); }

unsigned long Heap::ArrayBytes(uint32_t count, size_t width) {
  uint64_t bytes = uint64_t{count} * width;
  if (bytes > UINT32_MAX) Throw(kSiteHeapAllocateNull);
  return static_cast<unsigned long>(bytes);
}

void* Heap::Allocate(unsigned long size) {
  // Room for the header words plus the alignment slack: size + 28 on the target.
  constexpr unsigned long kHeader = sizeof(Block);
  unsigned long total = 0;
  void* raw = Add32(size, kHeader + 16, &total) ? New(total) : nullptr;
  if (raw == nullptr) Throw(kSiteHeapAllocateNull);
  auto user = (reinterpret_cast<uintptr_t>(raw) + kHeader + 15) & ~uintptr_t{15};
  Block* block = HeaderOf(reinterpret_cast<void*>(user));
  block->next = first_;
  block->size = size;
  block->raw = raw;
  first_ = block;
  return reinterpret_cast<void*>(user);
}

void* Heap::AllocateAndZero(unsigned long size) {
  if (size >= 0xFFFFFFFDul) Throw(kSiteHeapZeroTooLarge);
  unsigned long rounded = (size + 3) & ~3ul;
  void* p = Allocate(rounded);
  Zero32(p, rounded / 4);
  return p;
}

void* Heap::Reallocate(void* p, unsigned long size) {
  if (p == nullptr) return Allocate(size);
  Block* target = HeaderOf(p);
  Block** link = &first_;
  while (*link != nullptr && *link != target) link = &(*link)->next;
  if (*link == nullptr) Throw(kSiteHeapForeignBlock);
  if (size <= target->size) return p;
  *link = target->next;
  void* fresh = nullptr;
  try {
    fresh = Allocate(size);
  } catch (...) {
    // Keep the old block owned so nothing leaks.
    target->next = first_;
    first_ = target;
    throw;
  }
  Copy8(fresh, p, target->size);
  Delete(target->raw);
  return fresh;
}

void Heap::FreeMemory() {
  while (first_ != nullptr) {
    Block* next = first_->next;
    Delete(first_->raw);
    first_ = next;
  }
}

}  // namespace mem

namespace {

void SwapBytes(unsigned char* a, unsigned char* b, unsigned long width) {
  if (a == b) return;
  for (unsigned long i = 0; i < width; ++i) {
    unsigned char t = a[i];
    a[i] = b[i];
    b[i] = t;
  }
}

}  // namespace

void Sort(void* base, unsigned long count, unsigned long width, int (*compare)(const void*, const void*)) {
  if (base == nullptr || count < 2 || width == 0 || compare == nullptr) return;
  auto* data = static_cast<unsigned char*>(base);
  auto at = [&](unsigned long i) { return data + i * width; };
  struct Range {
    unsigned long lo, hi;
  };
  Range stack[30];
  int depth = 0;
  unsigned long lo = 0, hi = count - 1;
  for (;;) {
    unsigned long n = hi - lo + 1;
    if (n <= 8) {
      // Selection: move the greatest to the end; among equals the first stays.
      for (unsigned long end = hi; end > lo; --end) {
        unsigned long max = lo;
        for (unsigned long i = lo + 1; i <= end; ++i) {
          if (compare(at(i), at(max)) > 0) max = i;
        }
        SwapBytes(at(max), at(end), width);
      }
    } else {
      SwapBytes(at(lo + n / 2), at(lo), width);
      unsigned long up = lo, down = hi + 1;
      for (;;) {
        do {
          ++up;
        } while (up <= hi && compare(at(up), at(lo)) <= 0);
        do {
          --down;
        } while (down > lo && compare(at(down), at(lo)) >= 0);
        if (down < up) break;
        SwapBytes(at(up), at(down), width);
      }
      SwapBytes(at(lo), at(down), width);
      // Parts [lo, down-1] and [down+1, hi]; push the larger, sort the smaller.
      unsigned long leftN = down - lo, rightN = hi - down;
      Range left{lo, down - 1}, right{down + 1, hi};
      Range big = leftN >= rightN ? left : right, small = leftN >= rightN ? right : left;
      unsigned long bigN = leftN >= rightN ? leftN : rightN;
      unsigned long smallN = leftN >= rightN ? rightN : leftN;
      if (bigN >= 2 && depth < 30) stack[depth++] = big;
      if (smallN >= 2) {
        lo = small.lo;
        hi = small.hi;
        continue;
      }
    }
    if (depth == 0) return;
    --depth;
    lo = stack[depth].lo;
    hi = stack[depth].hi;
  }
}

}  // namespace kau
