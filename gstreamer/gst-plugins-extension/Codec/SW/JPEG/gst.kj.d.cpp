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
constexpr kau::Site kSiteStreamNotReady{kSource, 153};
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

// ------------------------------------------------- version-specific steps
#if KEL_GST_1

void FreePlanes(gpointer planes) { kau::mem::Delete(planes); }

gboolean SetSourceCaps(GstKelJpegDec* self, GstCaps* caps) {
  if (!gst_pad_set_caps(self->srcpad, caps)) return FALSE;
  // Asked once per caps: whether downstream reads planes through GstVideoMeta.
  GstQuery* query = gst_query_new_allocation(caps, FALSE);
  self->downstreamVideoMeta = gst_pad_peer_query(self->srcpad, query) &&
                              gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  gst_query_unref(query);
  return TRUE;
}

// The planes become the buffer's memory, so no copy is made, unless
// downstream cannot be told their packed layout: then they are copied into
// GStreamer's default I420 layout (they differ when the width is not a
// multiple of 8).
GstFlowReturn MakeOutputBuffer(GstKelJpegDec* self, STImageSimple* image, GstBuffer** out) {
  const guint w = image->width, h = image->height;
  GstVideoInfo info;
  gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, w, h);
  const bool packedIsDefault = GST_VIDEO_INFO_SIZE(&info) == image->size &&
                               GST_VIDEO_INFO_PLANE_STRIDE(&info, 0) == gint(w) &&
                               GST_VIDEO_INFO_PLANE_STRIDE(&info, 1) == gint(w / 2);
  if (self->downstreamVideoMeta || packedIsDefault) {
    *out = gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), image->data, image->size, 0,
                                       image->size, image->data, FreePlanes);
    image->data = nullptr;
    if (self->downstreamVideoMeta) {
      gsize offsets[GST_VIDEO_MAX_PLANES] = {0, w * h, w * h + w * h / 4};
      gint strides[GST_VIDEO_MAX_PLANES] = {gint(w), gint(w / 2), gint(w / 2)};
      gst_buffer_add_video_meta_full(*out, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420, w, h, 3, offsets,
                                     strides);
    }
    return GST_FLOW_OK;
  }
  *out = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
  if (*out == nullptr) return GST_FLOW_ERROR;
  GstVideoFrame frame;
  if (!gst_video_frame_map(&frame, &info, *out, GST_MAP_WRITE)) {
    gst_buffer_unref(*out);
    *out = nullptr;
    return GST_FLOW_ERROR;
  }
  const unsigned char* plane = image->data;
  for (guint p = 0; p < 3; ++p) {
    const guint pw = p == 0 ? w : w / 2, ph = p == 0 ? h : h / 2;
    auto* dst = static_cast<unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p));
    const gint stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
    for (guint row = 0; row < ph; ++row) kau::mem::Copy8(dst + row * stride, plane + row * pw, pw);
    plane += pw * ph;
  }
  gst_video_frame_unmap(&frame);
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

gboolean SetSourceCaps(GstKelJpegDec* self, GstCaps* caps) { return gst_pad_set_caps(self->srcpad, caps); }

GstFlowReturn MakeOutputBuffer(GstKelJpegDec* self, STImageSimple* image, GstBuffer** out) {
  GstFlowReturn flow = gst_pad_alloc_buffer_and_set_caps(self->srcpad, GST_BUFFER_OFFSET_NONE, image->size,
                                                         GST_PAD_CAPS(self->srcpad), out);
  if (flow == GST_FLOW_OK) kau::mem::Copy8(GST_BUFFER_DATA(*out), image->data, image->size);
  return flow;
}

GstFlowReturn PushOutput(GstKelJpegDec* self, GstBuffer* out) { return gst_pad_push(self->srcpad, out); }

#endif

// Decodes the complete image the input holds and pushes its frame; `in` is
// the buffer that completed it (null when draining at the end of stream).
GstFlowReturn DecodeHeldImage(GstKelJpegDec* self, GstBuffer* in) {
  STImageSimple image{};
  GstFlowReturn flow = GST_FLOW_OK;
  try {
    MMStream* stream = self->input.Stream();
    if (MMStreamReady(stream) == 0) kau::Throw(kSiteStreamNotReady);
    if (!HeaderSizeSupported(stream)) {
      StartNextImage(self);
      GST_ERROR_OBJECT(self, "picture dimension is out of supported range");
      return GST_FLOW_ERROR;
    }
    if (jpdyuv::DecodeJPG(stream, &image, true, kDecodeLimits) == 0) {
      // Go on past the failed image too, or its bytes would stay in front of every image after it.
      StartNextImage(self);
      GST_ERROR_OBJECT(self, "internal error while decoding JPG");
      return GST_FLOW_ERROR;
    }
    StartNextImage(self);
    if (!SupportedSize(image.width, image.height)) {
      GST_ERROR_OBJECT(self, "picture dimension is out of supported range");
      flow = GST_FLOW_ERROR;
    } else if (gint32(image.width) != self->width || gint32(image.height) != self->height || !self->capsSet) {
      self->capsSet = FALSE;
      self->width = gint32(image.width);
      self->height = gint32(image.height);
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
    if (flow == GST_FLOW_OK && MakeOutputBuffer(self, &image, &out) != GST_FLOW_OK) {
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
    kau::mem::Delete(image.data);
    throw;
  }
  kau::mem::Delete(image.data);
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
