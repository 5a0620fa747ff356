#include <gtest/gtest.h>

#include "RandomEvents.h"
#include "Seeds.h"

// After every random event the engine's state, results, counters and traces are those of the plain model,
// whichever way it goes about a refresh; and to offer a prefix that is not marked would write nothing.

namespace {

class EngineRandomTest : public testing::TestWithParam<std::tuple<U64, Way>> {};
INSTANTIATE_TEST_SUITE_P(Seeds, EngineRandomTest,
                         testing::Combine(testing::Range(U64{1}, U64{1} + seedsOr(40)),
                                          testing::Values(Way::traced, Way::whole, Way::marked,
                                                          Way::toggled)));

TEST_P(EngineRandomTest, DoesWhatThePlainModelDoes) {
  const auto [seed, way] = GetParam();
  RandomEvents events(seed, way);
  events.start();
  ASSERT_EQ(events.difference(), "") << "seed " << seed << " at start";
  for (int step = 0; step < 400; ++step) {
    events.step();
    ASSERT_EQ(events.difference(), "") << "seed " << seed << " step " << step;
    if (way != Way::marked || step % 4 != 0) continue;
    ASSERT_EQ(events.wronglyUnmarked(), "") << "seed " << seed << " step " << step;
  }
  EXPECT_GT(events.traced(), 5000u) << "the events reach the engine";
}

}  // namespace
