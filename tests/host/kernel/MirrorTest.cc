#include <gtest/gtest.h>
#include <linux/netlink.h>

#include "Describe.h"
#include "PlainKernel.h"

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
    kernel.links = {link(1, true), link(2, true)};
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
      kernel.answer(mirror, action, now);
    }
  }
  U64 resyncs(Reason reason) const { return mirror.counters().resyncs[static_cast<std::size_t>(reason)]; }

  Mirror mirror;
  Nanos now = seconds(100);
  Nanos duration = 0;
  int dumps = 0;
  PlainKernel kernel;
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
  Route byGroup = route;
  byGroup.prefix = IpGenPrefix("11.0.0.0/8");
  byGroup.nextHop = 3;
  for (const U32 id : {1U, 2U}) kindAfter(NextHopChange{{id, false, {{}, id, 0}, {}}});
  kindAfter(NextHopChange{{3, false, {}, {1, 2}}});
  kindAfter(RouteChange{byGroup});
  for (const bool gone : {true, false}) kindAfter(NextHopChange{{1, false, {{}, 1, 0}, {}}, gone});
  EXPECT_EQ(describe(byGroup.prefix, s.mirror.answer(byGroup.prefix)), "11.0.0.0/8 attached @2")
      << "object 1 is another one";
  for (const U32 link : {3U, 4U}) {  // made meanwhile, for object 2, which is the same one
    kindAfter(LinkChange{s.link(link, true)});
    kindAfter(NextHopChange{{2, false, {{}, link, 0}, {}}});
    kindAfter(RouteChange{byGroup});
    EXPECT_EQ(describe(byGroup.prefix, s.mirror.answer(byGroup.prefix)),
              link == 3 ? "11.0.0.0/8 none" : "11.0.0.0/8 attached @4")
        << "once it is certain who else is in the group";
    kindAfter(NextHopChange{{3, false, {}, {2}}});
  }
  EXPECT_EQ(kindAfter(LinkChange{s.link(1, false)}), Answer::Kind::none);
  EXPECT_EQ(kindAfter(LinkChange{s.link(1, true)}), Answer::Kind::none) << "it has no routes yet";
}

TEST(Mirror, HoldsTheAddressesOfTheVrfWhoseTableItReads) {
  Scripted s(Mirror::Settings{.table = 100, .schedule = {}});
  s.kernel.links.push_back(s.link(3, true));
  s.kernel.links[0].vrfTable = 100;
  s.kernel.links[1].master = 1;
  s.answer();
  std::string held;
  for (const U32 link : {1U, 2U, 3U}) {
    const IpGenAddr own(Lumo::IpAddr::fromHost(0x0A000000 | link));
    s.mirror.event({0, 0, AddressChange{{link, own, own, 24}}}, s.now);
    s.mirror.takeChanges();
    held += describe(s.mirror.longestMatch(own), s.mirror.answer(s.mirror.longestMatch(own))) + ';';
  }
  EXPECT_EQ(held, "10.0.0.1/32 local @1;10.0.0.2/32 local @2; none;");
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
  s.kernel.links.push_back(s.link(3, true));
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

}  // namespace
