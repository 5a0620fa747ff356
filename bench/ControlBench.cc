#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>

#include "Server.h"

// What the server adds to reading the JSON of the same requests, which no server can do without.

namespace {

using namespace host::control;

class Echo : public Handler {
 public:
  const std::vector<Interface>& interfaces() const override { return interfaces_; }
  std::optional<Answer> call(std::string_view, const nlohmann::json& parameters, bool, const Peer&) override {
    benchmark::DoNotOptimize(parameters.size());
    return Reply{
        R"({"route":{"prefix":"192.0.2.0/24","nextHop":"198.51.100.7","interface":"eth1"}})", {}, false};
  }

 private:
  std::vector<Interface> interfaces_{{"b", "interface b\n"}};
};

std::string requestWith(int addresses) {
  auto list = nlohmann::json::array();
  for (int i = 0; i < addresses; ++i) list.push_back("192.0.2." + std::to_string(i));
  return nlohmann::json{{"method", "b.Lookup"}, {"parameters", {{"addresses", list}}}}.dump() + '\0';
}

/// A client that sends a request after the other, and takes each reply.
void oneConnection(benchmark::State& state) {
  const std::string request = requestWith(static_cast<int>(state.range(0)));
  Echo echo;
  Server server(echo, {});
  const auto id = *server.connect({});
  host::Nanos now = 0;
  for (auto _ : state) {
    server.received(id, request, ++now);
    server.sent(id, server.output(id).size(), now);
    benchmark::DoNotOptimize(server.turn(now).deadline);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(oneConnection)->Arg(1)->Arg(100);

/// The same, with as many requests at once as fit in one reading of its socket.
void pipelined(benchmark::State& state) {
  const std::string request = requestWith(static_cast<int>(state.range(0)));
  std::string bytes;
  std::size_t n = 0;
  for (; bytes.size() + request.size() <= 64 << 10; ++n) bytes += request;
  Echo echo;
  Server server(echo, {});
  const auto id = *server.connect({});
  host::Nanos now = 0;
  for (auto _ : state) {
    server.received(id, bytes, ++now);
    do server.sent(id, server.output(id).size(), now);
    while (server.turn(now).deadline <= now);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(n));
}
BENCHMARK(pipelined)->Arg(1)->Arg(100);

void parseOnly(benchmark::State& state) {
  const std::string request = requestWith(static_cast<int>(state.range(0)));
  const std::string_view text = std::string_view(request).substr(0, request.size() - 1);
  for (auto _ : state) benchmark::DoNotOptimize(nlohmann::json::parse(text).size());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(parseOnly)->Arg(1)->Arg(100);

}  // namespace

BENCHMARK_MAIN();
