// The AC mask of a block for ARMv7 NEON (compiled with -mfpu=neon in the
// armhf build only): the values are narrowed to 16 bits with saturation, their
// extremes kept for the range bit, narrowed to bytes, compared with zero,
// weighted by their bit and summed pairwise into bytes; the natural-order
// mask is then put in zigzag order by table.
#include "kj.ekernels.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include <arm_neon.h>

namespace kje {

uint64_t Huff_AcMask_neon(const int32_t* block) {
  static const uint8_t kWeights[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  const uint8x16_t weights = vld1q_u8(kWeights);
  int16x8_t highest = vdupq_n_s16(0);
  int16x8_t lowest = vdupq_n_s16(0);
  uint8x16_t weighted[4];
  for (int i = 0; i < 4; ++i, block += 16) {
    int16x8_t low = vcombine_s16(vqmovn_s32(vld1q_s32(block)), vqmovn_s32(vld1q_s32(block + 4)));
    int16x8_t high = vcombine_s16(vqmovn_s32(vld1q_s32(block + 8)), vqmovn_s32(vld1q_s32(block + 12)));
    if (i == 0) low = vsetq_lane_s16(0, low, 0);  // no DC
    highest = vmaxq_s16(highest, vmaxq_s16(low, high));
    lowest = vminq_s16(lowest, vminq_s16(low, high));
    int8x16_t bytes = vcombine_s8(vqmovn_s16(low), vqmovn_s16(high));
    weighted[i] = vandq_u8(vtstq_s8(bytes, bytes), weights);
  }
  // Three pairwise additions fold each run of 8 weighted bytes into one byte.
  uint8x8_t a = vpadd_u8(vget_low_u8(weighted[0]), vget_high_u8(weighted[0]));
  uint8x8_t b = vpadd_u8(vget_low_u8(weighted[1]), vget_high_u8(weighted[1]));
  uint8x8_t c = vpadd_u8(vget_low_u8(weighted[2]), vget_high_u8(weighted[2]));
  uint8x8_t d = vpadd_u8(vget_low_u8(weighted[3]), vget_high_u8(weighted[3]));
  uint8x8_t ab = vpadd_u8(a, b);
  uint8x8_t cd = vpadd_u8(c, d);
  uint64_t mask = vget_lane_u64(vreinterpret_u64_u8(vpadd_u8(ab, cd)), 0);
  int16x8_t extreme = vmaxq_s16(highest, vqnegq_s16(lowest));
  uint16x8_t over = vcgtq_s16(extreme, vdupq_n_s16(1023));
  uint16x4_t folded = vorr_u16(vget_low_u16(over), vget_high_u16(over));
  uint64_t large = vget_lane_u64(vreinterpret_u64_u16(folded), 0) != 0;
  uint64_t zigzag = large;
  for (int j = 0; j < 8; ++j) zigzag |= kHuffZigzagBits.bits[j][mask >> (8 * j) & 0xFF];
  return zigzag;
}

}  // namespace kje
#endif
