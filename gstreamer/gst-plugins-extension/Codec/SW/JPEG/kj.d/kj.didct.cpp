// Inverse DCT kernels. The accurate 8x8 transform is the integer
// Loeffler-Ligtenberg-Moschytz algorithm in 13-bit fixed point; the reduced
// transforms produce 4x4, 2x2 and 1x1 samples for 1/2, 1/4 and 1/8 scale.
//
// The butterflies run in unsigned 32-bit arithmetic (two's-complement wrap,
// as the target's 32-bit `long`); only the final descaling shifts are signed.
// Valid data never comes near the wrap; corrupt data wraps instead of being
// undefined behaviour.
#include "kj.didct.h"

#include "kj.didct_simd.h"

namespace kjd {
namespace {

inline int32_t Sar(uint32_t v, int n) { return static_cast<int32_t>(v) >> n; }

// The 8-point butterfly of both passes (shared with the SIMD twins): inputs
// c[0..7] at `stride`, rounding term added to the even part, results before
// descaling in out[].
inline void StridedButterfly(const Coef* in, int stride, uint32_t round, uint32_t out[8]) {
  uint32_t c[8];
  for (int i = 0; i < 8; ++i) c[i] = static_cast<uint32_t>(in[stride * i]);
  ::Butterfly(c, round, out);
}

}  // namespace

void Decoder::IDCT_8x8c(Coef* column) {
  uint32_t out[8];
  StridedButterfly(column, 8, 1024, out);
  for (int r = 0; r < 8; ++r) column[r * 8] = Sar(out[r], 11);
}

void Decoder::IDCT_8x8r(unsigned char* out, Coef* row) {
  const unsigned char* limit = idctRangeLimit;
  uint32_t v[8];
  StridedButterfly(row, 1, 131072, v);
  for (int i = 0; i < 8; ++i) out[i] = limit[Sar(v[i], 18) & 0x3FF];
}

void Decoder::IDCT_8x8(Coef* block, unsigned char** rows, unsigned long column) {
  for (int i = 0; i < 8; ++i) {
    Coef* c = block + i;
    if ((c[8] | c[16] | c[24] | c[32] | c[40] | c[48] | c[56]) == 0) {
      const Coef dc = static_cast<Coef>(static_cast<uint32_t>(c[0]) * 4u);
      for (int r = 0; r < 8; ++r) c[r * 8] = dc;
    } else {
      IDCT_8x8c(c);
    }
  }
  const unsigned char* limit = idctRangeLimit;
  for (int r = 0; r < 8; ++r) {
    Coef* w = block + r * 8;
    unsigned char* out = rows[r] + column;
    if ((w[1] | w[2] | w[3] | w[4] | w[5] | w[6] | w[7]) == 0) {
      const unsigned char v = limit[Sar(static_cast<uint32_t>(w[0]) + 16u, 5) & 0x3FF];
      for (int i = 0; i < 8; ++i) out[i] = v;
    } else {
      IDCT_8x8r(out, w);
    }
  }
}

void Decoder::IDCT_4x4(Coef* block, unsigned char** rows, unsigned long column) {
  // Columns: coefficients at stride 8, results into a stride-4 workspace in
  // place (each column writes only entries it has read or never reads).
  for (int i = 0; i < 4; ++i) {
    const uint32_t c0 = static_cast<uint32_t>(block[i]);
    const uint32_t c1 = static_cast<uint32_t>(block[8 + i]);
    const uint32_t c2 = static_cast<uint32_t>(block[16 + i]);
    const uint32_t c3 = static_cast<uint32_t>(block[24 + i]);
    const uint32_t z = (c1 + c3) * kFix0_541196100;
    const uint32_t o1 = static_cast<uint32_t>(Sar(z + c1 * kFix0_765366865, 11));
    const uint32_t o2 = static_cast<uint32_t>(Sar(z - c3 * kFix1_847759065, 11));
    const uint32_t e0 = (c0 + c2) * 4u;
    const uint32_t e1 = (c0 - c2) * 4u;
    block[i] = static_cast<Coef>(e0 + o1);
    block[4 + i] = static_cast<Coef>(e1 + o2);
    block[8 + i] = static_cast<Coef>(e1 - o2);
    block[12 + i] = static_cast<Coef>(e0 - o1);
  }
  const unsigned char* limit = idctRangeLimit;
  for (int r = 0; r < 4; ++r) {
    const Coef* w = block + r * 4;
    const uint32_t w0 = static_cast<uint32_t>(w[0]);
    const uint32_t w1 = static_cast<uint32_t>(w[1]);
    const uint32_t w2 = static_cast<uint32_t>(w[2]);
    const uint32_t w3 = static_cast<uint32_t>(w[3]);
    const uint32_t z = (w1 + w3) * kFix0_541196100;
    const uint32_t o1 = z + w1 * kFix0_765366865;
    const uint32_t o2 = z - w3 * kFix1_847759065;
    const uint32_t e0 = (w0 + w2) << 13;
    const uint32_t e1 = (w0 - w2) << 13;
    unsigned char* out = rows[r] + column;
    out[0] = limit[Sar(e0 + o1, 18) & 0x3FF];
    out[1] = limit[Sar(e1 + o2, 18) & 0x3FF];
    out[2] = limit[Sar(e1 - o2, 18) & 0x3FF];
    out[3] = limit[Sar(e0 - o1, 18) & 0x3FF];
  }
}

void Decoder::IDCT_2x2(Coef* block, unsigned char** rows, unsigned long column) {
  const uint32_t c00 = static_cast<uint32_t>(block[0]);
  const uint32_t c01 = static_cast<uint32_t>(block[1]);
  const uint32_t c10 = static_cast<uint32_t>(block[8]);
  const uint32_t c11 = static_cast<uint32_t>(block[9]);
  const unsigned char* limit = idctRangeLimit;
  rows[0][column] = limit[Sar(c00 + c10 + c01 + c11, 3) & 0x3FF];
  rows[0][column + 1] = limit[Sar(c00 + c10 - c01 - c11, 3) & 0x3FF];
  rows[1][column] = limit[Sar(c00 - c10 + c01 - c11, 3) & 0x3FF];
  rows[1][column + 1] = limit[Sar(c00 - c10 - c01 + c11, 3) & 0x3FF];
}

void Decoder::IDCT_1x1(Coef* block, unsigned char** rows, unsigned long column) {
  rows[0][column] = idctRangeLimit[(block[0] >> 3) & 0x3FF];
}

}  // namespace kjd
