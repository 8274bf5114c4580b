// The adapter on GStreamer 1.x: GstHarness.
#include <gst/check/gstharness.h>
#include <gst/gst.h>

#include "gst/harness.h"

namespace keltest {
namespace {

class Harness1 : public ElementHarness {
 public:
  explicit Harness1(const std::string& factory) : h_(gst_harness_new(factory.c_str())) { Watch(h_->element); }
  ~Harness1() override { gst_harness_teardown(h_); }

  void SetInputCaps(const std::string& caps) override { gst_harness_set_src_caps_str(h_, caps.c_str()); }

  int Push(const std::vector<uint8_t>& bytes, uint64_t timestamp, uint64_t duration) override {
    GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
    GST_BUFFER_PTS(buffer) = timestamp;
    GST_BUFFER_DURATION(buffer) = duration;
    const int flow = gst_harness_push(h_, buffer);
    Collect();
    return flow;
  }

  void PushEos() override {
    gst_harness_push_event(h_, gst_event_new_eos());
    Collect();
  }

  std::vector<OutBuffer> Take() override { return std::move(out_); }
  int CapsSet() const override { return caps_; }

 private:
  void Collect() {
    while (GstEvent* event = gst_harness_try_pull_event(h_)) {
      if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        const GstStructure* s = gst_caps_get_structure(caps, 0);
        gst_structure_get_int(s, "width", &width_);
        gst_structure_get_int(s, "height", &height_);
        ++caps_;
      }
      gst_event_unref(event);
    }
    while (GstBuffer* buffer = gst_harness_try_pull(h_)) {
      OutBuffer out;
      GstMapInfo map;
      gst_buffer_map(buffer, &map, GST_MAP_READ);
      out.data.assign(map.data, map.data + map.size);
      gst_buffer_unmap(buffer, &map);
      out.timestamp = GST_BUFFER_PTS(buffer);
      out.duration = GST_BUFFER_DURATION(buffer);
      out.width = width_;
      out.height = height_;
      out_.push_back(std::move(out));
      gst_buffer_unref(buffer);
    }
  }

  GstHarness* h_;
  std::vector<OutBuffer> out_;
  int caps_ = 0, width_ = 0, height_ = 0;
};

}  // namespace

std::unique_ptr<ElementHarness> ElementHarness::Create(const std::string& factory) {
  InitGstreamer();
  return std::make_unique<Harness1>(factory);
}

}  // namespace keltest
