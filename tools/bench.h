// `keljpeg bench`: megapixels per second of our decoder and encoder, with
// TurboJPEG measured the same way beside them when the tool was built with it.
#ifndef KEL_TOOLS_BENCH_H
#define KEL_TOOLS_BENCH_H

#include <string>

#include "imagefile.h"

namespace keljpeg {

// A photo-like test picture: gradients, a grid of edges and noise, fixed seed.
Picture GeneratePicture(uint32_t width, uint32_t height);
// Prints the figures for `jpeg`; returns an empty string or why it failed.
std::string RunBench(const Bytes& jpeg, double seconds, std::FILE* out);

}  // namespace keljpeg

#endif  // KEL_TOOLS_BENCH_H
