// Helpers for the encoder tests: running EncodeJPG into memory and the peer
// encoder/decoder on files.
#ifndef KEL_TESTS_ENCODEUTIL_H
#define KEL_TESTS_ENCODEUTIL_H

#include <string>

#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "support/testutil.h"

namespace keltest {

// A page-array stream as the encoder element makes it; null on failure.
MMStream* NewPageStream();
// All bytes put into `stream`.
Bytes StreamBytes(MMStream* stream);

struct EncodeResult {
  int rc = 0;
  Bytes jpeg;
  std::string printed;  // what the encoder printed on standard output
};
// Encodes `pixels` (owned by the caller, not modified) through EncodeJPG.
EncodeResult Encode(Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
                    kiu::Format out);

// RGB triples to 4-byte pixels (fourth byte `filler`).
Bytes ToPacked4(const Bytes& rgb, uint8_t filler);
// RGB triples to I420 planes in the encoder's padded layout (luma stride =
// width rounded to 4, chroma stride = that rounded to 8 and halved, height
// rounded to 2); padding repeats the edge.
Bytes ToPaddedI420(const Bytes& rgb, int width, int height);

// Captures standard output written by `fn`.
template <typename Fn>
std::string CaptureStdout(Fn fn);

}  // namespace keltest

#include "support/encodeutil_inl.h"

#endif  // KEL_TESTS_ENCODEUTIL_H
