// elembench: frames per second of keljpeg_dec / keljpeg_enc against jpegdec /
// jpegenc in the same pipelines, and of the pipeline without the codec (the
// source's own cost). Ours and the peer run interleaved; the ratio is the
// median of the pair-by-pair ratios (peer time / our time, above 1.0 we are
// faster). Times are the process's CPU time from PLAYING to end of stream:
// the pipelines have no queue, so one streaming thread does all the work.
//   elembench --plugin-dir DIR --picture FILE [--picture FILE...]
//             [--seconds S] [--reps N] [--filter TEXT] [--columns N]
//             [--markdown FILE] [--tsv FILE]
// Each picture (a baseline JPEG) becomes a stream of concatenated copies for
// the decoders, and its I420 frame (decoded once by jpegdec) is pushed by
// appsrc, frame after frame, for the encoders. jpegdec decodes with the
// accurate DCT, as ours does; jpegenc keeps its fast DCT, as ours for I420.
// --markdown and --tsv append rows shaped as kelbench's (--columns cells).
// Minor page faults per frame are shown too: fresh memory per frame costs
// time that instruction counts do not see. MALLOC_MMAP_THRESHOLD_=524288
// MALLOC_TRIM_THRESHOLD_=1048576 in the environment make glibc map and trim
// as on the 32-bit device, whose thresholds grow no further.
#include <getopt.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

double MinorFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_minflt);
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

std::string Fixed(double v, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, v);
  return text;
}

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "elembench: %s\n", what.c_str());
  std::exit(1);
}

// Runs the pipeline to its end; null frames means an appsrc named "src" is
// fed `frames` copies of `frame` first. Returns CPU seconds; `faults` gets
// the minor page faults.
double Run(const std::string& description, GstBuffer* frame = nullptr, int frames = 0,
           double* faults = nullptr) {
  GError* error = nullptr;
  GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
  if (pipeline == nullptr || error != nullptr) Fail("cannot build \"" + description + "\"");
  std::vector<GstBuffer*> queued;
  if (frame != nullptr) {
    // Shallow copies share the pixels, so the source costs a push, no copy.
    const GstClockTime duration = GST_SECOND / 30;
    for (int i = 0; i < frames; ++i) {
      GstBuffer* b = gst_buffer_copy(frame);
      GST_BUFFER_PTS(b) = GstClockTime(i) * duration;
      GST_BUFFER_DURATION(b) = duration;
      queued.push_back(b);
    }
  }
  const double startFaults = MinorFaults();
  const double start = CpuSeconds();
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  if (frame != nullptr) {
    GstElement* src = gst_bin_get_by_name(GST_BIN(pipeline), "src");
    for (GstBuffer* b : queued) gst_app_src_push_buffer(GST_APP_SRC(src), b);
    gst_app_src_end_of_stream(GST_APP_SRC(src));
    gst_object_unref(src);
  }
  GstBus* bus = gst_element_get_bus(pipeline);
  GstMessage* message = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE,
                                                   GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  const double seconds = CpuSeconds() - start;
  if (faults != nullptr) *faults = MinorFaults() - startFaults;
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) Fail("error in \"" + description + "\"");
  gst_message_unref(message);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  return seconds;
}

