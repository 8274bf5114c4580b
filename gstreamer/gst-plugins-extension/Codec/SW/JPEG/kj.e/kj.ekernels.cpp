// Kernel selection of the encoder: one table per instruction set, the best one
// the CPU runs, a function-local static like the decoder's.
#include "kj.ekernels.h"

#include "kau/kaucpu.h"
#include "kj.esample.h"

namespace kje {
namespace {

const Kernels kScalar{
    "scalar", Huff_AcMask_scalar, Sample_YccRows, Fdct_SlowBlocks_scalar, Fdct_FastBlocks_scalar, false,
};
#if defined(__x86_64__)
const Kernels kSse2{
    "sse2", Huff_AcMask_sse2, Sample_YccRows_sse2, Fdct_SlowBlocks_sse2, Fdct_FastBlocks_sse2, false,
};
const Kernels kAvx2{
    "avx2", Huff_AcMask_avx2, Sample_YccRows_avx2, Fdct_SlowBlocks_avx2, Fdct_FastBlocks_avx2, true,
};
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
const Kernels kNeon{
    "neon", Huff_AcMask_neon, Sample_YccRows_neon, Fdct_SlowBlocks_neon, Fdct_FastBlocks_neon, false,
};
#endif

const Kernels* TableOf(kau::Isa isa) {
#if defined(__x86_64__)
  return kau::Cpu_Variant<Kernels>(isa, &kScalar, &kSse2, &kAvx2, nullptr);
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
  return kau::Cpu_Variant<Kernels>(isa, &kScalar, nullptr, nullptr, &kNeon);
#else
  return kau::Cpu_Variant<Kernels>(isa, &kScalar, nullptr, nullptr, nullptr);
#endif
}

}  // namespace

const Kernels& Kernels_Active() {
  static const Kernels* const active = kau::Cpu_Best(TableOf);
  return *active;
}

int Kernels_Runnable(const Kernels** out, int capacity) { return kau::Cpu_List(TableOf, out, capacity); }

}  // namespace kje
