// Decoding at full size to YUV: packed Y, U, V or planar I420.
#ifndef KJ_D_JPDYUV_H
#define KJ_D_JPDYUV_H

#include <cstdint>

#include "kau/kexport.h"
#include "kiu/kiu.h"
#include "kj.dlimits.h"

class MMStream;

namespace jpdyuv {

// Both return 1 and fill `image`, or print the diagnostic line and return 0.
// Packed (`planar` false): 3 bytes per pixel, stride = width * 3, 24 bits per
// pixel. Planar: even width and height (an odd last column and row are
// dropped), Y then U then V planes, size = width * height * 3 / 2; stride and
// bits per pixel are left as they were. Data from kau::mem::New, owned by
// the caller.
KEL_API int DecodeJPG(const unsigned char* data, unsigned long size, STImageSimple* image, bool planar);
KEL_API int DecodeJPG(MMStream* stream, STImageSimple* image, bool planar);
// The same within `limits`; a decode that would exceed them fails as above.
KEL_API int DecodeJPG(const unsigned char* data, unsigned long size, STImageSimple* image, bool planar,
                      const kjd::DecodeLimits& limits);
KEL_API int DecodeJPG(MMStream* stream, STImageSimple* image, bool planar, const kjd::DecodeLimits& limits);

// Not exported: the decoder element's form, which decodes into memory it
// keeps across frames. Once the headers give the even output size, `supply`
// is asked for the three planes and their row strides; when it answers false
// the decode stops quietly (kDeclined). Failures print the diagnostic line
// of the stream form above (kFailed).
struct I420Planes {
  unsigned char* planes[3];
  uint32_t strides[3];
};
// The layout of the planar output above: planes packed in one block of
// width * height * 3 / 2 bytes.
inline I420Planes PackedPlanes(unsigned char* block, uint32_t width, uint32_t height) {
  return {{block, block + width * height, block + width * height / 4 * 5}, {width, width / 2, width / 2}};
}
using SupplyPlanesFn = bool (*)(void* context, uint32_t width, uint32_t height, I420Planes* planes);
enum class IntoResult { kDecoded, kFailed, kDeclined };
IntoResult DecodeI420Into(MMStream* stream, const kjd::DecodeLimits& limits, SupplyPlanesFn supply,
                          void* context);

}  // namespace jpdyuv

#endif  // KJ_D_JPDYUV_H
