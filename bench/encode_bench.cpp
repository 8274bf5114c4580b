// Encoding one 1080p frame, from packed RGB and from I420, with the peer
// (TurboJPEG) measured on the same frames where it is present.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "kiu/MMPageArrayStream.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.e/CJPGE.h"

#ifdef KEL_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

namespace {

constexpr int kWidth = 1920, kHeight = 1080, kQuality = 85;

// Smooth gradients with a little noise and some edges: camera-like.
std::vector<unsigned char> Rgbx() {
  std::vector<unsigned char> out(static_cast<size_t>(kWidth) * kHeight * 4);
  uint32_t state = 12345;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      state = state * 1664525u + 1013904223u;
      for (int c = 0; c < 3; ++c) {
        double v = 128 + 90 * std::sin(0.004 * x + 1.7 * c) * std::cos(0.006 * y - 0.9 * c);
        if ((x / 40 + y / 40) % 9 == 0) v = 60 + 50 * c;
        int iv = static_cast<int>(v) + static_cast<int>((state >> (8 * c)) & 7) - 3;
        out[(static_cast<size_t>(y) * kWidth + x) * 4 + c] = static_cast<unsigned char>(iv < 0     ? 0
                                                                                        : iv > 255 ? 255
                                                                                                   : iv);
      }
    }
  }
  return out;
}

// I420 in the encoder's layout (1920 and 1080 need no padding).
std::vector<unsigned char> I420(const std::vector<unsigned char>& rgbx) {
  const size_t luma = static_cast<size_t>(kWidth) * kHeight, chroma = luma / 4;
  std::vector<unsigned char> out(luma + 2 * chroma);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const unsigned char* p = &rgbx[(static_cast<size_t>(y) * kWidth + x) * 4];
      unsigned char yy, u, v;
      kiu::ConvertRGBtoYUV(p[0], p[1], p[2], yy, u, v);
      out[static_cast<size_t>(y) * kWidth + x] = yy;
      if ((x | y) % 2 == 0) {
        const size_t i = static_cast<size_t>(y / 2) * (kWidth / 2) + x / 2;
        out[luma + i] = u;
        out[luma + chroma + i] = v;
      }
    }
  }
  return out;
}

MMStream* NewPageStream() { return MMPageArrayStream::NewReady(4096); }

void Ours(benchmark::State& state, std::vector<unsigned char> pixels, kiu::Format in) {
  STImageSimple image{};
  image.width = kWidth;
  image.height = kHeight;
  image.data = pixels.data();
  unsigned long bytes = 0;
  for (auto _ : state) {
    MMStream* stream = NewPageStream();
    if (EncodeJPG(image, kQuality, stream, in, kiu::FormatYUV) != 1) state.SkipWithError("encode failed");
    MMStreamSize(stream, &bytes);
    MMStreamDelete(&stream);
  }
  state.counters["jpeg_bytes"] = static_cast<double>(bytes);
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_Encode1080pFromRgb(benchmark::State& state) { Ours(state, Rgbx(), kiu::FormatRGB); }
void BM_Encode1080pFromI420(benchmark::State& state) { Ours(state, I420(Rgbx()), kiu::FormatI420); }
BENCHMARK(BM_Encode1080pFromRgb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Encode1080pFromI420)->Unit(benchmark::kMillisecond);

#ifdef KEL_HAVE_TURBOJPEG
// The peer with the same transforms: accurate from RGB, fast from I420.
void BM_Peer1080pFromRgb(benchmark::State& state) {
  const std::vector<unsigned char> pixels = Rgbx();
  tjhandle handle = tjInitCompress();
  unsigned long bytes = 0;
  for (auto _ : state) {
    unsigned char* jpeg = nullptr;
    if (tjCompress2(handle, pixels.data(), kWidth, kWidth * 4, kHeight, TJPF_RGBX, &jpeg, &bytes, TJSAMP_420,
                    kQuality, TJFLAG_ACCURATEDCT) != 0) {
      state.SkipWithError("peer failed");
    }
    tjFree(jpeg);
  }
  tjDestroy(handle);
  state.counters["jpeg_bytes"] = static_cast<double>(bytes);
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_Peer1080pFromI420(benchmark::State& state) {
  const std::vector<unsigned char> planes = I420(Rgbx());
  const size_t luma = static_cast<size_t>(kWidth) * kHeight;
  const unsigned char* src[3] = {planes.data(), planes.data() + luma, planes.data() + luma + luma / 4};
  const int strides[3] = {kWidth, kWidth / 2, kWidth / 2};
  tjhandle handle = tjInitCompress();
  unsigned long bytes = 0;
  for (auto _ : state) {
    unsigned char* jpeg = nullptr;
    if (tjCompressFromYUVPlanes(handle, src, kWidth, strides, kHeight, TJSAMP_420, &jpeg, &bytes, kQuality,
                                TJFLAG_FASTDCT) != 0) {
      state.SkipWithError("peer failed");
    }
    tjFree(jpeg);
  }
  tjDestroy(handle);
  state.counters["jpeg_bytes"] = static_cast<double>(bytes);
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_Peer1080pFromRgb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peer1080pFromI420)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
