// The keljpeg tool against the codec's entry points and libjpeg-turbo's
// cjpeg/djpeg/jpegtran, on pictures made at run time.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

struct Ran {
  int rc = -1;
  std::string output;  // standard output and error together
};

Ran Shell(const std::string& command) {
  Ran r;
  std::FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (p == nullptr) return r;
  char chunk[4096];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, p)) != 0) r.output.append(chunk, n);
  const int status = pclose(p);
  r.rc = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

Ran Tool(const std::string& args) { return Shell(std::string(KELJPEG_TOOL) + " " + args); }

std::string Missing(std::initializer_list<const char*> tools) {
  for (const char* t : tools)
    if (!keltest::HaveTool(t)) return t;
  return "";
}
#define REQUIRE_TOOLS(...)                              \
  do {                                                  \
    const std::string missing = Missing({__VA_ARGS__}); \
    KEL_REQUIRE_PEER(missing.empty(), missing);         \
  } while (0)

std::string WritePnm(const std::string& name, const Bytes& rgb, int width, int height) {
  const std::string path = keltest::TempPath(name);
  const std::string header = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
  Bytes file(header.begin(), header.end());
  file.insert(file.end(), rgb.begin(), rgb.end());
  keltest::WriteFile(path, file);
  return path;
}

// The samples of a binary PNM file: what follows its third line.
Bytes PnmSamples(const Bytes& pnm) {
  size_t at = 0;
  for (int lines = 0; lines < 3 && at < pnm.size(); ++at) lines += pnm[at] == '\n';
  return Bytes(pnm.begin() + at, pnm.end());
}

struct EncodeCase {
  int width, height;
  std::string input;      // ppm or png
  std::string args;       // for keljpeg encode
  std::string cjpegArgs;  // the peer's equivalent; empty: compare with EncodeJPG
};

void PrintTo(const EncodeCase& c, std::ostream* os) {
  *os << c.width << "x" << c.height << " " << c.input << " " << c.args;
}

class EncodeTest : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(EncodeTest, GivesThePeersOrTheApisBytes) {
  REQUIRE_TOOLS("cjpeg", "convert");
  const EncodeCase& c = GetParam();
  const Bytes rgb = keltest::PhotoLike(c.width, c.height, 3, c.width * 7 + c.height);
  const std::string ppm = WritePnm(keltest::Slug(c.args) + ".ppm", rgb, c.width, c.height);
  std::string in = ppm;
  if (c.input == "png") {
    in = ppm + ".png";
    ASSERT_EQ(keltest::Run("convert " + ppm + " " + in), 0);
  }
  const std::string out = in + ".jpg";
  const Ran r = Tool("encode " + c.args + " " + in + " " + out);
  ASSERT_EQ(r.rc, 0) << r.output;
  Bytes expected;
  if (!c.cjpegArgs.empty()) {
    expected = keltest::Cjpeg(rgb, c.width, c.height, 3, c.cjpegArgs);
  } else {
    expected =
        keltest::Encode(keltest::ToPacked4(rgb, 0), c.width, c.height, 85, kiu::FormatRGB, kiu::FormatRGB)
            .jpeg;
  }
  EXPECT_EQ(keltest::ReadFile(out), expected);
}

INSTANTIATE_TEST_SUITE_P(Pictures, EncodeTest,
                         ::testing::Values(EncodeCase{321, 243, "png", "", "-baseline -dct int -quality 85"},
                                           EncodeCase{1, 1, "png", "", "-baseline -dct int -quality 85"},
                                           EncodeCase{67, 9, "ppm", "", "-baseline -dct int -quality 85"},
                                           EncodeCase{64, 48, "ppm", "--quality 30",
                                                      "-baseline -dct int -quality 30"},
                                           EncodeCase{33, 17, "png", "--rgb", ""}),
                         [](const auto& info) { return std::to_string(info.index); });

