// keljpeg: decode, encode, inspect and benchmark JPEG files from a shell,
// through the codec's exported entry points only.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench.h"
#include "codecio.h"
#include "imagefile.h"
#include "jpeginfo.h"
#include "kj.jpeg.h"

namespace keljpeg {
namespace {

enum ExitCode { kExitOk = 0, kExitFileFailed = 1, kExitUsage = 2 };

constexpr const char* kExitCodes =
    "Exit codes: 0 success; 1 a file could not be read, decoded, encoded or written (for info: the\n"
    "decoder refuses it; with several files: at least one failed, listed at the end); 2 bad arguments.";

struct UsageError {
  std::string message;
};

bool ParseSize(const std::string& text, uint32_t* width, uint32_t* height) {
  char tail = 0;
  return std::sscanf(text.c_str(), "%ux%u%c", width, height, &tail) == 2 && *width > 0 && *height > 0 &&
         *width <= kj::kMaxDimension && *height <= kj::kMaxDimension;
}

const CLI::Validator kSizeText(
    [](std::string& text) {
      uint32_t w, h;
      return ParseSize(text, &w, &h) ? std::string() : "expected WxH with both in 1..65500, not " + text;
    },
    "WxH");

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string Stem(const std::string& path) {
  const size_t slash = path.rfind('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// One input to one output; returns an empty string or why it failed.
using Job = std::function<std::string(const std::string& in, const std::string& out)>;

// Runs `job` over the inputs: one file, or many into the folder `outputs`
// with a progress bar when standard error is a terminal, and the failures
// listed at the end.
int RunJobs(const char* command, const std::vector<std::string>& args, FileKind batchKind, const Job& job) {
  const std::string last = args.back();
  const std::vector<std::string> inputs(args.begin(), args.end() - 1);
  if (inputs.size() == 1 && !IsDirectory(last)) {
    const std::string why = job(inputs[0], last);
    if (why.empty()) return kExitOk;
    std::fprintf(stderr, "keljpeg %s: %s: %s\n", command, inputs[0].c_str(), why.c_str());
    return kExitFileFailed;
  }
  if (!IsDirectory(last)) throw UsageError{"with several inputs the last argument must be a folder: " + last};
  const bool bar = isatty(STDERR_FILENO) != 0;
  std::vector<std::string> failures;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string why = job(inputs[i], last + "/" + Stem(inputs[i]) + ExtensionOf(batchKind));
    if (!why.empty()) failures.push_back(inputs[i] + ": " + why);
    if (bar) {
      const size_t done = (i + 1) * 40 / inputs.size();
      std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(done, '#').c_str(),
                   std::string(40 - done, '.').c_str(), i + 1, inputs.size());
      std::fflush(stderr);
    }
  }
  if (bar) std::fputc('\n', stderr);
  if (failures.empty()) return kExitOk;
  std::fprintf(stderr, "keljpeg %s: %zu of %zu files failed:\n", command, failures.size(), inputs.size());
  for (const std::string& f : failures) std::fprintf(stderr, "  %s\n", f.c_str());
  return kExitFileFailed;
}

struct DecodeArgs {
  std::vector<std::string> files;
  std::string size, scale, format = "default", to = "png";
  int alpha = 255;
};

std::string DecodeOne(const DecodeArgs& a, const std::string& in, const std::string& out) {
  const FileKind kind = KindOf(out);
  Failure why;
  Bytes jpeg;
  const std::string read = ReadFile(in, &jpeg);
  if (!read.empty()) return "cannot read it: " + read;
  if (kind == FileKind::kPgm || (kind == FileKind::kYuv && a.format != "rgba")) {
    Bytes yuv;
    uint32_t w = 0, h = 0;
    const bool planar = kind == FileKind::kYuv && a.format != "yuv";
    if (!DecodeYuv(jpeg, planar, &yuv, &w, &h, &why)) return "cannot decode it: " + why.Describe();
    const std::string wrote = kind == FileKind::kPgm ? WritePgm(out, yuv.data(), w, h, w * 3, 3)
                                                     : WriteFile(out, yuv.data(), yuv.size());
    return wrote.empty() ? "" : "cannot write " + out + ": " + wrote;
  }
  DecodeSize size;
  uint32_t w = 0, h = 0;
  if (ParseSize(a.size, &w, &h)) size = {static_cast<int>(w), static_cast<int>(h)};
  if (!a.scale.empty()) {
    // The entry point takes the scaled size in pixels; the decoder then
    // picks that DCT scale and does not resample.
    const uint32_t d = static_cast<uint32_t>(std::atoi(a.scale.c_str() + 2));
    const JpegFacts facts = DescribeJpeg(jpeg);
    size = {static_cast<int>((facts.width + d - 1) / d), static_cast<int>((facts.height + d - 1) / d)};
  }
  Picture picture;
  if (!DecodeRgba(jpeg, a.alpha, size, &picture, &why)) return "cannot decode it: " + why.Describe();
  std::string wrote;
  if (kind == FileKind::kPng) wrote = WritePng(out, picture, a.format == "rgba");
  if (kind == FileKind::kPpm) wrote = WritePpm(out, picture);
  if (kind == FileKind::kYuv) wrote = WriteFile(out, picture.pixels.data(), picture.pixels.size());
  return wrote.empty() ? "" : "cannot write " + out + ": " + wrote;
}

int Decode(const DecodeArgs& a) {
  const bool batch = a.files.size() > 2 || IsDirectory(a.files.back());
  const FileKind kind = batch ? KindOf("x." + a.to) : KindOf(a.files.back());
  if (kind != FileKind::kPng && kind != FileKind::kPpm && kind != FileKind::kPgm && kind != FileKind::kYuv)
    throw UsageError{"the output must end in .png, .ppm, .pgm or .yuv"};
  const bool rgb =
      kind == FileKind::kPng || kind == FileKind::kPpm || (kind == FileKind::kYuv && a.format == "rgba");
  if ((!a.size.empty() || !a.scale.empty()) && !rgb)
    throw UsageError{"--size and --scale need RGB output (.png, .ppm, or .yuv with --format rgba)"};
  if ((kind == FileKind::kPpm || kind == FileKind::kPgm) && a.format != "default")
    throw UsageError{"--format applies to .png (rgba) and .yuv outputs"};
  if (kind == FileKind::kPng && a.format != "default" && a.format != "rgba")
    throw UsageError{"a .png output takes --format rgba only"};
  return RunJobs("decode", a.files, kind,
                 [&](const std::string& in, const std::string& out) { return DecodeOne(a, in, out); });
}

struct EncodeArgs {
  std::vector<std::string> files;
  int quality = 85;
  bool rgb = false;
  std::string i420;
};

int Encode(const EncodeArgs& a) {
  uint32_t w = 0, h = 0;
  const bool raw = ParseSize(a.i420, &w, &h);
  if (raw && a.rgb) throw UsageError{"--rgb takes RGB input, not --i420"};
  for (size_t i = 0; i + 1 < a.files.size(); ++i) {
    const FileKind kind = KindOf(a.files[i]);
    if (kind == FileKind::kYuv && !raw) throw UsageError{"a .yuv input needs --i420 WxH: " + a.files[i]};
    if (kind != FileKind::kYuv && raw) throw UsageError{"--i420 takes .yuv inputs: " + a.files[i]};
    if (kind != FileKind::kPng && kind != FileKind::kPpm && kind != FileKind::kPgm && kind != FileKind::kYuv)
      throw UsageError{"inputs must end in .png, .ppm, .pgm or .yuv: " + a.files[i]};
  }
  return RunJobs("encode", a.files, FileKind::kJpeg, [&](const std::string& in, const std::string& out) {
    Bytes jpeg;
    Failure why;
    if (raw) {
      Bytes frame;
      const std::string read = ReadFile(in, &frame);
      if (!read.empty()) return "cannot read it: " + read;
      if (!EncodeI420(frame, w, h, a.quality, &jpeg, &why)) return "cannot encode it: " + why.Describe();
    } else {
      Picture picture;
      const std::string read = ReadPicture(in, &picture);
      if (!read.empty()) return "cannot read it: " + read;
      if (!EncodePicture(picture, a.quality, a.rgb, &jpeg, &why))
        return "cannot encode it: " + why.Describe();
    }
    const std::string wrote = WriteFile(out, jpeg.data(), jpeg.size());
    return wrote.empty() ? std::string() : "cannot write " + out + ": " + wrote;
  });
}

int Info(const std::vector<std::string>& files) {
  int rc = kExitOk;
  for (const std::string& path : files) {
    Bytes jpeg;
    const std::string read = ReadFile(path, &jpeg);
    if (!read.empty()) {
      std::fprintf(stderr, "keljpeg info: %s: cannot read it: %s\n", path.c_str(), read.c_str());
      rc = kExitFileFailed;
      continue;
    }
    const JpegFacts facts = DescribeJpeg(jpeg);
    std::printf("%s: %zu bytes\n", path.c_str(), jpeg.size());
    for (const std::string& line : facts.lines) std::printf("  %s\n", line.c_str());
    if (!facts.error.empty()) std::printf("  markers: %s\n", facts.error.c_str());
    Picture picture;
    Failure why;
    if (DecodeRgba(jpeg, 255, {}, &picture, &why)) {
      std::printf("  keljpeg decoder: accepted\n");
    } else {
      std::printf("  keljpeg decoder: refused: %s\n", why.Describe().c_str());
      rc = kExitFileFailed;
    }
  }
  return rc;
}

int Bench(const std::string& file, const std::string& generate, double seconds) {
  Bytes jpeg;
  uint32_t w = 0, h = 0;
  if (ParseSize(generate, &w, &h)) {
    Failure why;
    if (!EncodePicture(GeneratePicture(w, h), 85, false, &jpeg, &why)) {
      std::fprintf(stderr, "keljpeg bench: cannot encode the test picture: %s\n", why.Describe().c_str());
      return kExitFileFailed;
    }
  } else {
    const std::string read = ReadFile(file, &jpeg);
    if (!read.empty()) {
      std::fprintf(stderr, "keljpeg bench: %s: cannot read it: %s\n", file.c_str(), read.c_str());
      return kExitFileFailed;
    }
  }
  const std::string why = RunBench(jpeg, seconds, stdout);
  if (why.empty()) return kExitOk;
  std::fprintf(stderr, "keljpeg bench: %s\n", why.c_str());
  return kExitFileFailed;
}

int Main(int argc, char** argv) {
  CLI::App app("keljpeg: decode, encode, inspect and benchmark JPEG files with the keljpeg codec.",
               "keljpeg");
  app.set_version_flag("--version", "keljpeg " KELJPEG_VERSION);
  app.require_subcommand(1);
  app.footer(kExitCodes);

  DecodeArgs dec;
  CLI::App* decode = app.add_subcommand("decode", "JPEG to PNG, PPM, PGM (luma) or raw YUV/RGBA");
  decode->add_option("files", dec.files, "IN.jpg OUT.(png|ppm|pgm|yuv), or IN.jpg... FOLDER")
      ->required()
      ->expected(2, -1);
  auto* size = decode->add_option("--size", dec.size, "fit the picture into WxH, keeping its aspect ratio")
                   ->check(kSizeText);
  decode->add_option("--scale", dec.scale, "decode at 1/2, 1/4 or 1/8 size")
      ->check(CLI::IsMember({"1/2", "1/4", "1/8"}))
      ->excludes(size);
  decode
      ->add_option(
          "--format", dec.format,
          "rgba: 4-channel PNG or raw RGBA .yuv; yuv: packed Y,U,V .yuv; i420: planar .yuv (the default)")
      ->check(CLI::IsMember({"rgba", "yuv", "i420"}));
  decode->add_option("--alpha", dec.alpha, "alpha byte of RGBA output (default 255)")
      ->check(CLI::Range(0, 255));
  decode->add_option("--to", dec.to, "output type in a folder (default png)")
      ->check(CLI::IsMember({"png", "ppm", "pgm", "yuv"}));
  decode->footer(kExitCodes);

  EncodeArgs enc;
  CLI::App* encode = app.add_subcommand("encode", "PNG, PPM, PGM or raw I420 to baseline JPEG");
  encode->add_option("files", enc.files, "IN.(png|ppm|pgm|yuv) OUT.jpg, or IN... FOLDER")
      ->required()
      ->expected(2, -1);
  encode->add_option("--quality,-q", enc.quality, "0..100 (default 85)")->check(CLI::Range(0, 100));
  encode->add_flag("--rgb", enc.rgb, "write an RGB-model JPEG (Adobe) instead of YCbCr 4:2:0 (JFIF)");
  encode->add_option("--i420", enc.i420, "the input is raw I420 of this size")->check(kSizeText);
  encode->footer(kExitCodes);

  std::vector<std::string> infoFiles;
  CLI::App* info = app.add_subcommand("info", "what a JPEG holds and whether our decoder accepts it");
  info->add_option("files", infoFiles, "IN.jpg...")->required();
  info->footer(kExitCodes);

  std::string benchFile, generate;
  double seconds = 1.0;
  CLI::App* bench = app.add_subcommand("bench", "decode and encode megapixels per second, TurboJPEG beside");
  auto* file = bench->add_option("file", benchFile, "IN.jpg");
  bench->add_option("--generate", generate, "measure a generated WxH picture instead")
      ->check(kSizeText)
      ->excludes(file);
  bench->add_option("--seconds", seconds, "time per measurement (default 1)")->check(CLI::Range(0.01, 60.0));
  bench->footer(kExitCodes);

  try {
    app.parse(argc, argv);
    if (bench->parsed() && benchFile.empty() && generate.empty())
      throw UsageError{"bench needs IN.jpg or --generate WxH"};
    if (decode->parsed()) return Decode(dec);
    if (encode->parsed()) return Encode(enc);
    if (info->parsed()) return Info(infoFiles);
    return Bench(benchFile, generate, seconds);
  } catch (const CLI::ParseError& e) {
    const int rc = app.exit(e);
    return rc == 0 ? kExitOk : kExitUsage;
  } catch (const UsageError& e) {
    std::fprintf(stderr, "keljpeg: %s\nRun with --help for more information.\n", e.message.c_str());
    return kExitUsage;
  }
}

}  // namespace
}  // namespace keljpeg

int main(int argc, char** argv) { return keljpeg::Main(argc, argv); }
