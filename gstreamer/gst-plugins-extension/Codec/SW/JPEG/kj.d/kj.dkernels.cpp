// Kernel selection: one table per instruction set, the best one the CPU runs.
//
// The choice is a function-local static: it depends on nothing else built at
// start-up (only on the CPU), C++ makes its first use thread-safe, and the
// table is read-only afterwards.
#include "kj.dkernels.h"

#include "kau/kaucpu.h"
#include "kiu/kiu.h"
#include "kj.d.h"

namespace kjd {
namespace {

const Kernels kScalar{
    "scalar",
    Decoder::IDCT_8x8,
    Decoder::IDCT_4x4,
    kiu::ConvertYUV211toRGBARows,
    kiu::ConvertYUV111toRGBARow,
    kiu::ConvertYUV420toI420,
    kiu::AverageChromaRows,
};
#if defined(__x86_64__)
const Kernels kSse2{
    "sse2",
    IDCT_8x8_sse2,
    IDCT_4x4_sse2,
    ConvertYUV211toRGBARows_sse2,
    ConvertYUV111toRGBARow_sse2,
    YUV420toI420_sse2,
    AverageChromaRows_sse2,
};
const Kernels kAvx2{
    "avx2",
    IDCT_8x8_avx2,
    IDCT_4x4_avx2,
    ConvertYUV211toRGBARows_avx2,
    ConvertYUV111toRGBARow_avx2,
    YUV420toI420_avx2,
    AverageChromaRows_avx2,
};
#elif defined(__arm__) && defined(KEL_HAVE_NEON_KERNELS)
const Kernels kNeon{
    "neon",
    IDCT_8x8_neon,
    IDCT_4x4_neon,
    ConvertYUV211toRGBARows_neon,
    ConvertYUV111toRGBARow_neon,
    YUV420toI420_neon,
    AverageChromaRows_neon,
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

}  // namespace kjd
