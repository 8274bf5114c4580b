#include "kj.e/kj.efdct.h"

#include <cstring>

#include "kj.e/kj.e.h"
#include "kj.e/kj.efdct_simd.h"
#include "kj.e/kj.ekernels.h"

namespace kje {

namespace {
constexpr unsigned long kPrefetchAhead = 128;
constexpr kau::Fault kSiteBadQuantTableNumber{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.efdct",
                                              5, kau::Category::kInternal,
                                              "a quantisation table number above 3"};
constexpr kau::Fault kSiteMissingQuantTable{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.efdct", 63,
                                            kau::Category::kInternal, "a quantisation table is not defined"};
}  // namespace

const unsigned long kLuminanceQuantization[64] = {
    16, 11,  10,  16, 24, 40, 51, 61, 12,  12,  14,  19,  26, 58, 60, 55,  14,  13,  16,  24, 40, 57,
    69, 56,  14,  17, 22, 29, 51, 87, 80,  62,  18,  22,  37, 56, 68, 109, 103, 77,  24,  35, 55, 64,
    81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98,  112, 100, 103, 99};

const unsigned long kChrominanceQuantization[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

const short kFastScales[64] = {16384, 22725, 21407, 19266, 16384, 12873, 8867,  4520,  22725, 31521, 29692,
                               26722, 22725, 17855, 12299, 6270,  21407, 29692, 27969, 25172, 21407, 16819,
                               11585, 5906,  19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315,  16384,
                               22725, 21407, 19266, 16384, 12873, 8867,  4520,  12873, 17855, 16819, 15137,
                               12873, 10114, 6967,  3552,  8867,  12299, 11585, 10426, 8867,  6967,  4799,
                               2446,  4520,  6270,  5906,  5315,  4520,  3552,  2446,  1247};

int QualityScale(int quality) {
  if (quality <= 0) return 5000;
  if (quality > 100) return 0;
  if (quality < 50) return 5000 / quality;
  return 200 - 2 * quality;
}

void Encoder::Fdct_Start(int quality) {
  int scale = QualityScale(quality);
  Fdct_AddQuantizationTable(0, kLuminanceQuantization, scale);
  Fdct_AddQuantizationTable(1, kChrominanceQuantization, scale);
  bool fast = fdct_ == &Encoder::Fdct_DoFast0;
  for (Component* c = components_; c != componentsEnd_; ++c) {
    int number = c->quantTable;
    if (number < 0 || number > 3 || quantTables_[number] == nullptr) kau::Throw(kSiteMissingQuantTable);
    // Per coefficient: divisor, half of it (the rounding), its reciprocal;
    // then the 16-bit forms of the last two for the fast transform's kernels.
    if (divisors_[number] == nullptr) divisors_[number] = heap_.AllocateArray<int32_t>(5 * 64);
    const uint16_t* q = quantTables_[number]->values;
    int32_t* d = divisors_[number];
    for (int i = 0; i < 64; ++i) {
      // The accurate transform leaves its outputs scaled by 8; the fast one
      // leaves the AAN factors, folded into the divisor here.
      d[i] = fast ? static_cast<int32_t>((static_cast<int32_t>(q[i]) * kFastScales[i] + 1024) >> 11)
                  : static_cast<int32_t>(q[i]) * 8;
      d[64 + i] = d[i] >> 1;
      d[128 + i] = Fdct_Reciprocal(d[i]);
    }
    Fdct_Tables16(d, reinterpret_cast<int16_t*>(d + 192));
  }
  const Kernels& kernels = Kernels_Active();
  fdctBlocks_ = fast ? kernels.fdctFastBlocks : kernels.fdctSlowBlocks;
  fdctPairs_ = kernels.fdctPairs;
}

void Encoder::Fdct_AddQuantizationTable(int number, const unsigned long* base, int scale) {
  if (number < 0 || number > 3) kau::Throw(kSiteBadQuantTableNumber);
  if (quantTables_[number] == nullptr) {
    quantTables_[number] = static_cast<QuantizationTable*>(heap_.AllocateAndZero(sizeof(QuantizationTable)));
  }
  QuantizationTable* table = quantTables_[number];
  for (int i = 0; i < 64; ++i) {
    long value = (static_cast<long>(base[i]) * scale + 50) / 100;
    if (value <= 0) value = 1;
    if (value > 255) value = 255;  // baseline tables only
    table->values[i] = static_cast<uint16_t>(value);
  }
  table->written = 0;
}

void Encoder::Fdct_DoBlocks(Component* component, unsigned char** rows, Block* out, unsigned long firstRow,
                            unsigned long firstColumn, unsigned long count) {
  // Planar input is read straight from the caller's rows, eight or more
  // pages apart: more streams than the hardware prefetcher follows on a
  // wide picture, so ask for each row's bytes a few blocks ahead.
  // (An address past the row's end is harmless: prefetches never fault.)
  for (int r = 0; r < 8; ++r)
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(rows[firstRow + r]) +
                                                     firstColumn + kPrefetchAhead));
  fdctBlocks_(rows + firstRow, static_cast<uint32_t>(firstColumn), static_cast<uint32_t>(count),
              divisors_[component->quantTable], out->coef);
}

