// A thin adapter over one element with a source pad feeding it and a sink
// pad collecting what it pushes: GstHarness on 1.x, plain pads on 0.10. The
// element scenarios are written once against it.
#ifndef KEL_TESTS_GST_HARNESS_H
#define KEL_TESTS_GST_HARNESS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct _GstElement;

namespace keltest {

constexpr uint64_t kNoTime = ~uint64_t(0);
constexpr int kFlowOk = 0;
constexpr int kFlowError = -5;

struct OutBuffer {
  std::vector<uint8_t> data;
  uint64_t timestamp = kNoTime;
  uint64_t duration = kNoTime;
  int width = 0;  // from the caps in force when it arrived
  int height = 0;
};

class ElementHarness {
 public:
  static std::unique_ptr<ElementHarness> Create(const std::string& factory);
  virtual ~ElementHarness() = default;

  // Caps offered upstream of the element, written in 1.x spelling for raw
  // video ("video/x-raw, format=I420, ..."): the 0.10 adapter translates.
  virtual void SetInputCaps(const std::string& caps) = 0;
  virtual int Push(const std::vector<uint8_t>& bytes, uint64_t timestamp = kNoTime,
                   uint64_t duration = kNoTime) = 0;
  virtual void PushEos() = 0;
  // Buffers pushed by the element since the last call.
  virtual std::vector<OutBuffer> Take() = 0;
  // Times the element set caps on its source pad.
  virtual int CapsSet() const = 0;
  void SetInt(const char* property, int value);
  int GetInt(const char* property);
  // Times the encoder emitted frame-encoded.
  int Encoded() const { return encoded_; }
  // Moves the element to a GstState (1 NULL, 2 READY, 3 PAUSED, 4 PLAYING).
  void SetState(int state);

 protected:
  // The adapter's element; counts frame-encoded where the element has it.
  void Watch(_GstElement* element);

 private:
  _GstElement* element_ = nullptr;
  int encoded_ = 0;
};

// ERROR and DEBUG lines logged in the elements' categories ("LEVEL text").
std::vector<std::string> ElementLog();
void ClearElementLog();
// Once per process: GStreamer pointed at the plug-in of this build (unless
// the environment already says otherwise), initialised, its log collected.
void InitGstreamer();

}  // namespace keltest

#endif  // KEL_TESTS_GST_HARNESS_H
