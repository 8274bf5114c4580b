// The benchmark: our codec beside TurboJPEG in one process. Each row decodes
// or encodes one picture both ways in interleaved pairs and reports the
// median of the pair-by-pair ratios (peer time / our time), both peaks of
// heap use, and, from a run under callgrind, instructions per source
// megapixel. Every row first checks our output against what the peer's
// output implies.
//
//   kelbench [--corpus DIR] [--filter TEXT] [--reps-scale F]
//            [--markdown FILE] [--tsv FILE] [--instructions FILE] [--before FILE]
//   kelbench --callgrind       instructions per row (run under valgrind --tool=callgrind)
//   kelbench --prepare         only make the corpus
//   kelbench --smoke           tiny pictures, pixel checks only (the armhf run)
#include <getopt.h>
#include <malloc.h>
#include <time.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "benchcorpus.h"
#include "benchpeak.h"
#include "kau/kau.h"
#include "kiu/MMPageArrayStream.h"
#include "kiu/kiu.h"
#include "kiu/kiustartup.h"
#include "kiu/mmstream.h"
#include "kj.d/CJPGD.h"
#include "kj.d/jpdyuv.h"
#include "kj.e/CJPGE.h"

#ifdef KEL_HAVE_CALLGRIND
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(label) static_cast<void>(label)
#endif

namespace kelbench {
namespace {

// One side of a row; `out` is null while timed, else receives the output.
using Call = std::function<bool(Bytes* out)>;

struct Row {
  std::string image, work;
  double megapixels = 0;  // of the source picture
  int reps = 1;
  Call ours, peer;
  std::function<Bytes()> expected;  // what `ours` must produce; unset: the peer's output
  // False where our documented arithmetic differs from the peer's (the
  // truncating scaled inverse DCTs): the check then reports the distance.
  bool exact = true;
  std::string Key() const { return image + " | " + work; }
};

struct Result {
  double ratio = 0, oursMs = 0, peerMs = 0;
  long long peakOurs = -1, peakPeer = -1, outputBytes = 0;
  std::string check;
};

// --- the two codecs ---------------------------------------------------------

bool OursRgba(const Bytes& jpeg, int width, int height, Bytes* out) {
  STImageSimple image{};
  if (DecodeJPG(jpeg.data(), jpeg.size(), 255, &image, width, height) != 1) return false;
  if (out != nullptr) out->assign(image.data, image.data + size_t{image.stride} * image.height);
  kau::mem::Delete(image.data);
  return true;
}

bool OursI420(const Bytes& jpeg, Bytes* out) {
  STImageSimple image{};
  if (jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &image, true) != 1) return false;
  if (out != nullptr) out->assign(image.data, image.data + image.size);
  kau::mem::Delete(image.data);
  return true;
}

// `pixels`: 4-byte RGBx for kiu::FormatRGB, our I420 layout for FormatI420
// (no padding at the benchmark's sizes). The JPEG goes to a page-array
// stream, as in the encoder element.
bool OursEncode(const Bytes& pixels, int width, int height, int quality, kiu::Format in, Bytes* out) {
  STImageSimple image{};
  image.width = width;
  image.height = height;
  image.data = const_cast<uint8_t*>(pixels.data());
  MMStream* stream = MMPageArrayStream::NewReady(4096);
  // Planar input written as format 64: the same bytes as the peer's.
  bool ok =
      EncodeJPG(image, quality, stream, in, in == kiu::FormatI420 ? kiu::FormatI420 : kiu::FormatYUV) == 1;
  unsigned long size = 0;
  if (ok && out != nullptr && MMStreamSize(stream, &size) == 1) {
    out->resize(size);
    MMStreamSeek(stream, 0, MMStreamSeekFromStart);
    ok = MMStreamGet(stream, out->data(), static_cast<unsigned>(size)) == size;
  }
  MMStreamDelete(&stream);
  return ok;
}

struct Peer {
  tjhandle handle = tjInitDecompress(), encoder = tjInitCompress();
  Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() {
    tjDestroy(handle);
    tjDestroy(encoder);
  }

