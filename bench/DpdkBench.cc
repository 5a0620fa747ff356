#include <benchmark/benchmark.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_fib.h>
#include <rte_rib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "PrefixSets.h"

// The trie against DPDK's two IPv4 tables, on the same prefixes and queries in one run: rte_rib, a binary
// trie with compressed paths, and rte_fib, DIR-24-8, an array of the first 24 bits that is made for look-ups.

namespace {

constexpr U32 addressCount = 1u << 16;

/// DPDK's calls on an IPv4 prefix, under the names that the trie has for them.
class Rib {
 public:
  explicit Rib(U32 prefixes) {
    rte_rib_conf conf{};
    conf.max_nodes = static_cast<int>(2 * prefixes);  // one for each prefix and each branch
    rib_ = rte_rib_create("rib", 0, &conf);
    check(rib_ != nullptr);
  }
  ~Rib() { rte_rib_free(rib_); }
  Rib(const Rib&) = delete;
  Rib& operator=(const Rib&) = delete;
  void insert(U32 ip, U8 length) { check(rte_rib_insert(rib_, ip, length) != nullptr); }
  void remove(U32 ip, U8 length) { rte_rib_remove(rib_, ip, length); }
  bool matches(U32 ip) const { return rte_rib_lookup(rib_, ip) != nullptr; }

  static void check(bool fine) {
    if (fine) return;
    std::fprintf(stderr, "DPDK: %s\n", rte_strerror(rte_errno));
    std::exit(1);
  }

 private:
  rte_rib* rib_;
};

class Fib {
 public:
  explicit Fib(U32 prefixes) {
    rte_fib_conf conf{};
    conf.type = RTE_FIB_DIR24_8;
    conf.max_routes = static_cast<int>(prefixes);
    conf.dir24_8.nh_sz = RTE_FIB_DIR24_8_2B;
    conf.dir24_8.num_tbl8 = (1u << 15) - 1;
    fib_ = rte_fib_create("fib", 0, &conf);
    Rib::check(fib_ != nullptr);
  }
  ~Fib() { rte_fib_free(fib_); }
  Fib(const Fib&) = delete;
  Fib& operator=(const Fib&) = delete;
  void insert(U32 ip, U8 length) { Rib::check(rte_fib_add(fib_, ip, length, length) == 0); }
  void remove(U32 ip, U8 length) { rte_fib_delete(fib_, ip, length); }
  bool matches(U32 ip) const {
    U64 hop = 0;
    rte_fib_lookup_bulk(fib_, &ip, &hop, 1);
    return hop != 0;
  }

 private:
  rte_fib* fib_;
};

class Trie {
 public:
  explicit Trie(U32) {}
  void insert(U32 ip, U8 length) { trie_.insert(key(ip), length); }
  void remove(U32 ip, U8 length) { trie_.remove(key(ip), length); }
  bool matches(U32 ip) const { return trie_.longestMatch(key(ip), 32) != Routing::PrefixTrie::noMatch; }

 private:
  static Routing::TrieKey key(U32 ip) { return {U64{ip} << 32, 0}; }
  Routing::PrefixTrie trie_;
};

struct Table {
  std::vector<BenchPrefix> prefixes;  // in random order
  std::vector<U32> addresses;
};

U32 ipOf(const Routing::TrieKey& key) {
  return static_cast<U32>(key.high >> 32);
}

const Table& table(U32 size) {
  static std::map<U32, Table> tables;
  Table& t = tables[size];
  if (t.prefixes.empty()) {
    t.prefixes = internetTable4(size);
    for (const Routing::TrieKey& a : addressesIn(t.prefixes, 32, addressCount))
      t.addresses.push_back(ipOf(a));
    std::shuffle(t.prefixes.begin(), t.prefixes.end(), std::mt19937_64(1));
  }
  return t;
}

/// The present table of a kind; one of a kind at a time, since DPDK's are large.
template <class Set>
Set& loaded(U32 size) {
  static std::unique_ptr<Set> set;
  static U32 loadedSize = 0;
  if (loadedSize != size) {
    set.reset();
    set = std::make_unique<Set>(size);
    for (const BenchPrefix& p : table(size).prefixes) set->insert(ipOf(p.key), static_cast<U8>(p.length));
    loadedSize = size;
  }
  return *set;
}

/// Seconds for each step of the trie, by benchmark and size; the rows of the others show how many times that.
std::map<std::string, double> trieTime;

template <class Set, class Step>
void measure(benchmark::State& state, const char* name, Step step) {
  const auto size = static_cast<U32>(state.range(0));
  loaded<Set>(size);
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) step(table(size));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double each = seconds / static_cast<double>(state.iterations());
  const std::string key = name + std::to_string(size);
  if (std::is_same_v<Set, Trie>) {
    trieTime[key] = each;
  } else {
    state.counters["trie_is_x_as_fast"] = each / trieTime[key];
  }
}

/// Each query depends on the answer before.
template <class Set>
void lookup(benchmark::State& state) {
  const Set& set = loaded<Set>(static_cast<U32>(state.range(0)));
  U32 i = 0;
  measure<Set>(state, "lookup", [&](const Table& t) {
    i = (i + 2 - set.matches(t.addresses[i])) % addressCount;
    benchmark::DoNotOptimize(i);
  });
}

template <class Set>
void removeAndReinsert(benchmark::State& state) {
  Set& set = loaded<Set>(static_cast<U32>(state.range(0)));
  std::size_t i = 0;
  measure<Set>(state, "update", [&](const Table& t) {
    i = i + 1 < t.prefixes.size() ? i + 1 : 0;
    const U32 ip = ipOf(t.prefixes[i].key);
    const auto length = static_cast<U8>(t.prefixes[i].length);
    set.remove(ip, length);
    set.insert(ip, length);
  });
}

#define MRIB_DPDK_BENCH(size)                    \
  BENCHMARK(lookup<Trie>)->Arg(size);            \
  BENCHMARK(lookup<Rib>)->Arg(size);             \
  BENCHMARK(lookup<Fib>)->Arg(size);             \
  BENCHMARK(removeAndReinsert<Trie>)->Arg(size); \
  BENCHMARK(removeAndReinsert<Rib>)->Arg(size);  \
  BENCHMARK(removeAndReinsert<Fib>)->Arg(size)

MRIB_DPDK_BENCH(100000);
MRIB_DPDK_BENCH(1000000);

}  // namespace

int main(int argc, char** argv) {
  std::array<std::string, 8> options{"dpdk_bench",     "--no-huge",         "--no-pci", "--no-shconf",
                                     "--no-telemetry", "--log-level=error", "-m",       "2048"};
  std::array<char*, 8> pointers{};
  std::transform(options.begin(), options.end(), pointers.begin(), [](std::string& o) { return o.data(); });
  Rib::check(rte_eal_init(static_cast<int>(pointers.size()), pointers.data()) >= 0);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
