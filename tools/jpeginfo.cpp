#include "jpeginfo.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace keljpeg {
namespace {

const char* FrameName(int marker) {
  switch (marker) {
    case 0xC0:
      return "baseline (SOF0, Huffman)";
    case 0xC1:
      return "extended sequential (SOF1, Huffman)";
    case 0xC2:
      return "progressive (SOF2, Huffman)";
    case 0xC3:
      return "lossless (SOF3, Huffman)";
    case 0xC5:
      return "differential sequential (SOF5, Huffman)";
    case 0xC6:
      return "differential progressive (SOF6, Huffman)";
    case 0xC7:
      return "differential lossless (SOF7, Huffman)";
    case 0xC9:
      return "extended sequential (SOF9, arithmetic)";
    case 0xCA:
      return "progressive (SOF10, arithmetic)";
    case 0xCB:
      return "lossless (SOF11, arithmetic)";
    case 0xCD:
      return "differential sequential (SOF13, arithmetic)";
    case 0xCE:
      return "differential progressive (SOF14, arithmetic)";
    case 0xCF:
      return "differential lossless (SOF15, arithmetic)";
  }
  return nullptr;
}

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

class Walker {
 public:
  explicit Walker(const Bytes& jpeg) : b_(jpeg) {}
  JpegFacts Run();

 private:
  int U16(size_t at) const { return b_[at] << 8 | b_[at + 1]; }
  void Frame(int marker, size_t p, size_t n);
  void Scan(size_t p, size_t n);
  void App(int marker, size_t p, size_t n);
  // Steps over entropy-coded data to the next marker that is not a restart.
  size_t SkipEntropyData(size_t p);

