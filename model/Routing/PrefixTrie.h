#pragma once

#include <array>
#include <unordered_set>

#include "Zan/Hash.h"

namespace Routing {

/// Address bits, left-aligned, in host byte order: an IPv4 address is the top 32 bits of `high`.
struct TrieKey {
  U64 high;
  U64 low;
  friend bool operator==(TrieKey, TrieKey) = default;
};

/// A set of prefixes (up to 128 bits) with longest match, one hash set for each length. Knows nothing of
/// routes: a match is known by its length.
class PrefixTrie {
 public:
  static constexpr int noMatch = -1;

  /// False when the prefix was stored already.
  bool insert(TrieKey key, U32 length);
  /// False when the prefix was not stored.
  bool remove(TrieKey key, U32 length);
  bool contains(TrieKey key, U32 length) const;
  /// Length of the longest stored prefix that covers the first `length` bits of `key`, or `noMatch`.
  int longestMatch(TrieKey key, U32 length) const;
  U64 size() const { return size_; }
  /// Heap bytes held.
  U64 bytes() const;

 private:
  struct Hash {
    std::size_t operator()(TrieKey k) const { return Zan::mix(k.high, k.low); }
  };
  std::array<std::unordered_set<TrieKey, Hash>, 129> byLength_;
  U64 size_ = 0;
};

}  // namespace Routing