  // RGBx with the accurate DCT, or I420 planes with the fast one: what our
  // encoder does with each input.
  bool Encode(const Bytes& pixels, int width, int height, int quality, kiu::Format in, Bytes* out) const {
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    int rc;
    if (in == kiu::FormatI420) {
      const unsigned char* planes[3] = {pixels.data(), pixels.data() + size_t{1} * width * height,
                                        pixels.data() + size_t{5} * width * height / 4};
      const int strides[3] = {width, width / 2, width / 2};
      rc = tjCompressFromYUVPlanes(encoder, planes, width, strides, height, TJSAMP_420, &jpeg, &size, quality,
                                   TJFLAG_FASTDCT);
    } else {
      rc = tjCompress2(encoder, pixels.data(), width, 4 * width, height, TJPF_RGBX, &jpeg, &size, TJSAMP_420,
                       quality, TJFLAG_ACCURATEDCT);
    }
    if (rc == 0 && out != nullptr) out->assign(jpeg, jpeg + size);
    tjFree(jpeg);
    return rc == 0;
  }

  struct Header {
    int width = 0, height = 0, subsamp = 0;
  };
  Header Read(const Bytes& jpeg) const {
    Header h;
    int colorspace = 0;
    tjDecompressHeader3(handle, jpeg.data(), jpeg.size(), &h.width, &h.height, &h.subsamp, &colorspace);
    return h;
  }
  // RGBA with our arithmetic: accurate DCT, chroma repeated. A width and
  // height below the picture's pick TurboJPEG's DCT scaling.
  bool Rgba(const Bytes& jpeg, int width, int height, Bytes* out) const {
    const size_t n = size_t{4} * width * height;
    const std::unique_ptr<uint8_t[]> pixels(new uint8_t[n]);  // not zeroed: ours is not either
    const bool ok = tjDecompress2(handle, jpeg.data(), jpeg.size(), pixels.get(), width, 4 * width, height,
                                  TJPF_RGBA, TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE) == 0;
    if (out != nullptr) out->assign(pixels.get(), pixels.get() + n);
    return ok;
  }
  // The component planes, one buffer (TurboJPEG's YUV layout, rows unpadded).
  bool Yuv(const Bytes& jpeg, Bytes* out) const {
    const Header h = Read(jpeg);
    const size_t n = tjBufSizeYUV2(h.width, 1, h.height, h.subsamp);
    const std::unique_ptr<uint8_t[]> planes(new uint8_t[n]);
    const bool ok = tjDecompressToYUV2(handle, jpeg.data(), jpeg.size(), planes.get(), h.width, 1, h.height,
                                       TJFLAG_ACCURATEDCT) == 0;
    if (out != nullptr) out->assign(planes.get(), planes.get() + n);
    return ok;
  }
};

// Packed Y, U, V (3 bytes a pixel) to our I420: the even crop, chroma the
// rounded mean of each 2x2.
Bytes I420FromPacked(const Bytes& yuv, int width, int height) {
  const int w = width & ~1, h = height & ~1;
  Bytes out(size_t{3} * w * h / 2);
  uint8_t* planes[3] = {out.data(), out.data() + size_t{1} * w * h, out.data() + size_t{5} * w * h / 4};
  const auto at = [&](int x, int y, int k) { return int{yuv[3 * (size_t{1} * y * width + x) + k]}; };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) planes[0][size_t{1} * y * w + x] = static_cast<uint8_t>(at(x, y, 0));
  for (int k = 1; k < 3; ++k)
    for (int y = 0; y < h; y += 2)
      for (int x = 0; x < w; x += 2)
        planes[k][size_t{1} * y / 2 * (w / 2) + x / 2] = static_cast<uint8_t>(
            (at(x, y, k) + at(x + 1, y, k) + at(x, y + 1, k) + at(x + 1, y + 1, k) + 2) / 4);
  return out;
}

