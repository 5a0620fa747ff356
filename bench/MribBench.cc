#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <memory>

#include "EngineWorld.h"

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
    }
  }
  void connect() {
    for (U32 d = 0; d < subnets; ++d) connectedIs(subnet(d), d + 1);
  }
  static std::string subnet(U32 d) { return "10." + std::to_string(d) + ".0.0/16"; }
  void configure(U32 i, Hops hops) {
    config->routeIs(prefixOf(i))->prefIs(1)->rpfIs(Rpf::ofAddr(Lumo::IpGenAddr(hopOf(i, hops))));
  }
};

std::size_t heapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Heap bytes a configured route with one RPF and one via costs, everything included.
void memory(benchmark::State& state) {
  const auto routes = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    World world;
    world.connect();
    world.start();
    const std::size_t before = heapBytes();
    for (U32 i = 0; i < routes; ++i) world.configure(i, Hops::many);
    state.counters["bytes/route"] = static_cast<double>(heapBytes() - before) / routes;
    if (world.mribStatus->routeCount() != routes + subnets)
      state.SkipWithError("not every route is installed");
  }
}
BENCHMARK(memory)->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
