#include <cstdlib>
#include <new>

// Memory that runs out when a test wants it to.

extern "C" {
/// So many allocations succeed from now on; negative: all.
void memory_left(long allocations);
}

namespace {
long left = -1;
}

void memory_left(long allocations) {
  left = allocations;
}

void* operator new(std::size_t size) {
  if (left == 0) throw std::bad_alloc();
  if (left > 0) --left;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return left == 0 ? nullptr : std::malloc(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
