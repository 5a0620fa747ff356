#include "Target.h"

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  fuzz::Target::all().front().run({data, size});
  return 0;
}
