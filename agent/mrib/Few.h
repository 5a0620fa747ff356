#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <type_traits>

#include "Zan/Types.h"

namespace mrib {

/// A short list of small values. One lives in the list itself, since most lists here have one; more are on
/// the heap.
template <class T>
class Few {
 public:
  static_assert(std::is_trivially_copyable_v<T> && std::is_default_constructible_v<T>);

  Few() : one_{} {}
  Few(const Few& other) : one_{} {
    if (other.isInline()) {
      size_ = other.size_;
      one_ = other.one_;
    } else {
      assign(other.begin(), other.end());
    }
  }
  Few(Few&& other) noexcept : one_{} { swap(other); }
  Few& operator=(const Few& other) {
    if (isInline() && other.isInline()) {
      size_ = other.size_;
      one_ = other.one_;
    } else if (this != &other) {
      assign(other.begin(), other.end());
    }
    return *this;
  }
  Few& operator=(Few&& other) noexcept {
    swap(other);
    return *this;
  }
  ~Few() {
    if (!isInline()) delete[] many_;
  }

  U32 size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* begin() { return isInline() ? &one_ : many_; }
  T* end() { return begin() + size_; }
  const T* begin() const { return isInline() ? &one_ : many_; }
  const T* end() const { return begin() + size_; }
  const T& operator[](U32 i) const { return begin()[i]; }

  void push_back(const T& value) {
    const T added = value;  // which may be an element
    if (size_ == room()) grow(size_ * 2);
    begin()[size_++] = added;
  }
  void insert(const T* at, const T& value) {
    const auto place = at - begin();
    push_back(value);
    std::rotate(begin() + place, end() - 1, end());
  }
  void erase(const T* at) {
    std::copy(at + 1, const_cast<const T*>(end()), begin() + (at - begin()));
    --size_;
  }
  void clear() { size_ = 0; }
  void assign(const T* first, const T* last) {
    const auto count = static_cast<U32>(last - first);
    if (count > room()) grow(count);
    std::copy(first, last, begin());
    size_ = count;
  }
  friend bool operator==(const Few& a, const Few& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }

 private:
  bool isInline() const { return capacity_ == 0; }
  U32 room() const { return isInline() ? 1 : capacity_; }
  void swap(Few& other) noexcept {
    static_assert(sizeof(T) >= sizeof(T*) || alignof(T*) > 0);
    unsigned char kept[sizeof(Few)];
    std::memcpy(kept, static_cast<void*>(this), sizeof(Few));
    std::memcpy(static_cast<void*>(this), static_cast<void*>(&other), sizeof(Few));
    std::memcpy(static_cast<void*>(&other), kept, sizeof(Few));
  }
  void grow(U32 capacity) {
    T* larger = new T[capacity];
    std::copy(begin(), end(), larger);
    if (!isInline()) delete[] many_;
    many_ = larger;
    capacity_ = capacity;
  }

  U32 size_ = 0;
  U32 capacity_ = 0;  // of those on the heap
  union {
    T one_;
    T* many_;
  };
};

}  // namespace mrib
