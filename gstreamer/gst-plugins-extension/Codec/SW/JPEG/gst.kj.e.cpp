// The encoder element keljpeg_enc.
#include "gst.kj.e.h"

#include "kau/kau.h"
#include "kiu/mmstream.h"
#include "kj.e/CJPGE.h"

GST_DEBUG_CATEGORY_STATIC(keljpeg_enc_debug);
#define GST_CAT_DEFAULT keljpeg_enc_debug

namespace {

constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/gst.kj.e";
constexpr kau::Fault kSiteStreamNotReady{kSource, 189, kau::Category::kOutOfMemory,
                                         "the output stream could not be made ready"};
constexpr kau::Fault kSiteEncodeFailed{kSource, 190, kau::Category::kInternal,
                                       "the frame could not be encoded"};
constexpr kau::Fault kSiteNoSize{kSource, 193, kau::Category::kIo,
                                 "the size of the encoded image cannot be read"};
constexpr kau::Fault kSiteNotReadyAfterEncode{kSource, 194, kau::Category::kIo,
                                              "the encoded image cannot be read back"};
constexpr kau::Fault kSiteNoOutputBuffer{kSource, 198, kau::Category::kOutOfMemory,
                                         "no output buffer for the encoded image"};
constexpr kau::Fault kSiteShortRead{kSource, 202, kau::Category::kIo,
                                    "the encoded image could not be read whole"};
constexpr kau::Site kSiteChainCatch{kSource, 207};

constexpr int kDefaultQuality = 85;
constexpr kiu::Format kInputI420 = static_cast<kiu::Format>(64);
constexpr kiu::Format kOutputYCbCr420 = static_cast<kiu::Format>(16);

enum { kPropQuality = 1 };
enum { kSignalFrameEncoded, kSignalCount };
guint signals[kSignalCount];

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(KEL_CAPS_I420 ", width = (int) [ 1, max ], height = (int) [ 1, max ], "
                                  "framerate = (fraction) [ 0, max ]"));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("image/jpeg, width = (int) [ 1, max ], height = (int) [ 1, max ], "
                    "framerate = (fraction) [ 0, max ]"));

GstElementClass* parentClass = nullptr;

// Bytes of an I420 frame as the encoder reads it: rows padded to 4 luma
// columns and 2 rows, chroma rows to a multiple of 4 (GStreamer's own
// default I420 layout). 64-bit: caps allow any int size.
guint64 I420FrameBytes(gint32 width, gint32 height) {
  const guint64 w4 = (guint64(width) + 3) & ~guint64(3), h2 = (guint64(height) + 1) & ~guint64(1);
  const guint64 chroma = ((w4 + 7) & ~guint64(7)) / 2;
  return w4 * h2 + 2 * chroma * (h2 / 2);
}

// ------------------------------------------------- version-specific steps
#if KEL_GST_1

void ReadCapsLayout(GstKelJpegEnc* self, GstCaps* caps) {
  if (!gst_video_info_from_caps(&self->info, caps)) {
    gst_video_info_set_format(&self->info, GST_VIDEO_FORMAT_I420, guint(self->width), guint(self->height));
  }
}

// The frame in the layout the encoder reads. A buffer whose video meta
// places the planes elsewhere is repacked into *repacked; null when the
// buffer is too small for the negotiated frame.
const unsigned char* FrameData(GstKelJpegEnc* self, GstBuffer* in, const kelgst::BufferBytes& bytes,
                               unsigned char** repacked) {
  const GstVideoMeta* meta = gst_buffer_get_video_meta(in);
  const GstVideoInfo& info = self->info;
  bool asDefault = meta == nullptr;
  if (meta != nullptr) {
    asDefault = meta->n_planes == 3;
    for (guint p = 0; asDefault && p < 3; ++p) {
      asDefault = meta->offset[p] == info.offset[p] && meta->stride[p] == info.stride[p];
    }
  }
  if (asDefault) return bytes.Size() < I420FrameBytes(self->width, self->height) ? nullptr : bytes.Data();

  GstVideoFrame frame;
  if (!gst_video_frame_map(&frame, const_cast<GstVideoInfo*>(&info), in, GST_MAP_READ)) return nullptr;
  *repacked = static_cast<unsigned char*>(kau::mem::New(GST_VIDEO_INFO_SIZE(&info)));
  if (*repacked != nullptr) {
    for (guint p = 0; p < 3; ++p) {
      const auto* src = static_cast<const unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p));
      const gint srcStride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
      unsigned char* dst = *repacked + GST_VIDEO_INFO_PLANE_OFFSET(&info, p);
      const gint dstStride = GST_VIDEO_INFO_PLANE_STRIDE(&info, p);
      const guint rows = GST_VIDEO_FRAME_COMP_HEIGHT(&frame, p),
                  columns = GST_VIDEO_FRAME_COMP_WIDTH(&frame, p);
      for (guint row = 0; row < rows; ++row)
        kau::mem::Copy8(dst + row * dstStride, src + row * srcStride, columns);
    }
  }
  gst_video_frame_unmap(&frame);
  return *repacked;
}

