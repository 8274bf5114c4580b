// The plug-in's registration and the decoder element keljpeg_dec.
#include "gst.kj.d.h"

#include <new>

#include "gst.kj.e.h"
#include "kau/kau.h"
#include "kj.d/jpdyuv.h"

GST_DEBUG_CATEGORY_STATIC(keljpeg_dec_debug);
#define GST_CAT_DEFAULT keljpeg_dec_debug

namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/gst.kj.d";
constexpr kau::Fault kSiteStreamNotReady{kSource, 153, kau::Category::kOutOfMemory,
                                         "the input stream could not be made ready"};
constexpr kau::Site kSiteChainCatch{kSource, 227};

// Decoded sizes the element passes on (after the decoder's even rounding).
constexpr guint32 kMinWidth = 16, kMaxWidth = 4096, kMinHeight = 8, kMaxHeight = 4096;

// The decoder's bounds here: frames that round to the largest size passed
// on; the memory a progressive 4:2:0 frame of that size needs (219 MB: its
// coefficients, 4-byte pixels and YUV rows; a 4:4:4 progressive one is
// refused); input that codes every block; hundreds of scans where encoders
// write about ten.
constexpr kjd::DecodeLimits kDecodeLimits{(kMaxWidth + 1) * (kMaxHeight + 1), 224u << 20, 8, 500};

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("image/jpeg, width = (int) [ 16, 4096 ], height = (int) [ 8, 4096 ], "
                    "framerate = (fraction) [ 0/1, MAX ]"));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(KEL_CAPS_I420 ", width = (int) [ 1, max ], height = (int) [ 1, max ], "
                                  "framerate = (fraction) [ 0, max ]"));

GstElementClass* parentClass = nullptr;

bool SupportedSize(guint32 width, guint32 height) {
  return width >= kMinWidth && width <= kMaxWidth && height >= kMinHeight && height <= kMaxHeight;
}

// The frame size the header claims, rounded as the decode rounds it, is
// checked before any pixel memory exists: a few bytes of header must not
// make the element decode a huge picture only to refuse it. An unreadable
// header passes here and is reported by the decoder.
bool HeaderSizeSupported(MMStream* stream) {
  unsigned long start = 0;
  guint32 width = 0, height = 0;
  if (MMStreamTell(stream, &start) == 0) return true;
  const int found = kjd::Input::FrameSize(stream, &width, &height);
  MMStreamSeek(stream, static_cast<long>(start), MMStreamSeekFromStart);
  return found == 0 || SupportedSize(width & ~1u, height & ~1u);
}

// Starts the next image with every byte after this one's EOI. The decoder
// stops reading anywhere, so the read position is moved to the end first.
void StartNextImage(GstKelJpegDec* self) {
  MMStreamSeek(self->input.Stream(), 0, MMStreamSeekFromEnd);
  self->imageHeld = self->input.ResetStreamWithDataAfterEOI() == 0;
}

void StampOutput(GstKelJpegDec* self, GstBuffer* in, GstBuffer* out) {
  if (in != nullptr && GST_CLOCK_TIME_IS_VALID(KEL_BUFFER_TIMESTAMP(in))) {
    self->nextTimestamp = KEL_BUFFER_TIMESTAMP(in);
  }
  KEL_BUFFER_TIMESTAMP(out) = self->nextTimestamp;
  if (in != nullptr && GST_BUFFER_DURATION_IS_VALID(in)) {
    GST_BUFFER_DURATION(out) = GST_BUFFER_DURATION(in);
  } else {
    GST_BUFFER_DURATION(out) = self->frameDuration;
  }
  self->nextTimestamp += GST_BUFFER_DURATION(out);
}

// One frame on its way: the even size the decode reported and the memory
// it decodes into.
struct Frame {
  GstKelJpegDec* self;
  guint32 width = 0;
  guint32 height = 0;
  bool sizeRefused = false;
#if KEL_GST_1
  GstBuffer* buffer = nullptr;  // from the pool, mapped while map.data is set
  GstMapInfo map{};
#endif
};

