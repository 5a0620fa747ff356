#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "CpuTime.h"
#include "Pim/MribSm/MribSm.h"
#include "inside/CBorder.h"

// What a look-up by the C API costs on the same routes and sources in the same run: `more_ns` beyond the
// trie's longest match (`trie_ns`), which says neither next hop nor interface; `way_ns` is the longest match
// with these, read from the engine's route. With a million sources hardly two look-ups read the same memory.

namespace {

constexpr U32 subnets = 64;  // connected: 10.d.0.0/16 on link d + 1

mrib_ip ipOf(U32 host) {
  return mrib::cOf(Lumo::IpAddr::fromHost(host));
}
mrib_prefix prefixOf(U32 host, U8 length) {
  return mrib::cOf(Lumo::Prefix(Lumo::IpAddr::fromHost(host), length));
}

void load(mrib_agent* agent, U32 routes) {
  mrib_begin(agent);
  for (U32 d = 0; d < subnets; ++d) {
    const std::string name = "eth" + std::to_string(d);
    const mrib_link link{sizeof link, d + 1, name.c_str(), 0, 0};
    const mrib_next_hop hop{{}, d + 1};
    const mrib_unicast route{sizeof route, MRIB_CONNECTED, 0, 0, prefixOf(10u << 24 | d << 16, 16), 1, &hop};
    mrib_link_set(agent, &link);
    mrib_route_set(agent, &route);
  }
  for (U32 i = 0; i < routes; ++i) {
    const mrib_ip rpf = ipOf(10u << 24 | (i % subnets) << 16 | (1 + i / subnets));
    const mrib_mroute m{sizeof m, 1, prefixOf((100u << 24) + (i << 8), 24), rpf, nullptr, i + 1};
    mrib_mroute_set(agent, &m);
  }
  if (mrib_commit(agent, nullptr) != MRIB_OK) std::abort();
}

/// The least nanoseconds of CPU for each source that `step` has taken: other work on the machine is none of
/// its cost.
class Least {
 public:
  template <class Step>
  double operator()(const std::vector<mrib_ip>& sources, Step step) {
    const double start = cpuSeconds();
    for (const mrib_ip& source : sources) step(source);
    const double seconds = cpuSeconds() - start;
    each_ = std::min(each_, seconds * 1e9 / static_cast<double>(sources.size()));
    return seconds;
  }
  double each() const { return each_; }

 private:
  double each_ = 1e9;
};

void lookUp(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  mrib_agent* agent = mrib_create(nullptr);
  load(agent, routes);
  std::mt19937 random(1);
  std::vector<mrib_ip> sources(static_cast<std::size_t>(state.range(1)));
  for (mrib_ip& s : sources) s = ipOf((100u << 24) + static_cast<U32>(random()) % (routes << 8));
  const Routing::Multicast::Rib::MribSm& engine = *agent->agent.engine();
  const Routing::TrieGen& trie = *engine.mribShadow()->trie();
  mrib_next_hop hops[4];
  mrib_route route{};
  route.size = sizeof route;
  route.next_hops = hops;
  route.next_hop_room = 4;
  Least trieTime, wayTime, time;
  for (auto _ : state) {
    trieTime(sources, [&](const mrib_ip& s) {
      benchmark::DoNotOptimize(trie.longestMatch({mrib::v4Of(s), 32}));
    });
    wayTime(sources, [&](const mrib_ip& s) {
      const auto* found = engine.mribStatus()->route(trie.longestMatch({mrib::v4Of(s), 32}).v4Prefix());
      const auto& way = found->viaList()[0];
      benchmark::DoNotOptimize(way.hop.host() + way.intfStatus->intfId().value());
    });
    state.SetIterationTime(time(sources, [&](const mrib_ip& s) {
      if (mrib_rpf(agent, &s, &route) != MRIB_OK) state.SkipWithError("there is no route");
      benchmark::DoNotOptimize(hops[0]);
    }));
  }
  state.counters["trie_ns"] = trieTime.each();
  state.counters["way_ns"] = wayTime.each();
  state.counters["more_ns"] = time.each() - trieTime.each();
  mrib_free(agent);
}

BENCHMARK(lookUp)
    ->ArgNames({"routes", "sources"})
    ->Args({1000, 1 << 14})
    ->Args({50000, 1 << 14})
    ->Args({1000000, 1 << 14})
    ->Args({1000000, 1 << 20})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
