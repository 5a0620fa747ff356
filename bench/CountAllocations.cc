#include "CountAllocations.h"

#include <cstdlib>
#include <new>

namespace {
U64 count = 0;
U64 live = 0;
}  // namespace

U64 allocations() {
  return count;
}
U64 liveAllocations() {
  return live;
}

void* operator new(std::size_t size) {
  ++count;
  ++live;
  if (void* p = std::malloc(size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  live -= p != nullptr;
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  operator delete(p);
}