// Two components of one block per MCU and one table (Cb and Cr of 4:2:0),
// when the transform is cheaper for two blocks side by side.
bool Encoder::Fdct_CanPair(const Component& a, const Component& b) const {
  return fdctPairs_ && a.mcuWidth == 1 && a.mcuHeight == 1 && b.mcuWidth == 1 && b.mcuHeight == 1 &&
         a.quantTable == b.quantTable;
}

void Encoder::Fdct_DoPair(Component* a, Component* b, Block* out, unsigned long firstColumn) {
  unsigned char samples[8][16];
  unsigned char* rows[8];
  for (int r = 0; r < 8; ++r) {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(a->blockRows[r]) +
                                                     firstColumn + kPrefetchAhead));
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(b->blockRows[r]) +
                                                     firstColumn + kPrefetchAhead));
    std::memcpy(samples[r], a->blockRows[r] + firstColumn, 8);
    std::memcpy(samples[r] + 8, b->blockRows[r] + firstColumn, 8);
    rows[r] = samples[r];
  }
  fdctBlocks_(rows, 0, 2, divisors_[a->quantTable], out->coef);
}

namespace {

// Rows first, then columns, in place.
template <bool kFast>
void Transform(int32_t* block) {
  for (int r = 0; r < 8; ++r) Pass<kFast, true>(block + 8 * r);
  for (int c = 0; c < 8; ++c) {
    int32_t p[8];
    for (int k = 0; k < 8; ++k) p[k] = block[8 * k + c];
    Pass<kFast, false>(p);
    for (int k = 0; k < 8; ++k) block[8 * k + c] = p[k];
  }
}

template <bool kFast>
void ScalarBlocks(unsigned char* const* rows, uint32_t column, uint32_t count, const int32_t* divisors,
                  int32_t* out) {
  for (uint32_t n = 0; n < count; ++n, column += 8, out += 64) {
    for (int r = 0; r < 8; ++r)
      for (int c = 0; c < 8; ++c) out[8 * r + c] = static_cast<int32_t>(rows[r][column + c]) - 128;
    Transform<kFast>(out);
    for (int i = 0; i < 64; ++i) out[i] = Fdct_Quantize(out[i], divisors[64 + i], divisors[128 + i]);
  }
}

}  // namespace

void Fdct_SlowBlocks_scalar(unsigned char* const* rows, uint32_t column, uint32_t count,
                            const int32_t* divisors, int32_t* out) {
  ScalarBlocks<false>(rows, column, count, divisors, out);
}

void Fdct_FastBlocks_scalar(unsigned char* const* rows, uint32_t column, uint32_t count,
                            const int32_t* divisors, int32_t* out) {
  ScalarBlocks<true>(rows, column, count, divisors, out);
}

void Encoder::Fdct_DoSlow0(int* block) { Transform<false>(block); }

void Encoder::Fdct_DoFast0(int* block) { Transform<true>(block); }

}  // namespace kje
