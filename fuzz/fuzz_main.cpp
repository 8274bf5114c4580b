// libFuzzer entry: one executable per target, the target named at build time.
#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return KEL_FUZZ_TARGET(data, size);
}
