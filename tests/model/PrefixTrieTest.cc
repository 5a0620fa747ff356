#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Routing/PrefixTrie.h"

namespace {

using Routing::PrefixTrie;
using Routing::TrieKey;

TrieKey cut(TrieKey k, U32 length) {
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

class TrieTest : public testing::TestWithParam<std::tuple<U32, U32>> {};
INSTANTIATE_TEST_SUITE_P(SeedsAndWidths, TrieTest,
                         testing::Combine(testing::Range(1u, 9u), testing::Values(8u, 32u, 128u)));

/// Bits that often agree with earlier ones for a while, so that paths, splits and joins of all lengths occur.
TEST_P(TrieTest, AgreesWithALinearScan) {
  const auto [seed, width] = GetParam();
  std::mt19937_64 random(seed);
  PrefixTrie trie;
  Scan scan;
  TrieKey last{random(), random()};
  for (int step = 0; step < 6000; ++step) {
    const U32 keep = static_cast<U32>(random() % (width + 1));
    const TrieKey base = cut(last, keep), noise{random(), random()};
    const TrieKey head = cut({~U64{0}, ~U64{0}}, keep);
    last = {base.high | (noise.high & ~head.high), base.low | (noise.low & ~head.low)};
    if (random() % 8 == 0 && !scan.entries.empty()) last = scan.entries[random() % scan.entries.size()].key;
    const U32 length = static_cast<U32>(random() % (width + 1));
    const TrieKey key = cut(last, length);
    const auto found = scan.find(key, length);
    const bool present = found != scan.entries.end();
    ASSERT_EQ(trie.contains(key, length), present) << "seed " << seed << " step " << step;
    ASSERT_EQ(trie.longestMatch(key, length), scan.longestMatch(key, length))
        << "seed " << seed << " step " << step;
    const TrieKey host = cut(last, width);
    ASSERT_EQ(trie.longestMatch(host, width), scan.longestMatch(host, width))
        << "seed " << seed << " step " << step;
    // Up to some 1,500 prefixes and down again, so that the top of the trie widens and narrows.
    if (random() % 8 < (step < 2500 ? 7u : step < 4500 ? 2u : 4u)) {
      ASSERT_EQ(trie.insert(key, length), !present) << "seed " << seed << " step " << step;
      if (!present) scan.entries.push_back({key, length});
    } else if (!scan.entries.empty()) {
      const auto victim = scan.entries.begin() + static_cast<std::ptrdiff_t>(random() % scan.entries.size());
      ASSERT_TRUE(trie.remove(victim->key, victim->length)) << "seed " << seed << " step " << step;
      ASSERT_FALSE(trie.remove(victim->key, victim->length)) << "seed " << seed << " step " << step;
      scan.entries.erase(victim);
    }
    ASSERT_EQ(trie.size(), scan.entries.size());
    ASSERT_LE(trie.bytes(), 100 * (trie.size() + 5)) << "seed " << seed << " step " << step;
  }
  while (!scan.entries.empty()) {
    const TrieKey probe = scan.entries[random() % scan.entries.size()].key;
    ASSERT_EQ(trie.longestMatch(probe, width), scan.longestMatch(probe, width)) << "seed " << seed;
    ASSERT_TRUE(trie.remove(scan.entries.back().key, scan.entries.back().length));
    scan.entries.pop_back();
  }
  EXPECT_EQ(trie.size(), 0u);
  EXPECT_LE(trie.bytes(), 2000u);
}

}  // namespace
