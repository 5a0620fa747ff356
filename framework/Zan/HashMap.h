#pragma once

#include <memory>

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
  V* chain_ = nullptr;
};

/// Keyed collection of counted members that carry their key and their links. A hash index (by the key's
/// `hash()` and `operator==`) over a list in order of insertion, so that walks are the same in every run and
/// growing moves nobody. Holds one reference to each member. Lookup, insertion and deletion cost constant
/// time; up to `scanned` members need no index at all.
template <class V, class K>
class HashMap {
 public:
  explicit HashMap(U32 requestedSize = 0) : requested_(requestedSize) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap();

  U32 size() const { return size_; }
  V* lookup(const K& key) const;
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

  static U64 hash(const V& v) { return v.fwkKey().hash(); }
  V*& bucket(U64 h) const { return buckets_[h & (bucketCount_ - 1)]; }
  void unlink(V* member);
  void rehash(U32 count);
  void fit();

  std::unique_ptr<V*[]> buckets_;
  U32 bucketCount_ = 0;
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
  explicit BasicIterator(const HashMap& map) {
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
    return const_cast<HashMap*>(mark_.map)->erase(mark_.current);
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
  if (!buckets_) {
    for (V* v = first_; v; v = v->next_) {
      if (v->fwkKey() == key) return v;
    }
    return nullptr;
  }
  for (V* v = bucket(key.hash()); v; v = v->chain_) {
    if (v->fwkKey() == key) return v;
  }
  return nullptr;
}

template <class V, class K>
void HashMap<V, K>::insert(const Ptr<V>& member) {
  V* v = member.get();
  ZAN_ASSERT_TEXT(!lookup(v->fwkKey()), "!lookup(member->fwkKey())");
  v->newReference();
  v->prev_ = last_;
  v->next_ = nullptr;
  (last_ ? last_->next_ : first_) = v;
  last_ = v;
  ++size_;
  if (buckets_) {
    V*& head = bucket(hash(*v));
    v->chain_ = head;
    head = v;
  }
  fit();
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
  if (buckets_) {
    V** place = &bucket(hash(*v));
    while (*place != v) place = &(*place)->chain_;
    *place = v->chain_;
  }
  (v->prev_ ? v->prev_->next_ : first_) = v->next_;
  (v->next_ ? v->next_->prev_ : last_) = v->prev_;
  v->next_ = v->prev_ = v->chain_ = nullptr;
  --size_;
}

/// Keeps the index at one to four buckets for every member, with room between growing and shrinking.
template <class V, class K>
void HashMap<V, K>::fit() {
  const U32 wanted = size_ > requested_ ? size_ : requested_;
  if (wanted <= scanned) {
    if (buckets_ && size_ <= scanned / 2) rehash(0);
  } else if (wanted > bucketCount_ || wanted < bucketCount_ / 8) {
    U32 count = 2 * scanned;
    while (count < wanted) count *= 2;
    rehash(count);
  }
}

template <class V, class K>
void HashMap<V, K>::rehash(U32 count) {
  buckets_.reset(count ? new V*[count]() : nullptr);
  bucketCount_ = count;
  if (count == 0) return;
  for (V* v = first_; v; v = v->next_) {
    V*& head = bucket(hash(*v));
    v->chain_ = head;
    head = v;
  }
}

}  // namespace Zan