// Each output of `keljpeg decode` holds the entry point's pixels.
TEST(DecodeTest, EveryOutputHoldsTheEntryPointsPixels) {
  REQUIRE_TOOLS("cjpeg", "convert");
  const int w = 101, h = 75;
  const std::string jpg = keltest::TempPath("d.jpg");
  keltest::WriteFile(jpg, keltest::MakeJpeg(w, h, 3, 5, "-quality 90"));
  const Bytes jpeg = keltest::ReadFile(jpg);
  auto rgba = [&](int width, int height, unsigned long alpha, int channels) {
    STImageSimple image{};
    EXPECT_EQ(DecodeJPG(jpeg.data(), jpeg.size(), alpha, &image, width, height), 1);
    Bytes out;
    for (uint32_t i = 0; i < image.width * image.height; ++i)
      out.insert(out.end(), image.data + i * 4, image.data + i * 4 + channels);
    MMFree(image.data);
    return out;
  };
  auto yuv = [&](bool planar, int step) {
    STImageSimple image{};
    EXPECT_EQ(jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &image, planar), 1);
    const size_t size = planar ? image.size : image.stride * image.height;
    Bytes out;
    for (size_t i = 0; i < size; i += step) out.push_back(image.data[i]);
    MMFree(image.data);
    return out;
  };
  struct Case {
    std::string args, out;
    Bytes expected;
  };
  const Case cases[] = {
      {"", "a.ppm", rgba(0, 0, 255, 3)},
      {"--size 50x50", "b.ppm", rgba(50, 50, 255, 3)},
      {"--scale 1/4", "c.ppm", rgba(26, 19, 255, 3)},
      {"", "d.pgm", yuv(false, 3)},
      {"", "e.yuv", yuv(true, 1)},
      {"--format yuv", "f.yuv", yuv(false, 1)},
      {"--format rgba --alpha 7", "g.yuv", rgba(0, 0, 7, 4)},
      {"--format rgba --alpha 9", "h.png", rgba(0, 0, 9, 4)},
      {"", "i.png", rgba(0, 0, 255, 3)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args + " " + c.out);
    std::string out = keltest::TempPath(c.out);
    const Ran r = Tool("decode " + c.args + " " + jpg + " " + out);
    ASSERT_EQ(r.rc, 0) << r.output;
    Bytes got = keltest::ReadFile(out);
    if (c.out.find(".png") != std::string::npos) {
      const std::string raw = out + (c.expected.size() == 101u * 75 * 4 ? ".rgba" : ".rgb");
      ASSERT_EQ(keltest::Run("convert " + out + " " + raw.substr(raw.rfind('.') + 1) + ":" + raw), 0);
      got = keltest::ReadFile(raw);
    } else if (c.out.find(".p") != std::string::npos) {
      got = PnmSamples(got);
    }
    EXPECT_EQ(got, c.expected);
  }
}

// The full-size PPM is also djpeg's (accurate DCT, no smoothing).
TEST(DecodeTest, FullSizePpmIsDjpegs) {
  REQUIRE_TOOLS("cjpeg", "djpeg");
  const std::string jpg = keltest::TempPath("dj.jpg"), ours = jpg + ".ours.ppm", peer = jpg + ".peer.ppm";
  keltest::WriteFile(jpg, keltest::MakeJpeg(97, 61, 3, 9, "-sample 2x1"));
  ASSERT_EQ(Tool("decode " + jpg + " " + ours).rc, 0);
  ASSERT_EQ(keltest::Run("djpeg -dct int -nosmooth -outfile " + peer + " " + jpg), 0);
  EXPECT_EQ(keltest::ReadFile(ours), keltest::ReadFile(peer));
}

struct InfoCase {
  std::string name, cjpegArgs, jpegtranArgs;
  bool cmyk;
  int rc;
  std::vector<std::string> facts;
};

void PrintTo(const InfoCase& c, std::ostream* os) { *os << c.name; }

class InfoTest : public ::testing::TestWithParam<InfoCase> {};

TEST_P(InfoTest, PrintsTheFactsAndTheDecodersVerdict) {
  REQUIRE_TOOLS("cjpeg", "jpegtran", "convert");
  const InfoCase& c = GetParam();
  const std::string jpg = keltest::TempPath(c.name + ".jpg");
  if (c.cmyk) {
    const std::string ppm = WritePnm(c.name + ".ppm", keltest::PhotoLike(40, 30, 3, 3), 40, 30);
    ASSERT_EQ(keltest::Run("convert " + ppm + " -colorspace CMYK " + jpg), 0);
  } else {
    keltest::WriteFile(jpg, keltest::MakeJpeg(40, 30, 3, 3, c.cjpegArgs, "", c.jpegtranArgs));
  }
  const Ran r = Tool("info " + jpg);
  EXPECT_EQ(r.rc, c.rc) << r.output;
  for (const std::string& fact : c.facts)
    EXPECT_NE(r.output.find(fact), std::string::npos) << fact << "\n" << r.output;
}