guint32 I420Bytes(guint32 width, guint32 height) { return width * height / 2 * 3; }

// ------------------------------------------------- version-specific steps
#if KEL_GST_1

// Ready at start: one frame downstream, one decoding. Frames downstream
// keeps make the pool grow (no maximum), so the element never waits.
constexpr guint kPoolPreallocated = 2;

void ReleasePool(GstKelJpegDec* self) {
  if (self->pool == nullptr) return;
  // Buffers still downstream are freed when they come back.
  gst_buffer_pool_set_active(self->pool, FALSE);
  gst_object_unref(self->pool);
  self->pool = nullptr;
}

GstBufferPool* NewPool(GstKelJpegDec* self, guint32 width, guint32 height) {
  GstBufferPool* pool = gst_buffer_pool_new();
  GstStructure* config = gst_buffer_pool_get_config(pool);
  GstCaps* caps = kelgst::I420Caps(gint(width), gint(height), self->fpsN, self->fpsD);
  gst_buffer_pool_config_set_params(config, caps, I420Bytes(width, height), kPoolPreallocated, 0);
  gst_caps_unref(caps);
  if (!gst_buffer_pool_set_config(pool, config) || !gst_buffer_pool_set_active(pool, TRUE)) {
    gst_object_unref(pool);
    return nullptr;
  }
  return pool;
}

// A pool buffer holding the planes packed; null if none could be had.
unsigned char* FrameMemory(Frame* frame) {
  GstKelJpegDec* self = frame->self;
  if (self->pool == nullptr || self->poolWidth != frame->width || self->poolHeight != frame->height) {
    ReleasePool(self);
    self->pool = NewPool(self, frame->width, frame->height);
    self->poolWidth = frame->width;
    self->poolHeight = frame->height;
  }
  if (self->pool == nullptr ||
      gst_buffer_pool_acquire_buffer(self->pool, &frame->buffer, nullptr) != GST_FLOW_OK)
    return nullptr;
  if (!gst_buffer_map(frame->buffer, &frame->map, GST_MAP_WRITE)) return nullptr;
  return frame->map.data;
}

void ReleaseFrame(Frame* frame) {
  if (frame->map.data != nullptr) gst_buffer_unmap(frame->buffer, &frame->map);
  frame->map.data = nullptr;
  if (frame->buffer != nullptr) gst_buffer_unref(frame->buffer);
  frame->buffer = nullptr;
}

void ReleaseFrameMemory(GstKelJpegDec* self) { ReleasePool(self); }

gboolean SetSourceCaps(GstKelJpegDec* self, GstCaps* caps) {
  if (!gst_pad_set_caps(self->srcpad, caps)) return FALSE;
  // Asked once per caps: whether downstream reads planes through GstVideoMeta.
  GstQuery* query = gst_query_new_allocation(caps, FALSE);
  self->downstreamVideoMeta = gst_pad_peer_query(self->srcpad, query) &&
                              gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  gst_query_unref(query);
  return TRUE;
}

