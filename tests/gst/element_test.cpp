// The elements through the registry, on whichever GStreamer this build is
// for: how images are cut out of a byte stream, refused sizes and the
// element carrying on, caps, timestamps, the encoder's contract. Frames are
// compared with the codec's own entry points (the codec is tested against
// libjpeg-turbo elsewhere; here the plumbing is under test).
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "gst/harness.h"
#include "kau/kau.h"
#include "kj.d/jpdyuv.h"
#include "support/testutil.h"

#if GST_CHECK_VERSION(1, 0, 0)
#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#endif

namespace {

using keltest::Bytes;
using keltest::ElementHarness;
using keltest::kFlowError;
using keltest::kFlowOk;
using keltest::kNoTime;

constexpr uint64_t kMs = 1000000;

Bytes Jpeg(int width, int height, uint32_t seed) {
  Bytes rgba = keltest::ToPacked4(keltest::PhotoLike(width, height, 3, seed), 255);
  return keltest::Encode(rgba, width, height, 85, kiu::Format(13), kiu::Format(16)).jpeg;
}

Bytes DecodedI420(const Bytes& jpeg) {
  STImageSimple image{};
  if (jpdyuv::DecodeJPG(jpeg.data(), jpeg.size(), &image, true) == 0) return {};
  Bytes out(image.data, image.data + image.size);
  kau::mem::Delete(image.data);
  return out;
}

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

bool Logged(const std::string& line) {
  const auto log = keltest::ElementLog();
  return std::find(log.begin(), log.end(), line) != log.end();
}

// A small picture whose frame header claims another size.
Bytes ClaimingSize(int width, int height) {
  Bytes jpeg = Jpeg(16, 16, 9);
  for (size_t i = 2; i + 8 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
      jpeg[i + 5] = uint8_t(height >> 8), jpeg[i + 6] = uint8_t(height);
      jpeg[i + 7] = uint8_t(width >> 8), jpeg[i + 8] = uint8_t(width);
      break;
    }
  }
  return jpeg;
}

// A picture the decoder cannot decode: its Huffman tables turned into comments.
Bytes Undecodable() {
  Bytes jpeg = Jpeg(200, 150, 5);
  for (size_t i = 2; i + 1 < keltest::ScanStart(jpeg); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC4) jpeg[i + 1] = 0xFE;
  }
  return jpeg;
}

std::unique_ptr<ElementHarness> Decoder(const std::string& caps = "image/jpeg") {
  auto h = ElementHarness::Create("keljpeg_dec");
  h->SetInputCaps(caps);
  return h;
}

TEST(Decoder, OneBytePerBufferGivesOneFrameOnTheFinalEoiByte) {
  const Bytes jpeg = Jpeg(64, 48, 1);
  auto h = Decoder();
  for (size_t i = 0; i < jpeg.size(); ++i) {
    ASSERT_EQ(h->Push(Bytes{jpeg[i]}), kFlowOk);
    const auto out = h->Take();
    if (i + 1 < jpeg.size()) {
      ASSERT_TRUE(out.empty()) << "frame at byte " << i;
    } else {
      ASSERT_EQ(out.size(), 1u);
      EXPECT_EQ(out[0].data, DecodedI420(jpeg));
    }
  }
}

// A buffer completes at most one image; what follows its EOI is kept whole,
// including a second image larger than the decoder's 4 KB read-ahead.
TEST(Decoder, ImageFollowingInTheSameBufferComesWithTheNextBufferOrAtEos) {
  const Bytes a = Jpeg(64, 48, 1), b = Jpeg(200, 150, 2), c = Jpeg(48, 32, 3);
  ASSERT_GT(b.size(), 4100u);
  for (bool thirdBuffer : {true, false}) {
    SCOPED_TRACE(thirdBuffer ? "next buffer" : "EOS");
    auto h = Decoder();
    ASSERT_EQ(h->Push(Cat({a, b})), kFlowOk);
    auto out = h->Take();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, DecodedI420(a));
    if (thirdBuffer) {
      ASSERT_EQ(h->Push(c), kFlowOk);
      out = h->Take();
      ASSERT_EQ(out.size(), 1u);
      EXPECT_EQ(out[0].data, DecodedI420(b));
    }
    h->PushEos();
    out = h->Take();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, DecodedI420(thirdBuffer ? c : b));
  }
}