// The picture's I420 frame as jpegdec gives it.
GstBuffer* DecodeOnce(const std::string& file, int* width, int* height) {
  GError* error = nullptr;
  GstElement* pipeline =
      gst_parse_launch(("filesrc location=\"" + file +
                        "\" ! jpegdec ! videoconvert ! video/x-raw,format=I420 ! appsink name=sink")
                           .c_str(),
                       &error);
  if (pipeline == nullptr || error != nullptr) Fail("cannot decode " + file);
  GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstSample* sample = nullptr;
  g_signal_emit_by_name(sink, "pull-sample", &sample);
  if (sample == nullptr) Fail("no frame from " + file);
  const GstStructure* s = gst_caps_get_structure(gst_sample_get_caps(sample), 0);
  gst_structure_get_int(s, "width", width);
  gst_structure_get_int(s, "height", height);
  GstBuffer* frame = gst_buffer_ref(gst_sample_get_buffer(sample));
  gst_sample_unref(sample);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(sink);
  gst_object_unref(pipeline);
  return frame;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) Fail("cannot read " + path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

struct Row {
  std::string picture, work, ours, peer, source;  // pipelines
  GstBuffer* frame = nullptr;                     // for appsrc, else null
  int frames = 0;
};

struct Result {
  double ratio = 0, oursMs = 0, peerMs = 0, sourceMs = 0, oursFaults = 0, peerFaults = 0;  // faults per frame
};

Result Measure(const Row& row, int reps) {
  std::vector<double> ratios, ours, peer, source, oursFaults(reps), peerFaults(reps);
  Run(row.ours, row.frame, 2);  // warm caches and the registry
  Run(row.peer, row.frame, 2);
  for (int i = 0; i < reps; ++i) {
    // Alternate who goes first: a slow phase of the machine then hits both.
    double o, p;
    if (i % 2 == 0) {
      o = Run(row.ours, row.frame, row.frames, &oursFaults[i]);
      p = Run(row.peer, row.frame, row.frames, &peerFaults[i]);
    } else {
      p = Run(row.peer, row.frame, row.frames, &peerFaults[i]);
      o = Run(row.ours, row.frame, row.frames, &oursFaults[i]);
    }
    ratios.push_back(p / o);
    ours.push_back(o);
    peer.push_back(p);
    source.push_back(Run(row.source, row.frame, row.frames));
  }
  const double n = row.frames;
  return {Median(ratios),           Median(ours) * 1e3 / n, Median(peer) * 1e3 / n,
          Median(source) * 1e3 / n, Median(oursFaults) / n, Median(peerFaults) / n};
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> pictures;
  std::string pluginDir, filter, markdown, tsv, work = ".";
  double seconds = 1.0;
  int reps = 5, columns = 5;
  const option longOptions[] = {
      {"plugin-dir", required_argument, nullptr, 'p'}, {"picture", required_argument, nullptr, 'i'},
      {"work", required_argument, nullptr, 'w'},       {"seconds", required_argument, nullptr, 's'},
      {"reps", required_argument, nullptr, 'r'},       {"filter", required_argument, nullptr, 'f'},
      {"columns", required_argument, nullptr, 'c'},    {"markdown", required_argument, nullptr, 'm'},
      {"tsv", required_argument, nullptr, 't'},        {nullptr, 0, nullptr, 0}};
  for (int c; (c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
    switch (c) {
      case 'p':
        pluginDir = optarg;
        break;
      case 'i':
        pictures.push_back(optarg);
        break;
      case 'w':
        work = optarg;
        break;
      case 's':
        seconds = std::atof(optarg);
        break;
      case 'r':
        reps = std::max(1, std::atoi(optarg));
        break;
      case 'f':
        filter = optarg;
        break;
      case 'c':
        columns = std::max(5, std::atoi(optarg));
        break;
      case 'm':
        markdown = optarg;
        break;
      case 't':
        tsv = optarg;
        break;
      default:
        Fail("unknown option");
    }
  }
  if (!pluginDir.empty()) setenv("GST_PLUGIN_PATH", pluginDir.c_str(), 1);
  gst_init(nullptr, nullptr);
  for (const char* name : {"keljpeg_dec", "keljpeg_enc", "jpegdec", "jpegenc", "jpegparse", "appsrc"}) {
    GstElementFactory* f = gst_element_factory_find(name);
    if (f == nullptr) Fail(std::string("element ") + name + " not found");
    gst_object_unref(f);
  }

  std::vector<Row> rows;
  for (const std::string& file : pictures) {
    int width = 0, height = 0;
    GstBuffer* frame = DecodeOnce(file, &width, &height);
    const std::string picture =
        (height == 1080 ? std::string("1080p") : std::to_string(width) + "x" + std::to_string(height)) +
        " stream q85";
    // About `seconds` of the peer's decoding: ~120 MP/s for jpegdec.
    const int frames = std::max(20, int(seconds * 120e6 / (double(width) * height)));
    const std::string jpeg = ReadFile(file);
    const std::string stream = work + "/" + std::to_string(width) + "x" + std::to_string(height) + ".mjpeg";
    {
      std::ofstream out(stream, std::ios::binary);
      for (int i = 0; i < frames; ++i) out << jpeg;
    }
    const std::string parsed = "filesrc location=\"" + stream + "\" ! jpegparse ! ";
    rows.push_back({picture, "element decode (filesrc ! jpegparse ! DEC ! fakesink)",
                    parsed + "keljpeg_dec ! fakesink", parsed + "jpegdec idct-method=islow ! fakesink",
                    parsed + "fakesink", nullptr, frames});
    const std::string caps = "appsrc name=src is-live=false format=time block=false max-bytes=0 caps=\"" +
                             std::string("video/x-raw,format=I420,width=") + std::to_string(width) +
                             ",height=" + std::to_string(height) + ",framerate=30/1\" ! ";
    rows.push_back({picture, "element encode (appsrc ! ENC ! fakesink)",
                    caps + "keljpeg_enc quality=85 ! fakesink", caps + "jpegenc quality=85 ! fakesink",
                    caps + "fakesink", frame, frames / 2});
  }

  std::ofstream md, tsvOut;
  if (!markdown.empty()) md.open(markdown, std::ios::app);
  if (!tsv.empty()) tsvOut.open(tsv, std::ios::app);
  for (const Row& row : rows) {
    const std::string key = row.picture + " | " + row.work;
    if (!filter.empty() && key.find(filter) == std::string::npos) continue;
    const Result r = Measure(row, reps);
    const std::string peerName = row.frame == nullptr ? "jpegdec (islow)" : "jpegenc";
    const std::string check = "fps ours " + Fixed(1e3 / r.oursMs, 1) + ", " + peerName + " " +
                              Fixed(1e3 / r.peerMs, 1) + ", source alone " + Fixed(1e3 / r.sourceMs, 1) +
                              " (" + Fixed(r.sourceMs, 2) +
                              " ms/frame, included in both); page faults/frame ours " +
                              Fixed(r.oursFaults, 1) + ", " + peerName + " " + Fixed(r.peerFaults, 1);
    std::printf("%-75s ratio %.2f  %s\n", key.c_str(), r.ratio, check.c_str());
    std::fflush(stdout);
    if (md.is_open()) {
      md << "| " << row.picture << " | " << row.work << " vs " << peerName << " | " << Fixed(r.oursMs, 2)
         << " | " << Fixed(r.peerMs, 2) << " | **" << Fixed(r.ratio, 2) << "** |";
      for (int c = 5; c < columns - 1; ++c) md << " |";
      md << " " << check << " |\n";
    }
    if (tsvOut.is_open())
      tsvOut << key << '\t' << Fixed(r.ratio, 3) << '\t' << Fixed(r.oursMs, 3) << '\t' << Fixed(r.peerMs, 3)
             << "\t0\t0\t0\t\t\t" << check << '\n';
  }
  for (Row& row : rows)
    if (row.frame != nullptr) gst_buffer_unref(row.frame);
  return 0;
}
