// Image scaling with a separable bell filter. Used by the decoder when the
// requested size is not one of its reduced decoding sizes.
#ifndef KIU_KIUSCALE_H
#define KIU_KIUSCALE_H

#include "../kau/kau.h"
#include "../kau/kexport.h"

namespace kiu {

// Each function replaces `data` with the scaled picture and returns it; the
// source is not released. On any failure it prints the diagnostic line, sets
// `data` to null and returns null. Sizes of 0 or above 0x3FFFFFFF fail.

// One byte per pixel; the result belongs to `heap`.
KEL_API unsigned char* ScaleComponent(unsigned char*& data, unsigned long srcWidth, unsigned long srcHeight,
                                      unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap);
// Three bytes per pixel; the result comes from kau::mem::New and belongs to
// the caller. Scratch comes from `heap`. Sets width and height on success.
KEL_API unsigned char* ScaleImage24bpp(unsigned char*& data, unsigned long& width, unsigned long& height,
                                       unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap);
// Four bytes per pixel, the first three filtered; the fourth is taken from
// the source pixel the destination pixel is centred on.
KEL_API unsigned char* ScaleImageRGB(unsigned char*& data, unsigned long& width, unsigned long& height,
                                     unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap);

}  // namespace kiu

#endif  // KIU_KIUSCALE_H