INSTANTIATE_TEST_SUITE_P(
    Files, InfoTest,
    ::testing::Values(
        InfoCase{"progressive",
                 "-progressive",
                 "",
                 false,
                 0,
                 {"size: 40x30", "progressive (SOF2, Huffman)", "scans: 10", "decoder: accepted"}},
        InfoCase{"restart",
                 "-restart 1",
                 "",
                 false,
                 0,
                 {"baseline (SOF0", "restart interval: 3 MCUs", "restart markers: 1", "JFIF: version 1.01"}},
        InfoCase{"cmyk", "", "", true, 0, {"components: 4", "Adobe: transform 2, YCCK", "decoder: accepted"}},
        InfoCase{"arithmetic",
                 "",
                 "-arithmetic",
                 false,
                 1,
                 {"extended sequential (SOF9, arithmetic)", "DAC",
                  "refused: unsupported JPEG: lossless, hierarchical and arithmetic-coded JPEG are not "
                  "supported (kj.dinput +601)"}}),
    [](const auto& info) { return info.param.name; });

// Many files into a folder: a bar on a terminal only, the failures listed at the end.
TEST(BatchTest, ProgressBarOnATerminalOnlyAndFailuresListed) {
  REQUIRE_TOOLS("cjpeg", "script");
  const std::string dir = keltest::TempPath("batch"), out = dir + "/out";
  ASSERT_EQ(keltest::Run("mkdir -p " + out), 0);
  keltest::WriteFile(dir + "/0.jpg", keltest::MakeJpeg(16, 16, 3, 1, ""));
  keltest::WriteFile(dir + "/bad.jpg", Bytes{'n', 'o'});
  ASSERT_EQ(keltest::Run("cd " + dir + " && for i in $(seq 1 199); do cp 0.jpg $i.jpg; done"), 0);
  const std::string args = "decode " + dir + "/*.jpg " + out;
  const Ran piped = Tool(args);
  const Ran terminal = Shell("script -qec '" + std::string(KELJPEG_TOOL) + " " + args + "' /dev/null");
  for (const Ran* r : {&piped, &terminal}) {
    EXPECT_EQ(r->rc, 1) << r->output;
    EXPECT_NE(r->output.find("1 of 201 files failed"), std::string::npos) << r->output;
    EXPECT_NE(r->output.find("bad.jpg: cannot decode it: truncated JPEG data: the data is too short to be a "
                             "JPEG (kj.d +45)"),
              std::string::npos);
  }
  EXPECT_EQ(piped.output.find("201/201"), std::string::npos) << piped.output;
  EXPECT_NE(terminal.output.find("] 201/201"), std::string::npos) << terminal.output;
  EXPECT_EQ(keltest::Run("test $(ls " + out + " | wc -l) -eq 200"), 0);
}

TEST(ArgumentsTest, ExitCodesAndMessages) {
  const std::string png = keltest::TempPath("args.png"), empty = keltest::TempPath("empty.yuv");
  keltest::WriteFile(empty, {});
  const struct {
    std::string args;
    int rc;
    std::string says;
  } cases[] = {
      {"", 2, "A subcommand is required"},
      {"--version", 0, "keljpeg 0.10.18"},
      {"decode --help", 0, "--scale"},
      {"decode a.jpg", 2, "At least 2 required"},
      {"decode a.jpg b.bmp", 2, "the output must end in .png, .ppm, .pgm or .yuv"},
      {"decode --size 10x10 a.jpg b.yuv", 2, "--size and --scale need RGB output"},
      {"decode --scale 1/3 a.jpg b.png", 2, "--scale"},
      {"encode --quality 101 a.png b.jpg", 2, "--quality"},
      {"encode a.yuv b.jpg", 2, "a .yuv input needs --i420 WxH"},
      {"encode a.png b.png c.jpg", 2, "the last argument must be a folder"},
      {"decode /nonexistent.jpg " + png, 1, "cannot read it: No such file or directory"},
      {"encode --i420 4x4 " + empty + " b.jpg", 1, "it holds 0 bytes, a 4x4 I420 frame 24"},
      {"decode " + empty + " " + png, 1, "cannot decode it: the file is empty"},
      {"bench", 2, "bench needs IN.jpg or --generate WxH"},
  };
  for (const auto& c : cases) {
    const Ran r = Tool(c.args);
    EXPECT_EQ(r.rc, c.rc) << c.args << "\n" << r.output;
    EXPECT_NE(r.output.find(c.says), std::string::npos) << c.args << "\n" << r.output;
  }
}

}  // namespace
