#pragma once

#include "Zan/Bookmark.h"
#include "Zan/HashIndex.h"
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
/// time; up to `scanned` members need no index at all.
template <class V, class K>
class HashMap : HashIndex<V> {
 public:
  /// The index is never smaller than for `requestedSize` members, rounded up to a power of two.
  explicit HashMap(U32 requestedSize = 0) : requestedBits_(static_cast<U8>(std::bit_width(requestedSize))) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap();

  U32 size() const { return size_; }
  V* lookup(const K& key) const;
  /// Starts to load what a look-up of this key will read first, so that other work hides the wait.
  [[gnu::always_inline]] void prefetch(const K& key) const {
    if (Index::exists()) Index::prefetch(key.hash());
  }
  /// So many members will come: an empty map makes room for them at once.
  void reserve(U32 count) {
    if (!Index::exists() && !first_ && count > scanned) Index::make(count);
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
  using Index = HashIndex<V>;
  struct Mark : BookmarkList<Mark>::Link {
    const HashMap* map = nullptr;
    V* current = nullptr;
    V* before = nullptr;   // after a deletion: the member before the gap
    bool removed = false;  // the member under the iterator was deleted
  };
  static constexpr U32 scanned = 8;

  static U64 hash(const V& v) { return v.fwkKey().hash(); }
  void unlink(V* member);
  void fit();

  U8 requestedBits_;
  U32 size_ = 0;
  V* first_ = nullptr;
  V* last_ = nullptr;
  mutable BookmarkList<Mark> marks_;
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
  if (Index::exists()) {
    return Index::find(key.hash(), [&](const V& v) { return v.fwkKey() == key; });
  }
  for (V* v = first_; v; v = v->next_) {
    if (v->fwkKey() == key) return v;
  }
  return nullptr;
}

template <class V, class K>
void HashMap<V, K>::insert(const Ptr<V>& member) {
  V* v = member.get();
  ZAN_ASSERT_TEXT(Index::exists() || !lookup(v->fwkKey()), "!lookup(member->fwkKey())");
  v->newReference();
  v->prev_ = last_;
  v->next_ = nullptr;
  (last_ ? last_->next_ : first_) = v;
  last_ = v;
  ++size_;
  if (Index::exists()) {
    Index::enter(v, hash(*v));
  } else {
    fit();
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
  if (Index::exists()) Index::leave(v, hash(*v));
  (v->prev_ ? v->prev_->next_ : first_) = v->next_;
  (v->next_ ? v->next_->prev_ : last_) = v->prev_;
  v->next_ = v->prev_ = nullptr;
  --size_;
}

/// Makes or drops the index, or makes it smaller, with room between growing and shrinking.
template <class V, class K>
void HashMap<V, K>::fit() {
  const U32 wanted = std::max(size_, (U32{1} << requestedBits_) - 1);
  if (wanted <= scanned) {
    if (size_ <= scanned / 2) Index::clear();
    if (size_ <= scanned) return;
  }
  if (Index::exists() && !Index::isSparseFor(wanted)) return;
  Index::make(wanted);
  for (V* v = first_; v; v = v->next_) Index::enter(v, hash(*v));
}

}  // namespace Zan
