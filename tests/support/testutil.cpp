#include "support/testutil.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace keltest {

const std::string kDecDir = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/";
const std::string kEncDir = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/";

std::string Line(const std::string& file, int line) {
  return "\n?!exception@ " + file + " +" + std::to_string(line) + " !?\n\n\n";
}

std::string ThrownAt(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const kau::Error& e) {
    return e.FileName() + (":" + std::to_string(e.Position()));
  }
  return "none";
}

std::string TempPath(const std::string& name) {
  const char* base = std::getenv("KEL_TEST_TMP");
  std::string dir = base != nullptr ? base : "/tmp/keljpeg-tests";
  ::mkdir(dir.c_str(), 0755);
  static std::atomic<int> counter{0};
  return dir + "/" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + "-" + name;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const Bytes& data) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

int Run(const std::string& command) {
  int rc = std::system(command.c_str());
  return rc == -1 ? -1 : WEXITSTATUS(rc);
}

bool HaveTool(const std::string& tool) { return Run("command -v " + tool + " >/dev/null 2>&1") == 0; }

bool InCi() {
  const char* ci = std::getenv("CI");
  return ci != nullptr && std::string(ci) == "true";
}

std::string Slug(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      out += c;
    } else if (!out.empty() && out.back() != '_') {
      out += '_';
    }
  }
  while (!out.empty() && out.back() == '_') out.pop_back();
  return out;
}

Bytes PhotoLike(int width, int height, int channels, uint32_t seed) {
  Bytes out(static_cast<size_t>(width) * height * channels);
  uint32_t state = seed * 2654435761u + 1;
  auto noise = [&state] {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<int>(state % 17) - 8;
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) {
        double fx = width > 1 ? double(x) / (width - 1) : 0.0;
        double fy = height > 1 ? double(y) / (height - 1) : 0.0;
        double v = 128 + 90 * std::sin(3.1 * fx + 1.7 * c + seed) * std::cos(2.3 * fy - 0.9 * c);
        // A hard-edged disc and a stripe give the DCT high frequencies to chew on.
        double dx = fx - 0.6, dy = fy - 0.4;
        if (dx * dx + dy * dy < 0.04) v = 40 + 60 * c;
        if ((x / 5 + c) % 7 == 0 && y > height / 2) v = 235 - 30 * c;
        out[(static_cast<size_t>(y) * width + x) * channels + c] =
            static_cast<uint8_t>(std::clamp(static_cast<int>(v) + noise(), 0, 255));
      }
    }
  }
  return out;
}

Bytes BoxBlur(const Bytes& pixels, int width, int height, int channels, int r) {
  Bytes out(pixels.size());
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < channels; ++c) {
        int sum = 0, n = 0;
        for (int sy = std::max(0, y - r); sy <= std::min(height - 1, y + r); ++sy)
          for (int sx = std::max(0, x - r); sx <= std::min(width - 1, x + r); ++sx, ++n)
            sum += pixels[(static_cast<size_t>(sy) * width + sx) * channels + c];
        out[(static_cast<size_t>(y) * width + x) * channels + c] = static_cast<uint8_t>((sum + n / 2) / n);
      }
  return out;
}

Bytes AreaAverage(const uint8_t* src, int sw, int sh, int bpp, int channels, int dw, int dh) {
  Bytes out(static_cast<size_t>(dw) * dh * channels);
  const double fx = static_cast<double>(sw) / dw, fy = static_cast<double>(sh) / dh;
  for (int y = 0; y < dh; ++y) {
    for (int x = 0; x < dw; ++x) {
      double sum[4] = {}, area = 0;
      for (int sy = static_cast<int>(y * fy); sy < sh && sy < (y + 1) * fy; ++sy) {
        const double wy = std::min<double>(sy + 1, (y + 1) * fy) - std::max<double>(sy, y * fy);
        for (int sx = static_cast<int>(x * fx); sx < sw && sx < (x + 1) * fx; ++sx) {
          const double wx = std::min<double>(sx + 1, (x + 1) * fx) - std::max<double>(sx, x * fx);
          for (int k = 0; k < channels; ++k)
            sum[k] += wx * wy * src[(static_cast<size_t>(sy) * sw + sx) * bpp + k];
          area += wx * wy;
        }
      }
      for (int k = 0; k < channels; ++k)
        out[(static_cast<size_t>(y) * dw + x) * channels + k] = static_cast<uint8_t>(sum[k] / area + 0.5);
    }
  }
  return out;
}

double Psnr(const uint8_t* a, const uint8_t* b, size_t n) {
  double sum = 0;
  for (size_t i = 0; i < n; ++i) sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
  return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * n / sum);
}

