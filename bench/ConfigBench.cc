#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "CpuTime.h"

// What a configuration costs, beside a plain reading of the same text in the same run: std::getline and
// std::sscanf, and no check of anything.

namespace {

std::string textWith(U32 lines) {
  std::string text;
  for (U32 i = 0; i < lines; ++i) {
    const Lumo::Prefix prefix(Lumo::IpAddr::fromHost((10u << 24) + (i << 4)), 28);
    const Lumo::IpAddr hop = Lumo::IpAddr::fromHost(0xC0000200 + i * 7919 % 65536);
    text += fmt::format("ip mroute {} {}{}\n", prefix.stringValue(), i % 10 == 0 ? "eth1" : hop.stringValue(),
                        i % 2 == 0 ? " 200" : "");
  }
  return text;
}

void readPlainly(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    char prefix[32], rpf[32];
    int preference = 1;
    benchmark::DoNotOptimize(std::sscanf(line.c_str(), "ip mroute %31s %31s %d", prefix, rpf, &preference));
  }
}

/// `step(configuration, text)`, and how many times a plain reading of the text its time is.
template <class Step>
void besidePlain(benchmark::State& state, Step step) {
  const std::string text = textWith(static_cast<U32>(state.range(0)));
  const host::Configuration configuration = host::parseConfiguration(text, "bench.conf");
  double plain = 1e9, time = 1e9;
  for (auto _ : state) {
    plain = std::min(plain, timed([&] { readPlainly(text); }));
    const double seconds = timed([&] { step(configuration, text); });
    time = std::min(time, seconds);
    state.SetIterationTime(seconds);
  }
  state.counters["least_ms"] = time * 1e3;
  state.counters["x_plain"] = time / plain;
}

void parse(benchmark::State& state) {
  besidePlain(state, [](const host::Configuration&, const std::string& text) {
    benchmark::DoNotOptimize(host::parseConfiguration(text, "bench.conf"));
  });
}

void write(benchmark::State& state) {
  besidePlain(state, [](const host::Configuration& configuration, const std::string&) {
    benchmark::DoNotOptimize(host::textOf(configuration));
  });
}

/// Takes one line away and compares with what was before.
void editAndCompare(benchmark::State& state) {
  const std::string command[] = {"no ip mroute 10.0.0.0/28 eth1"};
  besidePlain(state, [&](const host::Configuration& configuration, const std::string&) {
    const host::Configuration after = host::edited(configuration, command);
    benchmark::DoNotOptimize(host::differenceOf(configuration, after));
  });
}

BENCHMARK(parse)->Arg(1000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(write)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(editAndCompare)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