// Refused pictures: the stated log line and flow, and the next image still decodes.
TEST(Decoder, RefusedPicturesAreLoggedAndTheElementCarriesOn) {
  const std::string kRange = "ERROR picture dimension is out of supported range";
  const std::string kDecode = "ERROR internal error while decoding JPG";
  struct Case {
    const char* name;
    Bytes jpeg;
    int flow, width, height;
    std::string log;
  } cases[] = {
      {"15 wide", Jpeg(15, 20, 1), kFlowError, 0, 0, kRange},
      {"7 high", Jpeg(16, 7, 1), kFlowError, 0, 0, kRange},
      {"17x9 rounds to 16x8", Jpeg(17, 9, 1), kFlowOk, 16, 8, ""},
      {"4097 wide rounds to 4096", Jpeg(4097, 8, 1), kFlowOk, 4096, 8, ""},
      {"4098 wide", Jpeg(4098, 8, 1), kFlowError, 0, 0, kRange},
      {"header claims 12000x12000", ClaimingSize(12000, 12000), kFlowError, 0, 0, kRange},
      {"4096x4096 claimed by too few bytes", ClaimingSize(4096, 4096), kFlowError, 0, 0, kDecode},
      {"undecodable", Undecodable(), kFlowError, 0, 0, kDecode},
  };
  const Bytes next = Jpeg(32, 16, 4);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    keltest::ClearElementLog();
    auto h = Decoder();
    EXPECT_EQ(h->Push(c.jpeg), c.flow);
    auto out = h->Take();
    if (c.flow == kFlowOk) {
      ASSERT_EQ(out.size(), 1u);
      EXPECT_EQ(out[0].width, c.width);
      EXPECT_EQ(out[0].height, c.height);
      EXPECT_EQ(out[0].data.size(), size_t(c.width * c.height * 3 / 2));
      EXPECT_EQ(out[0].data, DecodedI420(c.jpeg));
    } else {
      EXPECT_TRUE(out.empty());
      EXPECT_TRUE(Logged(c.log));
    }
    EXPECT_EQ(h->Push(next), kFlowOk);
    out = h->Take();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, DecodedI420(next));
  }
}

TEST(Decoder, CapsAreSetOnceForARunAndAgainOnSizeOrFramerateChange) {
  const Bytes small = Jpeg(32, 16, 1), large = Jpeg(64, 48, 2);
  auto h = Decoder("image/jpeg, framerate=(fraction)25/1");
  for (int i = 0; i < 3; ++i) ASSERT_EQ(h->Push(small), kFlowOk);
  EXPECT_EQ(h->CapsSet(), 1);
  ASSERT_EQ(h->Push(large), kFlowOk);
  ASSERT_EQ(h->Push(large), kFlowOk);
  EXPECT_EQ(h->CapsSet(), 2);
  h->SetInputCaps("image/jpeg, framerate=(fraction)30/1");
  ASSERT_EQ(h->Push(large), kFlowOk);
  EXPECT_EQ(h->CapsSet(), 3);
  const auto out = h->Take();
  ASSERT_EQ(out.size(), 6u);
  EXPECT_EQ(out[0].width, 32);
  EXPECT_EQ(out[5].width, 64);
  EXPECT_TRUE(Logged("DEBUG framerate 30/1 was set on sinkpad"));
}

TEST(Decoder, TimestampsRunFromTheFramerateAndReanchorOnAStampedBuffer) {
  const Bytes jpeg = Jpeg(32, 16, 1);
  auto h = Decoder("image/jpeg, framerate=(fraction)25/1");
  const struct {
    uint64_t inTs, inDur, ts, dur;
  } steps[] = {
      {kNoTime, kNoTime, 0, 40 * kMs},           {kNoTime, kNoTime, 40 * kMs, 40 * kMs},
      {kNoTime, kNoTime, 80 * kMs, 40 * kMs},    {1000 * kMs, kNoTime, 1000 * kMs, 40 * kMs},
      {kNoTime, 10 * kMs, 1040 * kMs, 10 * kMs}, {kNoTime, kNoTime, 1050 * kMs, 40 * kMs},
  };
  for (const auto& s : steps) {
    ASSERT_EQ(h->Push(jpeg, s.inTs, s.inDur), kFlowOk);
    const auto out = h->Take();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].timestamp, s.ts);
    EXPECT_EQ(out[0].duration, s.dur);
  }
  EXPECT_TRUE(Logged("DEBUG ready to push an output buffer, ts=0:00:01.040000000, dur=0:00:00.010000000"));
}

