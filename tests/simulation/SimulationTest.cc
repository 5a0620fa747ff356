#include <fmt/format.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <numeric>
#include <sstream>

#include "Seeds.h"
#include "Simulation.h"
#include "host/Folder.h"

// Random days of the daemon: everything but the loop and the sockets is the real thing.

namespace {

/// Without those that it takes no part of.
std::vector<U32> fewest(U64 seed, const Folder& folder, std::vector<U32> events) {
  for (std::size_t size = events.size(); size > 0; size /= 2) {
    for (std::size_t at = 0; at + size <= events.size();) {
      std::vector<U32> fewer = events;
      fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(at),
                  fewer.begin() + static_cast<std::ptrdiff_t>(at + size));
      if (Simulation(seed, folder.path).run(fewer).empty())
        at += size;
      else
        events = fewer;
    }
  }
  return events;
}

class SimulationTest : public testing::TestWithParam<U64> {};

/// MRIB_SEEDS in the environment runs up to so many, from MRIB_FROM on; MRIB_QUICK reduces none that fails;
/// MRIB_SEED and MRIB_EVENTS run one aloud.
TEST_P(SimulationTest, NothingIsLostWhateverHappens) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);  // the buffers of so many starts stay with this process
  const Folder folder;
  std::vector<U32> all(Simulation::eventCount);
  std::iota(all.begin(), all.end(), 0);
  if (const char* seed = std::getenv("MRIB_SEED")) {
    const char* some = std::getenv("MRIB_EVENTS");
    std::istringstream in(some ? some : fmt::format("{}", fmt::join(all, " ")));
    const std::vector<U32> events{std::istream_iterator<U32>(in), {}};
    EXPECT_EQ(Simulation(std::strtoull(seed, nullptr, 10), folder.path, true).run(events), "");
    return;
  }
  const U64 seeds = seedsOr(200);
  const char* from = std::getenv("MRIB_FROM");
  for (U64 seed = (from ? std::strtoull(from, nullptr, 10) : 1) + GetParam(); seed <= seeds; seed += 2) {
    Simulation simulation(seed, folder.path);
    const std::string wrong = simulation.run(all);
    if (wrong.empty()) continue;
    if (std::getenv("MRIB_QUICK")) FAIL() << "MRIB_SEED=" << seed << ' ' << wrong;
    const auto events = fewest(seed, folder, {all.begin(), all.begin() + simulation.last() + 1});
    FAIL() << fmt::format("MRIB_SEED={} MRIB_EVENTS='{}' {}\n{}", seed, fmt::join(events, " "),
                          testing::internal::GetArgvs()[0], Simulation(seed, folder.path).run(events));
  }
}

INSTANTIATE_TEST_SUITE_P(Halves, SimulationTest, testing::Values(U64{0}, U64{1}));

}  // namespace
