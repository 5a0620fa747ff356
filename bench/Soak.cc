#include <fmt/format.h>
#include <linux/netlink.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <thread>

#include "ConfigReader.h"
#include "CpuTime.h"
#include "LiveBytes.h"
#include "RibService.h"
#include "Server.h"
#include "Zan/MemPool.h"

// soak MINUTES: the daemon's logic under 10,000 events a second from a made-up kernel, with a client that
// follows and one that asks. Every ten seconds the kernel and the configuration return to what they were, and
// then the answers and the live memory have to as well. 0: all as it should be; 1: not, and what.

namespace {

using namespace host;
using namespace host::kernel;
using Lumo::IpAddr;
using Lumo::Prefix;

constexpr U32 linkCount = 8;
constexpr U32 prefixCount = 20'000;
constexpr Nanos slice = milliseconds(10);
constexpr U32 eventsASlice = 100;
constexpr U32 slices = 1000;   // of a cycle
constexpr U32 backFrom = 840;  // the kernel takes back what it has
constexpr U32 quietFrom = 980;

/// Tells a mirror what it does, and answers its requests at once.
class MadeUpKernel {
 public:
  explicit MadeUpKernel(Mirror& mirror) : mirror_(mirror) {}

  void change(Nanos now) {
    const U32 prefix = static_cast<U32>(random_()) % prefixCount;
    const U32 hop = static_cast<U32>(random_()) % 199;
    const auto at = routes_.find(prefix);
    if (at != routes_.end() && hop % 2 == 0) return remove(at, now);
    const bool isThere = at != routes_.end();
    routes_[prefix] = hop;
    tell(RouteChange{routeTo(prefix, hop)}, isThere ? NLM_F_REPLACE : NLM_F_CREATE, now);
  }
  /// The routes over a link that goes down vanish without a word.
  void linkIs(U32 index, bool up, Nanos now) {
    std::erase_if(routes_, [&](const auto& route) { return !up && linkTo(route.second) == index; });
    down_ = up ? 0 : index;
    tell(LinkChange{linkOf(index)}, 0, now);
  }
  void tellAll(Nanos now) {
    for (U32 prefix = 0; prefix < prefixCount; ++prefix) {
      if (routes_.emplace(prefix, 0).second) tell(RouteChange{routeTo(prefix, 0)}, NLM_F_CREATE, now);
    }
  }
  void takeBack(Nanos now) {
    if (!routes_.empty()) remove(routes_.begin(), now);
  }
  /// Does what the mirror asks for. Returns when to ask again.
  Nanos serve(Nanos now) {
    for (;;) {
      const Mirror::Action action = mirror_.next(now);
      if (action.kind == Mirror::Action::Kind::wait) return action.until;
      if (action.kind == Mirror::Action::Kind::dump) answer(action, now);
    }
  }
  U64 events() const { return events_; }

