#pragma once

#include "Routing/PrefixTrie.h"

/// A plain path-compressed binary trie, as most routing daemons keep their tables: a node for each prefix and
/// for each branch, allocated one by one.
class Patricia {
 public:
  Patricia() = default;
  Patricia(const Patricia&) = delete;
  Patricia& operator=(const Patricia&) = delete;
  ~Patricia() { destroy(root_); }

  bool insert(Routing::TrieKey key, U32 length) {
    Node** place = &root_;
    Node* parent = nullptr;
    while (*place) {
      Node* n = *place;
      const U32 same = common(n->key, key, n->length < length ? n->length : length);
      if (same < n->length) {
        Node* added = make(key, length, true, parent);
        if (same < length) {
          Node* branch = make(cut(key, same), same, false, parent);
          branch->child[bit(n->key, same)] = n;
          branch->child[bit(key, same)] = added;
          n->parent = added->parent = branch;
          *place = branch;
        } else {
          added->child[bit(n->key, length)] = n;
          n->parent = added;
          *place = added;
        }
        ++size_;
        return true;
      }
      if (n->length == length) {
        const bool added = !n->stored;
        n->stored = true;
        size_ += added;
        return added;
      }
      parent = n;
      place = &n->child[bit(key, n->length)];
    }
    *place = make(key, length, true, parent);
    ++size_;
    return true;
  }
  bool remove(Routing::TrieKey key, U32 length) {
    Node* n = find(key, length);
    if (!n || !n->stored) return false;
    n->stored = false;
    --size_;
    while (n && !n->stored && !(n->child[0] && n->child[1])) {
      Node* parent = n->parent;
      Node* child = n->child[0] ? n->child[0] : n->child[1];
      (parent ? parent->child[parent->child[1] == n] : root_) = child;
      if (child) child->parent = parent;
      delete n;
      --nodes_;
      n = child ? nullptr : parent;
    }
    return true;
  }
  bool contains(Routing::TrieKey key, U32 length) const {
    const Node* n = find(key, length);
    return n && n->stored;
  }
  int longestMatch(Routing::TrieKey key, U32 length) const {
    int best = -1;
    for (const Node* n = root_; n && n->length <= length && covers(n, key);
         n = n->child[bit(key, n->length)]) {
      if (n->stored) best = static_cast<int>(n->length);
      if (n->length == 128) break;
    }
    return best;
  }
  U64 size() const { return size_; }
  U64 bytes() const { return nodes_ * (sizeof(Node) + 8); }

 private:
  struct Node {
    Routing::TrieKey key;
    Node* child[2];
    Node* parent;
    U32 length;
    bool stored;
  };

  static U32 bit(const Routing::TrieKey& k, U32 i) {
    return static_cast<U32>(i < 64 ? k.high >> (63 - i) & 1 : i < 128 ? k.low >> (127 - i) & 1 : 0);
  }
  static Routing::TrieKey cut(const Routing::TrieKey& k, U32 length) {
    if (length == 0) return {0, 0};
    if (length <= 64) return {k.high & ~U64{0} << (64 - length), 0};
    return {k.high, k.low & ~U64{0} << (128 - length)};
  }
  static U32 common(const Routing::TrieKey& a, const Routing::TrieKey& b, U32 limit) {
    const U64 high = a.high ^ b.high, low = a.low ^ b.low;
    const int same = high ? __builtin_clzll(high) : low ? 64 + __builtin_clzll(low) : 128;
    return static_cast<U32>(same) < limit ? static_cast<U32>(same) : limit;
  }
  static bool covers(const Node* n, const Routing::TrieKey& key) {
    return common(n->key, key, n->length) == n->length;
  }
  Node* find(Routing::TrieKey key, U32 length) const {
    Node* n = root_;
    while (n && n->length < length && covers(n, key)) n = n->child[bit(key, n->length)];
    return n && n->length == length && covers(n, key) ? n : nullptr;
  }
  Node* make(const Routing::TrieKey& key, U32 length, bool stored, Node* parent) {
    ++nodes_;
    return new Node{key, {nullptr, nullptr}, parent, length, stored};
  }
  static void destroy(Node* n) {
    if (!n) return;
    destroy(n->child[0]);
    destroy(n->child[1]);
    delete n;
  }

  Node* root_ = nullptr;
  U64 size_ = 0;
  U64 nodes_ = 0;
};