GstFlowReturn AllocateOutput(GstKelJpegEnc*, unsigned long size, GstBuffer** out) {
  *out = gst_buffer_new_allocate(nullptr, size, nullptr);
  return *out != nullptr ? GST_FLOW_OK : GST_FLOW_ERROR;
}

unsigned long ReadStreamInto(MMStream* stream, GstBuffer* out, unsigned long size) {
  GstMapInfo map;
  if (!gst_buffer_map(out, &map, GST_MAP_WRITE)) return 0;
  const unsigned long got = MMStreamGet(stream, map.data, static_cast<unsigned int>(size));
  gst_buffer_unmap(out, &map);
  return got;
}

void CopyTimes(GstBuffer* in, GstBuffer* out) {
  GST_BUFFER_PTS(out) = GST_BUFFER_PTS(in);
  GST_BUFFER_DTS(out) = GST_BUFFER_DTS(in);
  GST_BUFFER_DURATION(out) = GST_BUFFER_DURATION(in);
}

#else  // GStreamer 0.10

void ReadCapsLayout(GstKelJpegEnc*, GstCaps*) {}

const unsigned char* FrameData(GstKelJpegEnc* self, GstBuffer*, const kelgst::BufferBytes& bytes,
                               unsigned char**) {
  return bytes.Size() < I420FrameBytes(self->width, self->height) ? nullptr : bytes.Data();
}

GstFlowReturn AllocateOutput(GstKelJpegEnc* self, unsigned long size, GstBuffer** out) {
  return gst_pad_alloc_buffer_and_set_caps(self->srcpad, GST_BUFFER_OFFSET_NONE, size,
                                           GST_PAD_CAPS(self->srcpad), out);
}

unsigned long ReadStreamInto(MMStream* stream, GstBuffer* out, unsigned long size) {
  return MMStreamGet(stream, GST_BUFFER_DATA(out), static_cast<unsigned int>(size));
}

void CopyTimes(GstBuffer* in, GstBuffer* out) {
  GST_BUFFER_TIMESTAMP(out) = GST_BUFFER_TIMESTAMP(in);
  GST_BUFFER_DURATION(out) = GST_BUFFER_DURATION(in);
}

#endif

GstFlowReturn Chain(GstKelJpegEnc* self, GstBuffer* in) {
  MMStream* stream = nullptr;
  GstBuffer* out = nullptr;
  unsigned char* repacked = nullptr;
  GstFlowReturn flow = GST_FLOW_ERROR;
  try {
    kelgst::BufferBytes bytes(in);
    GST_DEBUG_OBJECT(self, "input buffer with %lu bytes", static_cast<unsigned long>(bytes.Size()));
    STImageSimple image{};
    image.width = guint32(self->width);
    image.height = guint32(self->height);
    image.data = const_cast<unsigned char*>(FrameData(self, in, bytes, &repacked));
    if (image.data == nullptr) {
      // Reading past the buffer is never an option.
      GST_ERROR_OBJECT(self, "input buffer with %lu bytes is smaller than a %ix%i I420 frame",
                       static_cast<unsigned long>(bytes.Size()), self->width, self->height);
    } else {
      MMAttri records[2];
      MMAttriFromTag(&records[0], mmIdData, MMAttriTagAny);
      MMAttriFromTag(&records[1], mmIdPageSize, MMAttriTagU32);
      stream = MMStreamNew(records, 2);
      if (MMStreamReady(stream) == 0) kau::Throw(kSiteStreamNotReady);
      if (EncodeJPG(image, self->quality, stream, kInputI420, kOutputYCbCr420) == 0)
        kau::Throw(kSiteEncodeFailed);
      GST_DEBUG_OBJECT(self, "frame encoded");
      unsigned long size = 0;
      if (MMStreamSize(stream, &size) == 0) kau::Throw(kSiteNoSize);
      if (MMStreamReady(stream) == 0) kau::Throw(kSiteNotReadyAfterEncode);
      if (AllocateOutput(self, size, &out) != GST_FLOW_OK) kau::Throw(kSiteNoOutputBuffer);
      CopyTimes(in, out);
      if (ReadStreamInto(stream, out, size) < size) kau::Throw(kSiteShortRead);
      flow = gst_pad_push(self->srcpad, out);
      out = nullptr;
      g_signal_emit(self, signals[kSignalFrameEncoded], 0);
    }
  } catch (...) {
    kau::ReportCurrentException(kSiteChainCatch);
    flow = GST_FLOW_ERROR;
  }
  if (out != nullptr) gst_buffer_unref(out);
  kau::mem::Delete(repacked);
  MMStreamDelete(&stream);
  gst_buffer_unref(in);
  return flow;
}

