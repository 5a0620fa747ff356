#include <gtest/gtest.h>

#include "../EngineWorld.h"
#include "../TraceRecorder.h"
#include "Pim/MribSm/ConfigReactors.h"
#include "Zan/Now.h"

// One behaviour of the engine a test, seen from the agent's side.

namespace {

using Routing::Fib::RouteType;
using Routing::Multicast::Rib::RouteResolverSm;

class EngineTest : public testing::Test {
 protected:
  EngineTest() {
    w.intfIs(1, "eth0");
    w.intfIs(2, "eth1");
    w.intfAddrIs(1, "20.0.0.1");
    w.intfAddrIs(2, "30.0.0.1");
  }
  void startWithSubnets() {
    w.connectedIs("20.0.0.0/24", 1);
    w.connectedIs("30.0.0.0/24", 2);
    w.start();
  }
  S32 add(const char* prefix, const EngineWorld::Rpf& rpf, U8 preference = 1) {
    return w.mrib->routeResolver()->doAddOrUpdateRoute(rpf, Lumo::IpGenPrefix(prefix), preference);
  }
  U32 members(const char* lPrefix) {
    const auto set = w.mrib->routeResolver()->mribForPrefix(Lumo::IpGenPrefix(lPrefix));
    return set ? set->prefixCount() : 0;
  }

