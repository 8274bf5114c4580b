// What differs between GStreamer 0.10 (the device) and 1.x, for what both
// elements share: caps spellings, buffer data and timestamps, template caps.
// Each element keeps its own version-specific steps in one block of its file.
#ifndef GST_KJ_COMPAT_H
#define GST_KJ_COMPAT_H

#include <gst/gst.h>

#if GST_CHECK_VERSION(1, 0, 0)
#define KEL_GST_1 1
#include <gst/video/video.h>
#else
#define KEL_GST_1 0
#endif

namespace kelgst {

#if KEL_GST_1
#define KEL_CAPS_I420 "video/x-raw, format = (string) I420"
#define KEL_BUFFER_TIMESTAMP GST_BUFFER_PTS
#else
#define KEL_CAPS_I420 "video/x-raw-yuv, format = (fourcc) I420"
#define KEL_BUFFER_TIMESTAMP GST_BUFFER_TIMESTAMP
#endif

// Read access to a whole buffer's bytes for the length of a scope.
class BufferBytes {
 public:
  explicit BufferBytes(GstBuffer* buffer) : buffer_(buffer) {
#if KEL_GST_1
    if (!gst_buffer_map(buffer, &map_, GST_MAP_READ)) map_ = GstMapInfo();
#endif
  }
  ~BufferBytes() {
#if KEL_GST_1
    if (map_.memory != nullptr) gst_buffer_unmap(buffer_, &map_);
#endif
  }
  BufferBytes(const BufferBytes&) = delete;
  BufferBytes& operator=(const BufferBytes&) = delete;

#if KEL_GST_1
  const unsigned char* Data() const { return map_.data; }
  gsize Size() const { return map_.size; }
#else
  const unsigned char* Data() const { return GST_BUFFER_DATA(buffer_); }
  gsize Size() const { return GST_BUFFER_SIZE(buffer_); }
#endif

 private:
  GstBuffer* buffer_;
#if KEL_GST_1
  GstMapInfo map_;
#endif
};

// I420 caps of one picture size and frame rate.
inline GstCaps* I420Caps(int width, int height, int fpsN, int fpsD) {
#if KEL_GST_1
  return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, width,
                             "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, fpsN, fpsD, NULL);
#else
  return gst_caps_new_simple("video/x-raw-yuv", "format", GST_TYPE_FOURCC,
                             GST_MAKE_FOURCC('I', '4', '2', '0'), "width", G_TYPE_INT, width, "height",
                             G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, fpsN, fpsD, NULL);
#endif
}

// A writable copy of a pad's template caps.
inline GstCaps* TemplateCapsCopy(GstPad* pad) {
#if KEL_GST_1
  GstCaps* templ = gst_pad_get_pad_template_caps(pad);
  GstCaps* copy = gst_caps_copy(templ);
  gst_caps_unref(templ);
  return copy;
#else
  return gst_caps_copy(gst_pad_get_pad_template_caps(pad));
#endif
}

// The pad templates and element details: in base_init on 0.10, class_init on 1.x.
inline void SetClassDetails(GstElementClass* klass, GstStaticPadTemplate* sink, GstStaticPadTemplate* src,
                            const char* longName, const char* classification, const char* description) {
  static const char kAuthor[] = "keljpeg developers";
#if KEL_GST_1
  gst_element_class_add_static_pad_template(klass, src);
  gst_element_class_add_static_pad_template(klass, sink);
  gst_element_class_set_static_metadata(klass, longName, classification, description, kAuthor);
#else
  gst_element_class_add_pad_template(klass, gst_static_pad_template_get(src));
  gst_element_class_add_pad_template(klass, gst_static_pad_template_get(sink));
  gst_element_class_set_details_simple(klass, longName, classification, description, kAuthor);
#endif
}

// The two always pads: the sink pad with its functions set, the source pad
// with fixed caps (it carries what the element says, never a choice).
template <class Element>
void AddPads(Element* self, GstStaticPadTemplate* sink, GstStaticPadTemplate* src,
             void (*setSinkFunctions)(Element*)) {
  self->sinkpad = gst_pad_new_from_static_template(sink, "sink");
  setSinkFunctions(self);
  gst_element_add_pad(GST_ELEMENT(self), self->sinkpad);
  self->srcpad = gst_pad_new_from_static_template(src, "src");
  gst_pad_use_fixed_caps(self->srcpad);
  gst_element_add_pad(GST_ELEMENT(self), self->srcpad);
}

// Registers a static GstElement subclass once (thread-safe).
inline GType RegisterElementType(gsize* once, const char* name, guint16 classSize, GBaseInitFunc baseInit,
                                 GClassInitFunc classInit, guint16 instanceSize,
                                 GInstanceInitFunc instanceInit) {
  if (g_once_init_enter(once)) {
    GTypeInfo info = {};
    info.class_size = classSize;
    info.base_init = baseInit;
    info.class_init = classInit;
    info.instance_size = instanceSize;
    info.instance_init = instanceInit;
    g_once_init_leave(once,
                      g_type_register_static(GST_TYPE_ELEMENT, name, &info, static_cast<GTypeFlags>(0)));
  }
  return *once;
}

}  // namespace kelgst

#endif  // GST_KJ_COMPAT_H
