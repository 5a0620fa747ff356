#include "OutOfMemory.h"

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <new>

// Memory that runs out when a test wants it to.

namespace {

long left = -1;
long inUse = 0;
bool isForOnce = false;
bool ranOut = false;

/// Whether the next allocation is to fail.
bool isOut() {
  if (left > 0) --left;
  if (left != 0) return false;
  if (isForOnce) left = -1;
  return ranOut = true;
}
void* take(std::size_t size, std::size_t alignment) noexcept {
  void* memory = isOut() || posix_memalign(&memory, alignment, size) != 0 ? nullptr : memory;
  inUse += memory != nullptr;
  return memory;
}
void* takeOrThrow(std::size_t size, std::size_t alignment) {
  if (void* memory = take(size, alignment)) return memory;
  throw std::bad_alloc();
}
void give(void* memory) noexcept {
  inUse -= memory != nullptr;
  std::free(memory);
}

constexpr std::size_t usual = alignof(std::max_align_t);

}  // namespace

void memoryLeftIs(long allocations, bool once) {
  left = allocations + 1;
  isForOnce = once;
  ranOut = false;
}
bool memoryIsThere() {
  left = -1;
  return !ranOut;
}
long memoryInUse() {
  return inUse;
}

void* operator new(std::size_t size) {
  return takeOrThrow(size, usual);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return takeOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return take(size, usual);
}
void operator delete(void* memory) noexcept {
  give(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  give(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  give(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  give(memory);
}

// In their places by --wrap.
extern "C" {
void* __real_realloc(void* memory, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size) {
  return isOut() ? nullptr : __real_realloc(memory, size);
}
void* __real_mmap(void* at, std::size_t size, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* at, std::size_t size, int protection, int flags, int fd, off_t offset) {
  return isOut() ? MAP_FAILED : __real_mmap(at, size, protection, flags, fd, offset);
}
}