// --------------------------------------------------------------- encoder
std::string I420Caps(int width, int height) {
  return "video/x-raw, format=I420, width=(int)" + std::to_string(width) + ", height=(int)" +
         std::to_string(height) + ", framerate=(fraction)25/1";
}

// A frame in GStreamer's default I420 layout (rows padded to 4 bytes).
Bytes I420Frame(int width, int height, uint32_t seed) {
  const int ys = (width + 3) & ~3, cs = ((width + 1) / 2 + 3) & ~3, ch = (height + 1) / 2;
  Bytes frame(size_t(ys * ((height + 1) & ~1) + 2 * cs * ch), 0);
  std::mt19937 rng(seed);
  const int dx = int(rng() % 7) + 1, dy = int(rng() % 5) + 1;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) frame[size_t(y * ys + x)] = uint8_t(40 + (x * dx + y * dy) % 160);
  for (size_t i = size_t(ys * ((height + 1) & ~1)); i < frame.size(); ++i) frame[i] = uint8_t(100 + i % 50);
  return frame;
}

Bytes EncodedByCodec(const Bytes& frame, int width, int height, int quality) {
  return keltest::Encode(frame, uint32_t(width), uint32_t(height), quality, kiu::Format(64), kiu::Format(16))
      .jpeg;
}

TEST(Encoder, EncodesEachFrameCopyingItsTimesAndSignalsOncePerFrame) {
  auto h = ElementHarness::Create("keljpeg_enc");
  EXPECT_EQ(h->GetInt("quality"), 85);
  h->SetInputCaps(I420Caps(36, 20));
  const struct {
    int quality;
    uint64_t ts, dur;
  } frames[] = {{85, 0, 40 * kMs}, {50, 123 * kMs, 7 * kMs}, {0, kNoTime, kNoTime}};
  int n = 0;
  for (const auto& f : frames) {
    h->SetInt("quality", f.quality);
    const Bytes frame = I420Frame(36, 20, uint32_t(++n));
    ASSERT_EQ(h->Push(frame, f.ts, f.dur), kFlowOk);
    const auto out = h->Take();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(h->Emitted("frame-encoded"), n);
    EXPECT_EQ(out[0].timestamp, f.ts);
    EXPECT_EQ(out[0].duration, f.dur);
    // Quality 0 encodes as 1.
    EXPECT_EQ(out[0].data, EncodedByCodec(frame, 36, 20, std::max(f.quality, 1)));
    EXPECT_EQ(out[0].width, 36);
  }
  EXPECT_TRUE(Logged("DEBUG trying to set src_caps; width 36; height 20; fr_numer 25; fr_denom 1"));
  EXPECT_TRUE(Logged("DEBUG frame encoded"));
}

TEST(Encoder, RefusesFramesBeforeCapsAndShortBuffers) {
  const Bytes frame = I420Frame(36, 20, 1);
  for (bool withCaps : {false, true}) {
    SCOPED_TRACE(withCaps ? "short buffer" : "no caps");
    keltest::ClearElementLog();
    auto h = ElementHarness::Create("keljpeg_enc");
    if (withCaps) h->SetInputCaps(I420Caps(36, 20));
    EXPECT_EQ(h->Push(Bytes(frame.begin(), frame.end() - 1)), kFlowError);
    EXPECT_TRUE(h->Take().empty());
    EXPECT_EQ(h->Emitted("frame-encoded"), 0);
    if (withCaps) {
      EXPECT_TRUE(Logged("ERROR input buffer with 1119 bytes is smaller than a 36x20 I420 frame"));
    }
  }
}

// Frames through both elements, many times over: the leak check runs this
// under valgrind.
TEST(Elements, AThousandFramesThroughEncoderAndDecoder) {
  auto enc = ElementHarness::Create("keljpeg_enc");
  auto dec = Decoder("image/jpeg, framerate=(fraction)25/1");
  enc->SetInputCaps(I420Caps(32, 16));
  const Bytes frame = I420Frame(32, 16, 3);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(enc->Push(frame), kFlowOk);
    for (const auto& jpeg : enc->Take()) ASSERT_EQ(dec->Push(jpeg.data), kFlowOk);
  }
  EXPECT_EQ(dec->Take().size(), 1000u);
}

