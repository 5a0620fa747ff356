#include <algorithm>

#include "Describe.h"
#include "Error.h"
#include "ImaginedKernel.h"
#include "Message.h"
#include "MulticastCache.h"
#include "Target.h"

using fuzz::Dice;
using fuzz::must;
using namespace host;
using namespace host::kernel;

// Reads the bytes as what a kernel says to a mirror: datagrams of events and of answers, with time that
// passes between them. Nothing may crash or read out of bounds, and once nothing more happens the mirror has
// to come to rest, with what the kernel has: like one that was never told anything else. Meanwhile changes
// are imagined: one that is refused changes nothing. Aborts when it is not so.

namespace {

/// The last byte is how the mirror is set; before it come steps: a head of three bytes (what, how long) and a
/// datagram.
class Run {
 public:
  explicit Run(Bytes input)
      : input_(input.first(input.size() - 1)),
        settings_{.table = (input.back() & 8) != 0 ? 100U : 254U,
                  .ipv6 = (input.back() & 1) == 0,
                  .needsCarrier = (input.back() & 2) != 0,
                  .everyRoute = (input.back() & 4) != 0,
                  .schedule = {}} {}

  void all() {
    while (input_.size() >= 3) step();
    mirror_.lost(Reason::overrun, now_);
    rest(mirror_);
    Mirror fresh(settings_, now_);
    rest(fresh);
    must(describe(mirror_) == describe(fresh));
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
    try {
      MulticastState forwarding;
      parseMulticast(bytes, forwarding);
    } catch (const MalformedBytes&) {
    }
    const U8 kind = what & 7;
    if (kind < 3) parseMessages(bytes, [&](Event&& event) { mirror_.event(std::move(event), now_); });
    if (kind == 3 || kind == 4) {
      parseMessages(bytes, [&](Event&& event) {
        if (event.body.index() < has_.size()) has_[event.body.index()].push_back(event);
        answer(mirror_, std::move(event));
      });
    }
    if (kind == 5) answer(mirror_, {0, 0, DumpEnd{}});
    if (kind == 6 && !act(mirror_)) imagine(Dice(bytes));
    if (kind == 7) mirror_.takeChanges(what >> 3);
  }
  /// The input can hardly know the sequence number of a request.
  void answer(Mirror& mirror, Event event) {
    event.sequence = asked_.sequence;
    mirror.answered(std::move(event), now_);
  }
  bool act(Mirror& mirror) {
    const Mirror::Action action = mirror.next(now_);
    if (action.kind == Mirror::Action::Kind::dump) asked_ = action;
    return action.kind == Mirror::Action::Kind::dump;
  }
  /// From here on the kernel has what answers have told of, and says so.
  void rest(Mirror& mirror) {
    const auto isAtRest = [&] { return mirror.isSynced() && !mirror.isStale(); };
    for (int i = 0; i < 100 && !isAtRest(); ++i) {
      now_ += seconds(1);
      answer(mirror, {0, 0, DumpEnd{}});
      while (act(mirror)) dump(mirror);
    }
    mirror.takeChanges();
    must(isAtRest());
  }

  void dump(Mirror& mirror) {
    const auto kind = std::min<std::size_t>(static_cast<std::size_t>(asked_.dump), 3);
    const auto family = asked_.dump == Dump::routes6 ? Lumo::ipv6() : Lumo::ipv4();
    for (const Event& event : has_[kind]) {
      const auto* route = std::get_if<RouteChange>(&event.body);
      if (!route || route->route.prefix.af() == family) answer(mirror, {0, 0, event.body});
    }
    answer(mirror, {0, 0, DumpEnd{}});
  }

  void imagine(Dice dice) const {
    const bool isOn = dice() % 2 == 0;
    ImaginedKernel kernel(mirror_, [isOn](const auto&, const auto&) { return isOn; });
    for (const auto& [index, entry] : mirror_.topology().links.all()) kernel.takeOver({index}, dice() % 8);
    for (int i = 0; i < 20 && !dice.isOver(); ++i) {
      const auto before = describe(*kernel.mirrored());
      try {
        change(kernel, dice);
      } catch (const Error&) {
        must(describe(*kernel.mirrored()) == before);
      }
    }
  }
  void change(ImaginedKernel& kernel, Dice& dice) const {
    const auto addressBy = [&] { return someHost(kernel, dice).address(); };
    if (const U64 what = dice() % 8; what < 3) {
      const U32 link = kernel.linkNamed(linkBy(dice));
      const auto length = static_cast<U8>(dice() % 33);
      if (what == 0) return kernel.linkIs(link, length % 2 == 0);
      if (what == 1) return kernel.addAddress(link, addressBy(), length);
      return kernel.deleteAddress(link, addressBy(), length == 0 ? std::nullopt : std::optional(length));
    }
    RouteRequest request;
    const auto prefixes = kernel.prefixes();
    request.prefix =
        prefixes.empty() || dice() % 4 == 0 ? someHost(kernel, dice) : prefixes[dice() % prefixes.size()];
    request.verb = static_cast<RouteRequest::Verb>(dice() % 6);
    const U64 set = dice();
    if ((set & 1) != 0) request.type = static_cast<RouteType>(dice() % 10);
    if ((set & 2) != 0) request.scope = static_cast<U8>(253 + dice() % 4);
    if ((set & 4) != 0) request.source = IpGenAddr(addressBy());
    if ((set & 8) != 0) request.metric = static_cast<U32>(dice() % 3);
    if ((set & 16) != 0) request.nextHop = static_cast<U32>(dice() % 5);
    if ((set & 32) != 0) request.protocol = static_cast<U8>(dice() % 4);
    if ((set & 64) != 0) request.table = settings_.table + static_cast<U32>(dice() % 2);
    request.legs.resize(dice() % 4);
    request.isMultipath = request.legs.size() > 1 || (set & 128) != 0;
    for (RouteRequest::Leg& leg : request.legs) {
      const U64 how = dice();
      if ((how & 1) != 0) leg.link = linkBy(dice);
      if ((how & 2) != 0) leg.gateway = (how & 4) != 0 ? IpGenAddr("fe80::1") : IpGenAddr(addressBy());
      leg.onlink = (how & 8) != 0;
    }
    kernel.take(request.prefix);
    kernel.changeRoute(request);
  }
  std::string linkBy(Dice& dice) const {
    const auto& links = mirror_.topology().links.all();
    const auto at = static_cast<std::ptrdiff_t>(dice() % (links.size() + 1));
    return at == std::ssize(links) ? "" : std::next(links.begin(), at)->second.value.link.name;
  }
  /// Near what there is.
  static Lumo::Prefix someHost(const ImaginedKernel& kernel, Dice& dice) {
    std::vector<Lumo::Prefix> all = kernel.prefixes();
    kernel.forEachAddress([&](const Address& a, const Link&) { all.emplace_back(a.local.v4Addr(), 32); });
    all.emplace_back(Lumo::IpAddr::fromHost(127 << 24), 8);
    const U32 host = all[dice() % all.size()].address().host();
    return {Lumo::IpAddr::fromHost(host ^ static_cast<U32>(dice() % 4)), 32};
  }

  Bytes input_;
  Nanos now_ = 0;
  Mirror::Settings settings_;
  Mirror::Action asked_{};
  std::array<std::vector<Event>, 4> has_;  // by kind
  Mirror mirror_{settings_, 0};
};

const fuzz::Target target("kernel", [](fuzz::Bytes bytes) {
  if (!bytes.empty()) Run(bytes).all();
});

}  // namespace
