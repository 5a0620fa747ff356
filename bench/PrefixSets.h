#pragma once

#include <random>
#include <set>
#include <vector>

#include "Routing/PrefixTrie.h"

struct BenchPrefix {
  Routing::TrieKey key;
  U32 length;
};

/// `count` IPv4 prefixes as an Internet table has them: six in ten a /24, the rest mostly /16 to /23, nested
/// in allocations of /8 to /20 that hold neighbours of each other.
inline std::vector<BenchPrefix> internetTable4(U32 count) {
  std::mt19937_64 random(4);
  std::discrete_distribution<U32> lengths({0,   0,   0,    0,  0,  0,   0,  0,   1,   1,   1,
                                           2,   5,   8,    15, 25, 130, 80, 130, 250, 400, 470,
                                           900, 900, 6000, 5,  5,  5,   5,  5,   5,   5,   5});
  std::set<std::pair<U64, U32>> seen;
  std::vector<BenchPrefix> table;
  U64 allocation = 0;
  U32 span = 0;
  U32 left = 0;
  while (table.size() < count) {
    if (left == 0) {  // a new allocation, inside the unicast space
      span = 10 + static_cast<U32>(random() % 9);
      allocation = (U64{1 + random() % 222} << 56 | (random() & 0x00FFFFFF00000000u)) & ~U64{0}
                                                                                            << (64 - span);
      left = 1 + static_cast<U32>(random() % (4u << (20 - span)));
    }
    --left;
    const U32 length = std::max(lengths(random), 8u);
    const U64 spread = length > span ? (random() & ~(~U64{0} << (64 - span))) : 0;
    const U64 key = (allocation | spread) & ~U64{0} << (64 - length);
    if (seen.emplace(key, length).second) table.push_back({{key, 0}, length});
  }
  return table;
}

/// `count` IPv6 prefixes: half /48, a fifth /32, the rest /29 to /47, under a few thousand allocations.
inline std::vector<BenchPrefix> internetTable6(U32 count) {
  std::mt19937_64 random(6);
  std::set<std::pair<U64, U32>> seen;
  std::vector<BenchPrefix> table;
  std::vector<U64> allocations;
  while (table.size() < count) {
    if (allocations.empty() || random() % 6 == 0) {
      allocations.push_back(U64{0x2000 | random() % 0x1000} << 48 | (random() & 0x0000FFFF00000000u));
    }
    const U64 base = allocations[random() % allocations.size()];
    const U64 what = random() % 100;
    const U32 length = what < 50   ? 48
                       : what < 70 ? 32
                       : what < 78 ? 44
                       : what < 86 ? 40
                       : what < 90 ? 36
                                   : 29 + static_cast<U32>(random() % 19);
    const U64 key = (base | (random() & 0x00000000FFFF0000u)) & ~U64{0} << (64 - length);
    if (seen.emplace(key, length).second) table.push_back({{key, 0}, length});
  }
  return table;
}

/// Addresses below random prefixes of a table, in random order.
inline std::vector<Routing::TrieKey> addressesIn(const std::vector<BenchPrefix>& table, U32 width,
                                                 U32 count) {
  std::mt19937_64 random(9);
  std::vector<Routing::TrieKey> addresses;
  for (U32 i = 0; i < count; ++i) {
    const BenchPrefix& p = table[random() % table.size()];
    const U64 host = p.length == 0 ? ~U64{0} : ~(~U64{0} << (64 - p.length));
    Routing::TrieKey key{p.key.high | (random() & host), width > 64 ? random() : 0};
    if (width == 32) key.high &= 0xFFFFFFFF00000000u;
    addresses.push_back(key);
  }
  return addresses;
}
