#include "kiustartup.h"

#include "../kau/kau.h"
#include "mmstream.h"

namespace kiu {
namespace {

bool RunStartUp() {
  // 1. Codec memory and attribute buffers come from the same allocator.
  kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
  // 2. The three stream classes, in this order.
  MMByteStreamRegistered();
  MMFileStreamRegistered();
  MMPageArrayStreamRegistered();
  return true;
}

// Triggers start-up at load in every binary that links this object.
[[maybe_unused]] const bool g_startedAtLoad = (StartUp(), true);

}  // namespace

void StartUp() {
  // Thread-safe once-only initialisation.
  static const bool done = RunStartUp();
  (void)done;
}

}  // namespace kiu