// Our documented I420 from the peer's output: straight from the planes for
// 4:4:4 and 4:2:2 (no colour transform), else from the peer's RGB.
Bytes ExpectedI420(const Peer& peer, const Bytes& jpeg, const std::string& sampling) {
  const Peer::Header h = peer.Read(jpeg);
  const size_t pixels = size_t{1} * h.width * h.height;
  Bytes yuv(3 * pixels);
  if (sampling == "1x1" || sampling == "2x1") {
    Bytes planes;
    if (!peer.Yuv(jpeg, &planes)) return {};
    // TurboJPEG pads each plane's rows to whole sampling units.
    const int hs = sampling == "2x1" ? 2 : 1, yw = tjPlaneWidth(0, h.width, h.subsamp),
              cw = tjPlaneWidth(1, h.width, h.subsamp);
    const uint8_t* luma = planes.data();
    const uint8_t* chroma[2] = {luma + tjPlaneSizeYUV(0, h.width, 0, h.height, h.subsamp),
                                luma + tjPlaneSizeYUV(0, h.width, 0, h.height, h.subsamp) +
                                    tjPlaneSizeYUV(1, h.width, 0, h.height, h.subsamp)};
    for (size_t i = 0; i < pixels; ++i) {
      const size_t x = i % h.width, y = i / h.width;
      yuv[3 * i] = luma[y * yw + x];
      for (int k = 0; k < 2; ++k) yuv[3 * i + 1 + k] = chroma[k][y * cw + x / hs];
    }
  } else {
    Bytes rgba;
    if (!peer.Rgba(jpeg, h.width, h.height, &rgba)) return {};
    kiu::ConvertRGBtoYUV(pixels, rgba.data(), yuv.data());
  }
  return I420FromPacked(yuv, h.width, h.height);
}

// --- the rows -------------------------------------------------------------

struct Options {
  std::string corpus = "kelbench-corpus", filter, markdown, tsv, instructions, before, note;
  double repsScale = 1;
  bool smoke = false, callgrind = false, prepare = false;
};

std::vector<ImageSpec> Images(bool smoke) {
  std::vector<ImageSpec> out;
  if (smoke) {
    for (auto [w, h] : {std::pair{48, 32}, {33, 17}})
      for (const char* s : {"2x2", "2x1", "1x1"})
        for (const char* mode : {"baseline", "progressive", "restart"})
          out.push_back({std::to_string(w) + "x" + std::to_string(h), w, h, s, 85, mode});
    return out;
  }
  for (int q : {75, 85, 95}) out.push_back({"1080p", 1920, 1080, "2x2", q, "baseline"});
  out.push_back({"1080p", 1920, 1080, "2x1", 85, "baseline"});
  out.push_back({"1080p", 1920, 1080, "1x1", 85, "baseline"});
  out.push_back({"1080p", 1920, 1080, "2x2", 85, "restart"});
  out.push_back({"1080p", 1920, 1080, "2x2", 85, "progressive"});
  out.push_back({"12MP", 4000, 3000, "2x2", 85, "baseline"});
  out.push_back({"12MP", 4000, 3000, "2x2", 85, "progressive"});
  out.push_back({"640x480", 640, 480, "2x1", 85, "baseline"});
  return out;
}

