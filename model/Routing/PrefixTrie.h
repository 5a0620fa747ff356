#pragma once

#include <array>

#include "Zan/Types.h"

namespace Routing {

/// Address bits, left-aligned, in host byte order: an IPv4 address is the top 32 bits of `high`.
struct TrieKey {
  U64 high;
  U64 low;
};

/// A set of prefixes of up to 128 bits with longest match. Knows nothing of routes: a match is known by its
/// length, the prefix is the query cut to it.
///
/// A tree bitmap (Eatherton, Varghese, Dittia, "Tree Bitmap: Hardware/Software IP Lookups with Incremental
/// Updates", 2004) with strides of 6 bits. A node stands for the 6 bits that follow its position: one word
/// has a bit for each of the 63 prefixes of 0 to 5 bits that may end in it, another a bit for each of its 64
/// children. The children lie side by side in one block; a count of the bits before a child's finds it. A
/// stretch without branch and without prefix is one path node. Nodes begin at bits 1, 7, 13, 19, 25, ..., so
/// that the usual lengths 8, 16, 24, 32 and 48 share nodes with their neighbours instead of opening new ones.
///
/// Look-ups follow one node for each 6 bits, without loops inside. Updates change one node and at most move
/// one block. A node is 20 bytes; an Internet routing table takes 3 to 6 bytes a prefix.
class PrefixTrie {
 public:
  static constexpr int noMatch = -1;

  PrefixTrie() = default;
  PrefixTrie(const PrefixTrie&) = delete;
  PrefixTrie& operator=(const PrefixTrie&) = delete;
  ~PrefixTrie();

  /// Bits of `key` beyond `length` (0 to 128) must be zero, here and below. False when it is stored already.
  bool insert(TrieKey key, U32 length);
  /// False when the prefix is not stored.
  bool remove(TrieKey key, U32 length);
  bool contains(TrieKey key, U32 length) const;
  /// Length of the longest stored prefix that covers the first `length` bits of `key`, or `noMatch`.
  int longestMatch(TrieKey key, U32 length) const;

  U64 size() const { return size_; }
  /// Heap bytes held.
  U64 bytes() const { return U64{capacity_} * sizeof(Node); }

 private:
  /// Packed: the block of children is named by a 32-bit index, and 20 bytes beat 24 on every level.
  struct [[gnu::packed, gnu::aligned(4)]] Node {
    U64 prefixes;  // bit 2^l - 1 + v: the prefix of l bits with value v ends here; top bit: a path node
    U64 children;  // bit c: there is a child for the 6 bits c; in a path node: the bits of the path
    U32 block;     // index of the first child

    bool isPath() const {
      return (prefixes >> 63) != 0;
    }
    U32 strides() const {
      return static_cast<U32>(prefixes & 0xF);
    }
    U32 childCount() const {
      return isPath() ? 1 : static_cast<U32>(__builtin_popcountll(children));
    }
    U32 rank(U32 c) const {
      return static_cast<U32>(__builtin_popcountll(children & ((U64{1} << c) - 1)));
    }
    bool hasChild(U32 c) const {
      return (children >> c & 1) != 0;
    }
    static Node path(U64 bits, U32 strides, U32 block) {
      return {U64{1} << 63 | strides, bits, block};
    }
  };
  static constexpr U32 stride = 6;
  static constexpr U32 fanout = 64;
  static constexpr U32 maxPath = 10;  // strides that fit the word of a path node
  static constexpr U32 maxDepth = 24;

  template <class Word>
  int longestMatchIn(Word bits, int length) const;
  U32 find(TrieKey key, U32 length) const;

  U32 addChild(U32 node, U32 c, Node child);
  void removeChild(U32 node, U32 c);
  void splitPath(U32 node, U32 at);
  Node chain(TrieKey key, U32 from, U32 to, U64 prefixBit);
  void prune(const U32* visited, const U32* via, U32 depth);
  void compress(U32 node);

  U32 allocate(U32 count);
  void release(U32 block, U32 count);
  void compactIfSparse();
  U32 copyBlock(const Node* from, U32 block, U32 count);

  Node* nodes_ = nullptr;  // the root is the first
  U32 capacity_ = 0;
  U32 used_ = 0;  // nodes ever handed out
  U32 free_ = 0;  // of these, nodes in the free lists
  U64 size_ = 0;
  std::array<U32, fanout + 1> freeBlocks_{};  // by size; 0 is none, since that is the root
};

}  // namespace Routing