gboolean SetCaps(GstKelJpegEnc* self, GstCaps* caps) {
  const GstStructure* s = gst_caps_get_structure(caps, 0);
  gint width = 0, height = 0, num = 0, den = 1;
  if (s == nullptr || !gst_structure_get_int(s, "width", &width) ||
      !gst_structure_get_int(s, "height", &height)) {
    return FALSE;
  }
  if (!gst_structure_get_fraction(s, "framerate", &num, &den)) {
    num = 0;
    den = 1;
  }
  self->width = width;
  self->height = height;
  self->fpsN = num;
  self->fpsD = den;
  ReadCapsLayout(self, caps);
  GST_DEBUG_OBJECT(self, "trying to set src_caps; width %i; height %i; fr_numer %i; fr_denom %i", width,
                   height, num, den);
  GstCaps* out = kelgst::TemplateCapsCopy(self->srcpad);
  gst_caps_set_simple(out, "width", G_TYPE_INT, width, "height", G_TYPE_INT, height, "framerate",
                      GST_TYPE_FRACTION, num, den, NULL);
  const gboolean ok = gst_pad_set_caps(self->srcpad, out);
  gst_caps_unref(out);
  return ok;
}

// ------------------------------------------------- pad functions per version
#if KEL_GST_1

GstFlowReturn gst_keljpeg_enc_chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  return Chain(GST_KELJPEG_ENC(parent), buffer);
}

gboolean gst_keljpeg_enc_sink_event(GstPad* pad, GstObject* parent, GstEvent* event) {
  if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return gst_pad_event_default(pad, parent, event);
  GstCaps* caps = nullptr;
  gst_event_parse_caps(event, &caps);
  const gboolean ok = SetCaps(GST_KELJPEG_ENC(parent), caps);
  gst_event_unref(event);
  return ok;
}

// Frames may come with planes anywhere, described by GstVideoMeta.
gboolean gst_keljpeg_enc_sink_query(GstPad* pad, GstObject* parent, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_ALLOCATION) return gst_pad_query_default(pad, parent, query);
  gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  return TRUE;
}

void SetPadFunctions(GstKelJpegEnc* self) {
  gst_pad_set_chain_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_enc_chain));
  gst_pad_set_event_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_enc_sink_event));
  gst_pad_set_query_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_enc_sink_query));
}

#else  // GStreamer 0.10

GstFlowReturn gst_keljpeg_enc_chain(GstPad* pad, GstBuffer* buffer) {
  return Chain(GST_KELJPEG_ENC(GST_PAD_PARENT(pad)), buffer);
}

gboolean gst_keljpeg_enc_setcaps(GstPad* pad, GstCaps* caps) {
  return SetCaps(GST_KELJPEG_ENC(GST_PAD_PARENT(pad)), caps);
}

void SetPadFunctions(GstKelJpegEnc* self) {
  gst_pad_set_setcaps_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_enc_setcaps));
  gst_pad_set_chain_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_keljpeg_enc_chain));
}

#endif

// ------------------------------------------------- type
void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
  if (id == kPropQuality) {
    GST_KELJPEG_ENC(object)->quality = g_value_get_int(value);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  if (id == kPropQuality) {
    g_value_set_int(value, GST_KELJPEG_ENC(object)->quality);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

void BaseInit(gpointer klass) {
  kelgst::SetClassDetails(GST_ELEMENT_CLASS(klass), &sinkTemplate, &srcTemplate, "Kelvra JPEG image encoder",
                          "Codec/Encoder/Image", "Encode image(s) in JPEG format");
}

void ClassInit(gpointer klass, gpointer) {
  parentClass = GST_ELEMENT_CLASS(g_type_class_peek_parent(klass));
  signals[kSignalFrameEncoded] = g_signal_new("frame-encoded", G_TYPE_FROM_CLASS(klass), G_SIGNAL_RUN_LAST,
                                              G_STRUCT_OFFSET(GstKelJpegEncClass, frameEncoded), nullptr,
                                              nullptr, g_cclosure_marshal_VOID__VOID, G_TYPE_NONE, 0);
  GObjectClass* objectClass = G_OBJECT_CLASS(klass);
  objectClass->set_property = SetProperty;
  objectClass->get_property = GetProperty;
  g_object_class_install_property(
      objectClass, kPropQuality,
      g_param_spec_int("quality", "Quality", "encoding quality", 0, 100, kDefaultQuality,
                       static_cast<GParamFlags>(G_PARAM_READWRITE)));
  if (keljpeg_enc_debug == nullptr) {
    GST_DEBUG_CATEGORY_INIT(keljpeg_enc_debug, "keljpeg_enc", 0, "Kelvra JPEG encoder element");
  }
#if KEL_GST_1
  BaseInit(klass);
#endif
}

void InstanceInit(GTypeInstance* instance, gpointer) {
  GstKelJpegEnc* self = GST_KELJPEG_ENC(instance);
  kelgst::AddPads(self, &sinkTemplate, &srcTemplate, SetPadFunctions);
  self->quality = kDefaultQuality;
  self->fpsD = 1;
}

}  // namespace

GType gst_keljpeg_enc_get_type(void) {
  static gsize type = 0;
  return kelgst::RegisterElementType(&type, "GstKelJpegEnc", sizeof(GstKelJpegEncClass),
                                     KEL_GST_1 ? nullptr : BaseInit, ClassInit, sizeof(GstKelJpegEnc),
                                     InstanceInit);
}
