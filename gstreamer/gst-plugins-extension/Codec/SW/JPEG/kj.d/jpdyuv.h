// Decoding at full size to YUV: packed Y, U, V or planar I420.
#ifndef KJ_D_JPDYUV_H
#define KJ_D_JPDYUV_H

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

}  // namespace jpdyuv

#endif  // KJ_D_JPDYUV_H
