#include <gtest/gtest.h>

#include <map>
#include <random>

#include "inside/RouteTable.h"

using Lumo::IpAddr;
using Lumo::Prefix;

/// It fills and empties again and again; small tables wrap around at their end often.
TEST(RouteTable, HoldsWhatAMapHolds) {
  std::mt19937 random(1);
  mrib::RouteTable table;
  std::map<Prefix, U8> map;
  for (U32 step = 0; step < 60000; ++step) {
    const Prefix prefix(IpAddr::fromHost(static_cast<U32>(random() % 20) << 20),
                        12 + static_cast<U32>(random() % 3));
    const bool fills = random() % 8 < (step / 5000 % 2 == 0 ? 5u : 2u);
    mrib::Route* found = table.find(prefix);
    ASSERT_EQ(found != nullptr, map.contains(prefix));
    ASSERT_TRUE(!found || found->preference == map[prefix]);
    if (fills && !found) {
      mrib::Route& added = table.insert(prefix);
      added.type = mrib::RouteType::connected;
      added.preference = map[prefix] = static_cast<U8>(step);
    } else if (!fills && found) {
      table.erase(*found);
      map.erase(prefix);
    }
    if (step % 500 != 0) continue;
    std::map<Prefix, U8> all;
    for (const mrib::Route& route : table.all()) all[route.prefix] = route.preference;
    ASSERT_EQ(all, map);
    ASSERT_EQ(table.size(), map.size());
  }
}
