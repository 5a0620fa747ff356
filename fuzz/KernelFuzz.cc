#include <algorithm>
#include <map>

#include "Message.h"
#include "Mirror.h"
#include "MulticastCache.h"
#include "Target.h"

using fuzz::must;
using namespace host;
using namespace host::kernel;

// Reads the bytes as what a kernel says to a mirror: datagrams of events and of answers, with time that
// passes between them. Nothing may crash or read out of bounds, and once the kernel says that it has
// nothing, the mirror must come to rest with nothing. Aborts when it does not.

namespace {

/// Takes the input as steps of a head of three bytes (what, how long) and a datagram.
class Run {
 public:
  explicit Run(Bytes input) : input_(input) {}

  void all() {
    while (input_.size() >= 3) step();
    rest();
    check();
  }

 private:
  Bytes datagram() {
    const std::size_t said = input_[1] + input_[2] * std::size_t{256};
    const std::size_t size = std::min(said, input_.size() - 3);
    const Bytes taken = input_.subspan(3, size);
    input_ = input_.subspan(3 + size);
    return taken;
  }
  void step() {
    const U8 what = input_[0];
    const Bytes bytes = datagram();
    now_ += milliseconds(what >> 3);
    forwarding(bytes);
    switch (what & 7) {
      case 0:
      case 1:
      case 2:
        return parseMessages(bytes, [&](Event&& event) { mirror_.event(std::move(event), now_); });
      case 3:
      case 4:
        return parseMessages(bytes, [&](Event&& event) { answer(std::move(event)); });
      case 5:
        return answer({0, 0, DumpEnd{}});
      case 6:
        act();
        return;
      default:
        mirror_.takeChanges(what >> 3);
    }
  }
  static void forwarding(Bytes bytes) {
    MulticastState state;
    try {
      parseMulticast(bytes, state);
    } catch (const MalformedBytes&) {
    }
  }
  /// The input can hardly know the sequence number of a request.
  void answer(Event event) {
    event.sequence = sequence_;
    mirror_.answered(std::move(event), now_);
  }
  bool act() {
    const Mirror::Action action = mirror_.next(now_);
    if (action.kind == Mirror::Action::Kind::dump) sequence_ = action.sequence;
    return action.kind == Mirror::Action::Kind::dump;
  }
  /// From here on the kernel has nothing, and says so.
  void rest() {
    for (int i = 0; i < 100 && !(isAtRest() && isEmpty()); ++i) {
      now_ += seconds(1);
      answer({0, 0, DumpEnd{}});
      while (act()) answer({0, 0, DumpEnd{}});
    }
    mirror_.takeChanges();
    must(isAtRest());
  }
  bool isAtRest() const { return mirror_.isSynced() && !mirror_.isStale(); }
  bool isEmpty() const {
    const Topology& topology = mirror_.topology();
    return topology.links.all().empty() && topology.nextHops.all().empty() &&
           mirror_.routes(Lumo::ipv4()).routeCount() + mirror_.routes(Lumo::ipv6()).routeCount() == 0;
  }
  void check() const {
    must(isEmpty());
    for (const auto family : {Lumo::ipv4(), Lumo::ipv6()}) {
      const RouteTable& routes = mirror_.routes(family);
      routes.forEach([](const Route&) { must(false); });
      routes.forEachAnswer([](const IpGenPrefix&, const Answer&) { must(false); });
    }
  }

  Bytes input_;
  Nanos now_ = 0;
  U32 sequence_ = 0;
  Mirror mirror_{Mirror::Settings(), 0};
};

const fuzz::Target target("kernel", [](fuzz::Bytes bytes) { Run(bytes).all(); });

}  // namespace
