#include <gtest/gtest.h>
#include <linux/netlink.h>

#include "Describe.h"

// When the mirror reads again, and what no kernel of the simulation has; the rest of its logic is judged
// there.

using namespace host;
using namespace host::kernel;
using Kind = Mirror::Action::Kind;

namespace {

/// A mirror whose kernel is written down by the test.
class Scripted {
 public:
  explicit Scripted(const Mirror::Settings& settings = {}) : mirror(settings, 0) {
    links = {link(1, true), link(2, true)};
  }

  static Link link(U32 index, bool up) {
    Link l;
    l.index = index;
    l.name = "eth" + std::to_string(index);
    l.up = l.lowerUp = l.running = up;
    return l;
  }
  /// Answers dumps until the mirror waits; returns until when. A dump takes `duration`.
  Nanos answer() {
    for (;;) {
      const Mirror::Action action = mirror.next(now);
      if (action.kind == Kind::wait) return action.until;
      if (action.kind != Kind::dump) continue;
      ++dumps;
      now += duration;
      const auto say = [&](auto body) { mirror.answered({action.sequence, 0, std::move(body)}, now); };
      for (const Link& each : action.dump == Dump::links ? links : std::vector<Link>()) say(LinkChange{each});
      for (const Address& each : action.dump == Dump::addresses ? addresses : std::vector<Address>())
        say(AddressChange{each});
      say(DumpEnd{});
    }
  }
  U64 resyncs(Reason reason) const { return mirror.counters().resyncs[static_cast<std::size_t>(reason)]; }

  Mirror mirror;
  Nanos now = seconds(100);
  Nanos duration = 0;
  int dumps = 0;
  std::vector<Link> links;
  std::vector<Address> addresses;
};

TEST(Mirror, WithdrawsAtOnceWhatALinkTookAlong) {
  Scripted s;
  s.answer();
  Route route;
  route.prefix = IpGenPrefix("10.0.0.0/8");
  route.hops = {{IpGenAddr("1.1.1.1"), 1, 0}};
  route.table = 254;
  const auto kindAfter = [&](auto body) {
    s.mirror.event({0, NLM_F_CREATE, std::move(body)}, s.now);
    s.mirror.takeChanges();
    return s.mirror.answer(route.prefix).kind;
  };
  EXPECT_EQ(kindAfter(RouteChange{route}), Answer::Kind::gateway);
  EXPECT_EQ(kindAfter(LinkChange{s.link(1, false)}), Answer::Kind::none);
  EXPECT_EQ(kindAfter(LinkChange{s.link(1, true)}), Answer::Kind::none) << "it has no routes yet";
}

TEST(Mirror, ReadsAgainSoonButNotTooOften) {
  Scripted s;
  s.duration = milliseconds(100);  // a resync is five dumps
  const Nanos start = s.now;
  const Nanos audit = s.answer();
  EXPECT_EQ(audit, s.now + seconds(60));
  EXPECT_EQ(s.mirror.counters().lastDuration, milliseconds(500));
  s.mirror.lost(Reason::mismatch, s.now);
  EXPECT_EQ(s.mirror.next(s.now).until, start + milliseconds(2500)) << "a fifth of the time";
  s.now = start + milliseconds(2500);
  s.answer();
  s.now = start + seconds(20);
  s.mirror.lost(Reason::overrun, s.now);
  s.mirror.lost(Reason::malformed, s.now + milliseconds(30));
  EXPECT_EQ(s.mirror.next(s.now).until, s.now + milliseconds(50)) << "after the first of a burst";
  s.now += milliseconds(50);
  s.duration = 0;
  s.answer();
  EXPECT_EQ(s.dumps, 15) << "one for all";
  EXPECT_EQ(s.resyncs(Reason::overrun) + s.resyncs(Reason::malformed), 2u);
  EXPECT_EQ(s.mirror.counters().overruns, 1u);
  s.now += seconds(60);
  s.links.push_back(s.link(3, true));
  s.answer();
  EXPECT_EQ(s.resyncs(Reason::audit), 1u);
  EXPECT_EQ(s.mirror.counters().healed, 1u);
  s.mirror.lost(Reason::truncated, s.now);
  EXPECT_EQ(s.mirror.next(s.now).until, s.now + milliseconds(50)) << "after a short one no second is waited";
  s.mirror.event({0, 0, SettingChange{}}, s.now);
  s.now += milliseconds(50);
  s.answer();
  EXPECT_EQ(s.resyncs(Reason::setting), 1u);
}

TEST(Mirror, WaitsForAnAnswerOfItsOwn) {
  Scripted s;
  s.answer();
  s.mirror.lost(Reason::overrun, s.now);
  s.now += seconds(2);
  const Mirror::Action asked = s.mirror.next(s.now);
  s.now += seconds(4);
  s.mirror.answered({asked.sequence - 1, 0, DumpEnd{}}, s.now);
  s.mirror.answered({asked.sequence, 0, LinkChange{s.link(1, true)}}, s.now);
  EXPECT_EQ(s.mirror.next(s.now).until, s.now + seconds(10)) << "an old answer ends no new dump";
  s.now += seconds(10);
  EXPECT_EQ(s.mirror.next(s.now).kind, Kind::wait) << "nothing came: another time";
  EXPECT_EQ(s.mirror.next(s.now + seconds(1)).kind, Kind::dump);
}

TEST(Mirror, HoldsOwnAddressesForTheTableTheyAreFor) {
  const auto local = [](Mirror& mirror, const char* address) {
    mirror.takeChanges();  // settles the answers
    const auto match = mirror.longestMatch(IpGenAddr(std::string_view(address)));
    return match.empty() ? "none" : describe(match, mirror.answer(match));
  };
  for (const U32 table : {254u, 100u}) {
    Mirror::Settings settings;
    settings.table = table;
    Scripted s(settings);
    s.links.push_back(s.link(3, true));
    s.links.back().vrfTable = 100;
    s.links[1].master = 3;
    const auto address = [](U32 link, const char* text) {
      const IpGenAddr a{std::string_view(text)};
      return Address{link, a, a, 24};
    };
    s.addresses = {address(1, "1.0.0.1"), address(2, "2.0.0.1"), address(3, "3.0.0.1"),
                   address(1, "fe80::1")};
    s.addresses.push_back(address(1, "fe80::2"));
    s.addresses.back().tentative = true;
    s.answer();
    const bool isMain = table == 254;
    EXPECT_EQ(local(s.mirror, "1.0.0.1"), isMain ? "1.0.0.1/32 local @1" : "none");
    EXPECT_EQ(local(s.mirror, "2.0.0.1"), isMain ? "none" : "2.0.0.1/32 local @2");
    EXPECT_EQ(local(s.mirror, "3.0.0.1"), isMain ? "none" : "3.0.0.1/32 local @3");
    EXPECT_EQ(local(s.mirror, "fe80::1"), isMain ? "fe80::1/128 local @1" : "none");
    EXPECT_EQ(local(s.mirror, "fe80::2"), "none") << "not yet its own";
    s.mirror.event({0, NLM_F_CREATE, LinkChange{s.link(2, true)}}, s.now);  // leaves the VRF
    EXPECT_EQ(local(s.mirror, "2.0.0.1"), isMain ? "2.0.0.1/32 local @2" : "none");
  }
}

}  // namespace
