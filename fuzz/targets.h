// Fuzz targets: each takes arbitrary bytes, drives one public interface with
// them and aborts when a result breaks that interface's contract. libFuzzer
// runs them (fuzz_main.cpp); the normal suite replays fuzz/regressions.
#ifndef KEL_FUZZ_TARGETS_H
#define KEL_FUZZ_TARGETS_H

#include <cstddef>
#include <cstdint>

namespace kelfuzz {

using TargetFn = int (*)(const uint8_t* data, size_t size);

// DecodeJPG (memory and stream) with alpha and requested size from the input.
int Decode(const uint8_t* data, size_t size);
// jpdyuv::DecodeJPG, planar and packed, memory and stream.
int DecodeYuv(const uint8_t* data, size_t size);
// kjd::Input fed in pieces as the decoder element feeds it.
int Feed(const uint8_t* data, size_t size);
// EncodeJPG with size, quality and formats from the input; output decoded back.
int Encode(const uint8_t* data, size_t size);
// The stream framework's plain functions driven by an operation script.
int Streams(const uint8_t* data, size_t size);

struct Target {
  const char* name;  // also the directory under fuzz/regressions
  TargetFn fn;
};
extern const Target kTargets[5];

}  // namespace kelfuzz

#endif  // KEL_FUZZ_TARGETS_H
