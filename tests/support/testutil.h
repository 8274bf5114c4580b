// Helpers shared by the tests: temporary files, shell commands for the peer
// tools, and synthetic photo-like pictures.
#ifndef KEL_TESTS_TESTUTIL_H
#define KEL_TESTS_TESTUTIL_H

#include <cstdint>
#include <string>
#include <vector>

namespace keltest {

using Bytes = std::vector<uint8_t>;

// A fresh path under the test's temporary directory.
std::string TempPath(const std::string& name);
Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& data);
// Runs a shell command; returns its exit status.
int Run(const std::string& command);
// True when `tool` is on PATH.
bool HaveTool(const std::string& tool);

// Smooth gradients plus noise and hard edges, channels interleaved.
Bytes PhotoLike(int width, int height, int channels, uint32_t seed);
// Writes a binary PPM (3 channels) or PGM (1 channel).
void WritePnm(const std::string& path, const Bytes& pixels, int width, int height, int channels);

// Peak signal-to-noise ratio of two equal-sized byte planes, in dB.
double Psnr(const uint8_t* a, const uint8_t* b, size_t n);

}  // namespace keltest

#endif  // KEL_TESTS_TESTUTIL_H
