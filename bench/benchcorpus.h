// The benchmark's pictures: camera-like scenes made at run time and
// compressed by cjpeg, kept in a directory so that repeated runs (and the
// run under callgrind) read the same files.
#ifndef KEL_BENCH_BENCHCORPUS_H
#define KEL_BENCH_BENCHCORPUS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kelbench {

using Bytes = std::vector<uint8_t>;

struct ImageSpec {
  std::string size;  // "1080p", "12MP", ... as printed
  int width, height;
  std::string sampling;  // cjpeg's "2x2", "2x1", "1x1"
  int quality;
  std::string mode;  // "baseline", "progressive", "restart"

  std::string Label() const;  // "1080p 4:2:0 q85 baseline"
  std::string Slug() const;   // file name stem
};

// RGB triples: soft light, a few objects with sharp edges, fine texture and
// mild noise, laid out by picture size so that every size shows the scene.
Bytes Scene(int width, int height);

// RGB triples of a synthetic picture: colour bars, ramps and a fine
// checkerboard, as a test pattern or a screen capture has.
Bytes Pattern(int width, int height);

// The JPEG for `spec` from `dir` (made with cjpeg on first use); empty with
// `why` on failure.
Bytes CorpusJpeg(const std::string& dir, const ImageSpec& spec, std::string* why);

}  // namespace kelbench

#endif  // KEL_BENCH_BENCHCORPUS_H