std::vector<Row> DecodeRows(const Options& options, const Peer& peer, std::string* why) {
  std::vector<Row> rows;
  for (const ImageSpec& spec : Images(options.smoke)) {
    auto jpeg = std::make_shared<const Bytes>(CorpusJpeg(options.corpus, spec, why));
    if (jpeg->empty()) return {};
    const double mp = spec.width * double(spec.height) / 1e6;
    // Few repetitions where one decode is long; odd, for a true median.
    const int reps = std::max(5, std::min(51, static_cast<int>(options.repsScale * 44 / mp))) | 1;
    const std::string label = spec.Label();
    rows.push_back(
        {label, "RGBA", mp, reps, [jpeg](Bytes* out) { return OursRgba(*jpeg, 0, 0, out); },
         [&peer, jpeg, spec](Bytes* out) { return peer.Rgba(*jpeg, spec.width, spec.height, out); },
         nullptr});
    rows.push_back({label, "I420", mp, reps, [jpeg](Bytes* out) { return OursI420(*jpeg, out); },
                    [&peer, jpeg](Bytes* out) { return peer.Yuv(*jpeg, out); },
                    [&peer, jpeg, spec] { return ExpectedI420(peer, *jpeg, spec.sampling); }});
    // Scaled decodes where they are asked for: the 1080p 4:2:0 q85 picture.
    if (options.smoke ||
        (spec.size == "1080p" && spec.sampling == "2x2" && spec.quality == 85 && spec.mode == "baseline")) {
      for (int d : {2, 4, 8}) {
        const int w = (spec.width + d - 1) / d, h = (spec.height + d - 1) / d;
        rows.push_back({label, "1/" + std::to_string(d) + " RGBA", mp, reps,
                        [jpeg, w, h](Bytes* out) { return OursRgba(*jpeg, w, h, out); },
                        [&peer, jpeg, w, h](Bytes* out) { return peer.Rgba(*jpeg, w, h, out); }, nullptr,
                        false});
      }
    }
  }
  return rows;
}

std::vector<Row> EncodeRows(const Options& options, const Peer& peer) {
  struct Picture {
    std::string size, content;
    int width, height;
    std::vector<int> qualities;
  };
  std::vector<Picture> pictures;
  if (options.smoke) {
    pictures = {{"48x32", "photo", 48, 32, {50, 85}}, {"32x16", "pattern", 32, 16, {85}}};
  } else {
    pictures = {{"1080p", "photo", 1920, 1080, {50, 85, 95}},
                {"1080p", "pattern", 1920, 1080, {85}},
                {"12MP", "photo", 4000, 3000, {85}}};
  }
  std::vector<Row> rows;
  for (const Picture& p : pictures) {
    const Bytes rgb = p.content == "photo" ? Scene(p.width, p.height) : Pattern(p.width, p.height);
    const size_t n = size_t{1} * p.width * p.height;
    Bytes rgbx(4 * n, 0), yuv(3 * n);
    for (size_t i = 0; i < n; ++i) std::copy_n(&rgb[3 * i], 3, &rgbx[4 * i]);
    kiu::ConvertRGBtoYUV(n, rgbx.data(), yuv.data());
    const auto packed = std::make_shared<const Bytes>(std::move(rgbx));
    const auto planar = std::make_shared<const Bytes>(I420FromPacked(yuv, p.width, p.height));
    const double mp = n / 1e6;
    const int reps = std::max(5, std::min(51, static_cast<int>(options.repsScale * 22 / mp))) | 1;
    for (int q : p.qualities)
      for (const auto& [in, name] :
           {std::pair{kiu::FormatRGB, "encode RGB"}, {kiu::FormatI420, "encode I420"}}) {
        const auto pixels = in == kiu::FormatI420 ? planar : packed;
        const int w = p.width, h = p.height;
        const kiu::Format format = in;
        rows.push_back({p.size + " " + p.content + " q" + std::to_string(q) + " to 4:2:0", name, mp, reps,
                        [=](Bytes* out) { return OursEncode(*pixels, w, h, q, format, out); },
                        [=, &peer](Bytes* out) { return peer.Encode(*pixels, w, h, q, format, out); },
                        nullptr});
      }
  }
  return rows;
}

// --- measuring --------------------------------------------------------------

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

const std::string kByDesign = "own scaled IDCT, off by up to ";

