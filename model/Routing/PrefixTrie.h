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
/// Updates", 2004) with strides of 6 bits. A branch node stands for the 6 bits at its position. For each of
/// their 64 values it may have a child node, and a word with a bit for each of the 63 prefixes that end
/// within the 6 bits behind. Children and words lie side by side in one block, found by a count of the bits
/// before theirs; so the many prefixes at the bottom of a table cost one word for each group of neighbours
/// and no node. A stretch of bits without branch and without prefix is one sparse node, which ends in another
/// node or in the one prefix that is left there. The top is an array of nodes found by the first bit of a
/// key, or, from 1,000 prefixes on, by the first 7, so that nodes begin at bits 1, 7, 13, 19, ... and the
/// usual lengths 8, 16, 24, 32 and 48 share words with their neighbours instead of opening new ones.
///
/// Look-ups follow one node for each 6 bits or stretch. An insertion changes one word and at most moves one
/// block; a removal clears one bit and leaves an empty word where it was, to be found again when the prefix
/// comes back. When what is empty or unused exceeds an eighth of the whole, one pass copies what lives into
/// new memory; its cost is proportional to the changes since the last one. An Internet routing table takes
/// 2 to 7 bytes a prefix.
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
  U64 bytes() const { return U64{capacity_} * sizeof(U64); }

 private:
  /// Three units of memory. In a branch, bit c of `children` and `words` says what there is for the six bits
  /// c. In a sparse node, `children` has the `span` (6 to 63) bits, left-aligned and zero beyond.
  struct Node;
  /// Where a prefix is: the word that has its bit, or the sparse node that ends in it.
  struct Place;

  struct Step;

  template <class Word>
  int longestMatchIn(Word bits, U32 length) const;
  Place find(TrieKey key, U32 length);
  template <class Word>
  Place findIn(Word bits, U32 length);

  template <class Word>
  bool insertIn(Word bits, U32 length);
  template <class Word>
  Node lonePrefix(Word bits, U32 length);
  U32 openGap(U32 node, U32 place, U32 units);
  void splitSparse(U32 node, U32 behind);

  void makeTop(U32 bits);
  Node& topNode(U64 bits) const;
  U64& topWord(U64 bits) const;
  bool isTop(const Node& node) const;
  bool isShort(U32 length) const;
  U64& shortPrefix(U64 bits, U32 length, U64& bit);

  Node& at(U32 unit) const;
  static const Node& nodeIn(const U64* units, U32 unit);
  U32 allocate(U32 units);
  U32 store(const Node& node);
  void reserve(U32 capacity);
  void release(U32 block, U32 units);

  void rebuildIfUnfit();
  void rebuild();
  void copyLiving(const U64* old);
  static Step step(const U64* from, const Node& node, U32 c);
  Node pruned(const U64* from, const Node& node);
  template <class Below>
  Node assembled(U64 present, Below below);
  Node joined(U32 span, U64 bits, const Node& next);

  static constexpr U32 largestBlock = 64 * 4;

  U64* units_ = nullptr;  // memory; the top comes first
  U32 capacity_ = 0;
  U32 used_ = 0;   // units ever handed out
  U32 free_ = 0;   // of these, units in the free lists
  U32 empty_ = 0;  // words and nodes below the top that hold nothing
  U32 topBits_ = 1;
  U64 size_ = 0;
  std::array<U64, 2> firstWords_{};  // prefixes of 1 to 6 bits, by the first bit; and that of 0 bits
  std::array<U32, largestBlock + 1> freeBlocks_{};     // by size; 0 is none, since the top is there
  std::array<U64, largestBlock / 64 + 1> haveFree_{};  // bit s: there is a free block of size s
};

}  // namespace Routing
