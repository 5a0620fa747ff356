#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "CountAllocations.h"
#include "Routing/Multicast/Rib/Route.h"
#include "Zan/Trace.h"

// What every other cost is made of: hashing and ordering a prefix, telling a watcher, a trace site that is
// off. Each against the plain way to do it, in the same run.

namespace {

using Lumo::IpGenPrefix;
using Routing::Multicast::Rib::Route;

/// Seconds an iteration of the plain way took, by name.
std::map<std::string, double> plainTime;

template <class Step>
void measure(benchmark::State& state, const std::string& what, bool plain, Step step) {
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) step();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double each = seconds / static_cast<double>(state.iterations());
  if (plain) {
    plainTime[what] = each;
  } else {
    state.counters["x_plain"] = plainTime[what] / each;
  }
}

const std::vector<IpGenPrefix>& prefixes() {
  static const auto all = [] {
    std::mt19937 random(1);
    std::vector<IpGenPrefix> made;
    for (int i = 0; i < 4096; ++i) {
      made.emplace_back(Lumo::IpAddr::fromHost(static_cast<U32>(random())),
                        8 + static_cast<U32>(random() % 25));
    }
    return made;
  }();
  return all;
}

/// The prefix as the 18 bytes that a plain implementation compares and hashes.
std::array<unsigned char, 18> bytesOf(const IpGenPrefix& p) {
  std::array<unsigned char, 18> bytes{static_cast<unsigned char>(p.af())};
  const U64 words[] = {__builtin_bswap64(p.high()), __builtin_bswap64(p.low())};
  std::memcpy(bytes.data() + 1, words, 16);
  bytes[17] = p.length();
  return bytes;
}

const std::vector<std::array<unsigned char, 18>>& prefixBytes() {
  static const auto all = [] {
    std::vector<std::array<unsigned char, 18>> made;
    for (const IpGenPrefix& p : prefixes()) made.push_back(bytesOf(p));
    return made;
  }();
  return all;
}

void hashBytewise(benchmark::State& state) {
  std::size_t i = 0;
  measure(state, "hash", true, [&] {
    U64 h = 0xCBF29CE484222325;  // FNV-1a
    for (const unsigned char b : prefixBytes()[i++ % 4096]) h = (h ^ b) * 0x100000001B3;
    benchmark::DoNotOptimize(h);
  });
}
void hashPrefix(benchmark::State& state) {
  std::size_t i = 0;
  measure(state, "hash", false, [&] { benchmark::DoNotOptimize(prefixes()[i++ % 4096].hash()); });
}

void orderBytewise(benchmark::State& state) {
  std::size_t i = 0;
  measure(state, "order", true, [&] {
    const auto& a = prefixBytes()[i % 4096];
    const auto& b = prefixBytes()[(i += 7) % 4096];
    benchmark::DoNotOptimize(std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end()));
  });
}
void orderPrefix(benchmark::State& state) {
  std::size_t i = 0;
  measure(state, "order", false, [&] {
    const auto& a = prefixes()[i % 4096];
    const auto& b = prefixes()[(i += 7) % 4096];
    benchmark::DoNotOptimize(a < b);
  });
}

class Watcher : public Route::NotifieeConst {
 public:
  void onPreference() override { benchmark::DoNotOptimize(++heard); }
  U64 heard = 0;
};

void tellDirectly(benchmark::State& state) {
  const auto watcher = Zan::create<Watcher>();
  Route::NotifieeConst* notifiee = watcher.get();
  benchmark::DoNotOptimize(notifiee);
  measure(state, "tell", true, [&] { notifiee->onPreference(); });
}
void tellOneWatcher(benchmark::State& state) {
  const auto route = Zan::create<Route>(Lumo::Prefix("10.0.0.0/8"));
  const auto watcher = Zan::create<Watcher>();
  watcher->notifierIs(route);
  watcher->isRegisteredNotifieeIs(true);
  watcher->hasNotificationActiveIs(true);
  U8 preference = 0;
  const U64 before = allocations();
  for (int i = 0; i < 100000; ++i) route->preferenceIs(++preference);
  const U64 made = allocations() - before;
  measure(state, "tell", false, [&] { route->preferenceIs(++preference); });
  if (watcher->heard == 0) state.SkipWithError("the watcher heard nothing");
  state.counters["allocations"] = static_cast<double>(made);
}

void loopWithoutTrace(benchmark::State& state) {
  U64 n = 0;
  measure(state, "trace", true, [&] { benchmark::DoNotOptimize(++n); });
}
Zan::TraceHandle handle("bench");

void loopWithTraceOff(benchmark::State& state) {
  U64 n = 0;
  measure(state, "trace", false, [&] {
    ZAN_TRACE(handle, nullptr, 8, "a message");
    benchmark::DoNotOptimize(++n);
  });
}

BENCHMARK(hashBytewise);
BENCHMARK(hashPrefix);
BENCHMARK(orderBytewise);
BENCHMARK(orderPrefix);
BENCHMARK(tellDirectly);
BENCHMARK(tellOneWatcher);
BENCHMARK(loopWithoutTrace);
BENCHMARK(loopWithTraceOff);

}  // namespace

BENCHMARK_MAIN();