// The pool buffer goes downstream as it is, unless downstream cannot be told
// the packed layout: then the planes are copied into GStreamer's default
// I420 layout (they differ when the width is not a multiple of 8).
GstFlowReturn MakeOutputBuffer(GstKelJpegDec* self, Frame* frame, GstBuffer** out) {
  const guint w = frame->width, h = frame->height;
  GstVideoInfo info;
  gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, w, h);
  const jpdyuv::I420Planes packed = jpdyuv::PackedPlanes(frame->map.data, w, h);
  bool packedIsDefault = GST_VIDEO_INFO_SIZE(&info) == I420Bytes(w, h);
  for (guint p = 0; p < 3; ++p) {
    packedIsDefault = packedIsDefault && GST_VIDEO_INFO_PLANE_STRIDE(&info, p) == gint(packed.strides[p]) &&
                      GST_VIDEO_INFO_PLANE_OFFSET(&info, p) == gsize(packed.planes[p] - packed.planes[0]);
  }
  if (self->downstreamVideoMeta || packedIsDefault) {
    gst_buffer_unmap(frame->buffer, &frame->map);
    frame->map.data = nullptr;
    *out = frame->buffer;
    frame->buffer = nullptr;
    if (self->downstreamVideoMeta) {
      gsize offsets[GST_VIDEO_MAX_PLANES] = {};
      gint strides[GST_VIDEO_MAX_PLANES] = {};
      for (guint p = 0; p < 3; ++p) {
        offsets[p] = gsize(packed.planes[p] - packed.planes[0]);
        strides[p] = gint(packed.strides[p]);
      }
      gst_buffer_add_video_meta_full(*out, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420, w, h, 3, offsets,
                                     strides);
    }
    return GST_FLOW_OK;
  }
  *out = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
  if (*out == nullptr) return GST_FLOW_ERROR;
  GstVideoFrame video;
  if (!gst_video_frame_map(&video, &info, *out, GST_MAP_WRITE)) {
    gst_buffer_unref(*out);
    *out = nullptr;
    return GST_FLOW_ERROR;
  }
  for (guint p = 0; p < 3; ++p) {
    const guint pw = p == 0 ? w : w / 2, ph = p == 0 ? h : h / 2;
    auto* dst = static_cast<unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&video, p));
    const gint stride = GST_VIDEO_FRAME_PLANE_STRIDE(&video, p);
    for (guint row = 0; row < ph; ++row) kau::mem::Copy8(dst + row * stride, packed.planes[p] + row * pw, pw);
  }
  gst_video_frame_unmap(&video);
  return GST_FLOW_OK;
}

GstFlowReturn PushOutput(GstKelJpegDec* self, GstBuffer* out) {
  if (self->needSegment) {
    gst_pad_push_event(self->srcpad, gst_event_new_segment(&self->segment));
    self->needSegment = FALSE;
  }
  return gst_pad_push(self->srcpad, out);
}

#else  // GStreamer 0.10

// The element's own block; the frame is copied out of it into the buffer
// downstream gives (allocated only once the frame has decoded).
unsigned char* FrameMemory(Frame* frame) {
  GstKelJpegDec* self = frame->self;
  const guint32 bytes = I420Bytes(frame->width, frame->height);
  if (self->planesBytes != bytes) {
    kau::mem::Delete(self->planes);
    self->planes = static_cast<unsigned char*>(kau::mem::New(bytes));
    self->planesBytes = self->planes != nullptr ? bytes : 0;
  }
  return self->planes;
}

void ReleaseFrame(Frame*) {}

void ReleaseFrameMemory(GstKelJpegDec* self) {
  kau::mem::Delete(self->planes);
  self->planes = nullptr;
  self->planesBytes = 0;
}

gboolean SetSourceCaps(GstKelJpegDec* self, GstCaps* caps) { return gst_pad_set_caps(self->srcpad, caps); }

GstFlowReturn MakeOutputBuffer(GstKelJpegDec* self, Frame* frame, GstBuffer** out) {
  const guint32 size = I420Bytes(frame->width, frame->height);
  GstFlowReturn flow = gst_pad_alloc_buffer_and_set_caps(self->srcpad, GST_BUFFER_OFFSET_NONE, size,
                                                         GST_PAD_CAPS(self->srcpad), out);
  if (flow == GST_FLOW_OK) kau::mem::Copy8(GST_BUFFER_DATA(*out), self->planes, size);
  return flow;
}

GstFlowReturn PushOutput(GstKelJpegDec* self, GstBuffer* out) { return gst_pad_push(self->srcpad, out); }

#endif

