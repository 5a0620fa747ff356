#pragma once

#include <vector>

#include "Zan/Assert.h"
#include "Zan/Bookmark.h"
#include "Zan/Member.h"
#include "Zan/Ptr.h"

namespace Zan {

template <class V, class K>
class RbTreeMap;

/// The links of an `RbTreeMap` member; V derives from it and answers its own key with `fwkKey()`. They are
/// enough for one collection at a time; entering it into a second one is asserted against.
template <class V>
class RbTreeMember {
 public:
  bool isInCollection() const { return inside_; }

 protected:
  RbTreeMember() = default;
  ~RbTreeMember() = default;

 private:
  template <class, class>
  friend class RbTreeMap;
  V* child_[2] = {nullptr, nullptr};
  V* up_ = nullptr;
  bool red_ = false;
  bool inside_ = false;
};

/// Keyed collection of counted members in ascending order of their keys (`operator<`): a red-black tree
/// (Guibas and Sedgewick 1978) whose members carry key and links. Holds one reference to each member.
/// Operations cost logarithmic time.
template <class V, class K>
class RbTreeMap {
 public:
  RbTreeMap() = default;
  RbTreeMap(const RbTreeMap&) = delete;
  RbTreeMap& operator=(const RbTreeMap&) = delete;
  ~RbTreeMap();

  U32 size() const { return size_; }
  V* lookup(const K& key) const;
  /// The member with the smallest key, or null; and the one with the smallest key greater than `key`.
  V* first() const { return root_ ? extreme(root_, 0) : nullptr; }
  V* after(const K& key) const;
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
  /// Deletes the members that there are now, in order; others that are added meanwhile stay.
  void eraseAll();

  /// Walks in ascending order. When the member under it is deleted it reads as empty until `++`, which goes
  /// on with the smallest greater key. When the collection has gone it is at the end.
  template <class Value>
  class BasicIterator;
  using IteratorConst = BasicIterator<const V>;
  using Iterator = BasicIterator<V>;
  Iterator iterator() { return Iterator(*this); }
  IteratorConst iterator() const { return IteratorConst(*this); }

 private:
  /// A place in the collection, which stays right while the collection changes.
  struct Mark : BookmarkList<Mark>::Link {
    Mark(const RbTreeMap& m, V* at) : map(at ? &m : nullptr), current(at) {
      if (map) map->marks_.add(this);
    }
    Mark(const Mark& other)
        : BookmarkList<Mark>::Link(),
          map(other.map),
          current(other.current),
          key(other.key),
          removed(other.removed) {
      if (map) map->marks_.add(this);
    }
    Mark& operator=(const Mark&) = delete;
    ~Mark() {
      if (map) BookmarkList<Mark>::remove(this);
    }

    const RbTreeMap* map;  // null when it has gone
    V* current;
    K key{};  // of the member that was deleted under the mark
    bool removed = false;
  };

  static bool isRed(const V* v) { return v && v->red_; }
  static int side(const V* v) { return v->up_->child_[1] == v; }
  static V* extreme(V* v, int direction) {
    while (v->child_[direction]) v = v->child_[direction];
    return v;
  }
  static V* successor(V* v) {
    if (v->child_[1]) return extreme(v->child_[1], 0);
    while (v->up_ && side(v) == 1) v = v->up_;
    return v->up_;
  }
  /// Puts `with` (may be null) where `v` hangs.
  void replace(V* v, V* with) {
    (v->up_ ? v->up_->child_[side(v)] : root_) = with;
    if (with) with->up_ = v->up_;
  }
  Ptr<V> remove(V* member);
  void rotate(V* top, int direction);
  void unlink(V* v);
  void swapWithSuccessor(V* v);
  void fixInsertion(V* v);
  void fixRemoval(V* parent, int side);

  V* root_ = nullptr;
  U32 size_ = 0;
  mutable BookmarkList<Mark> marks_;
};

template <class V, class K>
template <class Value>
class RbTreeMap<V, K>::BasicIterator {
 public:
  /// On an empty collection it is at the end for good, and nothing needs to know of it.
  explicit BasicIterator(const RbTreeMap& map) : mark_(map, map.first()) {}

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
      mark_.current = mark_.map->after(mark_.key);
      mark_.removed = false;
    } else if (mark_.current) {
      mark_.current = successor(mark_.current);
    }
    return *this;
  }
  /// Deletes the member under the iterator.
  Ptr<V> erase() requires(!std::is_const_v<Value>) {
    return mark_.current ? const_cast<RbTreeMap*>(mark_.map)->remove(mark_.current) : nullptr;
  }

 private:
  mutable Mark mark_;  // the collection moves it, also where the iterator is const
};

template <class V, class K>
RbTreeMap<V, K>::~RbTreeMap() {
  marks_.forEach([](Mark& m) {
    m.map = nullptr;
    m.current = nullptr;
  });
  while (root_) {
    V* v = first();
    unlink(v);
    memberOrphaned(*v);
    v->deleteReference();
  }
}

template <class V, class K>
V* RbTreeMap<V, K>::lookup(const K& key) const {
  V* v = root_;
  while (v) {
    if (key < v->fwkKey()) {
      v = v->child_[0];
    } else if (v->fwkKey() < key) {
      v = v->child_[1];
    } else {
      break;
    }
  }
  return v;
}

