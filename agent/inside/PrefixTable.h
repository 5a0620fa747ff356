#pragma once

#include <bit>
#include <span>
#include <utility>
#include <vector>

#include "Lumo/Prefix.h"

namespace mrib {

/// Values by IPv4 prefix, which a value knows itself (`key()`), side by side in memory. A value that goes is
/// replaced by the last one, so places and pointers hold until the next insertion or removal.
///
/// The index has open addresses with linear probing, at most half full: a word for each value, with half the
/// hash in it, so that a search reads one word of the index and the value that it finds.
template <class T>
class PrefixTable {
 public:
  U32 size() const { return static_cast<U32>(values_.size()); }
  const std::vector<T>& values() const { return values_; }
  std::span<T> values() { return values_; }
  T& at(U32 place) { return values_[place]; }
  const T& at(U32 place) const { return values_[place]; }
  U32 placeOf(const T& value) const { return static_cast<U32>(&value - values_.data()); }

  const T* find(const Lumo::Prefix& key) const {
    if (index_.empty()) return nullptr;
    const U64 h = key.hash();
    for (std::size_t i = home(h); index_[i] != 0; i = next(i)) {
      if ((index_[i] ^ h) >> 32 != 0) continue;
      const T& value = values_[placeIn(i)];
      if (value.key() == key) return &value;
    }
    return nullptr;
  }
  T* find(const Lumo::Prefix& key) { return const_cast<T*>(std::as_const(*this).find(key)); }
  /// A key will be looked up soon.
  [[gnu::always_inline]] void prefetch(const Lumo::Prefix& key) const {
    if (!index_.empty()) __builtin_prefetch(index_.data() + home(key.hash()));
  }
  /// Adds a value under a key that is not there.
  T& insert(T value) {
    if ((values_.size() + 1) * 2 > index_.size()) grow(values_.size() + 1);
    values_.push_back(std::move(value));
    enter(values_.back().key().hash(), size() - 1);
    return values_.back();
  }
  /// The value under a key; one that is not there is made, without its key, and the second is true.
  std::pair<T*, bool> findOrInsert(const Lumo::Prefix& key) {
    if ((values_.size() + 1) * 2 > index_.size()) grow(values_.size() + 1);
    const U64 h = key.hash();
    std::size_t i = home(h);
    for (; index_[i] != 0; i = next(i)) {
      if ((index_[i] ^ h) >> 32 == 0 && values_[placeIn(i)].key() == key)
        return {&values_[placeIn(i)], false};
    }
    values_.emplace_back();
    index_[i] = entry(h, size() - 1);
    return {&values_.back(), true};
  }
  void erase(const T& value) {
    const U32 place = placeOf(value);
    leave(value.key().hash(), place);
    const U32 last = size() - 1;
    if (place != last) {
      const U64 h = values_[last].key().hash();
      std::size_t i = home(h);
      while (placeIn(i) != last || index_[i] == 0) i = next(i);
      index_[i] = entry(h, place);
      values_[place] = std::move(values_[last]);
    }
    values_.pop_back();
  }
  void reserve(std::size_t count) {
    values_.reserve(count);
    if (count * 2 > index_.size()) grow(count);
  }

 private:
  // An entry is the upper half of the hash, whose first bits are its home, and the place, counted from 1; 0
  // is none.
  static U64 entry(U64 h, U32 place) { return (h & ~U64{0xFFFFFFFF}) | (place + 1); }
  std::size_t home(U64 h) const { return static_cast<std::size_t>(h >> shift_); }
  std::size_t next(std::size_t i) const { return (i + 1) & (index_.size() - 1); }
  U32 placeIn(std::size_t i) const { return static_cast<U32>(index_[i]) - 1; }

  void enter(U64 h, U32 place) {
    std::size_t i = home(h);
    while (index_[i] != 0) i = next(i);
    index_[i] = entry(h, place);
  }
  /// Moves back what a search would not find behind the gap.
  void leave(U64 h, U32 place) {
    std::size_t gap = home(h);
    while (placeIn(gap) != place || index_[gap] == 0) gap = next(gap);
    for (std::size_t i = next(gap); index_[i] != 0; i = next(i)) {
      const std::size_t wanted = home(index_[i]);
      const std::size_t mask = index_.size() - 1;
      if (((i - wanted) & mask) < ((i - gap) & mask)) continue;
      index_[gap] = index_[i];
      gap = i;
    }
    index_[gap] = 0;
  }
  void grow(std::size_t count) {
    const std::size_t slots = std::bit_ceil(count * 2);
    index_.assign(slots, 0);
    shift_ = std::countl_zero(slots - 1);
    for (U32 i = 0; i < size(); ++i) enter(values_[i].key().hash(), i);
  }

  std::vector<T> values_;
  std::vector<U64> index_;
  int shift_ = 0;
};

}  // namespace mrib