// Both elements through 2,000 frames of changing sizes, with broken input
// mixed in and state cycles mid-stream; the leak check runs these under
// valgrind. After each cycle or broken image the element carries on: a clean
// image pushed whole must come out as the codec decodes it.
constexpr int kStressFrames = 2000;
constexpr int kStates[] = {3, 2, 1, 2, 3, 4};  // PAUSED READY NULL READY PAUSED PLAYING

TEST(Elements, DecoderCarriesOnThroughSplitsBrokenImagesAndStateCycles) {
  std::mt19937 rng(7);
  std::vector<Bytes> pool;
  for (int i = 0; i < 12; ++i) pool.push_back(Jpeg(16 + 8 * i, 8 + 4 * (11 - i), uint32_t(i)));
  const Bytes sentinel = Jpeg(40, 24, 99), expected = DecodedI420(sentinel);
  auto h = Decoder("image/jpeg, framerate=(fraction)25/1");
  Bytes stream;
  int frames = 0;
  auto check = [&](const std::vector<keltest::OutBuffer>& out) {
    for (const auto& b : out) ASSERT_EQ(b.data.size(), size_t(b.width) * b.height * 3 / 2);
    frames += int(out.size());
  };
  auto flush = [&] {
    for (size_t at = 0; at < stream.size();) {
      const size_t piece = std::min<size_t>(stream.size() - at, 1 + rng() % 3000);
      h->Push(Bytes(stream.begin() + long(at), stream.begin() + long(at + piece)));
      at += piece;
      check(h->Take());
    }
    stream.clear();
    // An EOI ends whatever a truncated image left pending. A buffer
    // completes one image at most, so images may still be held: the
    // sentinel comes out once they are through.
    h->Push(Bytes{0xFF, 0xD9});
    check(h->Take());
    for (int tries = 0;; ++tries) {
      ASSERT_LT(tries, 60) << "the sentinel never came out";
      h->Push(sentinel);
      const auto out = h->Take();
      ASSERT_NO_FATAL_FAILURE(check(out));
      if (!out.empty() && out.back().data == expected) break;
    }
  };
  for (int frame = 0; frame < kStressFrames; ++frame) {
    Bytes jpeg = pool[rng() % pool.size()];
    const size_t scan = keltest::ScanStart(jpeg);
    switch (rng() % 8) {
      case 0:  // cut inside the scan
        jpeg.resize(scan + rng() % (jpeg.size() - scan - 2));
        break;
      case 1:  // bytes flipped inside the scan
        for (int k = 0; k < 4; ++k) jpeg[scan + rng() % (jpeg.size() - scan - 2)] ^= uint8_t(1 + rng() % 255);
        break;
      default:
        break;
    }
    stream.insert(stream.end(), jpeg.begin(), jpeg.end());
    if (frame % 50 == 49) {
      ASSERT_NO_FATAL_FAILURE(flush());
      keltest::ClearElementLog();
    }
    if (frame % 250 == 120) {
      // Mid-image: half of what is collected is pushed before the cycle.
      h->Push(Bytes(stream.begin(), stream.begin() + long(stream.size() / 2)));
      check(h->Take());
      stream.erase(stream.begin(), stream.begin() + long(stream.size() / 2));
      for (int state : kStates) h->SetState(state);
      h->SetInputCaps("image/jpeg, framerate=(fraction)25/1");
    }
  }
  // Three in four images are whole; a few of those go with their broken neighbours.
  EXPECT_GT(frames, kStressFrames * 2 / 3);
}

TEST(Elements, EncoderCarriesOnThroughSizeChangesShortFramesAndStateCycles) {
  std::mt19937 rng(11);
  auto h = ElementHarness::Create("keljpeg_enc");
  int width = 0, height = 0;
  for (int frame = 0; frame < kStressFrames; ++frame) {
    if (frame % 40 == 0) {
      width = 16 + 2 * int(rng() % 40);
      height = 8 + 2 * int(rng() % 30);
      h->SetInputCaps(I420Caps(width, height));
    }
    if (frame % 250 == 125) {
      for (int state : kStates) h->SetState(state);
      h->SetInputCaps(I420Caps(width, height));
    }
    Bytes i420 = I420Frame(width, height, uint32_t(frame));
    const bool shortFrame = rng() % 10 == 0;
    if (shortFrame) i420.resize(rng() % i420.size());
    h->Push(i420);
    const auto out = h->Take();
    ASSERT_EQ(out.size(), shortFrame ? 0u : 1u) << "frame " << frame;
    if (!shortFrame) {
      STImageSimple image{};
      ASSERT_EQ(jpdyuv::DecodeJPG(out[0].data.data(), out[0].data.size(), &image, true), 1);
      EXPECT_EQ(int(image.width), width);
      EXPECT_EQ(int(image.height), height);
      kau::mem::Delete(image.data);
    }
    if (frame % 100 == 99) keltest::ClearElementLog();
  }
}

