// malloc, free and friends replaced in the executable; every shared library
// (libstdc++, TurboJPEG) binds to these first. The counters are the bench
// binary's only mutable globals: it runs one thread.
#include "benchpeak.h"

#include <malloc.h>

#include <cerrno>

#if defined(__SANITIZE_ADDRESS__)

namespace kelbench {
long long PeakBytes(const std::function<void()>& call) {
  call();
  return -1;
}
}  // namespace kelbench

#else

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

size_t live = 0, peak = 0;

void* Counted(void* p) {
  if (p != nullptr) {
    live += malloc_usable_size(p);
    if (live > peak) peak = live;
  }
  return p;
}

void Uncount(void* p) {
  if (p != nullptr) live -= malloc_usable_size(p);
}

}  // namespace

extern "C" {
void* malloc(size_t n) { return Counted(__libc_malloc(n)); }
void* calloc(size_t n, size_t size) { return Counted(__libc_calloc(n, size)); }
void free(void* p) {
  Uncount(p);
  __libc_free(p);
}
void* realloc(void* p, size_t n) {
  const size_t before = p != nullptr ? malloc_usable_size(p) : 0;
  void* q = __libc_realloc(p, n);
  if (q != nullptr || n == 0) live -= before;  // moved, resized or freed
  return Counted(q);
}
void* memalign(size_t align, size_t n) { return Counted(__libc_memalign(align, n)); }
void* aligned_alloc(size_t align, size_t n) { return memalign(align, n); }
void* valloc(size_t n) { return memalign(4096, n); }
int posix_memalign(void** out, size_t align, size_t n) {
  void* p = memalign(align, n);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}
}

namespace kelbench {

long long PeakBytes(const std::function<void()>& call) {
  const size_t before = live;
  peak = live;
  call();
  return static_cast<long long>(peak - before);
}

}  // namespace kelbench

#endif
