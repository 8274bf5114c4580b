// The codec's entry points as the keljpeg tool uses them: the diagnostic line
// the codec prints is kept off the terminal, and a failure is told in words
// from the codec's failure record.
#ifndef KEL_TOOLS_CODECIO_H
#define KEL_TOOLS_CODECIO_H

#include <cstdio>
#include <string>

#include "imagefile.h"
#include "kau/kau.h"

namespace keljpeg {

// What DecodeJPG is asked for: 0/0 full size, else a box in pixels that the
// picture fits into with its aspect ratio kept.
struct DecodeSize {
  int width = 0, height = 0;
};

// Why a codec call failed: the codec's own record, or the tool's words.
struct Failure {
  kau::Fault fault{};
  std::string words;
  // "corrupt JPEG data: ... (kj.dinput +475)", or the words.
  std::string Describe() const;
};

// Sends the process's standard output into a temporary file until Finish,
// so the codec's diagnostic lines do not reach the terminal.
class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();
  std::string Finish();

 private:
  int saved_ = -1;
  std::FILE* file_ = nullptr;
};
// Runs `call` with standard output captured into `printed`.
template <typename Call>
auto Captured(std::string* printed, Call call) -> decltype(call()) {
  StdoutCapture capture;
  auto result = call();
  *printed = capture.Finish();
  return result;
}

// DecodeJPG: 32-bit pixels, `alpha` in the fourth byte.
bool DecodeRgba(const Bytes& jpeg, int alpha, DecodeSize size, Picture* out, Failure* why);
// jpdyuv::DecodeJPG: packed Y, U, V (`planar` false; 3 bytes a pixel) or I420 planes.
bool DecodeYuv(const Bytes& jpeg, bool planar, Bytes* out, uint32_t* width, uint32_t* height, Failure* why);

// EncodeJPG of packed RGBx pixels into a page-array stream: YCbCr 4:2:0, or
// the RGB model with `rgbModel`.
bool EncodePicture(const Picture& picture, int quality, bool rgbModel, Bytes* jpeg, Failure* why);
// EncodeJPG of a plain I420 frame (planes packed, chroma (w+1)/2 x (h+1)/2).
bool EncodeI420(const Bytes& frame, uint32_t width, uint32_t height, int quality, Bytes* jpeg, Failure* why);

}  // namespace keljpeg

#endif  // KEL_TOOLS_CODECIO_H
