// Core utilities: the one error type, the diagnostic line, memory and string
// primitives behind replaceable allocation hooks, the block heap, the sort and
// the checked size guards.
#ifndef KAU_KAU_H
#define KAU_KAU_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "kexport.h"

namespace kau {

// A catching site as the outside world sees it: source name and line,
// printed for exceptions that carry no site of their own.
struct Site {
  const char* file;
  int line;
};

// Why a failure happened, in the terms a caller can act on.
enum class Category : uint8_t {
  kInternal,     // a fault of the library, or an exception it does not know
  kBadArgument,  // the caller passed what the call does not take
  kTruncated,    // the data ends before the image does
  kCorrupt,      // the data breaks the JPEG format
  kUnsupported,  // valid JPEG of a kind this codec does not decode
  kOverLimit,    // beyond a size, memory or work limit
  kOutOfMemory,
  kIo,  // a stream or file could not be read or written
};

// A throw site: its identity (source name and line, printed and checked by
// callers), its category and what it means in words. Every module keeps a
// small table of these next to the code that throws. The same record tells
// a caller why a call failed; a null file means no failure.
struct Fault {
  const char* file;
  int line;
  Category category;
  const char* what;
};

class Error {
 public:
  Error(const char* file, int line, int code);
  // A failure at `site` that stands for `cause`, an earlier failure already
  // reported (a constructor's own error after whatever failed inside it).
  explicit Error(const Fault& site);
  Error(const Fault& site, const Fault& cause);
  // Never null: a null stored name reads as "".
  const char* FileName() const;
  int Position() const;
  int Code() const { return code_; }
  // The first failure this error stands for: its own site unless it was
  // raised for an earlier one.
  const Fault& Cause() const { return cause_; }
  [[noreturn]] static void Throw(const char* file, int line, int code);

 private:
  const char* file_;
  int line_;
  int code_;
  Fault cause_;
};

// Throws kau::Error with code -1 at a documented site.
[[noreturn]] void Throw(const Fault& site);
[[noreturn]] void Throw(const Fault& site, const Fault& cause);

// Prints the diagnostic line for the exception being handled and flushes all
// output. Call only from inside a catch block. `site` is the catching site,
// printed for thrown strings and for unknown exceptions. Returns the
// failure's cause, and stores it in `*first` unless that already holds one.
Fault ReportCurrentException(const Site& site, Fault* first = nullptr);

// "corrupt JPEG data: a restart marker is missing or out of order
// (kj.dinput +475)": the category, the site's words and where.
std::string Describe(const Fault& fault);
// The category alone, e.g. "corrupt JPEG data".
const char* CategoryText(Category category);

// Documented sites of the checked guards below.
constexpr Fault kSiteCeilDiv{"common/kau/kau", 144, Category::kOverLimit, "a size overflows 32 bits"};
constexpr Fault kSiteRoundUp{"common/kau/kau", 210, Category::kOverLimit, "a size overflows 32 bits"};

// (a + b - 1) / b in 32-bit arithmetic; throws on b == 0 or 32-bit overflow.
inline uint32_t CeilDiv(uint32_t a, uint32_t b) {
  if (b == 0 || a > UINT32_MAX - (b - 1)) Throw(kSiteCeilDiv);
  return (a + b - 1) / b;
}

// a rounded up to a multiple of m in 32-bit arithmetic; throws on m == 0 or
// 32-bit overflow of a + m - 1.
inline uint32_t RoundUp(uint32_t a, uint32_t m) {
  if (m == 0 || a > UINT32_MAX - (m - 1)) Throw(kSiteRoundUp);
  return (a + m - 1) / m * m;
}

// In-place quicksort with an explicit stack; ascending by `compare`.
void Sort(void* base, unsigned long count, unsigned long width, int (*compare)(const void*, const void*));

namespace mem {

using AllocateHook = void* (*)(unsigned long);
using ReleaseHook = void (*)(void*);

// Raw memory through the process-wide hooks. New never throws: a throwing
// hook is reported and gives null.
void* New(unsigned long size);
void Delete(void* p);
// Replaces both hooks, or neither when either argument is null.
void SetExternalNewAndDelete(AllocateHook allocate, ReleaseHook release);

// 16-byte-aligned raw memory; the raw pointer sits in the word just below.
void* NewAligned(unsigned long size);
void DeleteAligned(void* p);

void Copy8(void* dst, const void* src, unsigned long n);
void Copy32(void* dst, const void* src, unsigned long count);
void Zero8(void* p, unsigned long n);
void Zero32(void* p, unsigned long count);
void Set8(void* p, unsigned char value, unsigned long n);
// Fills 4 * count bytes with the low byte of value (a byte fill, on purpose).
void Set32(void* p, unsigned long value, unsigned long count);
unsigned long StrLen(const char* s);
int Compare(const char* a, const char* b);
int Compare(const void* a, const void* b, unsigned long n);
int CompareNonNull(const void* a, const void* b, unsigned long n);
const void* AtChar(const void* p, char c, unsigned long n);
// The test of `sub` is inverted relative to its name; kept exactly so.
const char* AtStr(const char* s, const char* sub);
int StrEndsWith(const char* s, const char* suffix);
void CopyIncludingLast0(char* dst, const char* src);

// Owner of a newest-first list of 16-byte-aligned blocks, released all at once.
class Heap {
 public:
  Heap() = default;
  ~Heap();
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;

  void* Allocate(unsigned long size);
  void* AllocateAndZero(unsigned long size);
  void* Reallocate(void* p, unsigned long size);
  void FreeMemory();
  void HandleExceptionInConstructor() { FreeMemory(); }

  // Typed helpers for the codecs; sizes are element counts.
  template <typename T>
  T* AllocateArray(uint32_t count) {
    return static_cast<T*>(Allocate(ArrayBytes(count, sizeof(T))));
  }
  template <typename T>
  T* AllocateZeroedArray(uint32_t count) {
    return static_cast<T*>(AllocateAndZero(ArrayBytes(count, sizeof(T))));
  }

 private:
  // Three header words directly below each user area.
  struct Block {
    Block* next;
    unsigned long size;
    void* raw;
  };
  static unsigned long ArrayBytes(uint32_t count, size_t width);
  static Block* HeaderOf(void* p) { return static_cast<Block*>(p) - 1; }

  Block* first_ = nullptr;
};

}  // namespace mem
}  // namespace kau

#endif  // KAU_KAU_H