  EngineWorld w;
};

TEST_F(EngineTest, StartCopiesConnectedRoutesWithViasBeforeItResolves) {
  w.unicastIs("20.0.0.0/24", RouteType::connected, 5, {{"0.0.0.0", 1}, {"0.0.0.1", 77}});
  w.unicastIs("30.0.0.0/24", RouteType::connected, 0, {});
  w.unicastIs("40.0.0.0/24", RouteType::unknown, 0, {{"1.1.1.1", 1}});
  w.rpfIs("10.9.0.0/16", 1, w.via("20.0.0.5"));
  w.start();
  EXPECT_EQ(w.show("20.0.0.0/24"), "20.0.0.0/24 p5 t7 [0.0.0.0 on eth0, 0.0.0.1]");
  EXPECT_EQ(w.show("30.0.0.0/24"), "none");
  EXPECT_EQ(w.show("40.0.0.0/24"), "none");
  EXPECT_EQ(w.show("10.9.0.0/16"), "10.9.0.0/16 p1 t4 [20.0.0.5 on eth0, 20.0.0.5]");
  EXPECT_EQ(w.mrib->defaultPrefix().stringValue(), "0.0.0.0/0");
  EXPECT_EQ(w.mrib->routeResolver()->defaultPrefix().stringValue(), "0.0.0.0/0");
  EXPECT_NEAR(w.route("10.9.0.0/16")->creationTime(), Zan::now(), 60);
}

TEST_F(EngineTest, NullInputsAreTolerated) {
  const auto sm = Routing::Multicast::Rib::mribSmFactory(nullptr, nullptr, nullptr, w.mribStatus, nullptr);
  EXPECT_TRUE(sm->initialize());
  EXPECT_EQ(sm->mribConfigPrefixCount(), 0u);
  EXPECT_FALSE(sm->intfInfo() || sm->uribShadowStatus() || sm->mribConfig());
}

TEST_F(EngineTest, ChildrenAreKeptForTheSameInputsAndReplacedForOthers) {
  w.start();
  const auto resolver = w.mrib->routeResolver();
  EXPECT_EQ(w.mrib->routeResolverIs(w.urib, w.mribStatus, w.intfDir), resolver);
  EXPECT_NE(w.mrib->routeResolverIs(w.urib, w.mribStatus, nullptr), resolver);
  const auto shadow = w.mrib->mribShadow();
  EXPECT_EQ(w.mrib->mribShadowIs("mribShadow"), shadow);
  EXPECT_EQ(w.mrib->trieBuilderIs(w.mribStatus, shadow), w.mrib->trieBuilder());
  w.mrib->handleInitialize();
  EXPECT_EQ(w.mrib->mribShadow(), shadow);
}

TEST_F(EngineTest, LongestMatchThatIsDefaultItselfOrCoversThePrefixIsRejected) {
  startWithSubnets();
  w.connectedIs("0.0.0.0/0", 1);
  w.connectedIs("10.0.0.0/8", 1);
  EXPECT_EQ(add("10.9.0.0/16", w.via("99.0.0.1")), -1);
  EXPECT_EQ(add("10.1.0.0/16", w.via("10.7.7.7")), -1);
  EXPECT_EQ(add("20.0.0.0/24", w.via("20.0.0.9")), -1);
  EXPECT_EQ(add("10.9.0.0/16", w.intf(9)), -1);
  EXPECT_EQ(w.mribStatus->routeCount(), 4u);
  EXPECT_EQ(w.mrib->routeResolver()->mribForPrefixCount(), 0u);
  EXPECT_EQ(add("10.1.0.0/16", w.via("20.0.0.9")), 0);
}

TEST_F(EngineTest, AddAgainIsNothingToDoAndPreferenceChangeReplacesTheVias) {
  startWithSubnets();
  EXPECT_EQ(add("10.1.0.0/16", w.via("20.0.0.9")), 0);
  EXPECT_EQ(add("10.1.0.0/16", w.via("20.0.0.9")), 17);
  EXPECT_EQ(add("10.1.0.0/16", w.via("30.0.0.9")), 0);
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p1 t4 [20.0.0.9 on eth0, 30.0.0.9 on eth1]");
  EXPECT_EQ(members("20.0.0.0/24") + members("30.0.0.0/24"), 2u);
  EXPECT_EQ(add("10.1.0.0/16", w.via("30.0.0.9"), 2), 0);
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p2 t4 [30.0.0.9 on eth1]");
  EXPECT_EQ(members("20.0.0.0/24"), 0u);
}

TEST_F(EngineTest, LowestPreferenceWinsAndRemovalFallsBack) {
  startWithSubnets();
  w.rpfIs("10.1.0.0/16", 2, w.via("30.0.0.9"));
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p2 t4 [30.0.0.9 on eth1]");
  w.rpfIs("10.1.0.0/16", 1, w.via("20.0.0.9"));
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p1 t4 [20.0.0.9 on eth0]");
  {
    TraceRecorder t;
    w.rpfIs("10.1.0.0/16", 3, w.intf(1));
    EXPECT_EQ(t.count("Not processing because route exists with 1 preference"), 1);
  }
  w.rpfDel("10.1.0.0/16", 1, w.via("20.0.0.9"));
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p2 t4 [30.0.0.9 on eth1]");
  w.config->route(Lumo::IpGenPrefix("10.1.0.0/16"))->prefDel(1);
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p2 t4 [30.0.0.9 on eth1]");
  w.config->route(Lumo::IpGenPrefix("10.1.0.0/16"))->prefDel(2);
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p3 t4 [20.0.0.1 on eth0]");
  w.config->routeDel(Lumo::IpGenPrefix("10.1.0.0/16"));
  EXPECT_EQ(w.show("10.1.0.0/16"), "none");
  EXPECT_EQ(w.mrib->routeResolver()->mribForPrefixCount(), 0u);
}

TEST_F(EngineTest, RemovingAnRpfOfAPrefixWithoutRouteSaysThatItIsGone) {
  startWithSubnets();
  w.rpfIs("10.1.0.0/16", 1, w.via("99.0.0.1"));
  TraceRecorder t;
  w.rpfDel("10.1.0.0/16", 1, w.via("99.0.0.1"));
  EXPECT_EQ(t.count("Prefix 10.1.0.0/16 Already deleted. Nothing to do."), 1);
  EXPECT_EQ(t.messages.back().line, 158u);
}

TEST_F(EngineTest, ChainsFollowTheLossAndReturnOfTheirConnectedRoute) {
  startWithSubnets();
  w.rpfIs("50.0.0.0/8", 1, w.via("20.0.0.5"));
  w.rpfIs("60.0.0.0/8", 1, w.via("50.1.1.1"));
  EXPECT_EQ(w.show("60.0.0.0/8"), "60.0.0.0/8 p1 t4 [20.0.0.5 on eth0]");
  EXPECT_EQ(members("50.0.0.0/8"), 1u);
  w.unicastDel("20.0.0.0/24");
  EXPECT_EQ(w.show("50.0.0.0/8"), "none");
  EXPECT_EQ(w.show("60.0.0.0/8"), "none");
  EXPECT_EQ(w.show("20.0.0.0/24"), "none");
  w.connectedIs("20.0.0.0/24", 1);
  EXPECT_EQ(w.show("60.0.0.0/8"), "60.0.0.0/8 p1 t4 [20.0.0.5 on eth0]");
}

TEST_F(EngineTest, UnicastChangesTouchOnlyConnectedRoutes) {
  startWithSubnets();
  TraceRecorder t;
  w.unicastIs("70.0.0.0/8", RouteType::unknown, 1, {{"20.0.0.7", 1}});
  EXPECT_EQ(t.count("doMaybeRefreshRoutes(const Lumo::IpGenPrefix&, bool)( , True )"), 1);
  w.unicastDel("70.0.0.0/8");
  EXPECT_EQ(t.count("False )"), 0);
  EXPECT_EQ(
      t.messages.back().text,
      "void Routing::Multicast::Rib::RouteResolverSm::handleChangedRoute()Unicast route 70.0.0.0/8 Deleted");
  w.unicastIs("20.0.0.0/24", RouteType::connected, 0, {{"0.0.0.0", 2}});
  EXPECT_EQ(w.show("20.0.0.0/24"), "20.0.0.0/24 p0 t7 [0.0.0.0 on eth0]")
      << "an existing route is left as it is";
  w.mrib->routeResolver()->initializedIs(true);
  t.messages.clear();
  w.connectedIs("80.0.0.0/24", 1);
  EXPECT_TRUE(t.messages.empty());
}

TEST_F(EngineTest, ConnectedRouteKeepsItsSpacingInTheTraces) {
  w.connectedIs("20.0.0.0/24", 1);
  TraceRecorder t;
  w.start();
  EXPECT_EQ(t.count("handleInitialize()Added connected route 20.0.0.0/24into Mrib status"), 1);
  EXPECT_EQ(t.count("Trie built with 0 nodes  and 0 routes"), 1);
  EXPECT_EQ(t.messages.front().text, "void Routing::Multicast::Rib::MribSm::handleInitialize()");
  EXPECT_EQ(t.messages.front().line, 17u);
  EXPECT_EQ(t.messages.front().function, "handleInitialize");
  w.connectedIs("30.0.0.0/24", 2);
  EXPECT_EQ(t.count("handleChangedRoute()New connected route 30.0.0.0/24added to Mrib"), 1);
}

TEST_F(EngineTest, FecOf128ViasIsTakenAndOneOf129IsARangeError) {
  std::vector<EngineWorld::Hop> hops;
  for (U32 i = 0; i < 128; ++i) hops.push_back({"20.0.0." + std::to_string(i), 1});
  w.unicastIs("20.0.0.0/24", RouteType::connected, 0, hops);
  w.start();
  EXPECT_EQ(w.route("20.0.0.0/24")->viaCount(), 128u);
  w.stop();
  hops.push_back({"20.0.0.200", 1});
  w.unicastIs("30.0.0.0/24", RouteType::connected, 0, hops);
  try {
    w.start();
    FAIL() << "no exception";
  } catch (const Zan::RangeException& e) {
    EXPECT_STREQ(e.what(), "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  }
}

TEST_F(EngineTest, RouteThatLeavesIsTakenFromTheTrieExactlyOnce) {
  startWithSubnets();
  add("10.1.0.0/16", w.via("20.0.0.9"), 65);
  auto& builder = *w.mrib->trieBuilder();
  const U32 before = builder.trieUpdates();
  TraceRecorder t;
  w.mribStatus->routeDel(Lumo::Prefix("10.1.0.0/16"));
  EXPECT_EQ(builder.trieUpdates(), before + 1);
  EXPECT_EQ(builder.deletedPreference(), 65);
  EXPECT_FALSE(builder.route(Lumo::Prefix("10.1.0.0/16")));
  EXPECT_FALSE(builder.trie()->route(Lumo::IpGenPrefix("10.1.0.0/16")));
  EXPECT_EQ(t.count("Route with prefix 10.1.0.0/16 and preference A about to be deleted "), 1);
  w.connectedIs("90.0.0.0/24", 1);
  EXPECT_EQ(builder.deletedPreference(), 0);
}

TEST_F(EngineTest, ViaRemovalKeepsThePrefixInTheTrie) {
  startWithSubnets();
  add("10.1.0.0/16", w.via("20.0.0.9"));
  auto& builder = *w.mrib->trieBuilder();
  const U32 before = builder.trieUpdates();
  builder.deletedPreferenceIs(9);
  const auto route = w.mribStatus->routeIs(Lumo::Prefix("10.1.0.0/16"));
  route->viaDelAll();
  EXPECT_TRUE(builder.trie()->route(Lumo::IpGenPrefix("10.1.0.0/16")));
  EXPECT_EQ(builder.trieUpdates(), before);
  EXPECT_EQ(builder.deletedPreference(), 0);
  builder.deletedPreferenceIs(9);
  route->preferenceIs(7);
  EXPECT_EQ(builder.deletedPreference(), 9) << "a route without vias is not inserted again";
}

TEST_F(EngineTest, TeardownKeepsTheRoutesAndNobodyReacts) {
  startWithSubnets();
  w.rpfIs("10.1.0.0/16", 1, w.via("20.0.0.9"));
  TraceRecorder t;
  w.stop();
  w.rpfIs("10.2.0.0/16", 1, w.via("20.0.0.9"));
  w.unicastDel("20.0.0.0/24");
  w.mribStatus->routeDel(Lumo::Prefix("30.0.0.0/24"));
  EXPECT_TRUE(t.messages.empty());
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p1 t4 [20.0.0.9 on eth0]");
  EXPECT_FALSE(w.config->hasNotifiees() || w.mribStatus->hasNotifiees() || w.unicastTrie->hasNotifiees());
}

TEST_F(EngineTest, InputsAreRetargetedAtOnce) {
  startWithSubnets();
  const auto other = Routing::Multicast::Rib::interfaceInfoFactory();
  const auto addresses = Zan::create<Ip::Status>("other");
  other->ipStatusIs(addresses);
  w.mrib->intfInfoIs(other);
  EXPECT_EQ(w.mrib->ipStatus(), Zan::Ptr<Ip::Status const>(addresses));
  EXPECT_FALSE(w.mrib->intfStatus());
  other->statusIs(w.intfDir);
  EXPECT_TRUE(w.mrib->intfStatus());
  w.intfInfo->statusIs(nullptr);
  EXPECT_TRUE(w.mrib->intfStatus()) << "the old one is not heard any more";
  const auto config = Zan::create<EngineWorld::Config>("other");
  w.rpfIs("10.1.0.0/16", 1, w.via("20.0.0.9"));
  w.mrib->mribConfigIs(config);
  EXPECT_EQ(w.show("10.1.0.0/16"), "none");
  config->routeIs(Lumo::IpGenPrefix("10.2.0.0/16"))->prefIs(1)->rpfIs(w.via("20.0.0.9"));
  EXPECT_EQ(w.show("10.2.0.0/16"), "10.2.0.0/16 p1 t4 [20.0.0.9 on eth0]");
}

TEST_F(EngineTest, DeactivatedEngineHearsNothing) {
  startWithSubnets();
  w.mrib->hasNotificationActiveIs(false);
  TraceRecorder t;
  w.rpfIs("10.1.0.0/16", 1, w.via("20.0.0.9"));
  w.connectedIs("90.0.0.0/24", 1);
  EXPECT_TRUE(t.messages.empty());
  w.mrib->hasNotificationActiveIs(true);
  w.config->routeNotifyAll();
  EXPECT_EQ(w.show("10.1.0.0/16"), "10.1.0.0/16 p1 t4 [20.0.0.9 on eth0]");
}

TEST_F(EngineTest, MutatorsRefuseNullWithTheirTexts) {
  w.start();
  const auto text = [](auto call) -> std::string {
    try {
      call();
    } catch (const Zan::RangeException& e) {
      return e.what();
    }
    return "nothing thrown";
  };
  EXPECT_EQ(text([&] { w.mrib->mribConfigPrefixIs(nullptr); }),
            "null _mribConfigPrefix parameter to mutator for "
            "Routing::Multicast::Rib::MribSm::mribConfigPrefix not allowed\"");
  EXPECT_EQ(text([&] { w.mrib->trieBuilder()->routeIs(nullptr); }),
            "null _route parameter to mutator for Routing::Multicast::Rib::MribTrieBuilderSm::route not "
            "allowed\"");
  EXPECT_EQ(text([&] { w.mrib->routeResolver()->mribForPrefixIs(nullptr); }),
            "null _mribForPrefix parameter to mutator for "
            "Routing::Multicast::Rib::RouteResolverSm::mribForPrefix not allowed\"");
}

TEST_F(EngineTest, ProgrammingErrorsAbortWithTheirTexts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  startWithSubnets();
  EXPECT_DEATH(add("10.1.0.0/16", w.via("20.0.0.9"), 0), "assertion `pref' failed");
  EXPECT_DEATH(add("10.1.0.0/16", EngineWorld::Rpf{}), "assertion `0' failed");
  EXPECT_DEATH(w.rpfIs("10.1.0.0/16", 1, EngineWorld::Rpf{}),
               ":123: .*assertion `rpfType != unknown\\(\\)' failed");
  EXPECT_DEATH(w.unicastTrie->routeIs(Lumo::IpGenPrefix("2001:db8::/32"), true),
               "assertion `changedRoute.af\\(\\) == Lumo::ipv4\\(\\)' failed");
  EXPECT_DEATH(w.mrib->trieBuilder()->handleRoute(), "assertion `trie\\(\\)->nodes\\(\\) == 0' failed");
  EXPECT_DEATH(Routing::Multicast::Rib::mribTrieBuilderSmFactory(nullptr, nullptr),
               "assertion `status\\(\\) && mribRouteStatus\\(\\)' failed");
  auto& resolver = *w.mrib->routeResolver();
  const Lumo::IpGenPrefix absent("10.99.0.0/16");
  EXPECT_DEATH(resolver.doAddWatchPrefix(absent, absent), "assertion `route' failed");
  const auto set = Routing::Multicast::Rib::PrefixSet::PrefixSetIs(absent);
  set->prefixIs(Lumo::IpGenPrefix("20.0.0.0/24"), true);
  EXPECT_DEATH(resolver.doRecursiveUpdate(set), "assertion `rkPrefix' failed");
}

}  // namespace