Bytes Cjpeg(const Bytes& pixels, int width, int height, int channels, const std::string& args) {
  const std::string pnm = TempPath(channels == 1 ? "src.pgm" : "src.ppm"), jpg = pnm + ".jpg";
  const std::string header = std::string(channels == 1 ? "P5" : "P6") + "\n" + std::to_string(width) + " " +
                             std::to_string(height) + "\n255\n";
  Bytes file(header.begin(), header.end());
  file.insert(file.end(), pixels.begin(), pixels.end());
  WriteFile(pnm, file);
  Bytes out;
  if (Run("cjpeg " + args + " -outfile " + jpg + " " + pnm) == 0) out = ReadFile(jpg);
  std::remove(pnm.c_str());
  std::remove(jpg.c_str());
  return out;
}

Bytes MakeJpeg(int width, int height, int channels, uint32_t seed, const std::string& args,
               const std::string& scans, const std::string& jpegtranArgs) {
  std::string a = args;
  const std::string scansPath = TempPath("scans.txt");
  const size_t at = a.find("@SCANS@");
  if (at != std::string::npos) {
    WriteFile(scansPath, Bytes(scans.begin(), scans.end()));
    a.replace(at, 7, scansPath);
  }
  Bytes out = Cjpeg(PhotoLike(width, height, channels, seed), width, height, channels, a);
  std::remove(scansPath.c_str());
  if (out.empty() || jpegtranArgs.empty()) return out;
  const std::string in = TempPath("tran.jpg"), tran = in + ".out";
  WriteFile(in, out);
  out = Run("jpegtran " + jpegtranArgs + " -outfile " + tran + " " + in) == 0 ? ReadFile(tran) : Bytes();
  std::remove(in.c_str());
  std::remove(tran.c_str());
  return out;
}

namespace {
// Calls `fn(at, marker, length)` for each segment before the first scan's
// data; stops when it returns true. Returns the offset it stopped at, or 0.
template <typename Fn>
size_t Walk(const Bytes& jpeg, Fn fn) {
  for (size_t i = 2; i + 4 <= jpeg.size() && jpeg[i] == 0xFF;) {
    const size_t length = static_cast<size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3];
    if (fn(i, jpeg[i + 1], length)) return i;
    if (jpeg[i + 1] == 0xDA) break;
    i += 2 + length;
  }
  return 0;
}
}  // namespace

size_t ScanStart(const Bytes& jpeg) {
  const size_t at = Walk(jpeg, [](size_t, int marker, size_t) { return marker == 0xDA; });
  return at == 0 ? 0 : at + 2 + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]);
}

Bytes Segment(const Bytes& jpeg, int marker, int index) {
  const size_t at = Walk(jpeg, [&](size_t, int m, size_t) { return m == marker && index-- == 0; });
  if (at == 0) return {};
  return Bytes(jpeg.begin() + at + 4,
               jpeg.begin() + at + 2 + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]));
}

Bytes RewriteMarkers(const Bytes& jpeg, const std::vector<int>& ids) {
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  int map[256];
  for (int i = 0; i < 256; ++i) map[i] = i;
  const size_t scan = Walk(jpeg, [&](size_t at, int code, size_t length) {
    if (code == 0xDA) return true;
    if (code >= 0xE0 && code <= 0xEF) return false;
    const size_t start = out.size();
    out.insert(out.end(), jpeg.begin() + at, jpeg.begin() + at + 2 + length);
    for (size_t i = 0; code >= 0xC0 && code <= 0xC2 && i < ids.size(); ++i) {
      map[out[start + 10 + 3 * i]] = ids[i];
      out[start + 10 + 3 * i] = static_cast<uint8_t>(ids[i]);
    }
    return false;
  });
  // Every SOS names its components by id; 0xFF 0xDA never occurs inside
  // entropy-coded data (0xFF is stuffed there).
  const size_t rest = out.size();
  out.insert(out.end(), jpeg.begin() + scan, jpeg.end());
  for (size_t i = rest; i + 5 < out.size(); ++i) {
    if (out[i] != 0xFF || out[i + 1] != 0xDA) continue;
    for (int k = 0; k < out[i + 4] && i + 5 + 2 * k < out.size(); ++k)
      out[i + 5 + 2 * k] = static_cast<uint8_t>(map[out[i + 5 + 2 * k]]);
  }
  return out;
}

std::vector<const kjd::Kernels*> DecoderKernels() {
  const kjd::Kernels* kernels[4];
  const int n = kjd::Kernels_Runnable(kernels, 4);
  std::string names;
  for (int i = 1; i < n; ++i) names += std::string(" ") + kernels[i]->name;
  std::printf("compared with the scalar kernels:%s\n", n > 1 ? names.c_str() : " none on this CPU");
  return {kernels, kernels + n};
}

}  // namespace keltest
