// The CPU probe. Read-only: every call asks again, which costs nothing next
// to the function-local statics of the tables that call it once.
#include "kaucpu.h"

#if defined(__arm__)
#include <sys/auxv.h>
#endif

namespace kau {

int Cpu_Runnable(Isa out[kIsaCount]) {
  int n = 0;
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) out[n++] = Isa::Avx2;
  out[n++] = Isa::Sse2;  // part of x86-64
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
  constexpr unsigned long kHwcapNeon = 1ul << 12;  // HWCAP_NEON of 32-bit ARM Linux
  if ((getauxval(AT_HWCAP) & kHwcapNeon) != 0) out[n++] = Isa::Neon;
#endif
  out[n++] = Isa::Scalar;
  return n;
}

}  // namespace kau
