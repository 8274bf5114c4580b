// Coefficient controllers.
#ifndef KJ_D_KJ_DCOEF_H
#define KJ_D_KJ_DCOEF_H

#include "kj.d.h"

namespace kjd {

constexpr const char* kSourceDcoef = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dcoef";

}  // namespace kjd

#endif  // KJ_D_KJ_DCOEF_H
