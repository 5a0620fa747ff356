#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "Zan/Types.h"

namespace Zan {

/// A set of small values in ascending order. A lone value lives in the set itself: most sets have one. More
/// are kept in sorted blocks of up to 64, themselves in order, so that a set of 100,000 still inserts in
/// under a microsecond. Walk it with `iterator()`, which holds the value it stands on and goes on with the
/// smallest greater one, whatever was added or removed meanwhile.
template <class T>
class SortedSet {
 public:
  static_assert(std::is_trivially_copyable_v<T>);

  U32 size() const { return size_; }
  bool contains(const T& value) const {
    const T* found = from(value);
    return found && !(value < *found);
  }
  /// False when the value was there already.
  bool insert(const T& value);
  /// False when the value was not there.
  bool erase(const T& value);
  void clear() {
    blocks_.reset();
    size_ = 0;
  }

  class Iterator {
   public:
    explicit Iterator(const SortedSet& set) : set_(&set), valid_(set.size_ > 0) {
      if (valid_) value_ = set.blocks_ ? set.blocks_->front().values.front() : set.lone_;
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
  const T* from(const T& value) const;
  /// The smallest value that is greater, or null. Valid until the set changes.
  const T* after(const T& value) const;

 private:
  /// Its last value stands beside the values, so that the search for a block reads nothing else.
  struct Block {
    explicit Block(std::vector<T> v) : last(v.back()), values(std::move(v)) {}
    T last;
    std::vector<T> values;
  };
  using Blocks = std::vector<Block>;
  static constexpr std::size_t blockSize = 64;

  /// The block that holds `value` if any does: the first whose last value is not less.
  std::size_t blockFor(const T& value) const {
    const auto it = std::partition_point(blocks_->begin(), blocks_->end(),
                                         [&](const Block& b) { return b.last < value; });
    return static_cast<std::size_t>(it - blocks_->begin());
  }
  void split(std::size_t b);

  std::unique_ptr<Blocks> blocks_;  // null while there is at most one value; no block is empty
  U32 size_ = 0;
  T lone_{};
};

template <class T>
bool SortedSet<T>::insert(const T& value) {
  if (!blocks_) {
    if (size_ == 0) {
      lone_ = value;
      size_ = 1;
      return true;
    }
    if (!(value < lone_) && !(lone_ < value)) return false;
    blocks_ = std::make_unique<Blocks>(1, Block({lone_}));
  }
  std::size_t b = std::min(blockFor(value), blocks_->size() - 1);
  const T added = value;  // which may be an element
  std::vector<T>* values = &(*blocks_)[b].values;
  auto at = std::lower_bound(values->begin(), values->end(), added);
  if (at != values->end() && !(added < *at)) return false;
  if (values->size() == blockSize) {
    split(b);
    if ((*blocks_)[b].last < added) ++b;
    values = &(*blocks_)[b].values;
    at = std::lower_bound(values->begin(), values->end(), added);
  }
  values->insert(at, added);
  (*blocks_)[b].last = values->back();
  ++size_;
  return true;
}

/// Moves the upper half of a full block into a new block behind it; of the last block, which values that come
/// in order fill, only the last value.
template <class T>
void SortedSet<T>::split(std::size_t b) {
  const bool last = b + 1 == blocks_->size();
  std::vector<T>& values = (*blocks_)[b].values;
  const auto from = last ? values.end() - 1 : values.begin() + blockSize / 2;
  Block upper(std::vector<T>(from, values.end()));
  values.erase(from, values.end());
  (*blocks_)[b].last = values.back();
  blocks_->insert(blocks_->begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(upper));
}

template <class T>
bool SortedSet<T>::erase(const T& value) {
  if (!contains(value)) return false;
  if (--size_ == 0) {
    blocks_.reset();
    return true;
  }
  const std::size_t b = blockFor(value);
  std::vector<T>& values = (*blocks_)[b].values;
  values.erase(std::lower_bound(values.begin(), values.end(), value));  // from here on `value` may be gone
  if (values.empty()) {
    blocks_->erase(blocks_->begin() + static_cast<std::ptrdiff_t>(b));
  } else {
    (*blocks_)[b].last = values.back();
  }
  return true;
}

template <class T>
const T* SortedSet<T>::from(const T& value) const {
  if (!blocks_) return size_ == 1 && !(lone_ < value) ? &lone_ : nullptr;
  const std::size_t b = blockFor(value);
  if (b == blocks_->size()) return nullptr;
  const std::vector<T>& values = (*blocks_)[b].values;
  return &*std::lower_bound(values.begin(), values.end(), value);
}

template <class T>
const T* SortedSet<T>::after(const T& value) const {
  if (!blocks_) return size_ == 1 && value < lone_ ? &lone_ : nullptr;
  std::size_t b = blockFor(value);
  if (b == blocks_->size()) return nullptr;
  const std::vector<T>& values = (*blocks_)[b].values;
  const auto at = std::upper_bound(values.begin(), values.end(), value);
  if (at != values.end()) return &*at;
  return ++b < blocks_->size() ? &(*blocks_)[b].values.front() : nullptr;
}

}  // namespace Zan
