#pragma once

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "Zan/Bookmark.h"
#include "Zan/Member.h"
#include "Zan/Ptr.h"

namespace Zan {

template <class V, class K>
class HashMap;

/// The links of a `HashMap` member; V derives from it and answers its own key with `fwkKey()`.
template <class V>
class HashMember {
 protected:
  HashMember() = default;
  ~HashMember() = default;

 private:
  template <class, class>
  friend class HashMap;
  V* next_ = nullptr;
  V* prev_ = nullptr;
};

/// Keyed collection of counted members that carry their key and their links. A hash index (by the key's
/// `hash()` and `operator==`) over a list in order of insertion, so that walks are the same in every run and
/// growing moves nobody. Holds one reference to each member. Lookup, insertion and deletion cost constant
/// time; up to `scanned` members need no index at all. The index is an open table of member pointers with 16
/// bits of the hash in each, so that a search reads, next to one line of the table, only the member that it
/// finds.
template <class V, class K>
class HashMap {
 public:
  explicit HashMap(U32 requestedSize = 0) : requested_(requestedSize) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap();

  U32 size() const { return size_; }
  V* lookup(const K& key) const;
  /// Starts to load what a look-up of this key will read first, so that other work hides the wait.
  void prefetch(const K& key) const {
    if (slots_) __builtin_prefetch(&slots_[place(key.hash())]);
  }
  /// Adds a member. Its key must not be in use.
  void insert(const Ptr<V>& member);
  /// Deletes the member under `key` and returns it; null when there is none.
  Ptr<V> erase(const K& key) { return erase(lookup(key)); }
  /// Deletes `member`, which is in this collection or null.
  Ptr<V> erase(V* member);
  void eraseAll() {
    while (first_) erase(first_);
  }

  /// Walks in order of insertion. When the member under it is deleted it reads as empty until `++`, which
  /// goes on with the member that followed. Members added meanwhile are met at the end.
  template <class Value>
  class BasicIterator;
  using IteratorConst = BasicIterator<const V>;
  using Iterator = BasicIterator<V>;
  Iterator iterator() { return Iterator(*this); }
  IteratorConst iterator() const { return IteratorConst(*this); }

 private:
  struct Mark : BookmarkList<Mark>::Link {
    const HashMap* map = nullptr;
    V* current = nullptr;
    V* before = nullptr;   // after a deletion: the member before the gap
    bool removed = false;  // the member under the iterator was deleted
  };
  static constexpr U32 scanned = 8;

  /// A member and the first 20 bits of its hash: 16 in the bits that user space pointers leave free at the
  /// top, 4 in those that the alignment of the members leaves at the bottom. The place in the table is the
  /// first bits of the hash too, so that the table grows without a look at the members.
  using Slot = U64;
  static constexpr Slot emptySlot = 0;
  static constexpr Slot deletedSlot = 1;
  static constexpr Slot tagMask = 0xFFFF00000000000F;
  static constexpr U32 tagBits = 20;
  static Slot tagOf(U64 h) { return (h & 0xFFFF000000000000) | (h >> 44 & 0xF); }
  static V* memberOf(Slot s) { return reinterpret_cast<V*>(static_cast<std::uintptr_t>(s & ~tagMask)); }
  static bool holds(Slot s) { return s > deletedSlot; }
  static bool mayBe(Slot s, U64 h) { return holds(s) && ((s ^ h) >> 48) == 0 && ((s ^ h >> 44) & 0xF) == 0; }

  static U64 hash(const V& v) { return v.fwkKey().hash(); }
  /// The hash of the member in a slot, as far as the place needs it.
  U64 hashIn(Slot s) const {
    if (slotBits_ > tagBits) return hash(*memberOf(s));
    return (s & 0xFFFF000000000000) | (s & 0xF) << 44;
  }
  U32 slotCount() const { return U32{1} << slotBits_; }
  U32 place(U64 h) const { return static_cast<U32>(h >> (64 - slotBits_)); }
  U32 after(U32 at) const { return (at + 1) & (slotCount() - 1); }
  U32 before(U32 at) const { return (at - 1) & (slotCount() - 1); }
  void enter(V* member, U64 h);
  void leave(V* member);
  void unlink(V* member);
  void rehash(U32 count);
  void fit();

  struct Free {
    void operator()(Slot* slots) const { std::free(slots); }  // NOLINT: from calloc
  };
  using Slots = std::unique_ptr<Slot[], Free>;
  /// All empty. A large table comes from the system, which has cleared it already.
  static Slots newSlots(U32 count) {
    auto* slots = static_cast<Slot*>(std::calloc(count, sizeof(Slot)));  // NOLINT: nothing else gives that
    if (!slots) throw std::bad_alloc();
    return Slots(slots);
  }

  Slots slots_;
  U32 slotBits_ = 0;
  U32 deleted_ = 0;  // slots that a deletion left behind
  U32 size_ = 0;
  V* first_ = nullptr;
  V* last_ = nullptr;
  mutable BookmarkList<Mark> marks_;
  U32 requested_;
};

template <class V, class K>
template <class Value>
class HashMap<V, K>::BasicIterator {
 public:
  /// On an empty collection it is at the end for good, and nothing needs to know of it.
  explicit BasicIterator(const HashMap& map) {
    if (!map.first_) return;
    mark_.map = &map;
    mark_.current = map.first_;
    map.marks_.add(&mark_);
  }
  BasicIterator(const BasicIterator& other) {
    mark_.map = other.mark_.map;
    mark_.current = other.mark_.current;
    mark_.before = other.mark_.before;
    mark_.removed = other.mark_.removed;
    if (mark_.map) mark_.map->marks_.add(&mark_);
  }
  BasicIterator& operator=(const BasicIterator&) = delete;
  ~BasicIterator() {
    if (mark_.map) BookmarkList<Mark>::remove(&mark_);
  }

