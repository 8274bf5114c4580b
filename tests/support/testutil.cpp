#include "support/testutil.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace keltest {

std::string TempPath(const std::string& name) {
  const char* base = std::getenv("KEL_TEST_TMP");
  std::string dir = base != nullptr ? base : "/tmp/keljpeg-tests";
  ::mkdir(dir.c_str(), 0755);
  return dir + "/" + std::to_string(::getpid()) + "-" + name;
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
        int iv = static_cast<int>(v) + noise();
        out[(static_cast<size_t>(y) * width + x) * channels + c] = static_cast<uint8_t>(iv < 0     ? 0
                                                                                        : iv > 255 ? 255
                                                                                                   : iv);
      }
    }
  }
  return out;
}

void WritePnm(const std::string& path, const Bytes& pixels, int width, int height, int channels) {
  std::string header = std::string(channels == 1 ? "P5" : "P6") + "\n" + std::to_string(width) + " " +
                       std::to_string(height) + "\n255\n";
  Bytes file(header.begin(), header.end());
  file.insert(file.end(), pixels.begin(), pixels.end());
  WriteFile(path, file);
}

double Psnr(const uint8_t* a, const uint8_t* b, size_t n) {
  double sum = 0;
  for (size_t i = 0; i < n; ++i) {
    double d = double(a[i]) - double(b[i]);
    sum += d * d;
  }
  if (sum == 0) return 99.0;
  return 10.0 * std::log10(255.0 * 255.0 * n / sum);
}

}  // namespace keltest
