// Decoder core micro-benchmark: one 1080p 4:2:0 baseline image decoded to
// component planes (entropy decoding, coefficient controllers, inverse DCT),
// with TurboJPEG's raw-plane decode (accurate DCT) measured alongside.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kj.d/kj.d.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

std::vector<unsigned char> PhotoLikeRgb() {
  std::vector<unsigned char> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
  uint32_t state = 12345;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (int c = 0; c < 3; ++c) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        double v = 128 + 90 * std::sin(0.004 * x + 1.7 * c) * std::cos(0.003 * y - 0.9 * c);
        if ((x / 7 + c) % 9 == 0 && y > kHeight / 2) v = 230 - 30 * c;
        int iv = static_cast<int>(v) + static_cast<int>(state % 17) - 8;
        rgb[(static_cast<size_t>(y) * kWidth + x) * 3 + c] = static_cast<unsigned char>(iv < 0     ? 0
                                                                                        : iv > 255 ? 255
                                                                                                   : iv);
      }
  return rgb;
}

const std::vector<unsigned char>& TestImage() {
  static std::vector<unsigned char> jpeg = [] {
    std::vector<unsigned char> rgb = PhotoLikeRgb();
    std::vector<unsigned char> out;
#ifdef KEL_HAVE_TURBOJPEG
    tjhandle h = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    if (tjCompress2(h, rgb.data(), kWidth, 0, kHeight, TJPF_RGB, &buffer, &size, TJSAMP_420, 85,
                    TJFLAG_ACCURATEDCT) == 0)
      out.assign(buffer, buffer + size);
    tjFree(buffer);
    tjDestroy(h);
#else
    const std::string ppm = "/tmp/keljpeg-decode-bench.ppm", jpg = "/tmp/keljpeg-decode-bench.jpg";
    if (FILE* f = std::fopen(ppm.c_str(), "wb")) {
      std::fprintf(f, "P6\n%d %d\n255\n", kWidth, kHeight);
      std::fwrite(rgb.data(), 1, rgb.size(), f);
      std::fclose(f);
      if (std::system(("cjpeg -quality 85 -sample 2x2 -outfile " + jpg + " " + ppm).c_str()) == 0) {
        if (FILE* in = std::fopen(jpg.c_str(), "rb")) {
          int c;
          while ((c = std::fgetc(in)) != EOF) out.push_back(static_cast<unsigned char>(c));
          std::fclose(in);
        }
      }
    }
#endif
    return out;
  }();
  return jpeg;
}

void BM_KelDecodeToPlanes(benchmark::State& state) {
  const auto& jpeg = TestImage();
  if (jpeg.empty()) {
    state.SkipWithError("no test image (needs TurboJPEG or cjpeg)");
    return;
  }
  for (auto _ : state) {
    kjd::Decoder decoder(jpeg.data(), jpeg.size(), 255);
    kjd::Decoder::Plane planes[4] = {};
    decoder.Dcoef_DecodeToPlanes(8, planes);
    benchmark::DoNotOptimize(planes[0].data[0]);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}
BENCHMARK(BM_KelDecodeToPlanes)->Unit(benchmark::kMillisecond);

#ifdef KEL_HAVE_TURBOJPEG
void BM_TurboDecodeToYUVPlanes(benchmark::State& state) {
  const auto& jpeg = TestImage();
  tjhandle h = tjInitDecompress();
  std::vector<unsigned char> y(static_cast<size_t>(kWidth) * kHeight), u(y.size() / 4), v(y.size() / 4);
  unsigned char* planes[3] = {y.data(), u.data(), v.data()};
  for (auto _ : state) {
    if (tjDecompressToYUVPlanes(h, jpeg.data(), jpeg.size(), planes, kWidth, nullptr, kHeight,
                                TJFLAG_ACCURATEDCT) != 0) {
      state.SkipWithError(tjGetErrorStr2(h));
      break;
    }
    benchmark::DoNotOptimize(y[0]);
  }
  tjDestroy(h);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}
BENCHMARK(BM_TurboDecodeToYUVPlanes)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