// Asked by the decode for the planes once the size is known: a size passed
// on gets memory kept across frames, any other stops the decode.
bool SupplyPlanes(void* context, uint32_t width, uint32_t height, jpdyuv::I420Planes* planes) {
  auto* frame = static_cast<Frame*>(context);
  frame->width = width;
  frame->height = height;
  frame->sizeRefused = !SupportedSize(width, height);
  if (frame->sizeRefused) return false;
  unsigned char* memory = FrameMemory(frame);
  if (memory == nullptr) return false;
  *planes = jpdyuv::PackedPlanes(memory, width, height);
  return true;
}

// Decodes the complete image the input holds and pushes its frame; `in` is
// the buffer that completed it (null when draining at the end of stream).
GstFlowReturn DecodeHeldImage(GstKelJpegDec* self, GstBuffer* in) {
  Frame frame{self};
  GstFlowReturn flow = GST_FLOW_OK;
  try {
    MMStream* stream = self->input.Stream();
    if (MMStreamReady(stream) == 0) kau::Throw(kSiteStreamNotReady);
    if (!HeaderSizeSupported(stream)) {
      StartNextImage(self);
      GST_ERROR_OBJECT(self, "picture dimension is out of supported range");
      return GST_FLOW_ERROR;
    }
    const jpdyuv::IntoResult decoded = jpdyuv::DecodeI420Into(stream, kDecodeLimits, SupplyPlanes, &frame);
    if (decoded == jpdyuv::IntoResult::kFailed) {
      ReleaseFrame(&frame);
      // Go on past the failed image too, or its bytes would stay in front of every image after it.
      StartNextImage(self);
      GST_ERROR_OBJECT(self, "internal error while decoding JPG");
      return GST_FLOW_ERROR;
    }
    StartNextImage(self);
    if (frame.sizeRefused) {
      GST_ERROR_OBJECT(self, "picture dimension is out of supported range");
      flow = GST_FLOW_ERROR;
    } else if (gint32(frame.width) != self->width || gint32(frame.height) != self->height || !self->capsSet) {
      self->capsSet = FALSE;
      self->width = gint32(frame.width);
      self->height = gint32(frame.height);
      GstCaps* caps = kelgst::I420Caps(self->width, self->height, self->fpsN, self->fpsD);
      if (!SetSourceCaps(self, caps)) {
        GST_ERROR_OBJECT(self, "cannot set caps on srcpad");
        flow = GST_FLOW_ERROR;
      } else {
        self->capsSet = TRUE;
      }
      gst_caps_unref(caps);
    }
    GstBuffer* out = nullptr;
    // Declined with a size passed on: no memory for the frame.
    if (flow == GST_FLOW_OK &&
        (decoded != jpdyuv::IntoResult::kDecoded || MakeOutputBuffer(self, &frame, &out) != GST_FLOW_OK)) {
      GST_ERROR_OBJECT(self, "could not create output buffer");
      flow = GST_FLOW_ERROR;
    }
    if (flow == GST_FLOW_OK) {
      StampOutput(self, in, out);
      GST_DEBUG_OBJECT(self, "ready to push an output buffer, ts=%u:%02u:%02u.%09u, dur=%u:%02u:%02u.%09u",
                       GST_TIME_ARGS(KEL_BUFFER_TIMESTAMP(out)), GST_TIME_ARGS(GST_BUFFER_DURATION(out)));
      flow = PushOutput(self, out);
      if (flow != GST_FLOW_OK) GST_ERROR_OBJECT(self, "could not push output buffer");
    }
  } catch (...) {
    ReleaseFrame(&frame);
    throw;
  }
  ReleaseFrame(&frame);
  return flow;
}

GstFlowReturn Chain(GstKelJpegDec* self, GstBuffer* in) {
  GstFlowReturn flow = GST_FLOW_OK;
  try {
    bool complete = self->imageHeld;
    {
      kelgst::BufferBytes bytes(in);
      if (self->imageHeld) {
        if (bytes.Size() > 0) self->input.Append(bytes.Data(), bytes.Size());
      } else {
        complete = self->input.Push(bytes.Data(), bytes.Size()) == 0;
      }
    }
    if (complete) flow = DecodeHeldImage(self, in);
  } catch (...) {
    kau::ReportCurrentException(kSiteChainCatch);
    flow = GST_FLOW_ERROR;
  }
  gst_buffer_unref(in);
  return flow;
}

