#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "Zan/Assert.h"
#include "Zan/Ptr.h"

namespace Zan {

/// A set of small values in ascending order. A lone value lives in the set itself: most sets have one. More
/// are kept in sorted blocks of up to 64, themselves in order, so that a set of 100,000 still inserts in
/// under a tenth of a microsecond. Walk it with `iterator()`, which holds the value it stands on and goes on
/// with the smallest greater one, whatever was added or removed meanwhile. It does not outlive the set: a
/// record hands out `iteratorHolding` itself.
template <class T>
class SortedSet {
 public:
  static_assert(std::is_trivially_copyable_v<T>);

  SortedSet() = default;
  SortedSet(const SortedSet&) = delete;
  SortedSet& operator=(const SortedSet&) = delete;
  ~SortedSet() { clear(); }

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
    if (many_) {
      for (Block* block : many().blocks) ::operator delete(block);
      delete &many();
    }
    many_ = false;
    size_ = 0;
  }

  class Iterator {
   public:
    explicit operator bool() const { return valid_; }
    const T& operator*() const {
      ZAN_ASSERT_TEXT(valid_, "the iterator stands on a value");
      return value_;
    }
    const T* operator->() const { return &**this; }
    Iterator& operator++() {
      set_->advance(*this);
      return *this;
    }

   private:
    friend class SortedSet;
    explicit Iterator(const SortedSet& set, Ptr<PtrInterface const> owner = nullptr)
        : set_(&set), owner_(std::move(owner)) {}

    const SortedSet* set_;
    Ptr<PtrInterface const> owner_;
    // Where the value stood; it is searched for when it does not stand there any more.
    std::size_t block_ = 0;
    U32 place_ = 0;
    bool valid_ = false;
    T value_{};
  };
  Iterator iterator() const { return iteratorHolding(nullptr); }
  /// An iterator that keeps `owner`, the record that has this set, alive.
  Iterator iteratorHolding(Ptr<PtrInterface const> owner) const;
  /// A walk from the smallest value that is not less than `value`.
  Iterator iterator(const T& value) const;
  /// The smallest value that is not less than `value`, or null. Valid until the set changes.
  const T* from(const T& value) const;

 private:
  static constexpr U32 blockSize = 64;
  static constexpr std::size_t valueBytes = sizeof(T);  // NOLINT: T may be a pointer
  static constexpr std::size_t pointerBytes = sizeof(void*);
  /// Followed by its values.
  struct Block {
    U32 count;
    U16 capacity;
    U16 newest;  // where the last insertion was
    T* values() { return reinterpret_cast<T*>(this + 1); }
    T* end() { return values() + count; }
    T* lower(const T& value) { return std::lower_bound(values(), end(), value); }
    void insert(T* at, const T& value) {
      std::copy_backward(at, end(), end() + 1);
      *at = value;
      ++count;
      newest = static_cast<U16>(at - values());
    }
    void erase(T* at) {
      std::copy(at + 1, end(), at);
      --count;
    }
  };
  static_assert(alignof(T) <= sizeof(Block));
  /// The blocks, and the last value of each, which stand apart so that the search for a block reads nothing
  /// else. No block is empty. A lone block grows up to the full size; all others have it.
  struct Many {
    std::vector<T> lasts;
    std::vector<Block*> blocks;
  };

  Many& many() const {
    Many* m;
    std::memcpy(&m, store_, pointerBytes);
    return *m;
  }
  const T& lone() const { return *reinterpret_cast<const T*>(store_); }
  /// The block that holds `value` if any does: the first whose last value is not less.
  static std::size_t blockFor(const Many& m, const T& value) {
    return static_cast<std::size_t>(std::lower_bound(m.lasts.begin(), m.lasts.end(), value) -
                                    m.lasts.begin());
  }
  void put(Iterator& i, std::size_t block, const T* value) const;
  void advance(Iterator& i) const;
  void makeMany();
  static Block* newBlock(U32 capacity, const T* first, const T* end);
  static void makeRoom(Many& m, std::size_t b, U32 place);

  U32 size_ : 31 = 0;
  U32 many_ : 1 = false;
  /// A lone value, or the address of many. As bytes: a pointer's alignment would cost smaller values a word.
  alignas(T) unsigned char store_[std::max(valueBytes, pointerBytes)];
};

template <class T>
typename SortedSet<T>::Block* SortedSet<T>::newBlock(U32 capacity, const T* first, const T* end) {
  void* place = ::operator new(sizeof(Block) + capacity * valueBytes);
  auto* block = new (place) Block{static_cast<U32>(end - first), static_cast<U16>(capacity), 0};
  std::copy(first, end, block->values());
  return block;
}

template <class T>
void SortedSet<T>::makeMany() {
  auto m = std::make_unique<Many>();
  m->lasts.push_back(lone());
  m->blocks.reserve(1);  // so that nothing can throw while the block has no owner
  m->blocks.push_back(newBlock(4, &lone(), &lone() + 1));
  const Many* place = m.release();
  std::memcpy(store_, &place, pointerBytes);
  many_ = true;
}