 private:
  void remove(std::map<U32, U32>::iterator at, Nanos now) {
    tell(RouteChange{routeTo(at->first, at->second), true}, 0, now);
    routes_.erase(at);
  }
  template <class Body>
  void tell(Body body, U16 flags, Nanos now) {
    mirror_.event({0, flags, std::move(body)}, now);
    ++events_;
  }
  kernel::Link linkOf(U32 index) const {
    const bool up = index != down_;
    return {index, fmt::format("eth{}", index), {}, up, up, up, 6, 0, 0};
  }
  static U32 linkTo(U32 hop) { return 1 + hop % linkCount; }
  static Route subnetOf(U32 link) {
    Route route;
    route.prefix = Prefix(IpAddr::fromHost((10u << 24) + (link << 16)), 16);
    route.table = 254;
    route.hops.push_back({{}, link, 0});
    return route;
  }
  static Route routeTo(U32 prefix, U32 hop) {
    Route route;
    route.prefix = Prefix(IpAddr::fromHost((20u << 24) + (prefix << 8)), 24);
    route.table = 254;
    const U32 link = linkTo(hop);
    route.hops.push_back({{}, link, 0});
    if (prefix % 4 < 2)
      route.hops[0].gateway = IpGenAddr(IpAddr::fromHost((10u << 24) + (link << 16) + 2 + hop));
    return route;
  }
  void answer(const Mirror::Action& action, Nanos now) {
    const auto say = [&](auto body) {
      mirror_.answered({action.sequence, NLM_F_MULTI, std::move(body)}, now);
    };
    for (U32 i = 1; i <= linkCount; ++i) {
      const IpGenAddr own(IpAddr::fromHost((10u << 24) + (i << 16) + 1));
      if (action.dump == Dump::links) say(LinkChange{linkOf(i)});
      if (action.dump == Dump::routes4 && i != down_) say(RouteChange{subnetOf(i)});
      if (action.dump == Dump::addresses) say(AddressChange{{i, own, own, 16, 0, false, false}});
    }
    for (const auto& [prefix, hop] : routes_) {
      if (action.dump == Dump::routes4) say(RouteChange{routeTo(prefix, hop)});
    }
    say(DumpEnd{});
  }

  Mirror& mirror_;
  std::minstd_rand random_;
  std::map<U32, U32> routes_;  // of a prefix the next hop
  U32 down_ = 0;
  U64 events_ = 0;
};

Configuration configurationWith(U32 first) {
  std::string text;
  for (U32 i = first; i < first + 1000; ++i) {
    text += fmt::format("ip mroute 100.{}.{}.0/24 20.{}.{}.1\n", i >> 8, i & 255, i >> 8, i & 255);
    text += fmt::format("ip mroute 100.{}.{}.0/24 eth{} 9\n", i >> 8, i & 255, 1 + i % linkCount);
  }
  return parseConfiguration(text, "soak.conf");
}

/// The whole daemon but for its sockets, in a time of its own.
class World {
 public:
  /// Calls `pause` with its time after each hundredth of a second.
  explicit World(std::function<void(Nanos)> pause) : pause_(std::move(pause)) {
    // All that there can be, once: tables that have been large keep some of their room.
    turn(0);
    kernel_.tellAll(now_);
    turn(0);
    for (U32 i = 0; i < prefixCount; ++i) kernel_.takeBack(now_);
    for (U32 i = quietFrom; i < slices; ++i) turn(i);
    say(follower_, R"({"method":"org.mrib.Monitor","more":true})");
  }

  /// Away from the baseline, which has links and no more, and back.
  void cycle() {
    for (U32 i = 0; i < slices; ++i) {
      const U32 link = 1 + i / 100 % linkCount;
      if (i % 100 == 50 || i % 100 == 70) kernel_.linkIs(link, i % 100 == 70, now_);
      if (i % 100 == 0 && i < backFrom) router_.configurationIs(configurationWith(i * 5), now_);
      if (i == backFrom) router_.configurationIs({}, now_);
      for (U32 n = 0; n < eventsASlice; ++n) i < backFrom ? kernel_.change(now_) : kernel_.takeBack(now_);
      turn(i);
      most_ = std::max(most_, router_.routeCount());
      pause_(now_);
    }
  }
  void turn(U32 number) {
    ask(number);
    for (int i = 0; i < 100 && (kernel_.serve(now_) <= now_ || router_.turn(now_) <= now_); ++i) {
    }
    server_.turn(now_);
    for (const auto id : {follower_, asker_}) {
      while (!server_.output(id).empty()) {
        server_.sent(id, server_.output(id).size(), now_);
        server_.turn(now_);
      }
    }
    now_ += slice;
  }
  Nanos now() const { return now_; }
  U64 events() const { return kernel_.events(); }
  std::size_t most() const { return most_; }
  bool isStale() const { return router_.isStale(); }
  std::vector<mrib::Route> routes() const { return router_.routes(); }

