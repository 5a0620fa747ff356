#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <map>

#include "EngineWorld.h"
#include "Pim/MribSm/ConfigReactors.h"
#include "Zan/Introspection.h"

namespace {

using Lumo::IpAddr;
using Lumo::IpGenPrefix;
using Routing::Multicast::Rib::Rpf;

constexpr U32 subnets = 64;  // connected subnets: 10.0.d.0/24 on interface d + 1

/// How the next hops of the configured routes are spread over the subnets.
enum class Hops { many, few };

IpAddr hopOf(U32 i, Hops hops) {
  const U32 host = hops == Hops::few ? 1 : 1 + i / subnets;
  return IpAddr::fromHost(10u << 24 | (i % subnets) << 16 | host);
}
IpGenPrefix prefixOf(U32 i) {
  return {IpAddr::fromHost((100u << 24) + (i << 8)), 24};
}

struct World : EngineWorld {
  World() {
    for (U32 d = 0; d < subnets; ++d) {
      intfIs(d + 1, "eth" + std::to_string(d));
      intfAddrIs(d + 1, "10." + std::to_string(d) + ".255.254");
      connectedIs(subnet(d), d + 1);
    }
  }
  void begin(bool whole) {
    start();
    mrib->routeResolver()->wholePassesIs(whole);
  }
  static std::string subnet(U32 d) { return "10." + std::to_string(d) + ".0.0/16"; }
  void configure(U32 i, Hops hops) { configure(i, hopOf(i, hops)); }
  void configure(U32 i, IpAddr hop) {
    config->routeIs(prefixOf(i))->prefIs(1)->rpfIs(Rpf::ofAddr(Lumo::IpGenAddr(hop)));
  }
  void load(U32 count, Hops hops) {
    for (U32 i = 0; i < count; ++i) configure(i, hops);
  }
};

/// Of the pool only what is handed out: its chunks stay when benchmarks before have given their objects back.
std::size_t heapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd - Zan::ZanMemPool::bytesHeld() + Zan::ZanMemPool::bytesInUse();
}