std::string Check(const Row& row, long long* outputBytes) {
  Bytes ours;
  if (!row.ours(&ours)) return "OURS FAILED";
  *outputBytes = static_cast<long long>(ours.size());
  Bytes expected;
  if (row.expected)
    expected = row.expected();
  else
    row.peer(&expected);
  if (expected.empty()) return "PEER FAILED";
  if (ours.size() != expected.size())
    return "MISMATCH: " + std::to_string(ours.size()) + " bytes, expected " + std::to_string(expected.size());
  const auto diff = std::mismatch(ours.begin(), ours.end(), expected.begin());
  if (diff.first == ours.end()) return "same";
  size_t count = 0;
  int most = 0;
  for (size_t i = 0; i < ours.size(); ++i) {
    count += ours[i] != expected[i];
    most = std::max(most, std::abs(ours[i] - expected[i]));
  }
  if (!row.exact) return kByDesign + std::to_string(most);
  return "MISMATCH: " + std::to_string(count) + " bytes differ, first at " +
         std::to_string(diff.first - ours.begin());
}

bool Passed(const std::string& check) { return check == "same" || check.rfind(kByDesign, 0) == 0; }

Result Measure(const Row& row) {
  Result r;
  r.check = Check(row, &r.outputBytes);
  if (!Passed(r.check)) return r;
  r.peakOurs = PeakBytes([&] { row.ours(nullptr); });
  r.peakPeer = PeakBytes([&] { row.peer(nullptr); });
  // The thread's CPU time, not the wall clock: on a machine shared with other
  // builds a decode of a few milliseconds is often preempted, and the longer
  // side more often, which no median undoes.
  const auto now = [] {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
  };
  const auto time = [&now](const Call& call) {
    const double start = now();
    call(nullptr);
    return now() - start;
  };
  std::vector<double> ratios, ours, peer;
  for (int i = 0; i < row.reps; ++i) {
    // Alternate who goes first, so that neither always finds the caches warm.
    double to, tp;
    if (i % 2 == 0) {
      to = time(row.ours);
      tp = time(row.peer);
    } else {
      tp = time(row.peer);
      to = time(row.ours);
    }
    ours.push_back(to);
    peer.push_back(tp);
    ratios.push_back(tp / to);
  }
  r.ratio = Median(ratios);
  r.oursMs = Median(ours);
  r.peerMs = Median(peer);
  return r;
}

// One decode per side between callgrind's zero and dump; the script reads
// the dumps' totals by their labels.
void Instructions(const std::vector<Row>& rows) {
  for (const Row& row : rows)
    for (const auto& [side, call] : {std::pair{"ours", &row.ours}, {"peer", &row.peer}}) {
      const std::string label = row.Key() + " | " + side;
      CALLGRIND_START_INSTRUMENTATION;
      CALLGRIND_ZERO_STATS;
      (*call)(nullptr);
      CALLGRIND_DUMP_STATS_AT(label.c_str());
      CALLGRIND_STOP_INSTRUMENTATION;
    }
}

// --- reporting --------------------------------------------------------------

// A TSV with a header line (--tsv output, the script's instruction counts) as
// row key -> column name -> text.
using Table = std::map<std::string, std::map<std::string, std::string>>;

const char* const kColumns[] = {"ratio",     "ours_ms", "peer_ms", "peak_ours", "peak_peer",
                                "out_bytes", "ir_ours", "ir_peer", "check"};

Table ReadTsv(const std::string& path) {
  Table table;
  std::ifstream in(path);
  std::string line;
  std::vector<std::string> header;
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    std::stringstream s(line);
    for (std::string f; std::getline(s, f, '\t');) fields.push_back(f);
    if (fields.empty()) continue;
    if (header.empty()) {
      header = fields;
      continue;
    }
    for (size_t i = 1; i < fields.size() && i < header.size(); ++i) table[fields[0]][header[i]] = fields[i];
  }
  return table;
}

std::string Fixed(double v, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, v);
  return text;
}

std::string Mb(long long bytes) { return bytes < 0 ? "n/a" : Fixed(bytes / 1048576.0, 1); }