#if GST_CHECK_VERSION(1, 0, 0)
// ------------------------------------------------ what 1.x downstream expects

struct Harness {
  explicit Harness(const char* factory) : h((keltest::InitGstreamer(), gst_harness_new(factory))) {}
  ~Harness() { gst_harness_teardown(h); }
  GstFlowReturn Push(const Bytes& bytes) {
    return gst_harness_push(h, gst_buffer_new_memdup(bytes.data(), bytes.size()));
  }
  GstHarness* h;
};

TEST(Decoder1x, StreamStartCapsAndTimeSegmentPrecedeTheFirstFrame) {
  Harness t("keljpeg_dec");
  gst_harness_set_src_caps_str(t.h, "image/jpeg");
  GstSegment bytes;
  gst_segment_init(&bytes, GST_FORMAT_BYTES);
  gst_harness_push_event(t.h, gst_event_new_segment(&bytes));
  ASSERT_EQ(t.Push(Jpeg(32, 16, 1)), GST_FLOW_OK);
  std::vector<GstEventType> types;
  while (GstEvent* e = gst_harness_try_pull_event(t.h)) {
    types.push_back(GST_EVENT_TYPE(e));
    if (GST_EVENT_TYPE(e) == GST_EVENT_SEGMENT) {
      const GstSegment* s = nullptr;
      gst_event_parse_segment(e, &s);
      EXPECT_EQ(s->format, GST_FORMAT_TIME);
    }
    gst_event_unref(e);
  }
  EXPECT_EQ(types, (std::vector<GstEventType>{GST_EVENT_STREAM_START, GST_EVENT_CAPS, GST_EVENT_SEGMENT}));
}

// Packed planes go out as they are with GstVideoMeta, or when they already are
// the default layout; otherwise they are copied into the default layout.
TEST(Decoder1x, PlanesAreDescribedByVideoMetaOrCopiedIntoTheDefaultLayout) {
  for (int width : {24, 20}) {
    for (bool meta : {false, true}) {
      SCOPED_TRACE(std::to_string(width) + (meta ? " meta" : " no meta"));
      Harness t("keljpeg_dec");
      if (meta) gst_harness_add_propose_allocation_meta(t.h, GST_VIDEO_META_API_TYPE, nullptr);
      gst_harness_set_src_caps_str(t.h, "image/jpeg");
      const Bytes jpeg = Jpeg(width, 16, 2), planes = DecodedI420(jpeg);
      ASSERT_EQ(t.Push(jpeg), GST_FLOW_OK);
      GstBuffer* out = gst_harness_pull(t.h);
      ASSERT_NE(out, nullptr);
      const bool packed = meta || width % 8 == 0;
      EXPECT_EQ(gst_buffer_get_video_meta(out) != nullptr, meta);
      GstVideoInfo info;
      gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, guint(width), 16);
      EXPECT_EQ(gst_buffer_get_size(out), packed ? planes.size() : GST_VIDEO_INFO_SIZE(&info));
      GstVideoFrame frame;
      ASSERT_TRUE(gst_video_frame_map(&frame, &info, out, GST_MAP_READ));
      Bytes got;
      for (guint p = 0; p < 3; ++p) {
        const auto* row = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p));
        for (int y = 0; y < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, p);
             ++y, row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p))
          got.insert(got.end(), row, row + GST_VIDEO_FRAME_COMP_WIDTH(&frame, p));
      }
      gst_video_frame_unmap(&frame);
      EXPECT_EQ(got, planes);
      gst_buffer_unref(out);
    }
  }
}

