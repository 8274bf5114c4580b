// The adapter on GStreamer 0.10: a source pad feeding the element and a sink
// pad collecting its buffers (0.10 has no GstHarness).
#include <gst/gst.h>

#include <cstring>

#include "gst/harness.h"

namespace keltest {
namespace {

// "video/x-raw, format=I420" is spelt "video/x-raw-yuv, format=(fourcc)I420" here.
std::string To010(std::string caps) {
  const std::string raw = "video/x-raw", i420 = "format=I420";
  if (caps.compare(0, raw.size(), raw) == 0) caps.replace(0, raw.size(), "video/x-raw-yuv");
  const size_t at = caps.find(i420);
  if (at != std::string::npos) caps.replace(at, i420.size(), "format=(fourcc)I420");
  return caps;
}

// A pad with no template has no caps in 0.10 and links to nothing.
GstStaticPadTemplate srcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

class Harness010 : public ElementHarness {
 public:
  explicit Harness010(const std::string& factory)
      : element_(gst_element_factory_make(factory.c_str(), nullptr)),
        src_(gst_pad_new_from_static_template(&srcTemplate, "src")),
        sink_(gst_pad_new_from_static_template(&sinkTemplate, "sink")) {
    if (element_ == nullptr) g_error("no element %s", factory.c_str());
    g_object_set_data(G_OBJECT(sink_), "harness", this);
    gst_pad_set_chain_function(sink_, Chain);
    gst_pad_set_setcaps_function(sink_, SetCaps);
    GstPad* elementSink = gst_element_get_static_pad(element_, "sink");
    GstPad* elementSrc = gst_element_get_static_pad(element_, "src");
    if (gst_pad_link(src_, elementSink) != GST_PAD_LINK_OK ||
        gst_pad_link(elementSrc, sink_) != GST_PAD_LINK_OK) {
      g_error("cannot link the pads of %s", factory.c_str());
    }
    gst_object_unref(elementSink);
    gst_object_unref(elementSrc);
    gst_pad_set_active(src_, TRUE);
    gst_pad_set_active(sink_, TRUE);
    gst_element_set_state(element_, GST_STATE_PLAYING);
    Watch(element_);
  }
  ~Harness010() override {
    gst_element_set_state(element_, GST_STATE_NULL);
    gst_pad_set_active(src_, FALSE);
    gst_pad_set_active(sink_, FALSE);
    if (caps_ != nullptr) gst_caps_unref(caps_);
    gst_object_unref(src_);
    gst_object_unref(sink_);
    gst_object_unref(element_);
  }

  void SetInputCaps(const std::string& caps) override {
    if (caps_ != nullptr) gst_caps_unref(caps_);
    caps_ = gst_caps_from_string(To010(caps).c_str());
  }

  int Push(const std::vector<uint8_t>& bytes, uint64_t timestamp, uint64_t duration) override {
    GstBuffer* buffer = gst_buffer_new_and_alloc(bytes.size());
    if (!bytes.empty()) std::memcpy(GST_BUFFER_DATA(buffer), bytes.data(), bytes.size());
    GST_BUFFER_TIMESTAMP(buffer) = timestamp;
    GST_BUFFER_DURATION(buffer) = duration;
    if (caps_ != nullptr) gst_buffer_set_caps(buffer, caps_);
    return gst_pad_push(src_, buffer);
  }

  void PushEos() override { gst_pad_push_event(src_, gst_event_new_eos()); }
  std::vector<OutBuffer> Take() override { return std::move(out_); }
  int CapsSet() const override { return capsSet_; }

 private:
  static Harness010* Of(GstPad* pad) {
    return static_cast<Harness010*>(g_object_get_data(G_OBJECT(pad), "harness"));
  }

  static GstFlowReturn Chain(GstPad* pad, GstBuffer* buffer) {
    OutBuffer out;
    out.data.assign(GST_BUFFER_DATA(buffer), GST_BUFFER_DATA(buffer) + GST_BUFFER_SIZE(buffer));
    out.timestamp = GST_BUFFER_TIMESTAMP(buffer);
    out.duration = GST_BUFFER_DURATION(buffer);
    if (GST_BUFFER_CAPS(buffer) != nullptr) {
      const GstStructure* s = gst_caps_get_structure(GST_BUFFER_CAPS(buffer), 0);
      gst_structure_get_int(s, "width", &out.width);
      gst_structure_get_int(s, "height", &out.height);
    }
    Of(pad)->out_.push_back(std::move(out));
    gst_buffer_unref(buffer);
    return GST_FLOW_OK;
  }

  static gboolean SetCaps(GstPad* pad, GstCaps*) {
    ++Of(pad)->capsSet_;
    return TRUE;
  }

  GstElement* element_;
  GstPad* src_;
  GstPad* sink_;
  GstCaps* caps_ = nullptr;
  std::vector<OutBuffer> out_;
  int capsSet_ = 0;
};

}  // namespace

std::unique_ptr<ElementHarness> ElementHarness::Create(const std::string& factory) {
  InitGstreamer();
  return std::make_unique<Harness010>(factory);
}

}  // namespace keltest
