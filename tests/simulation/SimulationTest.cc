#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>

#include "Seeds.h"
#include "Simulation.h"
#include "host/Folder.h"

// Random days of the daemon: everything but the loop and the sockets is the real thing.

namespace {

class SimulationTest : public testing::TestWithParam<U64> {};

/// MRIB_SEEDS in the environment runs up to so many, from MRIB_FROM on; MRIB_SEED runs one aloud.
TEST_P(SimulationTest, NothingIsLostWhateverHappens) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);  // the buffers of so many starts stay with this process
  const Folder folder;
  if (const char* seed = std::getenv("MRIB_SEED")) {
    EXPECT_EQ(Simulation(std::strtoull(seed, nullptr, 10), folder.path, true).run(), "");
    return;
  }
  const U64 seeds = seedsOr(200);
  const char* from = std::getenv("MRIB_FROM");
  for (U64 seed = (from ? std::strtoull(from, nullptr, 10) : 1) + GetParam(); seed <= seeds; seed += 2) {
    ASSERT_EQ(Simulation(seed, folder.path).run(), "")
        << "MRIB_SEED=" << seed << ' ' << testing::internal::GetArgvs()[0];
  }
}

INSTANTIATE_TEST_SUITE_P(Halves, SimulationTest, testing::Values(U64{0}, U64{1}));

}  // namespace