std::string Get(const Table& t, const std::string& key, const std::string& column) {
  const auto row = t.find(key);
  if (row == t.end()) return "";
  const auto cell = row->second.find(column);
  return cell == row->second.end() ? "" : cell->second;
}

void Report(const Options& options, const std::vector<Row>& rows, const std::vector<Result>& results) {
  const Table instructions = ReadTsv(options.instructions), before = ReadTsv(options.before);
  // Instructions per source megapixel, in millions.
  const auto perMp = [&](const Row& row, const char* side) {
    const std::string ir = Get(instructions, row.Key(), side);
    return ir.empty() ? std::string() : Fixed(std::stod(ir) / 1e6 / row.megapixels, 1);
  };
  std::ofstream tsv;
  if (!options.tsv.empty()) {
    tsv.open(options.tsv);
    tsv << "row";
    for (const char* c : kColumns) tsv << '\t' << c;
    tsv << '\n';
  }
  std::ostringstream md;
  md << "| picture | work | ours ms | TurboJPEG ms | ratio |" << (before.empty() ? "" : " ratio before |")
     << " peak MB ours | peak MB TurboJPEG | output MB | Minstr/MP ours |"
     << (before.empty() ? "" : " Minstr/MP before |") << " Minstr/MP TurboJPEG | check |\n"
     << "|---|---|--:|--:|--:|" << (before.empty() ? "" : "--:|") << "--:|--:|--:|--:|"
     << (before.empty() ? "" : "--:|") << "--:|---|\n";
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    const Result& r = results[i];
    const std::string key = row.Key();
    const bool same = Passed(r.check);
    md << "| " << row.image << " | " << row.work << " | " << (same ? Fixed(r.oursMs, 2) : "") << " | "
       << (same ? Fixed(r.peerMs, 2) : "") << " | " << (same ? "**" + Fixed(r.ratio, 2) + "**" : "") << " |";
    const std::string was = Get(before, key, "ratio");
    if (!before.empty()) md << " " << (was.empty() ? "" : Fixed(std::stod(was), 2)) << " |";
    md << " " << Mb(r.peakOurs) << " | " << Mb(r.peakPeer) << " | " << Mb(r.outputBytes) << " | "
       << perMp(row, "ours") << " |";
    if (!before.empty()) md << " " << Get(before, key, "ir_ours") << " |";
    md << " " << perMp(row, "peer") << " | " << r.check << " |\n";
    if (tsv.is_open())
      tsv << key << '\t' << (same ? Fixed(r.ratio, 3) : "0") << '\t' << Fixed(r.oursMs, 3) << '\t'
          << Fixed(r.peerMs, 3) << '\t' << r.peakOurs << '\t' << r.peakPeer << '\t' << r.outputBytes << '\t'
          << perMp(row, "ours") << '\t' << perMp(row, "peer") << '\t' << r.check << '\n';
  }
  if (options.markdown.empty()) {
    std::fputs(md.str().c_str(), stdout);
    return;
  }
  std::ofstream out(options.markdown);
  out << "# Benchmark: decode and encode against TurboJPEG\n\n"
      << options.note << (options.note.empty() ? "" : "\n\n")
      << "One process, one thread. **ratio** = TurboJPEG time / our time, the median of the ratios of "
         "interleaved pairs (above 1.0 we are faster); times are the thread's CPU time (page faults "
         "included, preemption by other jobs not), this run's medians, and mean little beside another "
         "run's. Peak MB: most heap held during one decode, output included, counted by "
         "the benchmark's malloc. Minstr/MP: instructions under callgrind for one decode, per megapixel of "
         "the source picture. check: our output against the peer's (RGBA: equal bytes; I420: equal to "
         "the even crop of the peer's planes for 4:4:4 and 4:2:2, else of the peer's RGB converted and "
         "averaged over 2x2; scaled: our reduced transforms truncate, so the largest difference; encode: "
         "equal files). The peer decodes with accurate DCT and chroma repeated (`TJFLAG_ACCURATEDCT | "
         "TJFLAG_FASTUPSAMPLE`), its I420 work is `tjDecompressToYUV2` (the component planes); it encodes "
         "RGBx with `tjCompress2` (accurate DCT) and I420 with `tjCompressFromYUVPlanes` (fast DCT), as "
         "ours does. Memory is kept between calls (no page faults of fresh mappings), as in a stream of "
         "frames.\n\n"
      << md.str();
}

