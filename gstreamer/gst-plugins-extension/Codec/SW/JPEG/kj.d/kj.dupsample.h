// Upsampling and pixel output: colour-model choice, per-component scaled
// sizes, chroma expansion by repetition and the row converters' driver.
#ifndef KJ_D_KJ_DUPSAMPLE_H
#define KJ_D_KJ_DUPSAMPLE_H

#include "kj.d.h"

namespace kjd {

constexpr const char* kSourceUpsample = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dupsample";

}  // namespace kjd

#endif  // KJ_D_KJ_DUPSAMPLE_H
