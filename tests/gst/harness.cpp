// What both adapters share: GStreamer pointed at the plug-in of this build,
// the elements' log lines collected, and the element's properties, state and
// signal.
#include <gst/gst.h>

#include <mutex>

#include "gst/harness.h"

namespace keltest {
namespace {

std::mutex logMutex;
std::vector<std::string> logLines;

void CollectElementLog(GstDebugCategory* category, GstDebugLevel level, const gchar*, const gchar*, gint,
                       GObject*, GstDebugMessage* message, gpointer) {
  if (!g_str_has_prefix(gst_debug_category_get_name(category), "keljpeg")) return;
  if (level != GST_LEVEL_ERROR && level != GST_LEVEL_DEBUG) return;
  std::lock_guard<std::mutex> lock(logMutex);
  logLines.push_back(std::string(level == GST_LEVEL_ERROR ? "ERROR " : "DEBUG ") +
                     gst_debug_message_get(message));
}

}  // namespace

void InitGstreamer() {
  static std::once_flag once;
  std::call_once(once, [] {
    // The build tree's plug-in and a registry of the tests' own, scanned
    // in-process (see tests/gst/CMakeLists.txt).
    g_setenv("GST_PLUGIN_PATH", KEL_TEST_PLUGIN_DIR, FALSE);
    g_setenv("GST_PLUGIN_PATH_1_0", KEL_TEST_PLUGIN_DIR, FALSE);
    g_setenv("GST_REGISTRY", KEL_TEST_REGISTRY, FALSE);
    g_setenv("GST_REGISTRY_1_0", KEL_TEST_REGISTRY, FALSE);
    g_setenv("GST_REGISTRY_FORK", "no", FALSE);
    gst_init(nullptr, nullptr);
    gst_debug_remove_log_function(gst_debug_log_default);
#if GST_CHECK_VERSION(1, 0, 0)
    gst_debug_add_log_function(CollectElementLog, nullptr, nullptr);
#else
    gst_debug_add_log_function(CollectElementLog, nullptr);
#endif
    gst_debug_set_threshold_for_name("keljpeg_*", GST_LEVEL_DEBUG);
    gst_debug_set_active(TRUE);
  });
}

void ElementHarness::Watch(GstElement* element) {
  element_ = element;
  if (g_signal_lookup("frame-encoded", G_OBJECT_TYPE(element)) == 0) return;
  g_signal_connect(element, "frame-encoded",
                   G_CALLBACK(+[](GstElement*, gpointer count) { ++*static_cast<int*>(count); }), &encoded_);
}

void ElementHarness::SetInt(const char* property, int value) {
  g_object_set(element_, property, value, NULL);
}

int ElementHarness::GetInt(const char* property) {
  int value = 0;
  g_object_get(element_, property, &value, NULL);
  return value;
}

void ElementHarness::SetState(int state) { gst_element_set_state(element_, GstState(state)); }

std::vector<std::string> ElementLog() {
  std::lock_guard<std::mutex> lock(logMutex);
  return logLines;
}

void ClearElementLog() {
  std::lock_guard<std::mutex> lock(logMutex);
  logLines.clear();
}

}  // namespace keltest
