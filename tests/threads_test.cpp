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

// RGBA and I420 decodes of `jpeg`, then our encoding of `pixels`; empty
// parts on failure. No stdout capture here: it is not thread-safe.
std::vector<Bytes> Work(const Bytes& jpeg, Bytes pixels, int w, int h) {
  STImageSimple a{}, y{}, image{uint32_t(w), uint32_t(h), 0, 0, 0, pixels.data()};
  const bool rgba = DecodeJPG(jpeg.data(), jpeg.size(), 200, &a, 0, 0) == 1;
  const bool i420 = jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &y, true) == 1;
  MMStream* s = MMPageArrayStream::NewReady(4096);
  const bool encoded = EncodeJPG(image, 80, s, kiu::FormatRGB, kiu::Format(16)) == 1;
  std::vector<Bytes> out = {rgba ? Bytes(a.data, a.data + size_t(a.stride) * a.height) : Bytes(),
                            i420 ? Bytes(y.data, y.data + y.size) : Bytes(),
                            encoded ? keltest::StreamBytes(s) : Bytes()};
  MMStreamDelete(&s);
  kau::mem::Delete(a.data);
  kau::mem::Delete(y.data);
  return out;
}

TEST(Threads, DecodesAndEncodesOfSeparateImagesAtOnceMatchOneThread) {
  KEL_REQUIRE_PEER(keltest::HaveTool("cjpeg"), "cjpeg");
  struct Job {
    int w, h;
    const char* args;
    Bytes jpeg = {}, pixels = {};
    std::vector<Bytes> expected = {};
    std::string failures = "";
  };
  std::vector<Job> jobs = {{97, 61, "-baseline"},
                           {64, 48, "-progressive"},
                           {130, 33, "-sample 1x1 -restart 2"},
                           {40, 90, "-progressive -sample 2x1"}};
  for (size_t i = 0; i < jobs.size(); ++i) {
    Job& j = jobs[i];
    j.jpeg = keltest::MakeJpeg(j.w, j.h, 3, uint32_t(i + 1), j.args);
    j.pixels = keltest::ToPacked4(keltest::PhotoLike(j.w, j.h, 3, uint32_t(i)), 0);
    j.expected = Work(j.jpeg, j.pixels, j.w, j.h);
    for (const Bytes& b : j.expected) ASSERT_FALSE(b.empty()) << j.args;
  }
  std::vector<std::thread> threads;
  for (Job& j : jobs)
    threads.emplace_back([&j] {
      for (int round = 0; round < 3; ++round)
        if (Work(j.jpeg, j.pixels, j.w, j.h) != j.expected) j.failures += " round " + std::to_string(round);
    });
  for (std::thread& t : threads) t.join();
  for (const Job& j : jobs) EXPECT_EQ(j.failures, "") << j.args;
}

}  // namespace
