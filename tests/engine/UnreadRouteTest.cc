#include <optional>

#include "../EngineWorld.h"
#include "../TraceRecorder.h"
#include "../tables/QuarnRecords.h"

// A changed unicast route that cannot be read is not lost: it is followed when another one changes.

namespace {

class UnreadRouteTest : public testing::TestWithParam<bool> {
 protected:
  UnreadRouteTest() {
    for (U32 intf = 1; intf <= 3; ++intf) w.intfIs(intf, "eth" + std::to_string(intf));
    w.connectedIs("20.0.0.0/24", 1);
    w.rpfIs("10.9.0.0/16", 1, w.via("30.0.0.5"));
    w.start();
  }

  /// Writes a connected route without a word to the engine, into tables in which bits can be flipped.
  void write() {
    w.fecs.fecIs({102, 1, {{{Lumo::IpAddr(), Lumo::IntfId(2)}}}});
    w.routes.routeIs({Lumo::Prefix("30.0.0.0/24"), Routing::Fib::RouteType::connected, 0, 102});
    routesCopy.emplace(w.routes.fd());
    fecsCopy.emplace(w.fecs.fd());
    w.urib->routeStatus()->attach(*routesCopy);
    w.urib->forwardingStatus()->attach(*fecsCopy);
  }
  /// A bit of the route, or of its FEC.
  void flip(bool ofFec) {
    const Quarn::Fib::RouteStatus reader(w.routes.fd());
    const Quarn::Fib::ForwardingStatus fecs(w.fecs.fd());
    constexpr off_t bytes = 8 * (Quarn::Fib::FecTraits::layout.payloadWords + 1);
    for (auto i = fecs.iterator(); i && ofFec; ++i) {
      if ((*i).fecId == 102)
        QuarnRecords::flipBit(*fecsCopy, QuarnRecords::slotsAt + static_cast<off_t>(i.slot()) * bytes + 40,
                              3);
    }
    for (auto i = reader.iterator(); i && !ofFec; ++i) {
      if ((*i).prefix == Lumo::Prefix("30.0.0.0/24"))
        QuarnRecords::flipBit(*routesCopy, QuarnRecords::slotAt(i.slot()) + 20, 3);
    }
  }
  void name(const char* prefix) {
    const Lumo::IpGenPrefix key(prefix);
    w.unicastTrie->route(key) ? w.unicastTrie->changedRouteIs(key) : w.unicastTrie->routeIs(key, true);
  }

  EngineWorld w;
  std::optional<QuarnRecords::Copy> routesCopy, fecsCopy;
};

INSTANTIATE_TEST_SUITE_P(RouteAndFec, UnreadRouteTest, testing::Bool());

TEST_P(UnreadRouteTest, IsFollowedOnceItCanBeRead) {
  write();
  flip(GetParam());
  name("30.0.0.0/24");
  if (!GetParam()) {
    EXPECT_THROW(w.mrib->routeResolver()->handleChangedRoute(), Quarn::CorruptionException);
  }
  name("20.0.0.0/24");
  EXPECT_EQ(w.show("30.0.0.0/24"), "none");
  flip(GetParam());
  const TraceRecorder traces;
  name("20.0.0.0/24");
  EXPECT_EQ(w.show("30.0.0.0/24"), "30.0.0.0/24 p0 t7 [0.0.0.0 on eth2]");
  EXPECT_EQ(w.show("10.9.0.0/16"), "10.9.0.0/16 p1 t4 [30.0.0.5 on eth2]");
  name("20.0.0.0/24");
  EXPECT_EQ(traces.count("Unicast route 30.0.0.0/24 Added/Updated"), 1);
  EXPECT_EQ(traces.count("Unicast route 20.0.0.0/24 Added/Updated"), 2);
}

}  // namespace
