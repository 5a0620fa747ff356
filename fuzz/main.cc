#include "ReflectionFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  reflectionFuzz(data, size);
  return 0;
}
