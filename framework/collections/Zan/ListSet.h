#pragma once

#include <algorithm>
#include <new>
#include <utility>

#include "Zan/Assert.h"
#include "Zan/Bookmark.h"
#include "Zan/Types.h"

namespace Zan {

/// A small set of values in order of insertion, searched from the front. The first value lives in the set
/// itself: most routes have one via and one prefix set. Iterators survive every change, and the set.
template <class T>
class ListSet {
 public:
  ListSet() = default;
  ListSet(const ListSet&) = delete;
  ListSet& operator=(const ListSet&) = delete;
  ~ListSet() {
    marks_.forEach([](Mark& m) { m.set = nullptr; });
    clear();
    if (!isInline()) ::operator delete(many_);
  }

  U32 size() const { return size_; }
  const T& operator[](U32 i) const { return data()[i]; }
  /// The first value for which `matches` holds, or null. Valid until the set changes.
  template <class Predicate>
  const T* find(Predicate matches) const {
    for (U32 i = 0; i < size_; ++i) {
      if (matches(data()[i])) return data() + i;
    }
    return nullptr;
  }
  void append(T value) {
    if (size_ == capacity_) grow();
    new (data() + size_) T(std::move(value));
    ++size_;
  }
  void replace(const T* place, T value) { data()[place - data()] = std::move(value); }
  /// Removes the value at `place` and returns it.
  T remove(const T* place) {
    const auto index = static_cast<U32>(place - data());
    T removed = std::move(data()[index]);
    for (U32 i = index + 1; i < size_; ++i) data()[i - 1] = std::move(data()[i]);
    data()[--size_].~T();
    marks_.forEach([index](Mark& m) {
      if (m.index > index) {
        --m.index;
      } else if (m.index == index) {
        m.removed = true;
      }
    });
    return removed;
  }
  void clear() {
    while (size_ > 0) remove(data() + size_ - 1);
  }

  /// Stands on a value; reads as empty after its removal until `++`, which goes on with what followed. When
  /// the set has gone it is at the end.
  class Iterator;
  Iterator iterator() const { return Iterator(*this); }
  /// One on the last value: it tells afterwards how many of those that there are now are left.
  Iterator lastIterator() const { return Iterator(*this, size_ > 0 ? size_ - 1 : 0); }

 private:
  struct Mark : BookmarkList<Mark>::Link {
    const ListSet* set = nullptr;
    U32 index = 0;
    bool removed = false;
  };

  bool isInline() const { return capacity_ == 1; }
  T* data() { return isInline() ? reinterpret_cast<T*>(&one_) : many_; }
  const T* data() const { return isInline() ? reinterpret_cast<const T*>(&one_) : many_; }
  void grow() {
    T* larger = static_cast<T*>(::operator new(sizeof(T) * capacity_ * 2));
    T* old = data();
    for (U32 i = 0; i < size_; ++i) {
      new (larger + i) T(std::move(old[i]));
      old[i].~T();
    }
    if (!isInline()) ::operator delete(many_);
    many_ = larger;
    capacity_ *= 2;
  }

  union {
    alignas(T) unsigned char one_[sizeof(T)];
    T* many_;
  };
  U32 size_ = 0;
  U32 capacity_ = 1;
  mutable BookmarkList<Mark> marks_;
};

template <class T>
class ListSet<T>::Iterator {
 public:
  explicit Iterator(const ListSet& set, U32 index = 0) {
    mark_.set = &set;
    mark_.index = index;
    set.marks_.add(&mark_);
  }
  Iterator(const Iterator& other) {
    mark_.set = other.mark_.set;
    mark_.index = other.mark_.index;
    mark_.removed = other.mark_.removed;
    if (mark_.set) mark_.set->marks_.add(&mark_);
  }
  Iterator& operator=(const Iterator&) = delete;
  ~Iterator() {
    if (mark_.set) BookmarkList<Mark>::remove(&mark_);
  }

  explicit operator bool() const { return mark_.set && !mark_.removed && mark_.index < mark_.set->size_; }
  const T& operator*() const {
    ZAN_ASSERT_TEXT(*this, "the iterator stands on a value");
    return (*mark_.set)[mark_.index];
  }
  const T* operator->() const { return &**this; }
  Iterator& operator++() {
    if (mark_.removed) {
      mark_.removed = false;  // what followed has moved into the place
    } else if (*this) {
      ++mark_.index;
    }
    return *this;
  }
  /// How many values there are up to where it stands.
  U32 count() const { return mark_.set ? std::min(mark_.index + !mark_.removed, mark_.set->size_) : 0; }

 private:
  mutable Mark mark_;  // the set moves it, also where the iterator is const
};

}  // namespace Zan
