// Helpers shared by the tests: files and peer tools, synthetic pictures, a
// corpus made with cjpeg/jpegtran, our decoder and encoder in memory, and the
// TurboJPEG peer.
#ifndef KEL_TESTS_TESTUTIL_H
#define KEL_TESTS_TESTUTIL_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.d/kj.d.h"
#include "kj.d/kj.dkernels.h"

namespace keltest {

using Bytes = std::vector<uint8_t>;

// Source names the code reports errors under.
extern const std::string kDecDir, kEncDir;
// What the code prints for an error at `file` +`line`.
std::string Line(const std::string& file, int line);

// "file:line" of the kau::Error `fn` throws, "none" when it returns.
std::string ThrownAt(const std::function<void()>& fn);
// What `fn` prints on stdout.
std::string Printed(const std::function<void()>& fn);

// A fresh path under the test's temporary directory, unique in the process.
std::string TempPath(const std::string& name);
Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& data);
// Runs a shell command; returns its exit status.
int Run(const std::string& command);
bool HaveTool(const std::string& tool);
// CI=true: a peer that is missing or refuses a file fails the test instead of skipping it.
bool InCi();
#define KEL_REQUIRE_PEER(ok, what)                                     \
  do {                                                                 \
    if (!(ok)) {                                                       \
      if (keltest::InCi()) GTEST_FAIL() << "peer missing: " << (what); \
      GTEST_SKIP() << "peer missing: " << (what);                      \
    }                                                                  \
  } while (0)
// Letters and digits of `text`, every other run turned into one '_'.
std::string Slug(const std::string& text);

// Smooth gradients plus noise and hard edges, channels interleaved.
Bytes PhotoLike(int width, int height, int channels, uint32_t seed);
// Mean over a (2r+1)^2 box clipped to the picture, as camera optics soften.
Bytes BoxBlur(const Bytes& pixels, int width, int height, int channels, int r);
// Area average of the first `channels` bytes of `bpp`-byte pixels to dw x dh.
Bytes AreaAverage(const uint8_t* src, int sw, int sh, int bpp, int channels, int dw, int dh);
double Psnr(const uint8_t* a, const uint8_t* b, size_t n);

// `pixels` (1 or 3 channels) compressed by `cjpeg <args>`; empty on failure.
Bytes Cjpeg(const Bytes& pixels, int width, int height, int channels, const std::string& args);
// A photo-like picture through cjpeg; "@SCANS@" in args names a file holding
// `scans`; with `jpegtranArgs` the result then goes through jpegtran.
Bytes MakeJpeg(int width, int height, int channels, uint32_t seed, const std::string& args,
               const std::string& scans = "", const std::string& jpegtranArgs = "");
// Offset of the first entropy-coded byte, 0 when there is no SOS.
size_t ScanStart(const Bytes& jpeg);
// The payload of the index-th segment with `marker` before the first scan.
Bytes Segment(const Bytes& jpeg, int marker, int index = 0);
// The file without APPn segments and with the frame's component ids `ids`.
Bytes RewriteMarkers(const Bytes& jpeg, const std::vector<int>& ids);

struct ComponentPlane {
  int width = 0, height = 0;
  Bytes samples;  // width * height, visible area only
};
// Our component planes at DCT scaled size `scale`. Throws what the decoder throws.
std::vector<ComponentPlane> DecodePlanes(kjd::Decoder& decoder, int scale = 8, bool specialised = true);
std::vector<ComponentPlane> DecodePlanes(const Bytes& jpeg, int scale = 8, bool specialised = true);

// The peer's planes (accurate DCT) cut to each component's visible area, and
// its pixels (accurate DCT, chroma repeated; CMYK bytes with `cmyk`). False
// with `why` when the peer is absent or refuses the file (the planes also
// on a mere warning).
bool PeerPlanes(const Bytes& jpeg, std::vector<ComponentPlane>* planes, std::string* why);
bool PeerRgb(const Bytes& jpeg, Bytes* rgb, int* width, int* height, std::string* why, bool cmyk = false);

// EncodeJPG of `pixels` into `stream`, printed output in `printed`.
int EncodeTo(MMStream* stream, Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
             kiu::Format out, std::string* printed = nullptr);
struct EncodeResult {
  int rc = 0;
  Bytes jpeg;
  std::string printed;
};
// EncodeJPG into a page-array stream.
EncodeResult Encode(Bytes pixels, uint32_t width, uint32_t height, int quality, kiu::Format in,
                    kiu::Format out);
// All bytes put into `stream`.
Bytes StreamBytes(MMStream* stream);
// RGB triples to 4-byte pixels (fourth byte `filler`).
Bytes ToPacked4(const Bytes& rgb, uint8_t filler);
// Every decoder kernel table the CPU runs, the scalar one (the twin tests'
// reference) first; prints which SIMD ones the test compares.
std::vector<const kjd::Kernels*> DecoderKernels();

}  // namespace keltest

#endif  // KEL_TESTS_TESTUTIL_H
