#include "codecio.h"

#include <unistd.h>

#include <cstring>
#include <vector>

#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.e/CJPGE.h"

namespace keljpeg {
namespace {

// The failures a user meets in practice, by the last part of the source
// name and the line the codec prints; the rest are shown by source and line.
struct KnownSite {
  const char* source;
  int line;
  const char* words;
};
constexpr KnownSite kKnownSites[] = {
    {"kj.d", 45, "the file is too short to be a JPEG"},
    {"kj.d", 57, "the file does not start with a marker"},
    {"kj.d", 60, "the file does not start with SOI"},
    {"kj.d", 106, "the image ends before its pixel data"},
    {"kj.d", 140, "the decoded picture would be too wide"},
    {"kj.d", 141, "the decoded picture would be too large"},
    {"kj.dinput", 124, "a second SOI marker inside the image"},
    {"kj.dinput", 138, "a second frame header"},
    {"kj.dinput", 142, "the sample precision is not 8 bits"},
    {"kj.dinput", 147, "the width or height is above 65500"},
    {"kj.dinput", 149, "the frame has too many components"},
    {"kj.dinput", 153, "the frame has no width, height or components"},
    {"kj.dinput", 154, "the frame header's length does not match its components"},
    {"kj.dinput", 176, "a scan comes before the frame header"},
    {"kj.dinput", 179, "the scan header's length is wrong"},
    {"kj.dinput", 189, "a scan names a component the frame does not have"},
    {"kj.dinput", 206, "a further scan after a single scan that held every component"},
    {"kj.dinput", 217, "a sampling factor is outside 1..4"},
    {"kj.dinput", 252, "a Huffman table has too many codes"},
    {"kj.dinput", 266, "a Huffman table number is above 3"},
    {"kj.dinput", 272, "a Huffman table segment's length is wrong"},
    {"kj.dinput", 284, "a quantisation table number is above 3"},
    {"kj.dinput", 297, "a quantisation table segment's length is wrong"},
    {"kj.dinput", 303, "the restart interval segment's length is wrong"},
    {"kj.dinput", 340, "the JFIF version is not 1.x"},
    {"kj.dinput", 475, "a restart marker is missing or out of order"},
    {"kj.dinput", 502, "a scan holds more than 4 components"},
    {"kj.dinput", 518, "an MCU holds more than 10 blocks"},
    {"kj.dinput", 530, "a component's quantisation table is not defined"},
    {"kj.dinput", 601, "lossless, hierarchical and arithmetic-coded JPEG are not supported"},
    {"kj.dinput", 609, "the image ends before its first scan"},
    {"kj.dinput", 657, "an unknown marker"},
    {"kj.dhuff", 94, "the entropy-coded data is corrupt near a marker"},
    {"kj.dhuff", 111, "a Huffman code is longer than 16 bits"},
    {"kj.dhuff", 213, "a scan uses a Huffman table that is not defined"},
    {"kj.dhuff", 224, "a Huffman table has too many codes"},
    {"kj.dhuff", 239, "a Huffman table is overfull"},
    {"kj.dhuff", 423, "a progressive scan's spectral range is invalid"},
    {"kj.dhuff", 428, "a progressive scan's spectral range is invalid"},
    {"kj.dhuff", 431, "a progressive scan's successive approximation is invalid"},
    {"kj.dhuff", 439, "a progressive AC scan comes before the DC scan"},
    {"kj.dhuff", 443, "a progressive scan does not follow the previous one"},
    {"kj.dupsample", 596, "the Adobe colour transform does not fit the components"},
    {"kj.dupsample", 623, "the number of components is not 1, 3 or 4"},
    {"kj.dupsample", 781, "this sampling ratio is not supported"},
    {"kau", 144, "a size overflows 32 bits"},
    {"kau", 210, "a size overflows 32 bits"},
    {"kj.e", 238, "the width or height is 0 or above 65500"},
};

std::string LastPart(const std::string& source) {
  const size_t slash = source.rfind('/');
  return slash == std::string::npos ? source : source.substr(slash + 1);
}

MMStream* PageStream() {
  MMAttri pages[2];
  unsigned char unused = 0;
  MMAttriFromAny(&pages[0], mmIdData, &unused, 1);
  MMAttriFromU32(&pages[1], mmIdPageSize, 65536);
  MMStream* stream = MMStreamNew(pages, 2);
  if (stream != nullptr && MMStreamReady(stream) != 1) MMStreamDelete(&stream);
  return stream;
}

bool Failed(const std::string& printed, const std::string& fallback, Failure* why) {
  *why = ParseDiagnostic(printed);
  if (why->source.empty() && why->words.empty()) why->words = fallback;
  return false;
}

bool Encode(const STImageSimple& image, int quality, kiu::Format in, kiu::Format out, Bytes* jpeg,
            Failure* why) {
  MMStream* stream = PageStream();
  if (stream == nullptr) return Failed("", "no memory for the output stream", why);
  std::string printed;
  const int rc = Captured(&printed, [&] { return EncodeJPG(image, quality, stream, in, out); });
  unsigned long size = 0;
  if (rc == 1 && MMStreamSize(stream, &size) == 1 && MMStreamSeek(stream, 0, MMStreamSeekFromStart) == 1) {
    jpeg->resize(size);
    jpeg->resize(MMStreamGet(stream, jpeg->data(), static_cast<unsigned>(size)));
  }
  MMStreamDelete(&stream);
  if (rc != 1) return Failed(printed, "the encoder failed", why);
  return true;
}

}  // namespace

std::string Failure::Describe() const {
  if (source.empty()) return words;
  const std::string site = source + " +" + std::to_string(line);
  return words.empty() ? "the codec failed at " + site : words + " (" + site + ")";
}

Failure ParseDiagnostic(const std::string& printed) {
  Failure f;
  const size_t start = printed.find("?!");
  if (start == std::string::npos) return f;
  const size_t at = printed.find("@ ", start), end = printed.find(" !?", start);
  const size_t plus = printed.rfind(" +", end);
  if (at == std::string::npos || end == std::string::npos || plus == std::string::npos || plus < at) return f;
  f.source = printed.substr(at + 2, plus - at - 2);
  f.line = std::atoi(printed.c_str() + plus + 2);
  const std::string last = LastPart(f.source);
  for (const KnownSite& k : kKnownSites)
    if (last == k.source && f.line == k.line) f.words = k.words;
  const std::string text = printed.substr(start + 2, at - start - 2);
  if (f.words.empty() && text != "exception") f.words = text;
  return f;
}

StdoutCapture::StdoutCapture() {
  std::fflush(stdout);
  file_ = std::tmpfile();
  saved_ = dup(STDOUT_FILENO);
  if (file_ != nullptr && saved_ >= 0) dup2(fileno(file_), STDOUT_FILENO);
}

std::string StdoutCapture::Finish() {
  std::string text;
  if (file_ == nullptr || saved_ < 0) return text;
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
  saved_ = -1;
  std::rewind(file_);
  char chunk[4096];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file_)) != 0) text.append(chunk, n);
  std::fclose(file_);
  file_ = nullptr;
  return text;
}

