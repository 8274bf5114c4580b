// Input reader and marker reader.
#ifndef KJ_D_KJ_DINPUT_H
#define KJ_D_KJ_DINPUT_H

#include "kj.d.h"

namespace kjd {

constexpr const char* kSourceInput = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dinput";

}  // namespace kjd

#endif  // KJ_D_KJ_DINPUT_H