 private:
  void say(control::Server::Id id, const std::string& request) { server_.received(id, request + '\0', now_); }
  void ask(U32 n) {
    say(asker_,
        fmt::format(
            R"({{"method":"org.mrib.Lookup","parameters":{{"addresses":["100.0.{}.1","20.{}.9.9"]}}}})",
            n & 255, n & 63));
  }

  Nanos now_ = seconds(1);
  Mirror mirror_{{}, now_};
  MadeUpKernel kernel_{mirror_};
  Router router_{mirror_, [this] { return now_; }};
  RibService service_{router_, nullptr, [this] { return now_; }, {"a made-up kernel", now_}};
  control::Server server_{service_, {"mrib", "soak", version(), ""}};
  control::Server::Id follower_ = *server_.connect({});
  control::Server::Id asker_ = *server_.connect({});
  std::function<void(Nanos)> pause_;
  std::size_t most_ = 0;  // routes
};

U64 residentBytes() {
  std::ifstream in("/proc/self/statm");
  U64 size = 0, resident = 0;
  in >> size >> resident;
  return resident * static_cast<U64>(sysconf(_SC_PAGESIZE));
}

struct Sample {
  U64 live = 0;
  U64 resident = 0;
  double nanosAnEvent = 0;
};

/// What a tenth of the samples cost: the least, since others on the machine make none of them cheaper.
double costOf(const Sample* first, std::size_t count) {
  return std::min_element(first, first + count,
                          [](const Sample& a, const Sample& b) { return a.nanosAnEvent < b.nanosAnEvent; })
      ->nanosAnEvent;
}

bool judge(const std::vector<Sample>& samples) {
  const std::size_t tenth = std::max<std::size_t>(samples.size() / 10, 1);
  const Sample& base = samples[tenth];
  U64 most = 0, others = 0;
  for (std::size_t i = tenth; i < samples.size(); ++i) {
    most = std::max(most, samples[i].resident);
    others += samples[i].live != base.live;
  }
  const double first = costOf(samples.data(), tenth), last = costOf(&samples[samples.size() - tenth], tenth);
  const U64 allowed = base.resident + base.resident / 100 + (512 << 10);
  fmt::print("live heap: {} bytes at each return but {}\n", base.live, others);
  fmt::print("resident: {} KiB after the first tenth, {} KiB at most after it\n", base.resident >> 10,
             most >> 10);
  fmt::print("CPU: {:.0f} ns an event in the first tenth, {:.0f} in the last: {:.3f} times\n", first, last,
             last / first);
  return others == 0 && most <= allowed && last <= 1.1 * first;
}

}  // namespace

int main(int argc, char** argv) {
  const double minutes = argc == 2 ? std::atof(argv[1]) : 0;
  const auto cycles = static_cast<std::size_t>(minutes * 6);
  if (cycles < 10) return fmt::print(stderr, "usage: soak MINUTES (2 at least)\n"), 1;
  std::vector<Sample> samples;
  samples.reserve(cycles);
  const auto start = std::chrono::steady_clock::now();
  World world([&](Nanos now) { std::this_thread::sleep_until(start + std::chrono::nanoseconds(now)); });
  const auto before = world.routes();
  while (samples.size() < cycles) {
    const U64 events = world.events();
    const double cpu = timed([&] { world.cycle(); });
    const U64 live = liveBytes() - Zan::ZanMemPool::bytesHeld() + Zan::ZanMemPool::bytesInUse();
    samples.push_back({live, residentBytes(), cpu * 1e9 / static_cast<double>(world.events() - events)});
    if (world.isStale() || world.routes() != before) {
      fmt::print("not as it was after {} s\n", samples.size() * 10);
      return 1;
    }
  }
  fmt::print("{} events in {} s, to {} MRIB routes\n", world.events(), samples.size() * 10, world.most());
  return judge(samples) ? 0 : 1;
}
