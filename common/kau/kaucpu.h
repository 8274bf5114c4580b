// Which instruction sets the running CPU offers, for the codec's kernel
// tables: each table has one variant per set and asks here, once, which ones
// may run. The device's NEON is not guaranteed, so ARM asks the kernel.
#ifndef KAU_KAUCPU_H
#define KAU_KAUCPU_H

namespace kau {

enum class Isa { Scalar, Sse2, Avx2, Neon };

constexpr int kIsaCount = 4;

// The sets this build has kernels for and the CPU runs, best first, Scalar
// always last. Returns the number written to `out`.
int Cpu_Runnable(Isa out[kIsaCount]);

// One family's table for `isa`, out of its variants (null where it has none).
template <typename Table>
const Table* Cpu_Variant(Isa isa, const Table* scalar, const Table* sse2, const Table* avx2,
                         const Table* neon) {
  switch (isa) {
    case Isa::Sse2:
      return sse2;
    case Isa::Avx2:
      return avx2;
    case Isa::Neon:
      return neon;
    default:
      return scalar;
  }
}

// The best table of a kernel family; `tableOf` returns null for a set the
// family has no variant of.
template <typename Table>
const Table* Cpu_Best(const Table* (*tableOf)(Isa)) {
  Isa isas[kIsaCount];
  const int n = Cpu_Runnable(isas);
  for (int i = 0; i < n; ++i)
    if (const Table* t = tableOf(isas[i])) return t;
  return tableOf(Isa::Scalar);
}

// Every runnable table of a family, the scalar one (the reference the twin
// tests compare with) first. Returns the number written.
template <typename Table>
int Cpu_List(const Table* (*tableOf)(Isa), const Table** out, int capacity) {
  Isa isas[kIsaCount];
  const int n = Cpu_Runnable(isas);
  int written = 0;
  if (capacity > 0) out[written++] = tableOf(Isa::Scalar);
  for (int i = 0; i < n && written < capacity; ++i)
    if (isas[i] != Isa::Scalar)
      if (const Table* t = tableOf(isas[i])) out[written++] = t;
  return written;
}

}  // namespace kau

#endif  // KAU_KAUCPU_H