StdoutCapture::~StdoutCapture() { Finish(); }

bool DecodeRgba(const Bytes& jpeg, int alpha, DecodeSize size, Picture* out, Failure* why) {
  STImageSimple image{};
  std::string printed;
  const int rc = Captured(&printed, [&] {
    return DecodeJPG(jpeg.data(), jpeg.size(), static_cast<unsigned long>(alpha), &image, size.width,
                     size.height);
  });
  if (rc != 1) return Failed(printed, "the decoder failed", why);
  out->width = image.width;
  out->height = image.height;
  out->pixels.assign(image.data, image.data + static_cast<size_t>(image.stride) * image.height);
  MMFree(image.data);
  return true;
}

bool DecodeYuv(const Bytes& jpeg, bool planar, Bytes* out, uint32_t* width, uint32_t* height, Failure* why) {
  STImageSimple image{};
  std::string printed;
  const int rc =
      Captured(&printed, [&] { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &image, planar); });
  if (rc != 1) return Failed(printed, "the decoder failed", why);
  const size_t size = planar ? image.size : static_cast<size_t>(image.stride) * image.height;
  out->assign(image.data, image.data + size);
  *width = image.width;
  *height = image.height;
  MMFree(image.data);
  return true;
}

bool EncodePicture(const Picture& picture, int quality, bool rgbModel, Bytes* jpeg, Failure* why) {
  STImageSimple image{};
  image.width = picture.width;
  image.height = picture.height;
  image.data = const_cast<unsigned char*>(picture.pixels.data());
  return Encode(image, quality, kiu::FormatRGBA, rgbModel ? kiu::FormatRGB : kiu::FormatYUV, jpeg, why);
}

// The encoder's planar layout: luma stride = width rounded up to 4, chroma
// stride = that rounded up to 8 and halved, height rounded up to 2; the
// padding repeats the edge samples.
bool EncodeI420(const Bytes& frame, uint32_t width, uint32_t height, int quality, Bytes* jpeg, Failure* why) {
  const size_t cw = (width + 1) / 2, ch = (height + 1) / 2;
  const size_t need = static_cast<size_t>(width) * height + 2 * cw * ch;
  if (frame.size() != need)
    return Failed("",
                  "it holds " + std::to_string(frame.size()) + " bytes, a " + std::to_string(width) + "x" +
                      std::to_string(height) + " I420 frame " + std::to_string(need),
                  why);
  const size_t pw = (width + 3) / 4 * 4, ph = (height + 1) / 2 * 2, cs = (pw + 7) / 8 * 8 / 2;
  Bytes planes(pw * ph + 2 * cs * (ph / 2));
  auto copy = [](const unsigned char* src, size_t w, size_t h, unsigned char* dst, size_t stride,
                 size_t rows) {
    for (size_t y = 0; y < rows; ++y) {
      const unsigned char* in = src + (y < h ? y : h - 1) * w;
      for (size_t x = 0; x < stride; ++x) dst[y * stride + x] = in[x < w ? x : w - 1];
    }
  };
  const unsigned char* y = frame.data();
  const unsigned char* u = y + static_cast<size_t>(width) * height;
  copy(y, width, height, planes.data(), pw, ph);
  copy(u, cw, ch, planes.data() + pw * ph, cs, ph / 2);
  copy(u + cw * ch, cw, ch, planes.data() + pw * ph + cs * (ph / 2), cs, ph / 2);
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = planes.data();
  return Encode(image, quality, kiu::FormatI420, kiu::FormatYUV, jpeg, why);
}

}  // namespace keljpeg
