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

}  // namespace
