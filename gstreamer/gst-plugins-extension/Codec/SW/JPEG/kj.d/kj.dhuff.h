// Huffman entropy decoding.
#ifndef KJ_D_KJ_DHUFF_H
#define KJ_D_KJ_DHUFF_H

#include "kj.d.h"

namespace kjd {

constexpr const char* kSourceHuff = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.dhuff";

}  // namespace kjd

#endif  // KJ_D_KJ_DHUFF_H
