#include <gtest/gtest.h>

#include "AgentDriver.h"
#include "Seeds.h"

namespace {

TEST(AgentRandom, IsTheRightAnswerWhateverHappened) {
  const U64 seeds = seedsOr(2000);
  int commits = 0, mayDiffers = 0, healed = 0;
  for (U64 seed = 1; seed <= seeds; ++seed) {
    agentrandom::Driver driver(fuzz::Dice(seed), seed % 3 == 0 ? 4 : seed % 3 == 1 ? 12 : 100000);
    const U32 settleEvery = seed % 4 == 0 ? 7 : 1;
    for (U32 step = 1; step <= 30; ++step) {
      ASSERT_EQ(driver.step(step % settleEvery == 0), "") << "seed " << seed << " step " << step;
    }
    commits += driver.commits;
    mayDiffers += driver.mayDiffers;
    healed += driver.healed;
  }
  std::cout << commits << " commits, " << mayDiffers << " may differ, " << healed << " were healed\n";
  EXPECT_GT(healed, 0) << "the engine alone does not end there";
  EXPECT_LT(mayDiffers * 4, healed * 5) << "what may differ mostly does, and common changes leave nothing";
}

}  // namespace