/// Seconds that `step` takes.
template <class Step>
double timed(Step step) {
  const auto start = std::chrono::steady_clock::now();
  step();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// What a benchmark took with whole passes, by its arguments, so that the row behind can show the ratio.
std::map<std::string, double> wholeTime;

/// Whole passes cost the square of the routes; beyond this they would not end in time.
constexpr U32 mostRoutesInWholePasses = 2000;

/// Runs `measureOnce(whole)`, which gives seconds, and shows each of `items` and the ratio to whole passes.
template <class Once>
void measure(benchmark::State& state, const std::string& name, double items, U32 routes, Once once) {
  double total = 0;
  for (auto _ : state) {
    const double seconds = once(false);
    state.SetIterationTime(seconds);
    total += seconds;
  }
  const double each = total / static_cast<double>(state.iterations());
  state.counters["us/item"] = each / items * 1e6;
  if (routes > mostRoutesInWholePasses) return;
  const std::string key = name + std::to_string(routes);
  if (!wholeTime.contains(key)) wholeTime[key] = once(true);
  state.counters["x_whole"] = wholeTime[key] / each;
}

/// Configures M routes, one RPF at a time.
template <Hops hops>
void loadOneByOne(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  measure(state, hops == Hops::many ? "load many" : "load few", routes, routes, [&](bool whole) {
    World world;
    world.begin(whole);
    return timed([&] { world.load(routes, hops); });
  });
}

/// Seconds that the engine takes to start on so many configured routes.
double secondsToStart(U32 routes) {
  World world;
  world.load(routes, Hops::many);
  return timed([&] { world.start(); });
}
void loadByStart(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  measure(state, "start", routes, 1000000, [&](bool) { return secondsToStart(routes); });
}

/// How many times as long as with 10,000 routes a start takes with 100,000; in turn, since a machine with
/// other work would slow one more than the other.
void startGrowth(benchmark::State& state) {
  constexpr int turns = 10;
  double smaller = 0, larger = 0;
  for (auto _ : state) {
    for (int i = 0; i < turns; ++i) smaller += secondsToStart(10000) / turns;
    const double seconds = secondsToStart(100000);
    larger += seconds;
    state.SetIterationTime(seconds);
  }
  state.counters["x_10000"] = larger / smaller;
}

/// One connected route goes, or comes back: M / 64 configured routes follow it.
void connectedRoute(benchmark::State& state, bool back) {
  const auto routes = static_cast<U32>(state.range(0));
  World world;
  world.begin(false);
  world.load(routes, Hops::many);
  measure(state, back ? "back" : "lost", routes / subnets, routes, [&](bool whole) {
    world.mrib->routeResolver()->wholePassesIs(whole);
    const double lost = timed([&] { world.unicastDel(World::subnet(7)); });
    const double returned = timed([&] { world.connectedIs(World::subnet(7), 8); });
    world.mrib->routeResolver()->wholePassesIs(false);
    return back ? returned : lost;
  });
}
void connectedLost(benchmark::State& state) {
  connectedRoute(state, false);
}
void connectedBack(benchmark::State& state) {
  connectedRoute(state, true);
}

/// A subnet of its own with four dependants among M: it goes and comes back.
void fourDependants(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  World world;
  world.begin(false);
  world.load(routes, Hops::many);
  world.connectedIs("20.0.0.0/24", 1);
  for (U32 i = 0; i < 4; ++i) world.configure(routes + i, IpAddr::fromHost((20u << 24) + 1 + i));
  measure(state, "four", 2, routes, [&](bool whole) {
    world.mrib->routeResolver()->wholePassesIs(whole);
    const double seconds = timed([&] {
      world.unicastDel("20.0.0.0/24");
      world.connectedIs("20.0.0.0/24", 1);
    });
    world.mrib->routeResolver()->wholePassesIs(false);
    return seconds;
  });
}

/// One RPF among M is removed and comes back.
void oneRpf(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  World world;
  world.begin(false);
  world.load(routes, Hops::many);
  auto pref = world.config->route(prefixOf(routes / 2))->prefIs(1);
  const Rpf rpf = *pref->rpfIterator();
  measure(state, "rpf", 2, routes, [&](bool whole) {
    world.mrib->routeResolver()->wholePassesIs(whole);
    const double seconds = timed([&] {
      pref->rpfDel(rpf);
      pref->rpfIs(rpf);
    });
    world.mrib->routeResolver()->wholePassesIs(false);
    return seconds;
  });
}

/// Changes of a unicast route that is not connected, with `routes` configured ones, resolved or not.
void unicastChanges(benchmark::State& state) {
  const auto changes = static_cast<U32>(state.range(0));
  const auto routes = static_cast<U32>(state.range(1));
  const bool resolved = state.range(2) != 0;
  World world;
  world.begin(false);
  for (U32 i = 0; i < routes; ++i) {
    world.configure(i, resolved ? hopOf(i, Hops::many) : IpAddr::fromHost((99u << 24) + i));
  }
  world.unicastIs("50.0.0.0/8", Routing::Fib::RouteType::egp, 20, {{"10.0.0.1", 1}});
  const IpGenPrefix changed("50.0.0.0/8");
  measure(state, "unicast" + std::to_string(resolved), changes, routes ? routes : 1000000, [&](bool whole) {
    world.mrib->routeResolver()->wholePassesIs(whole);
    const U32 some = whole ? std::min(changes, 100u) : changes;
    const double seconds = timed([&] {
      for (U32 i = 0; i < some; ++i) world.unicastTrie->changedRouteIs(changed);
    });
    world.mrib->routeResolver()->wholePassesIs(false);
    return seconds * changes / some;
  });
}

/// A chain: each route resolves through the next, the last one through a subnet; it comes and goes with it.
void chain(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  World world;
  world.begin(false);
  const auto inside = [](U32 i) { return IpAddr::fromHost((100u << 24) + (i << 8) + 1); };
  for (U32 i = 0; i + 1 < routes; ++i) world.configure(i, inside(i + 1));
  world.configure(routes - 1, IpAddr::fromHost((20u << 24) + 1));
  measure(state, "chain", 1, mostRoutesInWholePasses + 1, [&](bool) {
    const double seconds = timed([&] {
      world.connectedIs("20.0.0.0/24", 1);
      if (world.mribStatus->routeCount() != routes + subnets + 1) state.SkipWithError("the chain is broken");
      world.unicastDel("20.0.0.0/24");
    });
    if (world.mribStatus->routeCount() != subnets) state.SkipWithError("the chain is not torn down");
    return seconds;
  });
}

/// A route with 64 vias, added and removed one by one.
void manyVias(benchmark::State& state) {
  World world;
  world.begin(false);
  auto pref = world.config->routeIs(prefixOf(0))->prefIs(1);
  measure(state, "vias", 2 * subnets, 1, [&](bool whole) {
    world.mrib->routeResolver()->wholePassesIs(whole);
    return timed([&] {
      for (U32 d = 0; d < subnets; ++d) pref->rpfIs(Rpf::ofAddr(Lumo::IpGenAddr(hopOf(d, Hops::few))));
      if (world.route("100.0.0.0/24")->viaCount() != subnets) state.SkipWithError("not every via is there");
      for (U32 d = 0; d < subnets; ++d) pref->rpfDel(Rpf::ofAddr(Lumo::IpGenAddr(hopOf(d, Hops::few))));
    });
  });
}

/// Heap bytes a configured route with one RPF and one via costs, everything included.
void memory(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    World world;
    world.begin(false);
    const std::size_t before = heapBytes();
    world.load(routes, Hops::many);
    state.counters["bytes/route"] = static_cast<double>(heapBytes() - before) / routes;
    state.counters["trie"] = static_cast<double>(world.mrib->mribShadow()->trie()->bytes()) / routes;
    if (world.mribStatus->routeCount() != routes + subnets)
      state.SkipWithError("not every route is installed");
  }
  using namespace Routing::Multicast::Rib;
  using ConfigPrefix = MribSm::ZanMribConfigPrefix;
  state.counters["Route"] = sizeof(Route);
  state.counters["ZanRoute"] = sizeof(MribTrieBuilderSm::ZanRoute);
  state.counters["PrefixSet"] = sizeof(PrefixSet) + sizeof(RouteResolverSm::ZanMribForPrefix);
  state.counters["config"] = sizeof(RouteKeyPrefix) + sizeof(RouteKeyPreference) + sizeof(Rpf);
  state.counters["configReactors"] = sizeof(ConfigPrefix) + sizeof(ConfigPrefix::ZanMribConfigPref);
}

