// Bounds a caller may put on one decode, so that a few bytes of header cannot
// make the decoder allocate or work for gigabytes. Each is checked after the
// headers and before any whole-image allocation; 0 leaves a bound off, and
// the defaults leave all off.
#ifndef KJ_D_KJ_DLIMITS_H
#define KJ_D_KJ_DLIMITS_H

#include <cstdint>

namespace kau {
struct Fault;
}

namespace kjd {

struct DecodeLimits {
  // Frame width x height, and the box a rescale is asked to fill.
  uint32_t maxPixels = 0;
  // Bytes of the whole-image buffers alive at once: coefficient stores of a
  // multi-scan image, the pixel buffer and the post-processing copy.
  uint32_t maxMemory = 0;
  // 8x8 blocks of all components per byte of input. A complete image codes
  // every block's DC with at least one bit, so 8 refuses only files whose
  // data cannot cover the frame their header claims.
  uint32_t maxBlocksPerByte = 0;
  // Scans (SOS segments) of one image; each one walks every block it covers.
  uint32_t maxScans = 0;
  // Not a bound: where a failed decode writes its first cause (category,
  // source and line, words), when not null.
  kau::Fault* failure = nullptr;
};

}  // namespace kjd

#endif  // KJ_D_KJ_DLIMITS_H