template <class V, class K>
V* RbTreeMap<V, K>::after(const K& key) const {
  V* found = nullptr;
  for (V* v = root_; v;) {
    const bool greater = key < v->fwkKey();
    if (greater) found = v;
    v = v->child_[!greater];
  }
  return found;
}

template <class V, class K>
void RbTreeMap<V, K>::insert(const Ptr<V>& member) {
  V* v = member.get();
  ZAN_ASSERT_TEXT(v && !v->isInCollection(), "member && !member->isInCollection()");
  ZAN_ASSERT_TEXT(!lookup(v->fwkKey()), "!lookup(member->fwkKey())");
  V* up = nullptr;
  int direction = 0;
  for (V* at = root_; at; at = at->child_[direction]) {
    up = at;
    direction = at->fwkKey() < v->fwkKey();
  }
  v->newReference();
  v->up_ = up;
  v->red_ = v->inside_ = true;
  (up ? up->child_[direction] : root_) = v;
  ++size_;
  fixInsertion(v);
}

template <class V, class K>
void RbTreeMap<V, K>::eraseAll() {
  Mark here(*this, first());
  std::vector<Ptr<V>> all;
  all.reserve(size_);
  for (auto i = iterator(); i; ++i) all.emplace_back(i.get());
  for (const Ptr<V>& v : all) {
    if (here.map && v->isInCollection() && lookup(v->fwkKey()) == v.get()) remove(v.get());
  }
}

template <class V, class K>
Ptr<V> RbTreeMap<V, K>::remove(V* member) {
  if (!member) return nullptr;
  marks_.forEach([member](Mark& m) {
    if (m.current != member) return;
    m.key = member->fwkKey();
    m.current = nullptr;
    m.removed = true;
  });
  unlink(member);
  Ptr<V> left = Ptr<V>::adopt(member);
  memberLeft(*left);
  return left;
}

/// Turns the edge between `top` and its child on the side opposite `direction`, so that the child is on top.
template <class V, class K>
void RbTreeMap<V, K>::rotate(V* top, int direction) {
  V* child = top->child_[!direction];
  replace(top, child);
  top->child_[!direction] = child->child_[direction];
  if (V* moved = child->child_[direction]) moved->up_ = top;
  child->child_[direction] = top;
  top->up_ = child;
}

template <class V, class K>
void RbTreeMap<V, K>::fixInsertion(V* v) {
  while (isRed(v->up_)) {
    V* parent = v->up_;
    V* grand = parent->up_;  // exists: a red member is not the root
    const int s = side(parent);
    if (V* uncle = grand->child_[!s]; isRed(uncle)) {
      parent->red_ = uncle->red_ = false;
      grand->red_ = true;
      v = grand;
      continue;
    }
    if (side(v) != s) {
      rotate(parent, s);
      parent = v;
    }
    parent->red_ = false;
    grand->red_ = true;
    rotate(grand, !s);
    break;
  }
  root_->red_ = false;
}

/// Exchanges a member with two children and its successor, which has at most one.
template <class V, class K>
void RbTreeMap<V, K>::swapWithSuccessor(V* v) {
  V* s = extreme(v->child_[1], 0);
  std::swap(v->red_, s->red_);
  V* const rest = s->child_[1];
  V* const parent = s->up_;
  replace(v, s);
  s->child_[0] = v->child_[0];
  s->child_[0]->up_ = s;
  if (parent == v) {
    s->child_[1] = v;
    v->up_ = s;
  } else {
    s->child_[1] = v->child_[1];
    s->child_[1]->up_ = s;
    parent->child_[0] = v;
    v->up_ = parent;
  }
  v->child_[0] = nullptr;
  v->child_[1] = rest;
  if (rest) rest->up_ = v;
}

template <class V, class K>
void RbTreeMap<V, K>::unlink(V* v) {
  if (v->child_[0] && v->child_[1]) swapWithSuccessor(v);
  V* child = v->child_[v->child_[0] ? 0 : 1];
  V* parent = v->up_;
  const int s = parent ? side(v) : 0;
  const bool black = !v->red_;
  replace(v, child);
  v->child_[0] = v->child_[1] = v->up_ = nullptr;
  v->red_ = v->inside_ = false;
  --size_;
  if (!black) return;
  if (isRed(child)) {
    child->red_ = false;
  } else if (parent) {
    fixRemoval(parent, s);
  }
}

/// The subtree on side `s` of `parent` is one black short: makes up for it.
template <class V, class K>
void RbTreeMap<V, K>::fixRemoval(V* parent, int s) {
  while (parent) {
    V* sibling = parent->child_[!s];
    if (isRed(sibling)) {
      sibling->red_ = false;
      parent->red_ = true;
      rotate(parent, s);
      sibling = parent->child_[!s];
    }
    if (!isRed(sibling->child_[0]) && !isRed(sibling->child_[1])) {
      sibling->red_ = true;
      if (parent->red_) {
        parent->red_ = false;
        return;
      }
      s = parent->up_ ? side(parent) : 0;
      parent = parent->up_;
      continue;
    }
    if (!isRed(sibling->child_[!s])) {
      sibling->child_[s]->red_ = false;
      sibling->red_ = true;
      rotate(sibling, !s);
      sibling = parent->child_[!s];
    }
    sibling->red_ = parent->red_;
    parent->red_ = false;
    sibling->child_[!s]->red_ = false;
    rotate(parent, s);
    return;
  }
}

}  // namespace Zan
