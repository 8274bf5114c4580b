#include "imagefile.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kj.jpeg.h"

namespace keljpeg {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Next header number of a PNM file, skipping white space and comments.
bool PnmNumber(const Bytes& file, size_t* pos, uint32_t* value) {
  while (*pos < file.size()) {
    const unsigned char c = file[*pos];
    if (c == '#') {
      while (*pos < file.size() && file[*pos] != '\n') ++*pos;
    } else if (std::isspace(c)) {
      ++*pos;
    } else {
      break;
    }
  }
  if (*pos >= file.size() || !std::isdigit(file[*pos])) return false;
  uint64_t v = 0;
  while (*pos < file.size() && std::isdigit(file[*pos]) && v < 1000000) v = v * 10 + (file[(*pos)++] - '0');
  *value = static_cast<uint32_t>(v);
  return true;
}

std::string ReadPnm(const Bytes& file, Picture* picture) {
  const bool colour = file[1] == '6';
  size_t pos = 2;
  uint32_t w = 0, h = 0, maxval = 0;
  if (!PnmNumber(file, &pos, &w) || !PnmNumber(file, &pos, &h) || !PnmNumber(file, &pos, &maxval))
    return "its PNM header is incomplete";
  if (maxval != 255) return "only 8-bit PNM (maximum value 255) is read";
  if (w == 0 || h == 0 || w > kj::kMaxDimension || h > kj::kMaxDimension)
    return "its size is outside 1..65500";
  ++pos;  // the single white-space byte before the samples
  const size_t count = static_cast<size_t>(w) * h, channels = colour ? 3 : 1;
  if (file.size() < pos + count * channels) return "it is shorter than its header says";
  picture->width = w;
  picture->height = h;
  picture->pixels.assign(count * 4, 0);
  const unsigned char* in = file.data() + pos;
  for (size_t i = 0; i < count; ++i, in += channels) {
    unsigned char* out = &picture->pixels[i * 4];
    out[0] = in[0];
    out[1] = in[colour ? 1 : 0];
    out[2] = in[colour ? 2 : 0];
  }
  return "";
}

std::string ReadPng(const Bytes& file, Picture* picture) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) return image.message;
  if (image.width == 0 || image.height == 0 || image.width > kj::kMaxDimension ||
      image.height > kj::kMaxDimension) {
    png_image_free(&image);
    return "its size is outside 1..65500";
  }
  // RGBA is the encoder's own 4-byte layout; the alpha byte is not encoded.
  image.format = PNG_FORMAT_RGBA;
  picture->width = image.width;
  picture->height = image.height;
  picture->pixels.assign(PNG_IMAGE_SIZE(image), 0);
  if (!png_image_finish_read(&image, nullptr, picture->pixels.data(), 0, nullptr)) return image.message;
  return "";
}

}  // namespace

FileKind KindOf(const std::string& path) {
  const size_t dot = path.rfind('.');
  const std::string ext = dot == std::string::npos ? "" : Lower(path.substr(dot + 1));
  if (ext == "png") return FileKind::kPng;
  if (ext == "ppm") return FileKind::kPpm;
  if (ext == "pgm") return FileKind::kPgm;
  if (ext == "yuv") return FileKind::kYuv;
  if (ext == "jpg" || ext == "jpeg") return FileKind::kJpeg;
  return FileKind::kUnknown;
}

const char* ExtensionOf(FileKind kind) {
  switch (kind) {
    case FileKind::kPng:
      return ".png";
    case FileKind::kPpm:
      return ".ppm";
    case FileKind::kPgm:
      return ".pgm";
    case FileKind::kYuv:
      return ".yuv";
    case FileKind::kJpeg:
      return ".jpg";
    case FileKind::kUnknown:
      break;
  }
  return "";
}

std::string ReadFile(const std::string& path, Bytes* out) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return std::strerror(errno);
  out->clear();
  unsigned char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) != 0) out->insert(out->end(), chunk, chunk + n);
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  return failed ? "read error" : "";
}

std::string WriteFile(const std::string& path, const unsigned char* data, size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return std::strerror(errno);
  const bool written = std::fwrite(data, 1, size, f) == size;
  if (std::fclose(f) != 0 || !written) return "write error";
  return "";
}

std::string ReadPicture(const std::string& path, Picture* picture) {
  Bytes file;
  std::string why = ReadFile(path, &file);
  if (!why.empty()) return why;
  if (file.size() >= 8 && png_sig_cmp(file.data(), 0, 8) == 0) return ReadPng(file, picture);
  if (file.size() >= 2 && file[0] == 'P' && (file[1] == '5' || file[1] == '6')) return ReadPnm(file, picture);
  return "it is neither PNG nor binary PPM/PGM";
}

std::string WritePng(const std::string& path, const Picture& picture, bool alpha) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = picture.width;
  image.height = picture.height;
  image.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  Bytes rgb;
  const unsigned char* rows = picture.pixels.data();
  if (!alpha) {
    const size_t count = static_cast<size_t>(picture.width) * picture.height;
    rgb.resize(count * 3);
    for (size_t i = 0; i < count; ++i) std::memcpy(&rgb[i * 3], &picture.pixels[i * 4], 3);
    rows = rgb.data();
  }
  if (!png_image_write_to_file(&image, path.c_str(), 0, rows, 0, nullptr)) return image.message;
  return "";
}

std::string WritePpm(const std::string& path, const Picture& picture) {
  const std::string header =
      "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
  const size_t count = static_cast<size_t>(picture.width) * picture.height;
  Bytes file(header.begin(), header.end());
  file.resize(header.size() + count * 3);
  for (size_t i = 0; i < count; ++i) std::memcpy(&file[header.size() + i * 3], &picture.pixels[i * 4], 3);
  return WriteFile(path, file.data(), file.size());
}

std::string WritePgm(const std::string& path, const unsigned char* samples, uint32_t width, uint32_t height,
                     size_t stride, size_t step) {
  const std::string header = "P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
  Bytes file(header.begin(), header.end());
  file.reserve(header.size() + static_cast<size_t>(width) * height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) file.push_back(samples[y * stride + x * step]);
  return WriteFile(path, file.data(), file.size());
}

}  // namespace keljpeg
