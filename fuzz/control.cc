#include "ControlFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  controlFuzz(data, size);
  return 0;
}