int Main(int argc, char** argv) {
  Options options;
  static const option longOptions[] = {{"corpus", required_argument, nullptr, 'c'},
                                       {"filter", required_argument, nullptr, 'f'},
                                       {"reps-scale", required_argument, nullptr, 'r'},
                                       {"markdown", required_argument, nullptr, 'm'},
                                       {"tsv", required_argument, nullptr, 't'},
                                       {"instructions", required_argument, nullptr, 'i'},
                                       {"before", required_argument, nullptr, 'b'},
                                       {"note", required_argument, nullptr, 'n'},
                                       {"smoke", no_argument, nullptr, 's'},
                                       {"callgrind", no_argument, nullptr, 'g'},
                                       {"prepare", no_argument, nullptr, 'p'},
                                       {nullptr, 0, nullptr, 0}};
  for (int c; (c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
    switch (c) {
      case 'c':
        options.corpus = optarg;
        break;
      case 'f':
        options.filter = optarg;
        break;
      case 'r':
        options.repsScale = std::atof(optarg);
        break;
      case 'm':
        options.markdown = optarg;
        break;
      case 't':
        options.tsv = optarg;
        break;
      case 'i':
        options.instructions = optarg;
        break;
      case 'b':
        options.before = optarg;
        break;
      case 'n':
        options.note = optarg;
        break;
      case 's':
        options.smoke = true;
        break;
      case 'g':
        options.callgrind = true;
        break;
      case 'p':
        options.prepare = true;
        break;
      default:
        return 2;
    }
  }
  // Frame after frame, glibc reuses freed buffers up to 32 MB; larger ones
  // (12 MP RGBA) would be mapped and faulted in afresh on every call, for
  // both decoders, and page faults would dominate. Keep all of them.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  kiu::StartUp();
  Peer peer;
  std::string why;
  std::vector<Row> rows = DecodeRows(options, peer, &why);
  if (!rows.empty()) {
    const std::vector<Row> encode = EncodeRows(options, peer);
    rows.insert(rows.end(), encode.begin(), encode.end());
  }
  if (rows.empty()) {
    std::fprintf(stderr, "kelbench: no pictures: %s\n", why.c_str());
    return 1;
  }
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&](const Row& r) { return r.Key().find(options.filter) == std::string::npos; }),
             rows.end());
  if (options.prepare) return 0;
  if (options.callgrind) {
    Instructions(rows);
    return 0;
  }
  std::vector<Result> results;
  int failures = 0;
  for (const Row& row : rows) {
    results.push_back(options.smoke ? Result{} : Measure(row));
    if (options.smoke) results.back().check = Check(row, &results.back().outputBytes);
    const Result& r = results.back();
    failures += !Passed(r.check);
    std::fprintf(stderr, "%-34s %-11s %s\n", row.image.c_str(), row.work.c_str(),
                 !Passed(r.check) ? ("*** " + r.check + " ***").c_str()
                 : options.smoke  ? r.check.c_str()
                                  : ("ratio " + Fixed(r.ratio, 2) + ", " + r.check).c_str());
  }
  if (!options.smoke) Report(options, rows, results);
  if (failures != 0)
    std::fprintf(stderr, "kelbench: %d of %zu rows: our pixels differ from the peer's\n", failures,
                 rows.size());
  return failures != 0 ? 1 : 0;
}

}  // namespace
}  // namespace kelbench

int main(int argc, char** argv) { return kelbench::Main(argc, argv); }
