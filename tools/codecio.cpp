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

MMStream* PageStream() {
  MMAttri pages[2];
  unsigned char unused = 0;
  MMAttriFromAny(&pages[0], mmIdData, &unused, 1);
  MMAttriFromU32(&pages[1], mmIdPageSize, 65536);
  MMStream* stream = MMStreamNew(pages, 2);
  if (stream != nullptr && MMStreamReady(stream) != 1) MMStreamDelete(&stream);
  return stream;
}

// A failure of the tool's own, not the codec's.
bool Failed(const std::string& words, Failure* why) {
  why->words = words;
  return false;
}

bool Encode(const STImageSimple& image, int quality, kiu::Format in, kiu::Format out, Bytes* jpeg,
            Failure* why) {
  MMStream* stream = PageStream();
  if (stream == nullptr) return Failed("no memory for the output stream", why);
  std::string printed;  // the codec's diagnostic line, kept off the terminal
  const int rc = Captured(&printed, [&] { return EncodeJPG(image, quality, stream, in, out, &why->fault); });
  unsigned long size = 0;
  if (rc == 1 && MMStreamSize(stream, &size) == 1 && MMStreamSeek(stream, 0, MMStreamSeekFromStart) == 1) {
    jpeg->resize(size);
    jpeg->resize(MMStreamGet(stream, jpeg->data(), static_cast<unsigned>(size)));
  }
  MMStreamDelete(&stream);
  return rc == 1;
}

}  // namespace

std::string Failure::Describe() const { return fault.file != nullptr ? kau::Describe(fault) : words; }

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
  if (jpeg.empty()) return Failed("the file is empty", why);
  STImageSimple image{};
  kjd::DecodeLimits options;
  options.failure = &why->fault;
  std::string printed;
  const int rc = Captured(&printed, [&] {
    return DecodeJPG(jpeg.data(), jpeg.size(), static_cast<unsigned long>(alpha), &image, size.width,
                     size.height, options);
  });
  if (rc != 1) return false;
  out->width = image.width;
  out->height = image.height;
  out->pixels.assign(image.data, image.data + static_cast<size_t>(image.stride) * image.height);
  MMFree(image.data);
  return true;
}

bool DecodeYuv(const Bytes& jpeg, bool planar, Bytes* out, uint32_t* width, uint32_t* height, Failure* why) {
  if (jpeg.empty()) return Failed("the file is empty", why);
  STImageSimple image{};
  kjd::DecodeLimits options;
  options.failure = &why->fault;
  std::string printed;
  const int rc = Captured(
      &printed, [&] { return jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &image, planar, options); });
  if (rc != 1) return false;
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
    return Failed("it holds " + std::to_string(frame.size()) + " bytes, a " + std::to_string(width) + "x" +
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
