#include <gtest/gtest.h>
#include <linux/netlink.h>

#include <numeric>
#include <set>

#include "Describe.h"

// The mirror's logic, on a clock of its own.

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
  static Route route(const char* prefix, const char* gateway, U32 out, U32 metric = 0) {
    Route r;
    r.prefix = IpGenPrefix(prefix);
    r.table = 254;
    r.metric = metric;
    r.hops = {{IpGenAddr(std::string_view(gateway)), out, 0}};
    return r;
  }
  /// Answers dumps until the mirror waits; returns until when. A dump takes `duration`.
  Nanos answer() {
    for (;;) {
      const Mirror::Action action = mirror.next(now);
      if (action.kind == Kind::wait) return action.until;
      if (action.kind != Kind::dump) continue;
      ++dumps;
      now += duration;
      const auto say = [&](auto body) { mirror.answered({action.sequence, flags, std::move(body)}, now); };
      const auto sayAll = [&](Dump dump, const auto& records, auto body) {
        if (action.dump != dump) return;
        for (const auto& record : records) say(decltype(body){record});
      };
      sayAll(Dump::links, links, LinkChange());
      sayAll(Dump::addresses, addresses, AddressChange());
      sayAll(Dump::nextHops, nextHops, NextHopChange());
      sayAll(Dump::routes4, routes, RouteChange());
      say(DumpEnd{error});
    }
  }
  template <class Body>
  void tell(Body body, U16 eventFlags = NLM_F_CREATE | NLM_F_EXCL) {
    mirror.event({0, eventFlags, std::move(body)}, now);
  }
  std::string changed() {
    std::set<std::string> lines;
    for (const auto& prefix : mirror.takeChanges().prefixes) {
      lines.insert(describe(prefix, mirror.answer(prefix)) + ';');
    }
    return std::accumulate(lines.begin(), lines.end(), std::string());
  }
  U64 resyncs(Reason reason) const { return mirror.counters().resyncs[static_cast<std::size_t>(reason)]; }

  Mirror mirror;
  Nanos now = seconds(100);
  Nanos duration = 0;
  U16 flags = 0;
  S32 error = 0;
  int dumps = 0;
  std::vector<Link> links;
  std::vector<Address> addresses;
  std::vector<NextHop> nextHops;
  std::vector<Route> routes;
};

TEST(Mirror, WithdrawsWhatALinkTookAlongUntilItIsConfirmed) {
  Scripted s;
  s.routes = {s.route("10.0.0.0/8", "1.1.1.1", 1), s.route("11.0.0.0/8", "2.2.2.2", 2)};
  s.routes.push_back(s.routes[0]);
  s.routes[2].prefix = IpGenPrefix("12.0.0.0/8");
  s.routes[2].hops.push_back({IpGenAddr("2.2.2.2"), 2, 0});
  s.answer();
  s.changed();
  EXPECT_FALSE(s.mirror.isStale());
  s.tell(LinkChange{s.link(1, false)});
  EXPECT_TRUE(s.mirror.isStale());
  EXPECT_EQ(s.changed(), "10.0.0.0/8 none;12.0.0.0/8 gateway 2.2.2.2@2;") << "at once";
  s.tell(LinkChange{s.link(1, true)});
  EXPECT_EQ(s.changed(), "") << "what came up again has no routes yet";
  s.tell(RouteChange{s.route("10.0.0.0/8", "1.1.1.1", 1)});
  EXPECT_EQ(s.changed(), "10.0.0.0/8 gateway 1.1.1.1@1;") << "but for those that are told";
  s.routes.erase(s.routes.begin() + 1);
  s.now += milliseconds(50);
  s.answer();
  EXPECT_EQ(s.changed(), "11.0.0.0/8 none;12.0.0.0/8 gateway 1.1.1.1@1 2.2.2.2@2;");
  EXPECT_FALSE(s.mirror.isStale());
  EXPECT_EQ(s.mirror.counters().healed, 1u);
  EXPECT_EQ(s.resyncs(Reason::linkState), 1u);
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
}

TEST(Mirror, TakesNothingAwayForADumpThatDidNotComeThrough) {
  Scripted s;
  s.routes = {s.route("10.0.0.0/8", "1.1.1.1", 1)};
  s.answer();
  EXPECT_EQ(s.changed(), "10.0.0.0/8 gateway 1.1.1.1@1;");
  s.routes.clear();
  const auto again = [&] {
    s.dumps = 0;
    s.mirror.lost(Reason::overrun, s.now);
    s.now += seconds(2);
    s.answer();
    return s.changed();
  };
  s.flags = NLM_F_DUMP_INTR;
  EXPECT_EQ(again(), "");
  EXPECT_EQ(s.dumps, 15) << "each of five thrice";
  EXPECT_TRUE(s.mirror.isStale());
  s.flags = 0;
  s.error = -EBUSY;
  EXPECT_EQ(again(), "");
  EXPECT_EQ(s.dumps, 1);
  EXPECT_TRUE(s.mirror.isStale());
  s.error = 0;
  s.now += seconds(2);
  s.mirror.lost(Reason::overrun, s.now);
  s.now += seconds(2);
  const Mirror::Action asked = s.mirror.next(s.now);
  s.mirror.answered({asked.sequence - 1, 0, DumpEnd{}}, s.now);
  s.mirror.answered({asked.sequence, 0, LinkChange{s.link(1, true)}}, s.now);
  EXPECT_EQ(s.mirror.next(s.now).until, s.now + seconds(10)) << "an old answer ends no new dump";
  s.now += seconds(10);
  EXPECT_EQ(s.mirror.next(s.now).kind, Kind::wait) << "nothing came: another time";
  EXPECT_EQ(s.mirror.next(s.now + seconds(1)).kind, Kind::dump);
  s.now += seconds(1);
  s.mirror.answered({0, 0, Malformed{"x"}}, s.now);
  EXPECT_EQ(again(), "10.0.0.0/8 none;") << "a dump that came through";
}

TEST(Mirror, HoldsOwnAddressesForTheTableTheyAreFor) {
  const auto local = [](const Mirror& mirror, const char* address) {
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
    s.changed();
    const bool isMain = table == 254;
    EXPECT_EQ(local(s.mirror, "1.0.0.1"), isMain ? "1.0.0.1/32 local @1" : "none");
    EXPECT_EQ(local(s.mirror, "2.0.0.1"), isMain ? "none" : "2.0.0.1/32 local @2");
    EXPECT_EQ(local(s.mirror, "3.0.0.1"), isMain ? "none" : "3.0.0.1/32 local @3");
    EXPECT_EQ(local(s.mirror, "fe80::1"), isMain ? "fe80::1/128 local @1" : "none");
    EXPECT_EQ(local(s.mirror, "fe80::2"), "none") << "not yet its own";
    s.tell(LinkChange{s.link(2, true)});  // leaves the VRF
    s.changed();
    EXPECT_EQ(local(s.mirror, "2.0.0.1"), isMain ? "2.0.0.1/32 local @2" : "none");
  }
}

}  // namespace
