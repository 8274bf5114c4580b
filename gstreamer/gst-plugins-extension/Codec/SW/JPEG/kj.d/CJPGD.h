// Decoding to 32-bit pixels whose fourth byte is a caller-given alpha value.
#ifndef KJ_D_CJPGD_H
#define KJ_D_CJPGD_H

#include "kau/kexport.h"
#include "kiu/kiu.h"
#include "kj.dlimits.h"

class MMStream;

// Both return 1 and fill `image` (data from kau::mem::New, owned by the
// caller; stride = width * 4, 32 bits per pixel), or print the diagnostic
// line and return 0, leaving `image` untouched. `width`/`height`: 0 keeps the
// image's own size, a positive value asks for that many pixels (the picture
// keeps its aspect ratio inside the box), a negative value asks for that
// many pixels per 8 source pixels. Both negative is refused.
KEL_API int DecodeJPG(const unsigned char* data, unsigned long size, unsigned long alpha,
                      STImageSimple* image, int width, int height);
KEL_API int DecodeJPG(MMStream* stream, unsigned long alpha, STImageSimple* image, int width, int height);
// The same within `limits`; a decode that would exceed them fails as above.
KEL_API int DecodeJPG(const unsigned char* data, unsigned long size, unsigned long alpha,
                      STImageSimple* image, int width, int height, const kjd::DecodeLimits& limits);
KEL_API int DecodeJPG(MMStream* stream, unsigned long alpha, STImageSimple* image, int width, int height,
                      const kjd::DecodeLimits& limits);

#endif  // KJ_D_CJPGD_H
