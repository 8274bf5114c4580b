// Image utilities: pixel formats, the colour tables and the shared sample
// range-limit table. Converters and scaling are declared here as they land.
#ifndef KIU_KIU_H
#define KIU_KIU_H

#include <cstdint>

#include "../kau/kexport.h"

// The picture record of the codec entry points: the decoder fills it, the
// encoder reads width, height and data. Layout is fixed on the target.
struct STImageSimple {
  uint32_t width;
  uint32_t height;
  uint32_t size;    // total bytes; planar YUV output only
  uint32_t stride;  // bytes per row; packed outputs only
  uint16_t bitsPerPixel;
  unsigned char* data;  // from kau::mem::New; the caller owns it
};

namespace kiu {

// 32-bit format codes; the letters name the byte order of one packed pixel.
enum Format : int32_t {
  FormatABGR = 8,
  FormatARGB = 9,
  FormatBGR = 10,
  FormatBGRA = 11,
  FormatRGB = 12,
  FormatRGBA = 13,
  FormatYUV = 16,
  FormatYVU = 17,
  FormatUVY = 18,
  FormatUYV = 19,
  FormatVUY = 20,
  FormatVYU = 21,
  // 32 to 55: four-byte YUV orders with a filler byte "z" (see ColorSpaceFrom).
  FormatYZUV = 32,
  FormatVZYU = 55,
  FormatI420 = 64,
  FormatCMYK = 128,
  FormatYCCK = 256,
};

// Colour tables, 16-bit fixed point. They are constant data, complete before
// any code of the library runs, so no start-up step can see them unbuilt.
struct ColorTables {
  int32_t rToY[256], gToY[256], bToY[256];
  int32_t rToCb[256], gToCb[256], bToCb[256];  // bToCb also serves as R to Cr
  int32_t gToCr[256], bToCr[256];
  int32_t byCr[256][2];  // {Cr to R (integer), Cr to G (scaled)}
  int32_t byCb[256][2];  // {Cb to B (integer), Cb to G (scaled, +32768)}
};
extern const ColorTables colorTables;

// Pointer to byte 256 of the 1408-byte clamp table (followed by its "built"
// flag byte): valid indices are -256 to 1151.
constexpr int kRangeLimitBytes = 1408;
extern const unsigned char* const ubyteRangeLimit;

// Per-pixel RGB to YCbCr; the tables keep every result within 0..255.
KEL_API void ConvertRGBtoY(unsigned char r, unsigned char g, unsigned char b, unsigned char& y);
KEL_API void ConvertRGBtoYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char& y,
                             unsigned char& u, unsigned char& v);

}  // namespace kiu

#endif  // KIU_KIU_H
