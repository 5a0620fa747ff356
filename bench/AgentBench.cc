#include <benchmark/benchmark.h>

#include <random>

#include "CpuTime.h"
#include "EngineWorld.h"
#include "mrib/Agent.h"

// What the agent layer costs, beside the bare engine that does the same in the same run.

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using Routing::Multicast::Rib::Rpf;

constexpr U32 subnets = 64;  // connected subnets: 10.d.0.0/16 on link d + 1

IpAddr hopOf(U32 i) {
  return IpAddr::fromHost(10u << 24 | (i % subnets) << 16 | (1 + i / subnets));
}
Prefix prefixOf(U32 i) {
  return {IpAddr::fromHost((100u << 24) + (i << 8)), 24};
}
Prefix subnetOf(U32 d) {
  return {IpAddr::fromHost(10u << 24 | d << 16), 16};
}

/// The least of some times: what is measured without what other work on the machine does to the caches.
class Least {
 public:
  double operator()(double seconds) {
    least_ = std::min(least_, seconds);
    return seconds;
  }
  double seconds() const { return least_; }

 private:
  double least_ = 1e9;
};

struct Bare : EngineWorld {
  Bare() {
    for (U32 d = 0; d < subnets; ++d) {
      intfIs(d + 1, "eth" + std::to_string(d));
      connectedIs(subnetOf(d).stringValue(), d + 1);
    }
    start();
  }
  void load(U32 count) {
    for (U32 i = 0; i < count; ++i) {
      config->routeIs(Lumo::IpGenPrefix(prefixOf(i)))->prefIs(1)->rpfIs(Rpf::ofAddr(IpGenAddr(hopOf(i))));
    }
  }
};

void connect(mrib::Transaction& t, U32 d) {
  const mrib::Gateway hop{{}, d + 1};
  t.route(subnetOf(d), mrib::RouteType::connected, 0, {&hop, 1});
}

struct Layer : mrib::Agent {
  Layer() {
    mrib::Transaction t;
    for (U32 d = 0; d < subnets; ++d) {
      t.link({d + 1, "eth" + std::to_string(d)});
      connect(t, d);
    }
    commit(t);
  }
  /// In one transaction, its making included.
  void load(U32 routes) {
    mrib::Transaction t;
    for (U32 i = 0; i < routes; ++i) t.mroute(prefixOf(i), IpGenAddr(hopOf(i)), 1, i + 1);
    benchmark::DoNotOptimize(commit(t));
  }
};

void load(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  Least bareTime, time;
  for (auto _ : state) {
    {
      Bare bare;
      bareTime(timed([&] { bare.load(routes); }));
    }
    Layer layer;
    state.SetIterationTime(time(timed([&] { layer.load(routes); })));
  }
  state.counters["least_ms"] = time.seconds() * 1e3;
  state.counters["bare_ms"] = bareTime.seconds() * 1e3;
  state.counters["x_bare"] = time.seconds() / bareTime.seconds();
}

/// One by one, each in a transaction of its own.
void loadSingly(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  Least time;
  for (auto _ : state) {
    Layer layer;
    mrib::Transaction t;
    const double seconds = timed([&] {
      for (U32 i = 0; i < routes; ++i) {
        t.clear();
        t.mroute(prefixOf(i), IpGenAddr(hopOf(i)), 1);
        layer.commit(t);
      }
    });
    state.SetIterationTime(time(seconds));
  }
  state.counters["us/route"] = time.seconds() / routes * 1e6;
}

/// A connected route goes and comes back, each a commit: one in 64 of the routes follows.
void connectedFlap(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  Bare bare;
  bare.load(routes);
  Layer layer;
  layer.load(routes);
  Least bareLost, bareBack, lost, back;
  const std::string subnet = subnetOf(7).stringValue();
  for (auto _ : state) {
    bareLost(timed([&] { bare.unicastDel(subnet); }));
    bareBack(timed([&] { bare.connectedIs(subnet, 8); }));
    mrib::Transaction gone, here;
    gone.routeDel(subnetOf(7));
    connect(here, 7);
    const double l = lost(timed([&] { benchmark::DoNotOptimize(layer.commit(gone)); }));
    const double b = back(timed([&] { benchmark::DoNotOptimize(layer.commit(here)); }));
    if (layer.mayDiffer()) state.SkipWithError("a flap leaves a difference");
    state.SetIterationTime((l + b) / 2);
  }
  state.counters["lost_us"] = lost.seconds() * 1e6;
  state.counters["back_us"] = back.seconds() * 1e6;
  state.counters["bareLost_us"] = bareLost.seconds() * 1e6;
  state.counters["bareBack_us"] = bareBack.seconds() * 1e6;
}

void lookUp(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  Layer layer;
  layer.load(routes);
  std::mt19937 random(1);
  std::vector<IpAddr> sources(1 << 14);
  for (IpAddr& a : sources) a = IpAddr::fromHost((100u << 24) + static_cast<U32>(random()) % (routes << 8));
  const Routing::TrieGen& trie = *layer.engine()->mribShadow()->trie();
  Least trieTime, time;
  for (auto _ : state) {
    trieTime(timed([&] {
      for (const IpAddr a : sources) benchmark::DoNotOptimize(trie.longestMatch({a, 32}));
    }));
    state.SetIterationTime(time(timed([&] {
      for (const IpAddr a : sources) benchmark::DoNotOptimize(layer.rpf(a));
    })));
  }
  const auto each = static_cast<double>(sources.size()) / 1e9;
  state.counters["trie_ns"] = trieTime.seconds() / each;
  state.counters["more_ns"] = (time.seconds() - trieTime.seconds()) / each;
}

void settle(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  Layer layer;
  layer.load(routes);
  Least time;
  for (auto _ : state) state.SetIterationTime(time(timed([&] { benchmark::DoNotOptimize(layer.settle()); })));
  state.counters["least_ms"] = time.seconds() * 1e3;
}

BENCHMARK(load)->Arg(1000)->Arg(50000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(loadSingly)->Arg(1000)->Arg(50000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(connectedFlap)->Arg(1000)->Arg(50000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(lookUp)->Arg(1000)->Arg(50000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(settle)->Arg(1000)->Arg(50000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
