#include "KernelFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kernelFuzz(data, size);
  return 0;
}
