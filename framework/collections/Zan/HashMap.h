#pragma once

#include <new>

#include "Zan/Assert.h"
#include "Zan/Bookmark.h"
#include "Zan/HashIndex.h"
#include "Zan/Member.h"
#include "Zan/Ptr.h"

namespace Zan {

template <class V, class K>
class HashMap;

/// The links of a `HashMap` member; V derives from it and answers its own key with `fwkKey()`. They are
/// enough for one collection at a time; entering it into a second one is asserted against.
template <class V>
class HashMember {
 public:
  bool isInCollection() const { return prev_ != nullptr; }

 protected:
  HashMember() = default;
  ~HashMember() = default;

 private:
  template <class, class>
  friend class HashMap;
  V* next_ = nullptr;
  V* prev_ = nullptr;  // of the first member, itself; null outside of collections
};

/// Keyed collection of counted members that carry their key and their links. A hash index (by the key's
/// `hash()` and `operator==`) over a list in order of insertion, so that walks are the same in every run and
/// growing moves nobody. Holds one reference to each member. Lookup, insertion and deletion cost constant
/// time; up to `scanned` members need no index at all. A key stays the same while its member is in here.
template <class V, class K>
class HashMap : HashIndex<V> {
 public:
  /// The index is never smaller than for `requestedSize` members, rounded up to a power of two. Throws a
  /// range exception for more than 2^31.
  explicit HashMap(U32 requestedSize = 0) : requestedBits_(static_cast<U8>(std::bit_width(requestedSize))) {
    if (requestedSize > U32{1} << 31) {
      throwRangeException("Zan::HashMap::requestedSize > 2147483648 not allowed");
    }
  }
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
  /// Adds a member, which is in no collection. Its key must not be in use.
  void insert(const Ptr<V>& member);
  /// Deletes the member under `key` and returns it; null when there is none. The member's `zanLeft` may do as
  /// it likes, destroy this collection included; so it may here and below.
  Ptr<V> erase(const K& key) { return remove(lookup(key)); }
  /// Deletes `member`, which is in this collection or null.
  Ptr<V> erase(V* member) {
    ZAN_ASSERT_TEXT(!member || lookup(member->fwkKey()) == member, "lookup(member->fwkKey()) == member");
    return remove(member);
  }
  /// Deletes the members that there are now, in order; those that are added meanwhile stay.
  void eraseAll();

  /// Walks in order of insertion. When the member under it is deleted it reads as empty until `++`, which
  /// goes on with the member that followed. Members added meanwhile are met at the end. When the collection
  /// has gone it is at the end.
  template <class Value>
  class BasicIterator;
  using IteratorConst = BasicIterator<const V>;
  using Iterator = BasicIterator<V>;
  Iterator iterator() { return Iterator(*this); }
  IteratorConst iterator() const { return IteratorConst(*this); }

 private:
  using Index = HashIndex<V>;
  /// A place in the collection, which stays right while the collection changes.
  struct Mark : BookmarkList<Mark>::Link {
    Mark(const HashMap& m, V* at) : map(at ? &m : nullptr), current(at) {
      if (map) map->marks_.add(this);
    }
    Mark(const Mark& other)
        : BookmarkList<Mark>::Link(),
          map(other.map),
          current(other.current),
          before(other.before),
          removed(other.removed) {
      if (map) map->marks_.add(this);
    }
    Mark& operator=(const Mark&) = delete;
    ~Mark() {
      if (map) BookmarkList<Mark>::remove(this);
    }
    /// The last member up to here, or null.
    V* upTo() const { return removed ? before : current; }

    const HashMap* map;  // null when it has gone
    V* current;
    V* before = nullptr;   // after a deletion: the member before the gap
    bool removed = false;  // the member under the mark was deleted
  };
  static constexpr U32 scanned = 8;

  static U64 hash(const V& v) { return v.fwkKey().hash(); }
  static V* before(const V* v) { return v->prev_ == v ? nullptr : v->prev_; }
  Ptr<V> remove(V* member);
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
  explicit BasicIterator(const HashMap& map) : mark_(map, map.first_) {}

  explicit operator bool() const { return mark_.current != nullptr; }
  Value* get() const { return mark_.current; }
  Value* operator->() const { return &**this; }
  Value& operator*() const {
    ZAN_ASSERT_TEXT(mark_.current, "the iterator stands on a member");
    return *mark_.current;
  }
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
    return mark_.current ? const_cast<HashMap*>(mark_.map)->remove(mark_.current) : nullptr;
  }

 private:
  mutable Mark mark_;  // the collection moves it, also where the iterator is const
};

template <class V, class K>
HashMap<V, K>::~HashMap() {
  marks_.forEach([](Mark& m) {
    m.map = nullptr;
    m.current = m.before = nullptr;
  });
  while (V* v = first_) {
    if (Index::exists()) Index::clear();
    (v->next_ ? v->next_->prev_ : last_) = v->next_;
    first_ = v->next_;
    v->next_ = v->prev_ = nullptr;
    --size_;
    memberOrphaned(*v);
    v->deleteReference();
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
  ZAN_ASSERT_TEXT(v && !v->isInCollection(), "member && !member->isInCollection()");
  ZAN_ASSERT_TEXT(Index::exists() || !lookup(v->fwkKey()), "!lookup(member->fwkKey())");
  const bool indexed = Index::exists();
  if (indexed) Index::enter(v, hash(*v));  // first: there may be no memory for it
  v->newReference();
  v->prev_ = last_ ? last_ : v;
  (last_ ? last_->next_ : first_) = v;
  last_ = v;
  ++size_;
  if (!indexed) fit();
}

template <class V, class K>
Ptr<V> HashMap<V, K>::remove(V* member) {
  if (!member) return nullptr;
  unlink(member);
  Ptr<V> left = Ptr<V>::adopt(member);
  fit();
  memberLeft(*left);
  return left;
}

template <class V, class K>
void HashMap<V, K>::eraseAll() {
  for (Mark last(*this, last_); last.upTo();) remove(first_);
}

template <class V, class K>
void HashMap<V, K>::unlink(V* v) {
  V* const behind = before(v);
  marks_.forEach([v, behind](Mark& m) {
    if (m.removed) {
      if (m.before == v) m.before = behind;
    } else if (m.current == v) {
      m.before = behind;
      m.current = nullptr;
      m.removed = true;
    }
  });
  if (Index::exists()) Index::leave(v, hash(*v));
  (behind ? behind->next_ : first_) = v->next_;
  if (v->next_) {
    v->next_->prev_ = behind ? behind : v->next_;
  } else {
    last_ = behind;
  }
  v->next_ = v->prev_ = nullptr;
  --size_;
}

/// Makes or drops the index, or makes it smaller, with room between growing and shrinking. Without memory for
/// it members are found by a walk, until there is some when the next one comes or goes.
template <class V, class K>
void HashMap<V, K>::fit() {
  const U64 wanted = std::max(U64{size_}, (U64{1} << requestedBits_) - 1);
  if (wanted <= scanned) {
    if (size_ <= scanned / 2) Index::clear();
    return;
  }
  if (Index::exists() && !Index::isSparseFor(wanted)) return;
  try {
    Index::make(wanted);
    for (V* v = first_; v; v = v->next_) Index::enter(v, hash(*v));
  } catch (const std::bad_alloc&) {
    Index::clear();
  }
}

}  // namespace Zan
