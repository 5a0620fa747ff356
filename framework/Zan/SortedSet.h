#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Zan/Types.h"

namespace Zan {

/// A set of small values in ascending order: sorted blocks of up to 64, themselves in order, so that a set
/// of one costs a few bytes more than the value and a set of 100,000 still inserts in under a microsecond.
/// Walk it with `iterator()`, which holds the value it stands on and goes on with the smallest greater one,
/// whatever was added or removed meanwhile.
template <class T>
class SortedSet {
 public:
  U32 size() const { return size_; }
  bool contains(const T& value) const {
    const std::size_t b = blockFor(value);
    return b < blocks_.size() && std::binary_search(blocks_[b].begin(), blocks_[b].end(), value);
  }
  /// False when the value was there already.
  bool insert(const T& value);
  /// False when the value was not there.
  bool erase(const T& value);
  void clear() {
    blocks_.clear();
    size_ = 0;
  }

  class Iterator {
   public:
    explicit Iterator(const SortedSet& set) : set_(&set), valid_(set.size_ > 0) {
      if (valid_) value_ = set.blocks_.front().front();
    }
    explicit operator bool() const { return valid_; }
    const T& operator*() const { return value_; }
    const T* operator->() const { return &value_; }
    Iterator& operator++() {
      const T* next = set_->after(value_);
      valid_ = next != nullptr;
      if (next) value_ = *next;
      return *this;
    }

   private:
    const SortedSet* set_;
    T value_{};
    bool valid_;
  };
  Iterator iterator() const { return Iterator(*this); }
  /// The smallest value that is not less than `value`, or null. Valid until the set changes.
  const T* from(const T& value) const {
    const std::size_t b = blockFor(value);
    if (b == blocks_.size()) return nullptr;
    return &*std::lower_bound(blocks_[b].begin(), blocks_[b].end(), value);
  }
  /// The smallest value that is greater, or null. Valid until the set changes.
  const T* after(const T& value) const;

 private:
  using Block = std::vector<T>;
  static constexpr std::size_t blockSize = 64;

  /// The block that holds `value` if any does: the first whose last value is not less.
  std::size_t blockFor(const T& value) const {
    const auto it = std::partition_point(blocks_.begin(), blocks_.end(),
                                         [&](const Block& b) { return b.back() < value; });
    return static_cast<std::size_t>(it - blocks_.begin());
  }
  void split(std::size_t b);

  std::vector<Block> blocks_;  // none is empty
  U32 size_ = 0;
};

template <class T>
bool SortedSet<T>::insert(const T& value) {
  if (blocks_.empty()) {
    blocks_.push_back(Block{value});
    size_ = 1;
    return true;
  }
  std::size_t b = std::min(blockFor(value), blocks_.size() - 1);
  auto at = std::lower_bound(blocks_[b].begin(), blocks_[b].end(), value);
  if (at != blocks_[b].end() && !(value < *at)) return false;
  if (blocks_[b].size() == blockSize) {
    split(b);
    if (blocks_[b].back() < value) ++b;
    at = std::lower_bound(blocks_[b].begin(), blocks_[b].end(), value);
  }
  blocks_[b].insert(at, value);
  ++size_;
  return true;
}

/// Moves the upper half of a full block into a new block behind it.
template <class T>
void SortedSet<T>::split(std::size_t b) {
  const auto half = blocks_[b].begin() + blockSize / 2;
  Block upper(half, blocks_[b].end());
  blocks_[b].erase(half, blocks_[b].end());
  blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(upper));
}

template <class T>
bool SortedSet<T>::erase(const T& value) {
  const std::size_t b = blockFor(value);
  if (b == blocks_.size()) return false;
  const auto at = std::lower_bound(blocks_[b].begin(), blocks_[b].end(), value);
  if (value < *at) return false;
  blocks_[b].erase(at);  // `value` may be the very element: it is not used from here on
  if (blocks_[b].empty()) blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b));
  --size_;
  return true;
}

template <class T>
const T* SortedSet<T>::after(const T& value) const {
  std::size_t b = blockFor(value);
  if (b == blocks_.size()) return nullptr;
  const auto at = std::upper_bound(blocks_[b].begin(), blocks_[b].end(), value);
  if (at != blocks_[b].end()) return &*at;
  return ++b < blocks_.size() ? &blocks_[b].front() : nullptr;
}

}  // namespace Zan
