#include <optional>

#include "../EngineWorld.h"
#include "../TraceRecorder.h"
#include "../tables/QuarnRecords.h"

// A changed unicast route that cannot be read is not lost: it is followed when another one changes.

namespace {

class UnreadRouteTest : public testing::Test {
 protected:
  UnreadRouteTest() {
    for (U32 intf = 1; intf <= 3; ++intf) w.intfIs(intf, "eth" + std::to_string(intf));
    w.connectedIs("20.0.0.0/24", 1);
    w.rpfIs("10.9.0.0/16", 1, w.via("30.0.0.5"));
    w.start();
  }

  /// Writes connected routes without a word to the engine, into tables in which bits can be flipped.
  void write(std::vector<std::pair<const char*, U32>> routes) {
    for (const auto& [prefix, intf] : routes) {
      w.fecs.fecIs({100 + intf, 1, {{{Lumo::IpAddr(), Lumo::IntfId(intf)}}}});
      w.routes.routeIs({Lumo::Prefix(prefix), Routing::Fib::RouteType::connected, 0, 100 + intf});
    }
    routesCopy.emplace(w.routes.fd());
    fecsCopy.emplace(w.fecs.fd());
    w.urib->routeStatus()->attach(*routesCopy);
    w.urib->forwardingStatus()->attach(*fecsCopy);
  }
  void flipRoute(const char* prefix) {
    const Quarn::Fib::RouteStatus reader(w.routes.fd());
    for (auto i = reader.iterator(); i; ++i) {
      if ((*i).prefix == Lumo::Prefix(prefix))
        QuarnRecords::flipBit(*routesCopy, QuarnRecords::slotAt(i.slot()) + 20, 3);
    }
  }
  void flipFec(U64 id) {
    const Quarn::Fib::ForwardingStatus reader(w.fecs.fd());
    constexpr off_t bytes = 8 * (Quarn::Fib::FecTraits::layout.payloadWords + 1);
    for (auto i = reader.iterator(); i; ++i) {
      if ((*i).fecId == id)
        QuarnRecords::flipBit(*fecsCopy, QuarnRecords::slotsAt + static_cast<off_t>(i.slot()) * bytes + 40,
                              3);
    }
  }
  void name(const char* prefix) {
    const Lumo::IpGenPrefix key(prefix);
    w.unicastTrie->route(key) ? w.unicastTrie->changedRouteIs(key) : w.unicastTrie->routeIs(key, true);
  }

  EngineWorld w;
  std::optional<QuarnRecords::Copy> routesCopy, fecsCopy;
};

TEST_F(UnreadRouteTest, IsFollowedOnceItCanBeRead) {
  write({{"30.0.0.0/24", 2}});
  flipRoute("30.0.0.0/24");
  name("30.0.0.0/24");
  EXPECT_THROW(w.mrib->routeResolver()->handleChangedRoute(), Quarn::CorruptionException);
  name("20.0.0.0/24");
  EXPECT_EQ(w.show("30.0.0.0/24"), "none");
  flipRoute("30.0.0.0/24");
  const TraceRecorder traces;
  name("20.0.0.0/24");
  EXPECT_EQ(w.show("30.0.0.0/24"), "30.0.0.0/24 p0 t7 [0.0.0.0 on eth2]");
  EXPECT_EQ(w.show("10.9.0.0/16"), "10.9.0.0/16 p1 t4 [30.0.0.5 on eth2]");
  name("20.0.0.0/24");
  EXPECT_EQ(traces.count("Unicast route 30.0.0.0/24 Added/Updated"), 1);
  EXPECT_EQ(traces.count("Unicast route 20.0.0.0/24 Added/Updated"), 2);
}

TEST_F(UnreadRouteTest, LosesNothingForItsFecAloneOrWhenItIsDeletedMeanwhile) {
  write({{"30.0.0.0/24", 2}, {"40.0.0.0/24", 3}});
  flipFec(102);
  flipFec(103);
  int reported = 0;
  w.urib->forwardingStatus()->corruptionHandlerIs(
      [&](const std::string&) { return ++reported, std::nullopt; });
  for (const char* prefix : {"30.0.0.0/24", "40.0.0.0/24"}) name(prefix);
  EXPECT_GE(reported, 2);
  EXPECT_EQ(w.show("30.0.0.0/24") + w.show("40.0.0.0/24"), "nonenone");
  flipFec(102);
  for (int n = 0; n < 2; ++n) name("20.0.0.0/24");
  EXPECT_EQ(w.show("10.9.0.0/16"), "10.9.0.0/16 p1 t4 [30.0.0.5 on eth2]");
  w.routes.routeDel(Lumo::Prefix("40.0.0.0/24"));
  w.urib->routeStatus()->attach(w.routes.fd());
  const int before = reported;
  for (int n = 0; n < 3; ++n) name("20.0.0.0/24");
  EXPECT_EQ(reported, before) << "what is gone is not looked for";
}

}  // namespace
