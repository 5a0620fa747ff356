#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <vector>

namespace mrib {

/// Memory for tables that are read at random. It begins on a line; what is large lies on large pages, of
/// which the processor remembers enough.
template <class T>
struct LargeMemory {
  using value_type = T;
  static constexpr std::size_t line = 64;
  static constexpr std::size_t largePage = std::size_t{2} << 20;

  LargeMemory() = default;
  template <class U>
  LargeMemory(const LargeMemory<U>&) {}  // NOLINT: all are the same

  static std::align_val_t alignment(std::size_t bytes) {
    return std::align_val_t(bytes >= largePage ? largePage : line);
  }
  T* allocate(std::size_t count) {
    const std::size_t bytes = count * sizeof(T);
    void* memory = ::operator new(bytes, alignment(bytes));
    if (bytes >= largePage) madvise(memory, bytes, MADV_HUGEPAGE);
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t count) { ::operator delete(memory, alignment(count * sizeof(T))); }
  friend bool operator==(const LargeMemory&, const LargeMemory&) { return true; }
};

template <class T>
using LargeVector = std::vector<T, LargeMemory<T>>;

}  // namespace mrib
