#include "LiveBytes.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

// Each piece is preceded by its size, in a line of its alignment.

namespace {

constexpr std::size_t least = alignof(std::max_align_t);
U64 live = 0;

void* allocate(std::size_t size, std::size_t alignment) {
  const std::size_t whole = (size + 2 * alignment - 1) / alignment * alignment;
  char* const start = static_cast<char*>(std::aligned_alloc(alignment, whole));
  if (!start) throw std::bad_alloc();
  std::memcpy(start + alignment - sizeof size, &size, sizeof size);
  live += size;
  return start + alignment;
}

void release(void* memory, std::size_t alignment) {
  if (!memory) return;
  std::size_t size = 0;
  std::memcpy(&size, static_cast<char*>(memory) - sizeof size, sizeof size);
  live -= size;
  std::free(static_cast<char*>(memory) - alignment);
}

}  // namespace

U64 liveBytes() {
  return live;
}

void* operator new(std::size_t size) {
  return allocate(size, least);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  release(memory, least);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory, least);
}
void operator delete(void* memory, std::align_val_t alignment) noexcept {
  release(memory, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory, std::size_t, std::align_val_t alignment) noexcept {
  release(memory, static_cast<std::size_t>(alignment));
}