template <class T>
bool SortedSet<T>::insert(const T& value) {
  const T added = value;  // which may be an element
  if (!many_) {
    if (size_ == 0) {
      new (store_) T(added);
      size_ = 1;
      return true;
    }
    if (!(added < lone()) && !(lone() < added)) return false;
    makeMany();
  }
  Many& m = many();
  const bool atEnd = m.lasts.back() < added;  // values often come in order
  const std::size_t b = atEnd ? m.blocks.size() - 1 : blockFor(m, added);
  Block& block = *m.blocks[b];
  T* at = atEnd ? block.end() : block.lower(added);
  if (!atEnd && !(added < *at)) return false;
  if (block.count == block.capacity) {
    makeRoom(m, b, static_cast<U32>(at - block.values()));
    return insert(added);
  }
  block.insert(at, added);
  m.lasts[b] = block.end()[-1];
  ++size_;
  return true;
}

/// Makes a full block larger, or moves its upper half into a new block behind it. Where values come in order,
/// there or among others, everything behind the last one moves instead, so that they leave full blocks.
template <class T>
void SortedSet<T>::makeRoom(Many& m, std::size_t b, U32 place) {
  Block* full = m.blocks[b];
  if (full->capacity < blockSize) {
    m.blocks[b] = newBlock(2u * full->capacity, full->values(), full->end());
    m.blocks[b]->newest = full->newest;
    ::operator delete(full);
    return;
  }
  const auto makeRoomForOne = [](auto& all) {
    if (all.size() == all.capacity()) all.reserve(2 * all.size());
  };
  makeRoomForOne(m.blocks);  // so that nothing can throw while the block has no owner
  makeRoomForOne(m.lasts);
  const U32 stay = place == full->newest + 1u ? std::min(place, blockSize - 1) : blockSize / 2;
  const auto at = static_cast<std::ptrdiff_t>(b);
  m.blocks.insert(m.blocks.begin() + at + 1, newBlock(blockSize, full->values() + stay, full->end()));
  full->count = stay;
  m.lasts.insert(m.lasts.begin() + at, full->end()[-1]);
}

template <class T>
bool SortedSet<T>::erase(const T& value) {
  if (!contains(value)) return false;
  if (size_ == 1) {
    clear();
    return true;
  }
  Many& m = many();
  const std::size_t b = blockFor(m, value);
  Block& block = *m.blocks[b];
  block.erase(block.lower(value));  // from here on `value` may be gone
  --size_;
  if (block.count == 0) {
    ::operator delete(&block);
    m.lasts.erase(m.lasts.begin() + static_cast<std::ptrdiff_t>(b));
    m.blocks.erase(m.blocks.begin() + static_cast<std::ptrdiff_t>(b));
  } else {
    m.lasts[b] = block.end()[-1];
  }
  return true;
}

template <class T>
const T* SortedSet<T>::from(const T& value) const {
  if (!many_) return size_ == 1 && !(lone() < value) ? &lone() : nullptr;
  const Many& m = many();
  return m.lasts.back() < value ? nullptr : m.blocks[blockFor(m, value)]->lower(value);
}

template <class T>
typename SortedSet<T>::Iterator SortedSet<T>::iteratorHolding(Ptr<PtrInterface const> owner) const {
  Iterator i(*this, std::move(owner));
  put(i, 0, many_ ? many().blocks.front()->values() : size_ == 1 ? &lone() : nullptr);
  return i;
}

template <class T>
typename SortedSet<T>::Iterator SortedSet<T>::iterator(const T& value) const {
  const T* first = from(value);
  Iterator i(*this);
  put(i, first && many_ ? blockFor(many(), value) : 0, first);
  return i;
}

/// Puts an iterator on a value in a block, or on a lone one; null is the end.
template <class T>
void SortedSet<T>::put(Iterator& i, std::size_t block, const T* value) const {
  i.valid_ = value != nullptr;
  if (!value) return;
  i.block_ = block;
  i.place_ = many_ ? static_cast<U32>(value - many().blocks[block]->values()) : 0;
  i.value_ = *value;
}

/// Puts an iterator on the smallest value greater than the one that it stands on.
template <class T>
void SortedSet<T>::advance(Iterator& i) const {
  if (!i.valid_ || !many_) {
    return put(i, 0, i.valid_ && size_ == 1 && i.value_ < lone() ? &lone() : nullptr);
  }
  const Many& m = many();
  std::size_t b = i.block_;
  const T* next;
  if (b < m.blocks.size() && i.place_ < m.blocks[b]->count && m.blocks[b]->values()[i.place_] == i.value_) {
    next = m.blocks[b]->values() + i.place_ + 1;
  } else if (m.lasts.back() < i.value_) {
    return put(i, 0, nullptr);
  } else {
    b = blockFor(m, i.value_);
    next = std::upper_bound(m.blocks[b]->values(), m.blocks[b]->end(), i.value_);
  }
  if (next != m.blocks[b]->end()) return put(i, b, next);
  if (++b < m.blocks.size()) return put(i, b, m.blocks[b]->values());
  put(i, 0, nullptr);
}

}  // namespace Zan
