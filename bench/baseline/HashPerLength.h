#pragma once

#include <array>
#include <unordered_set>

#include "Routing/PrefixTrie.h"
#include "Zan/Hash.h"

/// A hash set for each prefix length, tried from the longest down.
class HashPerLength {
 public:
  bool insert(Routing::TrieKey key, U32 length) { return sets_[length].insert({key.high, key.low}).second; }
  bool remove(Routing::TrieKey key, U32 length) { return sets_[length].erase({key.high, key.low}) != 0; }
  bool contains(Routing::TrieKey key, U32 length) const {
    return sets_[length].contains({key.high, key.low});
  }
  int longestMatch(Routing::TrieKey key, U32 length) const {
    for (U32 l = length + 1; l-- > 0;) {
      if (sets_[l].empty()) continue;
      const Key cut = l == 0    ? Key{0, 0}
                      : l <= 64 ? Key{key.high & ~U64{0} << (64 - l), 0}
                                : Key{key.high, key.low & ~U64{0} << (128 - l)};
      if (sets_[l].contains(cut)) return static_cast<int>(l);
    }
    return -1;
  }
  U64 bytes() const {
    U64 total = 0;
    for (const auto& s : sets_) total += s.size() * 48 + s.bucket_count() * 8;
    return total;
  }

 private:
  struct Key {
    U64 high, low;
    friend bool operator==(Key, Key) = default;
  };
  struct Hash {
    std::size_t operator()(Key k) const { return Zan::mix(k.high, k.low); }
  };
  std::array<std::unordered_set<Key, Hash>, 129> sets_;
};
