#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>

#include "PrefixSets.h"
#include "baseline/HashPerLength.h"
#include "baseline/Patricia.h"

// The trie against a plain Patricia trie and a hash set for each length, on the same prefixes and queries.
// Every row but the Patricia's shows `x_patricia`: how many times as fast as the Patricia in this very run.

namespace {

using Routing::PrefixTrie;
using Routing::TrieKey;

struct Table {
  std::vector<BenchPrefix> prefixes;
  std::vector<BenchPrefix> shuffled;  // the same in random order: what is measured is the set, not this array
  std::vector<TrieKey> addresses;
  U32 width;
};

constexpr U32 addressCount = 1u << 16;

const Table& table(int number) {
  static std::map<int, Table> tables;
  auto& t = tables[number];
  if (t.prefixes.empty()) {
    constexpr U32 sizes[] = {1000, 100000, 1000000, 100000};
    t.width = number == 3 ? 128 : 32;
    t.prefixes = number == 3 ? internetTable6(sizes[number]) : internetTable4(sizes[number]);
    t.shuffled = t.prefixes;
    std::shuffle(t.shuffled.begin(), t.shuffled.end(), std::mt19937_64(1));
    t.addresses = addressesIn(t.prefixes, t.width, addressCount);
  }
  return t;
}

template <class Set>
Set& loaded(int number) {
  static std::map<int, std::unique_ptr<Set>> sets;
  auto& set = sets[number];
  if (!set) {
    set = std::make_unique<Set>();
    for (const BenchPrefix& p : table(number).prefixes) set->insert(p.key, p.length);
  }
  return *set;
}

/// Seconds an iteration took, by benchmark and table, so that later rows can show their ratio.
std::map<std::pair<int, int>, double> patriciaTime;

template <class Set, class Step>
void measure(benchmark::State& state, int benchmarkNumber, Step step) {
  const int number = static_cast<int>(state.range(0));
  loaded<Set>(number);
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) step(number);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double each = seconds / static_cast<double>(state.iterations());
  if (std::is_same_v<Set, Patricia>) {
    patriciaTime[{benchmarkNumber, number}] = each;
  } else {
    state.counters["x_patricia"] = patriciaTime[{benchmarkNumber, number}] / each;
  }
  state.counters["bytes/prefix"] =
      static_cast<double>(loaded<Set>(number).bytes()) / static_cast<double>(table(number).prefixes.size());
}

/// Each query depends on the answer before, as a router's forwarding does on its packet.
template <class Set>
void longestMatch(benchmark::State& state) {
  const Set& set = loaded<Set>(static_cast<int>(state.range(0)));
  const Table& t = table(static_cast<int>(state.range(0)));
  U32 i = 0;
  measure<Set>(state, 0, [&](int) {
    const int length = set.longestMatch(t.addresses[i], t.width);
    i = (i + 1 + (static_cast<U32>(length) >> 31)) % addressCount;
    benchmark::DoNotOptimize(i);
  });
}

template <class Set>
void exactMatch(benchmark::State& state) {
  const Set& set = loaded<Set>(static_cast<int>(state.range(0)));
  const Table& t = table(static_cast<int>(state.range(0)));
  std::size_t i = 0;
  measure<Set>(state, 1, [&](int) {
    i = i + 1 < t.shuffled.size() ? i + 1 : 0;
    benchmark::DoNotOptimize(set.contains(t.shuffled[i].key, t.shuffled[i].length));
  });
}

template <class Set>
void removeAndReinsert(benchmark::State& state) {
  Set& set = loaded<Set>(static_cast<int>(state.range(0)));
  const Table& t = table(static_cast<int>(state.range(0)));
  std::size_t i = 0;
  measure<Set>(state, 2, [&](int) {
    i = i + 1 < t.shuffled.size() ? i + 1 : 0;
    set.remove(t.shuffled[i].key, t.shuffled[i].length);
    set.insert(t.shuffled[i].key, t.shuffled[i].length);
  });
}

template <class Set>
void load(benchmark::State& state) {
  const Table& t = table(static_cast<int>(state.range(0)));
  measure<Set>(state, 3, [&](int) {
    Set set;
    for (const BenchPrefix& p : t.prefixes) set.insert(p.key, p.length);
    benchmark::DoNotOptimize(set.bytes());
  });
}

#define MRIB_TRIE_BENCH(what)                                      \
  BENCHMARK(what<Patricia>)->DenseRange(0, 3)->ArgName("table");   \
  BENCHMARK(what<PrefixTrie>)->DenseRange(0, 3)->ArgName("table"); \
  BENCHMARK(what<HashPerLength>)->DenseRange(0, 3)->ArgName("table")

MRIB_TRIE_BENCH(longestMatch);
MRIB_TRIE_BENCH(exactMatch);
MRIB_TRIE_BENCH(removeAndReinsert);
MRIB_TRIE_BENCH(load);

}  // namespace

int main(int argc, char** argv) {
  std::puts("tables: 0 = 1 k IPv4, 1 = 100 k IPv4, 2 = 1 M IPv4, 3 = 100 k IPv6 prefixes");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
