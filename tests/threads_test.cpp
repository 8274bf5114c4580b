// Separate images decoded and encoded on several threads at once give what
// one thread gives; run under ThreadSanitizer in the CI tier.
#include <gtest/gtest.h>

#include <thread>

#include "kiu/MMPageArrayStream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.e/CJPGE.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

struct Decoded {
  int rc = 0;
  Bytes rgba, i420;
};

Decoded DecodeBoth(const Bytes& jpeg) {
  Decoded d;
  STImageSimple a{}, y{};
  d.rc = DecodeJPG(jpeg.data(), jpeg.size(), 200, &a, 0, 0) +
         jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &y, true);
  if (a.data != nullptr) d.rgba.assign(a.data, a.data + size_t(a.stride) * a.height);
  if (y.data != nullptr) d.i420.assign(y.data, y.data + y.size);
  kau::mem::Delete(a.data);
  kau::mem::Delete(y.data);
  return d;
}

TEST(Threads, DecodesAndEncodesOfSeparateImagesAtOnceMatchOneThread) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  struct Job {
    int width, height;
    std::string args;
    Bytes pixels, jpeg, encoded;  // in, made by cjpeg, made by us
    Decoded decoded;
  };
  std::vector<Job> jobs;
  for (auto [w, h, args] : {std::tuple{97, 61, "-baseline"},
                            {64, 48, "-progressive"},
                            {130, 33, "-sample 1x1 -restart 2"},
                            {40, 90, "-progressive -sample 2x1"}})
    jobs.push_back(Job{w, h, args, {}, {}, {}, {}});
  for (size_t i = 0; i < jobs.size(); ++i) {
    Job& j = jobs[i];
    j.jpeg = keltest::MakeJpeg(j.width, j.height, 3, uint32_t(i + 1), j.args);
    ASSERT_FALSE(j.jpeg.empty());
    j.pixels = keltest::ToPacked4(keltest::PhotoLike(j.width, j.height, 3, uint32_t(i)), 0);
    j.encoded = keltest::Encode(j.pixels, j.width, j.height, 80, kiu::FormatRGB, kiu::Format(16)).jpeg;
    j.decoded = DecodeBoth(j.jpeg);
    ASSERT_EQ(j.decoded.rc, 2) << j.args;
  }
  constexpr int kRounds = 3;
  std::vector<std::thread> threads;
  std::vector<std::string> failures(jobs.size());
  for (size_t i = 0; i < jobs.size(); ++i) {
    threads.emplace_back([&jobs, &failures, i] {
      const Job& j = jobs[i];
      for (int r = 0; r < kRounds; ++r) {
        const Decoded d = DecodeBoth(j.jpeg);
        if (d.rc != 2 || d.rgba != j.decoded.rgba || d.i420 != j.decoded.i420) failures[i] += " decode";
        STImageSimple image{};
        image.width = uint32_t(j.width);
        image.height = uint32_t(j.height);
        Bytes pixels = j.pixels;
        image.data = pixels.data();
        MMStream* out = MMPageArrayStream::NewReady(4096);
        if (EncodeJPG(image, 80, out, kiu::FormatRGB, kiu::Format(16)) != 1 ||
            keltest::StreamBytes(out) != j.encoded)
          failures[i] += " encode";
        MMStreamDelete(&out);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  for (size_t i = 0; i < jobs.size(); ++i) EXPECT_EQ(failures[i], "") << jobs[i].args;
}

}  // namespace
