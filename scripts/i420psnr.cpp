// PSNR of a stream of I420 frames (GStreamer's default layout, even sizes)
// against its source, for the main job: frames in each, then the worst and
// mean PSNR over the frames both hold, luma and chroma apart.
//   i420psnr WIDTH HEIGHT SOURCE.yuv RESULT.yuv
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

std::vector<unsigned char> Read(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

double Psnr(const unsigned char* a, const unsigned char* b, size_t n) {
  double sum = 0;
  for (size_t i = 0; i < n; ++i) sum += double(a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / sum);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: i420psnr WIDTH HEIGHT SOURCE.yuv RESULT.yuv\n");
    return 2;
  }
  const size_t width = std::strtoul(argv[1], nullptr, 10), height = std::strtoul(argv[2], nullptr, 10);
  const size_t luma = width * height, frame = luma * 3 / 2;
  const std::vector<unsigned char> source = Read(argv[3]), result = Read(argv[4]);
  if (frame == 0 || width % 2 != 0 || height % 2 != 0 || source.size() % frame != 0 ||
      result.size() % frame != 0) {
    std::fprintf(stderr, "i420psnr: the files do not hold whole %zux%zu I420 frames\n", width, height);
    return 2;
  }
  const size_t frames = std::min(source.size(), result.size()) / frame;
  double minY = 99, minC = 99, sumY = 0, sumC = 0;
  for (size_t f = 0; f < frames; ++f) {
    const unsigned char *a = &source[f * frame], *b = &result[f * frame];
    const double y = Psnr(a, b, luma);
    const double c =
        std::min(Psnr(a + luma, b + luma, luma / 4), Psnr(a + luma * 5 / 4, b + luma * 5 / 4, luma / 4));
    minY = std::min(minY, y);
    minC = std::min(minC, c);
    sumY += y;
    sumC += c;
  }
  std::printf("%zu %zu %.2f %.2f %.2f %.2f\n", source.size() / frame, result.size() / frame, minY,
              frames ? sumY / frames : 0.0, minC, frames ? sumC / frames : 0.0);
  return 0;
}