TEST(Decoder1x, FlushDiscardsAPartlyCollectedImage) {
  Harness t("keljpeg_dec");
  gst_harness_set_src_caps_str(t.h, "image/jpeg");
  const Bytes a = Jpeg(64, 48, 1), b = Jpeg(32, 16, 2);
  ASSERT_EQ(t.Push(Bytes(a.begin(), a.begin() + long(a.size() / 2))), GST_FLOW_OK);
  gst_harness_push_event(t.h, gst_event_new_flush_start());
  gst_harness_push_event(t.h, gst_event_new_flush_stop(TRUE));
  ASSERT_EQ(t.Push(b), GST_FLOW_OK);
  EXPECT_EQ(gst_harness_buffers_received(t.h), 1u);
  GstBuffer* out = gst_harness_pull(t.h);
  GstMapInfo map;
  gst_buffer_map(out, &map, GST_MAP_READ);
  EXPECT_EQ(Bytes(map.data, map.data + map.size), DecodedI420(b));
  gst_buffer_unmap(out, &map);
  gst_buffer_unref(out);
}

// Frames decode into recycled memory: frames downstream still holds, across
// size changes, a state cycle and the element's end, keep their pixels.
TEST(Decoder1x, FramesHeldDownstreamKeepTheirPixelsWhileMoreFramesCome) {
  const Bytes jpegs[] = {Jpeg(64, 48, 1), Jpeg(64, 48, 2), Jpeg(32, 16, 3), Jpeg(64, 48, 4)};
  std::vector<std::pair<GstBuffer*, Bytes>> held;
  {
    Harness t("keljpeg_dec");
    gst_harness_add_propose_allocation_meta(t.h, GST_VIDEO_META_API_TYPE, nullptr);
    gst_harness_set_src_caps_str(t.h, "image/jpeg");
    for (int round = 0; round < 2; ++round) {
      for (const Bytes& jpeg : jpegs) {
        // A frame dropped at once gives its memory back for the next.
        ASSERT_EQ(t.Push(jpeg), GST_FLOW_OK);
        gst_buffer_unref(gst_harness_pull(t.h));
        ASSERT_EQ(t.Push(jpeg), GST_FLOW_OK);
        held.emplace_back(gst_harness_pull(t.h), DecodedI420(jpeg));
      }
      gst_element_set_state(t.h->element, GST_STATE_READY);
      gst_element_set_state(t.h->element, GST_STATE_PLAYING);
    }
  }
  for (auto& [buffer, planes] : held) {
    ASSERT_NE(buffer, nullptr);
    GstMapInfo map;
    ASSERT_TRUE(gst_buffer_map(buffer, &map, GST_MAP_READ));
    EXPECT_EQ(Bytes(map.data, map.data + map.size), planes);
    gst_buffer_unmap(buffer, &map);
    gst_buffer_unref(buffer);
  }
}

// Planes placed by GstVideoMeta with wider strides encode as the packed frame does.
TEST(Encoder1x, RepacksFramesWhoseVideoMetaHasOtherStrides) {
  Harness t("keljpeg_enc");
  gst_harness_set_src_caps_str(t.h, I420Caps(36, 20).c_str());
  const Bytes packed = I420Frame(36, 20, 5);
  const int ys = 36, cs = 20;  // the default layout's strides
  const gint strides[3] = {64, 48, 48};
  const gsize offsets[3] = {16, 16 + 64 * 20, 16 + 64 * 20 + 48 * 10};
  Bytes wide(offsets[2] + 48 * 10, 0xAA);
  for (int y = 0; y < 20; ++y) std::copy_n(&packed[size_t(y * ys)], 36, &wide[offsets[0] + size_t(y * 64)]);
  for (int p = 1; p < 3; ++p)
    for (int y = 0; y < 10; ++y)
      std::copy_n(&packed[size_t(ys * 20 + (p - 1) * cs * 10 + y * cs)], 18,
                  &wide[offsets[p] + size_t(y * 48)]);
  GstBuffer* in = gst_buffer_new_memdup(wide.data(), wide.size());
  gst_buffer_add_video_meta_full(in, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420, 36, 20, 3,
                                 const_cast<gsize*>(offsets), const_cast<gint*>(strides));
  ASSERT_EQ(gst_harness_push(t.h, in), GST_FLOW_OK);
  GstBuffer* out = gst_harness_pull(t.h);
  GstMapInfo map;
  gst_buffer_map(out, &map, GST_MAP_READ);
  EXPECT_EQ(Bytes(map.data, map.data + map.size), EncodedByCodec(packed, 36, 20, 85));
  gst_buffer_unmap(out, &map);
  gst_buffer_unref(out);
}
#endif

}  // namespace
