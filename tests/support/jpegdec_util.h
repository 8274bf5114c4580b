// Helpers for the decoder tests: corpus files made with cjpeg/jpegtran, our
// component planes, and the peer's (TurboJPEG) planes.
#ifndef KEL_TESTS_JPEGDEC_UTIL_H
#define KEL_TESTS_JPEGDEC_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/testutil.h"

namespace keltest {

struct ComponentPlane {
  int width = 0;   // visible samples
  int height = 0;  // visible rows
  Bytes samples;   // width * height, packed
};

// A photo-like PPM (channels 3) or PGM (channels 1) compressed by
// `cjpeg <args>`; when `jpegtranArgs` is not empty the result is then passed
// through `jpegtran <jpegtranArgs>`. `scans` (if not empty) is written to a
// file whose path replaces "@SCANS@" in args. Empty on tool failure.
Bytes MakeJpeg(int width, int height, int channels, uint32_t seed, const std::string& args,
               const std::string& scans = "", const std::string& jpegtranArgs = "");

// Our decoder: component planes at DCT scaled size `scale` (8, 4, 2, 1),
// visible area only. Throws what the decoder throws.
std::vector<ComponentPlane> DecodePlanes(const Bytes& jpeg, int scale = 8, bool specialised = true);

// The peer: tjDecompressToYUVPlanes with TJFLAG_ACCURATEDCT, cut to the
// visible area of each component (ceil(w*Hi/Hmax) x ceil(h*Vi/Vmax)).
// False when the peer is not available or refuses the file.
bool PeerPlanes(const Bytes& jpeg, std::vector<ComponentPlane>* planes, std::string* why);

// The peer's pixels: tjDecompress2 to RGB with TJFLAG_ACCURATEDCT |
// TJFLAG_FASTUPSAMPLE (chroma repeated, as ours); with `cmyk` four bytes of
// C, M, Y, K per pixel instead. False when the peer is not available or
// refuses the file.
bool PeerRgb(const Bytes& jpeg, Bytes* rgb, int* width, int* height, std::string* why, bool cmyk = false);

// The file without its APPn segments and with the frame's component ids
// replaced by `ids` (as many as the frame has).
Bytes RewriteMarkers(const Bytes& jpeg, const std::vector<int>& ids);

// Where the first error of a decode came from: the constructor's own error
// (kj.d 70) is looked through to the error it printed. Empty file name when
// the decode succeeded.
struct ErrorSite {
  std::string file;
  int line = 0;
  std::string outer;  // the error the caller saw, "file:line"
};
ErrorSite DecodeError(const Bytes& jpeg);

}  // namespace keltest

#endif  // KEL_TESTS_JPEGDEC_UTIL_H
