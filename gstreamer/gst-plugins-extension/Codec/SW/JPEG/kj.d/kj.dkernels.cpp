// Kernel selection: one table per instruction set, the best one the CPU runs.
//
// The choice is a function-local static: it depends on nothing else built at
// start-up (only on the CPU), C++ makes its first use thread-safe, and the
// table is read-only afterwards.
#include "kj.dkernels.h"

#include "kj.d.h"

#if defined(__arm__)
#include <sys/auxv.h>
#endif

namespace kjd {
namespace {

const Kernels kScalar{"scalar", Decoder::IDCT_8x8, Decoder::IDCT_4x4};
#if defined(__x86_64__)
const Kernels kSse2{"sse2", IDCT_8x8_sse2, IDCT_4x4_sse2};
const Kernels kAvx2{"avx2", IDCT_8x8_avx2, IDCT_4x4_avx2};
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
const Kernels kNeon{"neon", IDCT_8x8_neon, IDCT_4x4_neon};
#endif

// Best first.
int ListRunnable(const Kernels** out, int capacity) {
  const Kernels* found[4];
  int n = 0;
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) found[n++] = &kAvx2;
  found[n++] = &kSse2;  // part of x86-64
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
  constexpr unsigned long kHwcapNeon = 1ul << 12;  // HWCAP_NEON of 32-bit ARM Linux
  if ((getauxval(AT_HWCAP) & kHwcapNeon) != 0) found[n++] = &kNeon;
#endif
  found[n++] = &kScalar;
  int written = 0;
  for (int i = 0; i < n && written < capacity; ++i) out[written++] = found[i];
  return written;
}

}  // namespace

const Kernels& Kernels_Active() {
  static const Kernels* const active = [] {
    const Kernels* best = &kScalar;
    ListRunnable(&best, 1);
    return best;
  }();
  return *active;
}

int Kernels_Runnable(const Kernels** out, int capacity) {
  const Kernels* best[4];
  const int n = ListRunnable(best, 4);
  // Scalar (the reference) first, then the SIMD ones.
  int written = 0;
  if (capacity > 0) out[written++] = &kScalar;
  for (int i = 0; i < n && written < capacity; ++i)
    if (best[i] != &kScalar) out[written++] = best[i];
  return written;
}

}  // namespace kjd
