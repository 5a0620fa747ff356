#pragma once

#include <algorithm>
#include <vector>

#include "../../fuzz/Target.h"
#include "Routing/PrefixTrie.h"

namespace trie {

using Routing::PrefixTrie;
using Routing::TrieKey;

inline TrieKey cut(TrieKey k, U32 length) {
  if (length == 0) return {0, 0};
  if (length <= 64) return {k.high & ~U64{0} << (64 - length), 0};
  return {k.high, length == 128 ? k.low : k.low & ~U64{0} << (128 - length)};
}

/// The same set, by linear scan.
struct Scan {
  struct Entry {
    TrieKey key;
    U32 length;
  };
  std::vector<Entry> entries;

  auto find(TrieKey k, U32 length) {
    return std::find_if(entries.begin(), entries.end(), [&](const Entry& e) {
      return e.length == length && e.key.high == k.high && e.key.low == k.low;
    });
  }
  int longestMatch(TrieKey k, U32 length) const {
    int best = -1;
    for (const Entry& e : entries) {
      const TrieKey c = cut(k, e.length);
      if (e.length <= length && c.high == e.key.high && c.low == e.key.low)
        best = std::max(best, static_cast<int>(e.length));
    }
    return best;
  }
};

/// A trie and the linear scan, told the same.
class TrieAndScan {
 public:
  /// Of keys with `width` bits.
  TrieAndScan(fuzz::Dice& dice, U32 width) : dice_(dice), width_(width), last_{dice(), dice()} {}

  /// Asks for a prefix and a host, and adds or removes something; adds in `adding` of eight cases. Whether
  /// both agree.
  bool step(U64 adding) {
    last_ = near();
    const U32 length = static_cast<U32>(dice_() % (width_ + 1));
    const TrieKey key = cut(last_, length);
    const TrieKey host = cut(last_, width_);
    const bool present = scan_.find(key, length) != scan_.entries.end();
    bool agrees =
        trie_.contains(key, length) == present && matchesAlike(key, length) && matchesAlike(host, width_);
    if (dice_() % 8 < adding) {
      agrees &= trie_.insert(key, length) != present;
      if (!present) scan_.entries.push_back({key, length});
    } else if (!scan_.entries.empty()) {
      agrees &= remove(dice_() % scan_.entries.size());
    }
    return agrees && trie_.size() == scan_.entries.size() && trie_.bytes() <= 100 * (trie_.size() + 5);
  }
  /// Removes all.
  bool empty() {
    bool agrees = true;
    while (agrees && !scan_.entries.empty()) {
      const TrieKey probe = scan_.entries[dice_() % scan_.entries.size()].key;
      agrees = matchesAlike(probe, width_) && remove(scan_.entries.size() - 1);
    }
    return agrees && trie_.size() == 0 && trie_.bytes() <= 2000;
  }

 private:
  /// Bits that often agree with earlier ones for a while, so that paths, splits and joins of all lengths
  /// occur.
  TrieKey near() {
    if (dice_() % 8 == 0 && !scan_.entries.empty()) return scan_.entries[dice_() % scan_.entries.size()].key;
    const U32 keep = static_cast<U32>(dice_() % (width_ + 1));
    const TrieKey base = cut(last_, keep);
    const TrieKey noise{dice_(), dice_()};
    const TrieKey head = cut({~U64{0}, ~U64{0}}, keep);
    return {base.high | (noise.high & ~head.high), base.low | (noise.low & ~head.low)};
  }
  bool matchesAlike(const TrieKey& key, U32 length) const {
    return trie_.longestMatch(key, length) == scan_.longestMatch(key, length);
  }
  bool remove(std::size_t place) {
    const Scan::Entry gone = scan_.entries[place];
    scan_.entries.erase(scan_.entries.begin() + static_cast<std::ptrdiff_t>(place));
    return trie_.remove(gone.key, gone.length) && !trie_.remove(gone.key, gone.length);
  }

  fuzz::Dice& dice_;
  U32 width_;
  TrieKey last_;
  PrefixTrie trie_;
  Scan scan_;
};

}  // namespace trie
