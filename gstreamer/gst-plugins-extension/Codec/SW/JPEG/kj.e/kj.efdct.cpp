#include "kj.e/kj.efdct.h"

#include "kj.e/kj.e.h"

namespace kje {

namespace {
constexpr kau::Site kSiteBadQuantTableNumber{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.efdct",
                                             5};
constexpr kau::Site kSiteMissingQuantTable{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.efdct", 63};
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
    // Per coefficient: divisor, half of it (the rounding), its reciprocal.
    if (divisors_[number] == nullptr) divisors_[number] = heap_.AllocateArray<int32_t>(3 * 64);
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
  }
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
  const int32_t* divisor = divisors_[component->quantTable];
  int work[64];
  uint32_t column = static_cast<uint32_t>(firstColumn);
  for (unsigned long b = 0; b < count; ++b, column += 8) {
    for (int r = 0; r < 8; ++r) {
      const unsigned char* in = rows[firstRow + r] + column;
      for (int c = 0; c < 8; ++c) work[r * 8 + c] = static_cast<int>(in[c]) - 128;
    }
    (this->*fdct_)(work);
    int32_t* coef = out[b].coef;
    for (int i = 0; i < 64; ++i) coef[i] = Fdct_Quantize(work[i], divisor[64 + i], divisor[128 + i]);
  }
}

namespace {

// Loeffler-Ligtenberg-Moschytz with 13-bit constants.
constexpr int kFix0298631336 = 2446;
constexpr int kFix0390180644 = 3196;
constexpr int kFix0541196100 = 4433;
constexpr int kFix0765366865 = 6270;
constexpr int kFix0899976223 = 7373;
constexpr int kFix1175875602 = 9633;
constexpr int kFix1501321110 = 12299;
constexpr int kFix1847759065 = 15137;
constexpr int kFix1961570560 = 16069;
constexpr int kFix2053119869 = 16819;
constexpr int kFix2562915447 = 20995;
constexpr int kFix3072711026 = 25172;

inline int Descale(int x, int n) { return (x + (1 << (n - 1))) >> n; }

// One 8-point pass over p[0], p[step], ..., p[7 * step]. The row pass keeps
// two extra bits (even outputs shifted up, odd descaled by 11); the column
// pass removes them (even by 2, odd by 15).
inline void SlowPass(int* p, int step, bool rows) {
  int tmp0 = p[0] + p[7 * step], tmp7 = p[0] - p[7 * step];
  int tmp1 = p[step] + p[6 * step], tmp6 = p[step] - p[6 * step];
  int tmp2 = p[2 * step] + p[5 * step], tmp5 = p[2 * step] - p[5 * step];
  int tmp3 = p[3 * step] + p[4 * step], tmp4 = p[3 * step] - p[4 * step];

  int tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  int tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  const int oddShift = rows ? 11 : 15;
  if (rows) {
    p[0] = (tmp10 + tmp11) * 4;
    p[4 * step] = (tmp10 - tmp11) * 4;
  } else {
    p[0] = Descale(tmp10 + tmp11, 2);
    p[4 * step] = Descale(tmp10 - tmp11, 2);
  }
  int z1 = (tmp12 + tmp13) * kFix0541196100;
  p[2 * step] = Descale(z1 + tmp13 * kFix0765366865, oddShift);
  p[6 * step] = Descale(z1 - tmp12 * kFix1847759065, oddShift);

  int z1o = tmp4 + tmp7, z2 = tmp5 + tmp6, z3 = tmp4 + tmp6, z4 = tmp5 + tmp7;
  int z5 = (z3 + z4) * kFix1175875602;
  tmp4 *= kFix0298631336;
  tmp5 *= kFix2053119869;
  tmp6 *= kFix3072711026;
  tmp7 *= kFix1501321110;
  z1o *= -kFix0899976223;
  z2 *= -kFix2562915447;
  z3 = z3 * -kFix1961570560 + z5;
  z4 = z4 * -kFix0390180644 + z5;
  p[7 * step] = Descale(tmp4 + z1o + z3, oddShift);
  p[5 * step] = Descale(tmp5 + z2 + z4, oddShift);
  p[3 * step] = Descale(tmp6 + z2 + z3, oddShift);
  p[1 * step] = Descale(tmp7 + z1o + z4, oddShift);
}

// Arai-Agui-Nakajima with 8-bit constants; products are truncated.
constexpr int kFast0382683433 = 98;
constexpr int kFast0541196100 = 139;
constexpr int kFast0707106781 = 181;
constexpr int kFast1306562965 = 334;

inline int FastMul(int x, int c) { return (x * c) >> 8; }

inline void FastPass(int* p, int step) {
  int tmp0 = p[0] + p[7 * step], tmp7 = p[0] - p[7 * step];
  int tmp1 = p[step] + p[6 * step], tmp6 = p[step] - p[6 * step];
  int tmp2 = p[2 * step] + p[5 * step], tmp5 = p[2 * step] - p[5 * step];
  int tmp3 = p[3 * step] + p[4 * step], tmp4 = p[3 * step] - p[4 * step];

  int tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
  int tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
  p[0] = tmp10 + tmp11;
  p[4 * step] = tmp10 - tmp11;
  int z1 = FastMul(tmp12 + tmp13, kFast0707106781);
  p[2 * step] = tmp13 + z1;
  p[6 * step] = tmp13 - z1;

  tmp10 = tmp4 + tmp5;
  tmp11 = tmp5 + tmp6;
  tmp12 = tmp6 + tmp7;
  int z5 = FastMul(tmp10 - tmp12, kFast0382683433);
  int z2 = FastMul(tmp10, kFast0541196100) + z5;
  int z4 = FastMul(tmp12, kFast1306562965) + z5;
  int z3 = FastMul(tmp11, kFast0707106781);
  int z11 = tmp7 + z3, z13 = tmp7 - z3;
  p[5 * step] = z13 + z2;
  p[3 * step] = z13 - z2;
  p[1 * step] = z11 + z4;
  p[7 * step] = z11 - z4;
}

}  // namespace

void Encoder::Fdct_DoSlow0(int* block) {
  for (int r = 0; r < 8; ++r) SlowPass(block + r * 8, 1, true);
  for (int c = 0; c < 8; ++c) SlowPass(block + c, 8, false);
}

void Encoder::Fdct_DoFast0(int* block) {
  for (int r = 0; r < 8; ++r) FastPass(block + r * 8, 1);
  for (int c = 0; c < 8; ++c) FastPass(block + c, 8);
}

}  // namespace kje
