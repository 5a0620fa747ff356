#include <gtest/gtest.h>

#include <random>
#include <set>

#include "PrefixIndex.h"
#include "Zan/Hash.h"

namespace {

/// Finds what is in it and nothing else, also while it grows; many numbers share their home.
TEST(PrefixIndex, HoldsWhatWasEntered) {
  for (U32 seed = 1; seed <= 20; ++seed) {
    std::minstd_rand random(seed);
    const U64 homes = 1 + random() % 5000;
    const auto hashOf = [&](U32 n) { return Zan::mix(n % homes, 7); };
    host::kernel::PrefixIndex index;
    std::set<U32> held;
    for (int i = 0; i < 20000; ++i) {
      const U32 n = static_cast<U32>(random() % (i < 10000 ? 20000 : 300));
      const U32 found = index.find(hashOf(n), [&](U32 other) { return other == n; });
      ASSERT_EQ(found, held.contains(n) ? n : host::kernel::PrefixIndex::nothing) << seed << ' ' << i;
      if (!held.contains(n)) {
        index.enter(n, hashOf(n), hashOf);
        held.insert(n);
      } else if (random() % 2 == 0) {
        index.leave(n, hashOf(n), hashOf);
        held.erase(n);
      }
    }
  }
}

}  // namespace
