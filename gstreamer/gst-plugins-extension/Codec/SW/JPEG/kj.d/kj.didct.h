// Inverse DCT kernels; SIMD twins sit beside this pair.
#ifndef KJ_D_KJ_DIDCT_H
#define KJ_D_KJ_DIDCT_H

#include "kj.d.h"

namespace kjd {

constexpr const char* kSourceIdct = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.didct";

}  // namespace kjd

#endif  // KJ_D_KJ_DIDCT_H