// Images already complete in the input go out before the stream ends: a
// buffer completes at most one image, so several may be waiting.
void Drain(GstKelJpegDec* self) {
  try {
    while (self->imageHeld) DecodeHeldImage(self, nullptr);
  } catch (...) {
    kau::ReportCurrentException(kSiteChainCatch);
  }
}

// A flush drops a partly collected image.
void Discard(GstKelJpegDec* self) {
  if (self->input.Stream() != nullptr) self->input.ResetStream();
  self->imageHeld = FALSE;
}

gboolean SetCaps(GstKelJpegDec* self, GstCaps* caps) {
  const GstStructure* s = gst_caps_get_structure(caps, 0);
  gint num = 0, den = 1;
  if (s == nullptr || !gst_structure_get_fraction(s, "framerate", &num, &den)) return TRUE;
  self->fpsN = num;
  self->fpsD = den;
  if (num == 0) return TRUE;
  self->frameDuration = gst_util_uint64_scale(GST_SECOND, guint64(den), guint64(num));
  self->capsSet = FALSE;
  GST_DEBUG_OBJECT(self, "framerate %i/%i was set on sinkpad", num, den);
  return TRUE;
}

// ------------------------------------------------- pad functions per version
#if KEL_GST_1

GstFlowReturn gst_keljpeg_dec_chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  return Chain(GST_KELJPEG_DEC(parent), buffer);
}

gboolean gst_keljpeg_dec_sink_event(GstPad* pad, GstObject* parent, GstEvent* event) {
  GstKelJpegDec* self = GST_KELJPEG_DEC(parent);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_CAPS: {
      GstCaps* caps = nullptr;
      gst_event_parse_caps(event, &caps);
      const gboolean ok = SetCaps(self, caps);
      gst_event_unref(event);
      return ok;
    }
    case GST_EVENT_SEGMENT: {
      // Upstream of a file counts bytes; frames go out in time.
      const GstSegment* segment = nullptr;
      gst_event_parse_segment(event, &segment);
      if (segment->format == GST_FORMAT_TIME) {
        gst_segment_copy_into(segment, &self->segment);
      } else {
        gst_segment_init(&self->segment, GST_FORMAT_TIME);
      }
      self->needSegment = TRUE;
      gst_event_unref(event);
      return TRUE;
    }
    case GST_EVENT_FLUSH_STOP:
      Discard(self);
      break;
    case GST_EVENT_EOS:
      Drain(self);
      break;
    default:
      break;
  }
  return gst_pad_event_default(pad, parent, event);
}

void SetPadFunctions(GstKelJpegDec* self) {
  gst_pad_set_chain_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_dec_chain));
  gst_pad_set_event_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_dec_sink_event));
  // Upstream caps may lack width and height (a file source, multifilesrc).
  GST_PAD_SET_ACCEPT_INTERSECT(self->sinkpad);
  gst_segment_init(&self->segment, GST_FORMAT_TIME);
  self->needSegment = TRUE;
}

#else  // GStreamer 0.10

GstFlowReturn gst_keljpeg_dec_chain(GstPad* pad, GstBuffer* buffer) {
  GstKelJpegDec* self = GST_KELJPEG_DEC(GST_PAD_PARENT(pad));
  return Chain(self, buffer);
}

gboolean gst_keljpeg_dec_setcaps(GstPad* pad, GstCaps* caps) {
  return SetCaps(GST_KELJPEG_DEC(GST_PAD_PARENT(pad)), caps);
}