  const Bytes& b_;
  JpegFacts facts_;
  std::string tables_, markers_;
  int scans_ = 0, restarts_ = 0;
  bool restartInterval_ = false;
};

void Walker::Frame(int marker, size_t p, size_t n) {
  const char* name = FrameName(marker);
  facts_.lines.push_back(std::string("coding: ") + name);
  if (n < 6) {
    facts_.error = "the frame header is too short";
    return;
  }
  const int count = b_[p + 5];
  facts_.height = U16(p + 1);
  facts_.width = U16(p + 3);
  facts_.lines.push_back(Format("size: %dx%d, %d-bit samples", U16(p + 3), U16(p + 1), b_[p]));
  std::string comps = Format("components: %d", count);
  for (int i = 0; i < count && static_cast<size_t>(6 + i * 3 + 2) < n; ++i) {
    const unsigned char* c = &b_[p + 6 + i * 3];
    comps += Format("%s id %d %dx%d q%d", i == 0 ? ";" : ",", c[0], c[1] >> 4, c[1] & 15, c[2]);
  }
  facts_.lines.push_back(comps);
}

void Walker::Scan(size_t p, size_t n) {
  ++scans_;
  const int count = n > 0 ? b_[p] : 0;
  if (n < static_cast<size_t>(1 + count * 2 + 3)) {
    facts_.error = "a scan header is too short";
    return;
  }
  std::string ids;
  for (int i = 0; i < count; ++i) ids += Format("%s%d", i == 0 ? "" : ",", b_[p + 1 + i * 2]);
  const size_t q = p + 1 + count * 2;
  facts_.lines.push_back(Format("scan %d: components %s, coefficients %d..%d, bits Ah %d Al %d", scans_,
                                ids.c_str(), b_[q], b_[q + 1], b_[q + 2] >> 4, b_[q + 2] & 15));
}

void Walker::App(int marker, size_t p, size_t n) {
  const unsigned char* d = &b_[p];
  if (marker == 0xE0 && n >= 14 && std::memcmp(d, "JFIF\0", 5) == 0) {
    static const char* kUnits[] = {"no unit", "dpi", "dpcm"};
    facts_.lines.push_back(Format("JFIF: version %d.%02d, density %dx%d %s", d[5], d[6], U16(p + 8),
                                  U16(p + 10), d[7] < 3 ? kUnits[d[7]] : "unknown unit"));
  } else if (marker == 0xE1 && n >= 6 && std::memcmp(d, "Exif\0", 5) == 0) {
    facts_.lines.push_back(Format("EXIF: %zu bytes", n - 6));
  } else if (marker == 0xEE && n >= 12 && std::memcmp(d, "Adobe", 5) == 0) {
    static const char* kTransforms[] = {"none (RGB or CMYK)", "YCbCr", "YCCK"};
    facts_.lines.push_back(
        Format("Adobe: transform %d, %s", d[11], d[11] < 3 ? kTransforms[d[11]] : "unknown"));
  } else {
    markers_ += Format(" APP%d (%zu bytes)", marker - 0xE0, n);
  }
}

size_t Walker::SkipEntropyData(size_t p) {
  while (p + 1 < b_.size()) {
    if (b_[p] != 0xFF || b_[p + 1] == 0x00 || b_[p + 1] == 0xFF) {
      ++p;
    } else if (b_[p + 1] >= 0xD0 && b_[p + 1] <= 0xD7) {
      ++restarts_;
      p += 2;
    } else {
      return p;
    }
  }
  return b_.size();
}

JpegFacts Walker::Run() {
  if (b_.size() < 4 || b_[0] != 0xFF || b_[1] != 0xD8) {
    facts_.error = "the file does not start with SOI";
    return facts_;
  }
  size_t p = 2;
  bool eoi = false;
  while (!eoi && facts_.error.empty()) {
    const size_t start = p;
    while (p < b_.size() && b_[p] == 0xFF) ++p;  // fill bytes before a marker code
    if (p >= b_.size() || p == start) {
      facts_.error = p >= b_.size() ? "the file ends before EOI" : Format("no marker at offset %zu", p);
      break;
    }
    const int marker = b_[p++];
    if (marker == 0xD9) {
      eoi = true;
      break;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // no length field
    if (p + 2 > b_.size() || U16(p) < 2 || p + U16(p) > b_.size()) {
      facts_.error = Format("the segment of marker 0x%02X runs past the end of the file", marker);
      break;
    }
    const size_t n = U16(p) - 2, data = p + 2;
    p = data + n;
    if (FrameName(marker) != nullptr) {
      Frame(marker, data, n);
    } else if (marker == 0xC4) {
      for (size_t t = data; t + 17 <= data + n;) {
        size_t codes = 0;
        for (int i = 1; i <= 16; ++i) codes += b_[t + i];
        tables_ += Format(" DHT %s%d", (b_[t] >> 4) != 0 ? "AC" : "DC", b_[t] & 15);
        t += 17 + codes;
      }
    } else if (marker == 0xDB) {
      for (size_t t = data; t < data + n;) {
        tables_ += Format(" DQT%d%s", b_[t] & 15, (b_[t] >> 4) != 0 ? "(16-bit)" : "");
        t += (b_[t] >> 4) != 0 ? 129 : 65;
      }
    } else if (marker == 0xCC) {
      tables_ += " DAC";
    } else if (marker == 0xDD) {
      restartInterval_ = true;
      facts_.lines.push_back(Format("restart interval: %d MCUs", n >= 2 ? U16(data) : 0));
    } else if (marker >= 0xE0 && marker <= 0xEF) {
      App(marker, data, n);
    } else if (marker == 0xFE) {
      markers_ += Format(" COM (%zu bytes)", n);
    } else if (marker == 0xDA) {
      Scan(data, n);
      p = SkipEntropyData(p);
    } else {
      markers_ += Format(" 0x%02X (%zu bytes)", marker, n);
    }
  }
  if (!restartInterval_) facts_.lines.push_back("restart interval: none");
  if (!tables_.empty()) facts_.lines.push_back("tables:" + tables_);
  if (!markers_.empty()) facts_.lines.push_back("other segments:" + markers_);
  facts_.lines.push_back(
      Format("scans: %d, restart markers: %d%s", scans_, restarts_,
             eoi && p + 1 < b_.size() ? Format(", %zu bytes after EOI", b_.size() - p - 1).c_str() : ""));
  return facts_;
}

}  // namespace

JpegFacts DescribeJpeg(const Bytes& jpeg) { return Walker(jpeg).Run(); }

}  // namespace keljpeg