  explicit operator bool() const { return mark_.current != nullptr; }
  Value* get() const { return mark_.current; }
  Value* operator->() const { return mark_.current; }
  Value& operator*() const { return *mark_.current; }
  BasicIterator& operator++() {
    if (!mark_.map) return *this;
    if (mark_.removed) {
      mark_.current = mark_.before ? mark_.before->next_ : mark_.map->first_;
      mark_.removed = false;
    } else if (mark_.current) {
      mark_.current = mark_.current->next_;
    }
    return *this;
  }
  /// Deletes the member under the iterator.
  Ptr<V> erase() requires(!std::is_const_v<Value>) {
    return mark_.current ? const_cast<HashMap*>(mark_.map)->erase(mark_.current) : nullptr;
  }

 private:
  Mark mark_;
};

template <class V, class K>
HashMap<V, K>::~HashMap() {
  marks_.forEach([](Mark& m) {
    m.map = nullptr;
    m.current = nullptr;
  });
  for (V* v = first_; v;) {
    V* next = v->next_;
    memberOrphaned(*v);
    v->deleteReference();
    v = next;
  }
}

template <class V, class K>
V* HashMap<V, K>::lookup(const K& key) const {
  if (!slots_) {
    for (V* v = first_; v; v = v->next_) {
      if (v->fwkKey() == key) return v;
    }
    return nullptr;
  }
  const U64 h = key.hash();
  for (U32 at = place(h); slots_[at] != emptySlot; at = after(at)) {
    if (!mayBe(slots_[at], h)) continue;
    if (V* v = memberOf(slots_[at]); v->fwkKey() == key) return v;
  }
  return nullptr;
}

template <class V, class K>
void HashMap<V, K>::insert(const Ptr<V>& member) {
  V* v = member.get();
  ZAN_ASSERT_TEXT(slots_ || !lookup(v->fwkKey()), "!lookup(member->fwkKey())");
  v->newReference();
  v->prev_ = last_;
  v->next_ = nullptr;
  (last_ ? last_->next_ : first_) = v;
  last_ = v;
  ++size_;
  if (slots_) enter(v, hash(*v));
  fit();
}

template <class V, class K>
void HashMap<V, K>::enter(V* member, U64 h) {
  const auto bits = static_cast<Slot>(reinterpret_cast<std::uintptr_t>(member));
  ZAN_ASSERT((bits & tagMask) == 0);
  U32 at = place(h);
  for (; holds(slots_[at]); at = after(at)) {
    ZAN_ASSERT_TEXT(!mayBe(slots_[at], h) || !(memberOf(slots_[at])->fwkKey() == member->fwkKey()),
                    "!lookup(member->fwkKey())");
  }
  deleted_ -= slots_[at] == deletedSlot;
  slots_[at] = bits | tagOf(h);
}

/// A search must not end at the freed slot unless it would at the next one.
template <class V, class K>
void HashMap<V, K>::leave(V* member) {
  U32 at = place(hash(*member));
  while (memberOf(slots_[at]) != member) at = after(at);
  if (slots_[after(at)] != emptySlot) {
    slots_[at] = deletedSlot;
    ++deleted_;
    return;
  }
  slots_[at] = emptySlot;
  for (U32 i = before(at); slots_[i] == deletedSlot; i = before(i)) {
    slots_[i] = emptySlot;
    --deleted_;
  }
}

template <class V, class K>
Ptr<V> HashMap<V, K>::erase(V* member) {
  if (!member) return nullptr;
  unlink(member);
  Ptr<V> left = Ptr<V>::adopt(member);
  fit();
  memberLeft(*left);
  return left;
}

template <class V, class K>
void HashMap<V, K>::unlink(V* v) {
  marks_.forEach([v](Mark& m) {
    if (m.removed) {
      if (m.before == v) m.before = v->prev_;
    } else if (m.current == v) {
      m.before = v->prev_;
      m.current = nullptr;
      m.removed = true;
    }
  });
  if (slots_) leave(v);
  (v->prev_ ? v->prev_->next_ : first_) = v->next_;
  (v->next_ ? v->next_->prev_ : last_) = v->prev_;
  v->next_ = v->prev_ = nullptr;
  --size_;
}

/// Keeps an eighth to three quarters of the slots in use, with room between growing and shrinking.
template <class V, class K>
void HashMap<V, K>::fit() {
  const U32 wanted = size_ > requested_ ? size_ : requested_;
  if (wanted <= scanned) {
    if (slots_ && size_ <= scanned / 2) rehash(0);
  } else if (!slots_ || wanted + deleted_ > slotCount() / 4 * 3 || wanted < slotCount() / 8) {
    rehash(std::bit_ceil(wanted + wanted / 2));
  }
}

template <class V, class K>
void HashMap<V, K>::rehash(U32 count) {
  deleted_ = 0;
  if (count == 0) {
    slots_.reset();
    return;
  }
  const U32 hadCount = slots_ ? slotCount() : 0;
  const Slots had = std::exchange(slots_, newSlots(count));
  const auto enterSlot = [this](Slot s, U64 h) {
    U32 at = place(h);
    while (slots_[at] != emptySlot) at = after(at);
    slots_[at] = s;
  };
  slotBits_ = static_cast<U32>(std::countr_zero(count));
  if (!had) {
    for (V* v = first_; v; v = v->next_) enter(v, hash(*v));
  }
  for (U32 i = 0; i < hadCount; ++i) {
    if (holds(had[i])) enterSlot(had[i], hashIn(had[i]));
  }
}

}  // namespace Zan