gboolean gst_keljpeg_dec_sink_event(GstPad* pad, GstEvent* event) {
  GstKelJpegDec* self = GST_KELJPEG_DEC(GST_PAD_PARENT(pad));
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) Discard(self);
  if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) Drain(self);
  return gst_pad_event_default(pad, event);
}

void SetPadFunctions(GstKelJpegDec* self) {
  gst_pad_set_setcaps_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_dec_setcaps));
  gst_pad_set_chain_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_dec_chain));
  gst_pad_set_event_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_dec_sink_event));
}

#endif

// ------------------------------------------------- type
GstStateChangeReturn gst_keljpeg_dec_change_state(GstElement* element, GstStateChange transition) {
  GstKelJpegDec* self = GST_KELJPEG_DEC(element);
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
    self->fpsN = 0;
    self->fpsD = 1;
    self->nextTimestamp = 0;
    self->capsSet = FALSE;
    self->imageHeld = FALSE;
    self->input.Construct();
#if KEL_GST_1
    gst_segment_init(&self->segment, GST_FORMAT_TIME);
    self->needSegment = TRUE;
#endif
  }
  const GstStateChangeReturn result = parentClass->change_state(element, transition);
  if (result == GST_STATE_CHANGE_SUCCESS && transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
    self->input.Destruct();
    ReleaseFrameMemory(self);
  }
  return result;
}

void BaseInit(gpointer klass) {
  kelgst::SetClassDetails(GST_ELEMENT_CLASS(klass), &sinkTemplate, &srcTemplate, "Kelvra JPEG Decoder",
                          "Codec/Decoder/Image", "Decode a jpeg image (series of images) to raw image(s)");
}

void ClassInit(gpointer klass, gpointer) {
  parentClass = GST_ELEMENT_CLASS(g_type_class_peek_parent(klass));
  GST_ELEMENT_CLASS(klass)->change_state = GST_DEBUG_FUNCPTR(gst_keljpeg_dec_change_state);
  GST_DEBUG_CATEGORY_INIT(keljpeg_dec_debug, "keljpeg_dec", 0, "Kelvra JPEG Decoder");
#if KEL_GST_1
  BaseInit(klass);
#endif
}

void InstanceInit(GTypeInstance* instance, gpointer) {
  GstKelJpegDec* self = GST_KELJPEG_DEC(instance);
  new (&self->input) kjd::Input();
  self->fpsD = 1;
  kelgst::AddPads(self, &sinkTemplate, &srcTemplate, SetPadFunctions);
}

gboolean plugin_init(GstPlugin* plugin) {
  if (!gst_element_register(plugin, "keljpeg_dec", GST_RANK_PRIMARY, GST_TYPE_KELJPEG_DEC)) return FALSE;
  return gst_element_register(plugin, "keljpeg_enc", GST_RANK_NONE, GST_TYPE_KELJPEG_ENC);
}

}  // namespace

GType gst_keljpeg_dec_get_type(void) {
  static gsize type = 0;
  return kelgst::RegisterElementType(&type, "GstKelJpegDec", sizeof(GstKelJpegDecClass),
                                     KEL_GST_1 ? nullptr : BaseInit, ClassInit, sizeof(GstKelJpegDec),
                                     InstanceInit);
}

// The descriptor's source field is PACKAGE in both versions.
#define PACKAGE "gstreamer"
#define KEL_PLUGIN_ORIGIN "https://keljpeg.example.org/"
#if KEL_GST_1
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, keljpeg, "Kelvra JPEG Codecs", plugin_init, "0.10.18",
                  "Proprietary", "GStreamer source release", KEL_PLUGIN_ORIGIN)
#else
// 0.10 leaves GST_PLUGIN_EXPORT empty; the descriptor must be seen from outside.
#pragma GCC visibility push(default)
GST_PLUGIN_DEFINE(0, 10, "keljpeg", "Kelvra JPEG Codecs", plugin_init, "0.10.18", "Proprietary",
                  "GStreamer source release", KEL_PLUGIN_ORIGIN)
#pragma GCC visibility pop
#endif
