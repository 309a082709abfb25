// libFuzzer entry point of the "layout" target (tests/fuzz/targets.h says what it drives).
#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return qk::fuzz::layout(data, size);
}