/// Makes every attribute of every registered type anew: what registration costs when the library is loaded.
void registration(benchmark::State& state) {
  std::size_t attributes = 0;
  for (auto _ : state) {
    attributes = 0;
    for (const auto& type : Zan::Introspection::instance().types()) {
      for (const Zan::AttributeRow& row : type->table->rows) {
        benchmark::DoNotOptimize(Zan::create<Zan::ZanAttr>(row, type->table->name));
        ++attributes;
      }
    }
  }
  state.counters["attributes"] = static_cast<double>(attributes);
}
BENCHMARK(registration)->Unit(benchmark::kMicrosecond);

#define MRIB_AT_EACH_SIZE ->Arg(10)->Arg(1000)->Arg(10000)->Arg(50000)->Arg(100000)->UseManualTime()
BENCHMARK(loadOneByOne<Hops::many>) MRIB_AT_EACH_SIZE->Unit(benchmark::kMillisecond)->MinTime(0.05);
BENCHMARK(loadOneByOne<Hops::few>) MRIB_AT_EACH_SIZE->Unit(benchmark::kMillisecond)->MinTime(0.05);
BENCHMARK(loadByStart) MRIB_AT_EACH_SIZE->Unit(benchmark::kMillisecond)->MinTime(0.05);
BENCHMARK(startGrowth)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(connectedLost)->Arg(1000)->Arg(10000)->Arg(50000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(connectedBack)->Arg(1000)->Arg(10000)->Arg(50000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(fourDependants) MRIB_AT_EACH_SIZE->Unit(benchmark::kMicrosecond);
BENCHMARK(oneRpf) MRIB_AT_EACH_SIZE->Unit(benchmark::kMicrosecond);
BENCHMARK(unicastChanges)
    ->ArgNames({"changes", "routes", "resolved"})
    ->Args({20000, 0, 1})
    ->Args({20000, 1000, 1})
    ->Args({20000, 1000, 0})
    ->Args({20000, 10000, 1})
    ->Args({20000, 10000, 0})
    ->Args({1000000, 0, 1})
    ->Args({1000000, 10000, 1})
    ->Args({1000000, 10000, 0})
    ->UseManualTime()
    ->MinTime(0.05)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(chain)->Arg(10)->Arg(100)->Arg(1000)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.05);
BENCHMARK(manyVias)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(0.05);
BENCHMARK(memory)->Arg(1000)->Arg(10000)->Arg(50000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
