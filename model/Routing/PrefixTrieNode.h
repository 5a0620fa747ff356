#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "Routing/PrefixTrie.h"

// What PrefixTrie is made of. For its own sources only.

namespace Routing {

__extension__ using U128 = unsigned __int128;

inline constexpr U32 stride = 6;
inline constexpr U32 longestPath = 60;  // bits of a sparse node that leads on: whole strides
inline constexpr U32 longestTail = 63;  // bits of one that ends in a prefix
inline constexpr U32 nodeUnits = 3;
inline constexpr U32 wordUnits = 1;
inline constexpr U32 fanout = 64;

/// The size of a block that holds so much: an eighth of slack at most, so that not each addition moves it.
inline U32 roomFor(U32 units) {
  const U32 step = std::max(1u, std::bit_floor(units) / 8);
  return (units + step - 1) / step * step;
}

// A set of some size is entered by the first 7 bits at once, which costs it 4 bytes a prefix at most.
inline constexpr U32 narrowTop = 1;
inline constexpr U32 wideTop = narrowTop + stride;
inline constexpr U64 wideFrom = 1000;

/// For the next six bits c: the bits of a word of the six prefixes that c has.
inline constexpr auto covering = [] {
  std::array<U64, 64> masks{};
  for (U32 c = 0; c < 64; ++c) {
    for (U32 l = 0; l < stride; ++l) masks[c] |= U64{1} << ((1u << l) - 1 + (c >> (stride - l)));
  }
  return masks;
}();

/// The bits of a word that belong to prefixes of at most l bits.
inline constexpr std::array<U64, stride> upTo{0x1, 0x7, 0x7F, 0x7FFF, 0x7FFFFFFF, 0x7FFFFFFFFFFFFFFF};

/// The bit of a word of the prefix that the first `l` (0 to 5) of the six bits `c` make: 2^l - 1 + value.
inline U64 prefixBit(U32 c, U32 l) {
  return U64{1} << ((1u << l) - 1 + (c >> (stride - l)));
}

/// What is left of a key, left-aligned: a 64-bit word for keys of up to 63 bits, else 128 bits.
inline U64 top(U64 bits) {
  return bits;
}
inline U64 top(U128 bits) {
  return static_cast<U64>(bits >> 64);
}
template <class Word>
inline U32 nextStride(Word bits) {
  return static_cast<U32>(top(bits) >> (64 - stride));
}

/// Runs `f` with the key as the narrowest word that holds `length` bits.
template <class F>
inline auto withBits(TrieKey key, U32 length, F f) {
  if (length < 64) return f(key.high);
  return f(U128{key.high} << 64 | key.low);
}

inline U32 rank(U64 map, U32 c) {
  return static_cast<U32>(std::popcount(map & ((U64{1} << c) - 1)));
}
inline bool has(U64 map, U32 c) {
  return (map >> c & 1) != 0;
}
/// False when it was set already.
inline bool setBit(U64& word, U64 bit) {
  return (std::exchange(word, word | bit) & bit) == 0;
}

/// All of U64, as the memory is that it lies in.
struct PrefixTrie::Node {
  U64 children;
  U64 words;
  U64 blockAndSpan;

  static Node branch(U64 children, U64 words, U32 block) { return {children, words, block}; }
  static Node sparse(U32 span, U64 bits, U32 block) {
    return {bits & ~(~U64{0} >> span), 0, U64{span} << 32 | block};
  }
  U32 block() const { return static_cast<U32>(blockAndSpan); }
  U32 span() const { return static_cast<U32>(blockAndSpan >> 32); }
  bool isSparse() const { return span() != 0; }
  /// Of a sparse node: a prefix ends behind its bits.
  bool isTail() const { return block() == 0; }
  bool isEmpty() const { return (children | words) == 0 && !isSparse(); }
  /// Whether `bits` begins with this sparse node's.
  bool leads(U64 bits) const { return (bits ^ children) >> (64 - span()) == 0; }

  U32 childCount() const { return static_cast<U32>(std::popcount(children)); }
  U32 wordCount() const { return static_cast<U32>(std::popcount(words)); }
  U32 blockUnits() const { return nodeUnits * childCount() + wordUnits * wordCount(); }
  /// Index of the child or word for c; of what is not there, where it would be.
  U32 childAt(U32 c) const { return block() + nodeUnits * rank(children, c); }
  U32 wordAt(U32 c) const { return block() + nodeUnits * childCount() + wordUnits * rank(words, c); }
};

struct PrefixTrie::Step {
  U64 word;
  Node node;
};

struct PrefixTrie::Place {
  U64* word;
  U64 bit;
  Node* tail;

  static Place inWord(U64& word, U64 bit) { return (word & bit) != 0 ? Place{&word, bit, nullptr} : Place{}; }
  bool found() const { return word != nullptr || tail != nullptr; }
};

inline PrefixTrie::Node& PrefixTrie::at(U32 unit) const {
  static_assert(sizeof(Node) == nodeUnits * sizeof(U64));
  return *reinterpret_cast<Node*>(units_ + unit);
}

inline const PrefixTrie::Node& PrefixTrie::nodeIn(const U64* units, U32 unit) {
  return *reinterpret_cast<const Node*>(units + unit);
}

inline PrefixTrie::Node& PrefixTrie::topNode(U64 bits) const {
  return at(nodeUnits * static_cast<U32>(bits >> (64 - topBits_)));
}

inline U64& PrefixTrie::topWord(U64 bits) const {
  return units_[(nodeUnits << topBits_) + static_cast<U32>(bits >> (64 - topBits_))];
}

}  // namespace Routing
