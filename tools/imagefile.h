// Picture files the keljpeg tool reads and writes: PNG (through libpng),
// binary PPM and PGM, and raw YUV. Pixels travel as the codec's packed
// 4-byte RGBx rows, the layout EncodeJPG reads and DecodeJPG writes.
#ifndef KEL_TOOLS_IMAGEFILE_H
#define KEL_TOOLS_IMAGEFILE_H

#include <cstdint>
#include <string>
#include <vector>

namespace keljpeg {

using Bytes = std::vector<unsigned char>;

struct Picture {
  uint32_t width = 0, height = 0;
  Bytes pixels;  // width * height * 4: R, G, B, and a fourth byte
};

enum class FileKind { kPng, kPpm, kPgm, kYuv, kJpeg, kUnknown };
// By extension, case-insensitive.
FileKind KindOf(const std::string& path);
const char* ExtensionOf(FileKind kind);

// Each returns an empty string on success, else what went wrong in words.
std::string ReadFile(const std::string& path, Bytes* out);
std::string WriteFile(const std::string& path, const unsigned char* data, size_t size);
// PNG of any colour type or depth (palette, grey and 16-bit are converted),
// or binary 8-bit PPM/PGM; grey is spread over R, G and B.
std::string ReadPicture(const std::string& path, Picture* picture);
// PNG with 3 channels, or 4 when `alpha`; PPM with 3.
std::string WritePng(const std::string& path, const Picture& picture, bool alpha);
std::string WritePpm(const std::string& path, const Picture& picture);
// One channel of `width` x `height` samples, `stride` bytes apart, `step` apart in a row.
std::string WritePgm(const std::string& path, const unsigned char* samples, uint32_t width, uint32_t height,
                     size_t stride, size_t step);

}  // namespace keljpeg

#endif  // KEL_TOOLS_IMAGEFILE_H
