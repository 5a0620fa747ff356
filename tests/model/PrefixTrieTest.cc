#include <gtest/gtest.h>

#include "TrieAndScan.h"

namespace {

class TrieTest : public testing::TestWithParam<std::tuple<U32, U32>> {};
INSTANTIATE_TEST_SUITE_P(SeedsAndWidths, TrieTest,
                         testing::Combine(testing::Range(1u, 9u), testing::Values(8u, 32u, 128u)));

TEST_P(TrieTest, AgreesWithALinearScan) {
  const auto [seed, width] = GetParam();
  fuzz::Dice dice{U64{seed}};
  trie::TrieAndScan both(dice, width);
  // Up to some 1,500 prefixes and down again, so that the top of the trie widens and narrows.
  for (int step = 0; step < 6000; ++step) {
    ASSERT_TRUE(both.step(step < 2500 ? 7 : step < 4500 ? 2 : 4)) << "seed " << seed << " step " << step;
  }
  EXPECT_TRUE(both.empty()) << "seed " << seed;
}

// Whoever makes it smaller lowers the figures.
TEST(TrieMemory, IsNotMoreThanItWas) {
  fuzz::Dice dice{U64{1}};
  U64 filled = 0, churned = 0;
  for (U32 length = 1; length <= 128; ++length) {
    Routing::PrefixTrie trie;
    std::vector<Routing::TrieKey> keys(2000);
    for (auto& key : keys) {
      key = trie::cut({dice() >> (length <= 32 ? 0 : 8), dice()}, length);
      trie.insert(key, length);
    }
    filled += trie.bytes();
    for (const auto& key : keys) {
      const U32 shorter = static_cast<U32>(dice() % length) + 1;
      trie.insert(trie::cut(key, shorter), shorter);
      if (dice() % 4 != 0) trie.remove(key, length);
    }
    churned += trie.bytes();
  }
  EXPECT_TRUE(filled > 10'000'000 && filled <= 10'203'400) << filled;
  EXPECT_TRUE(churned > 10'000'000 && churned <= 10'842'096) << churned;
}

}  // namespace
