// Baseline JPEG encode entry point.
#ifndef KJ_E_CJPGE_H
#define KJ_E_CJPGE_H

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"

// Writes `image` as a complete baseline JPEG file to `out`. Input formats:
// 8..13 (packed 4-byte pixels, bytes 0..2 used) or 64 (planar I420 with the
// width padded to a multiple of 4 and the height to a multiple of 2). Output
// formats: 8..13 (RGB JPEG) or 16..21 / 64 (YCbCr 4:2:0 JPEG). Returns 1 when
// the whole file was written, 0 otherwise; never throws.
KEL_API int EncodeJPG(const STImageSimple& image, int quality, MMStream* out, kiu::Format inputFormat,
                      kiu::Format outputFormat);
// The same, writing why it failed to `*failure` (when not null and still
// empty); for the plug-in and the tool, not exported.
int EncodeJPG(const STImageSimple& image, int quality, MMStream* out, kiu::Format inputFormat,
              kiu::Format outputFormat, kau::Fault* failure);

#endif  // KJ_E_CJPGE_H
