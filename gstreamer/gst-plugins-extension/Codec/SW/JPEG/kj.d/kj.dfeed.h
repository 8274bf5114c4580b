// The feeding object: collects a JPEG byte stream that arrives in pieces in a
// page-array stream and tracks markers until one whole image, up to its EOI,
// is present. The bytes after that EOI start the next image.
#ifndef KJD_KJ_DFEED_H
#define KJD_KJ_DFEED_H

#include <cstdint>

#include "kiu/mmstream.h"

namespace kjd {

class Input {
 public:
  // Makes a fresh, ready page-array stream; null on failure.
  MMStream* Construct();
  void Destruct();
  void ResetStream();
  // 1: more data needed; 0: an image is complete and ends at EndOfImage().
  int Push(const void* data, unsigned long size);
  // Bytes that arrive while a complete image is held: appended behind it
  // unscanned, so the next ResetStreamWithDataAfterEOI scans them in order.
  void Append(const void* data, unsigned long size);
  // Starts a fresh stream holding (already scanned) the bytes from the EOI
  // up to the read position. Returns what scanning them answered: 0 when
  // they already hold a whole image, 1 when more data is needed.
  int ResetStreamWithDataAfterEOI();
  // 1 when the stream starts with SOI followed by a marker that may follow it.
  static int IsValid(MMStream* stream);
  // Reads the frame size from the first SOFn after the stream's read
  // position, stepping over segments by their lengths; 1 when found. Reads
  // only headers, so a caller can refuse a size before anything is decoded.
  // Prints nothing: a stream it cannot read is left to the decoder to report.
  static int FrameSize(MMStream* stream, uint32_t* width, uint32_t* height);

  MMStream* Stream() const { return stream_; }
  uint32_t EndOfImage() const { return endOfImage_; }

  static constexpr uint32_t kPageSize = 65536;

 private:
  MMStream* stream_ = nullptr;
  unsigned char lastByte_ = 0;
  uint32_t endOfImage_ = 0;
  int32_t state_ = 0;
  int32_t toSkip_ = 0;
};

}  // namespace kjd

#endif  // KJD_KJ_DFEED_H
