#include "benchcorpus.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace kelbench {

std::string ImageSpec::Label() const {
  const std::string chroma = sampling == "2x2" ? "4:2:0" : sampling == "2x1" ? "4:2:2" : "4:4:4";
  return size + " " + chroma + " q" + std::to_string(quality) + " " + mode;
}

std::string ImageSpec::Slug() const {
  return std::to_string(width) + "x" + std::to_string(height) + "-" + sampling + "-q" +
         std::to_string(quality) + "-" + mode;
}

Bytes Scene(int width, int height) {
  Bytes rgb(static_cast<size_t>(width) * height * 3);
  uint32_t state = 0x9E3779B9u;
  for (int y = 0; y < height; ++y) {
    const double fy = height > 1 ? static_cast<double>(y) / (height - 1) : 0.0;
    for (int x = 0; x < width; ++x) {
      const double fx = width > 1 ? static_cast<double>(x) / (width - 1) : 0.0;
      // Sky above a horizon, textured ground below, lit from the left.
      double r, g, b;
      if (fy < 0.45 + 0.05 * std::sin(6.0 * fx)) {
        r = 90 + 80 * fy;
        g = 140 + 60 * fy;
        b = 220 - 30 * fy;
      } else {
        const double grain = 14 * std::sin(0.37 * x + 2.0 * std::sin(0.05 * y)) * std::cos(0.29 * y);
        r = 110 + grain - 40 * fy;
        g = 95 + 0.8 * grain;
        b = 60 + 0.5 * grain;
      }
      const double light = 0.75 + 0.35 * (1.0 - fx);
      // Two discs and a box with hard edges: what the DCT works hardest on.
      const double d1 = (fx - 0.3) * (fx - 0.3) + (fy - 0.6) * (fy - 0.6);
      const double d2 = (fx - 0.7) * (fx - 0.7) + (fy - 0.35) * (fy - 0.35);
      if (d1 < 0.02) r = 200, g = 40 + 400 * d1, b = 50;
      if (d2 < 0.01) r = 240, g = 220, b = 90 + 3000 * d2;
      if (fx > 0.5 && fx < 0.62 && fy > 0.55 && fy < 0.9) r = g = b = ((x / 6 + y / 6) % 2) ? 30 : 225;
      state ^= state << 13;
      state ^= state >> 17;
      state ^= state << 5;
      const int n = static_cast<int>(state % 7) - 3;
      uint8_t* p = &rgb[(static_cast<size_t>(y) * width + x) * 3];
      p[0] = static_cast<uint8_t>(std::clamp(static_cast<int>(r * light) + n, 0, 255));
      p[1] = static_cast<uint8_t>(std::clamp(static_cast<int>(g * light) + n, 0, 255));
      p[2] = static_cast<uint8_t>(std::clamp(static_cast<int>(b * light) + n, 0, 255));
    }
  }
  return rgb;
}

Bytes Pattern(int width, int height) {
  static const uint8_t kBars[8][3] = {{235, 235, 235}, {235, 235, 16}, {16, 235, 235}, {16, 235, 16},
                                      {235, 16, 235},  {235, 16, 16},  {16, 16, 235},  {16, 16, 16}};
  Bytes rgb(static_cast<size_t>(width) * height * 3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &rgb[(static_cast<size_t>(y) * width + x) * 3];
      if (y < height / 2) {
        std::copy_n(kBars[x * 8 / width], 3, p);
      } else if (y < height * 3 / 4) {
        p[0] = static_cast<uint8_t>(x * 255 / std::max(1, width - 1));
        p[1] = static_cast<uint8_t>(255 - p[0]);
        p[2] = static_cast<uint8_t>(y * 255 / height);
      } else {
        p[0] = p[1] = p[2] = ((x / 2 + y / 2) % 2) ? 20 : 230;
      }
    }
  return rgb;
}

namespace {

Bytes ReadAll(const std::string& path) {
  Bytes out;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    uint8_t buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) out.insert(out.end(), buffer, buffer + n);
    std::fclose(f);
  }
  return out;
}

}  // namespace

Bytes CorpusJpeg(const std::string& dir, const ImageSpec& spec, std::string* why) {
  const std::string jpg = dir + "/" + spec.Slug() + ".jpg";
  Bytes jpeg = ReadAll(jpg);
  if (!jpeg.empty()) return jpeg;
  ::mkdir(dir.c_str(), 0755);
  const std::string ppm = dir + "/" + spec.Slug() + ".ppm";
  FILE* f = std::fopen(ppm.c_str(), "wb");
  if (f == nullptr) {
    *why = "cannot write " + ppm;
    return {};
  }
  const Bytes rgb = Scene(spec.width, spec.height);
  std::fprintf(f, "P6\n%d %d\n255\n", spec.width, spec.height);
  std::fwrite(rgb.data(), 1, rgb.size(), f);
  std::fclose(f);
  std::string args = "-dct int -quality " + std::to_string(spec.quality) + " -sample " + spec.sampling;
  if (spec.mode == "progressive") args += " -progressive";
  if (spec.mode == "restart") args += " -restart 1";
  const std::string command = "cjpeg " + args + " -outfile '" + jpg + "' '" + ppm + "'";
  const int rc = std::system(command.c_str());
  std::remove(ppm.c_str());
  jpeg = ReadAll(jpg);
  if (rc != 0 || jpeg.empty()) *why = "failed: " + command;
  return jpeg;
}

}  // namespace kelbench
