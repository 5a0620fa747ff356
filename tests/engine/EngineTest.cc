#include <gtest/gtest.h>

#include <functional>

#include "../EngineWorld.h"
#include "../TraceRecorder.h"
#include "Pim/MribSm/ConfigReactors.h"
#include "Refusal.h"
#include "Watchers.h"
#include "Zan/Now.h"

// What the random events against the plain model don't reach: results, texts of failures, lines, lifetimes.

namespace {

using Routing::Fib::RouteType;

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

  EngineWorld w;
};

TEST_F(EngineTest, TracesCarryTheirLines) {
  w.connectedIs("20.0.0.0/24", 1);
  TraceRecorder t;
  w.start();
  EXPECT_EQ(t.messages.front().line, 17u);
  EXPECT_EQ(t.messages.front().function, "handleInitialize");
  w.rpfIs("10.1.0.0/16", 1, w.via("99.0.0.1"));
  w.rpfDel("10.1.0.0/16", 1, w.via("99.0.0.1"));
  EXPECT_EQ(t.messages.back().line, 158u);
}

TEST_F(EngineTest, FecOf128ViasIsTakenAndOneOf129IsARangeError) {
  std::vector<EngineWorld::Hop> hops;
  for (U32 i = 0; i < 128; ++i) hops.push_back({"20.0.0." + std::to_string(i), 1});
  w.unicastIs("20.0.0.0/24", RouteType::connected, 0, hops);
  w.rpfIs("10.9.0.0/16", 1, w.via("20.0.0.5"));
  w.start();
  EXPECT_EQ(w.route("20.0.0.0/24")->viaCount(), 128u);
  EXPECT_NEAR(w.route("10.9.0.0/16")->creationTime(), Zan::now(), 60);
  w.stop();
  hops.push_back({"20.0.0.200", 1});
  w.unicastIs("30.0.0.0/24", RouteType::connected, 0, hops);
  EXPECT_EQ(refusal([&] { w.start(); }), "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
}

TEST_F(EngineTest, MutatorsRefuseNullWithTheirTexts) {
  w.start();
  const std::tuple<std::function<void()>, std::string, std::string> cases[] = {
      {[&] { w.mrib->mribConfigPrefixIs(nullptr); }, "MribSm", "mribConfigPrefix"},
      {[&] { w.mrib->trieBuilder()->routeIs(nullptr); }, "MribTrieBuilderSm", "route"},
      {[&] { w.mrib->routeResolver()->mribForPrefixIs(nullptr); }, "RouteResolverSm", "mribForPrefix"}};
  for (const auto& [call, type, name] : cases) {
    EXPECT_EQ(refusal(call), "null _" + name + " parameter to mutator for Routing::Multicast::Rib::" + type +
                                 "::" + name + " not allowed\"");
  }
}

TEST_F(EngineTest, NothingIsInstalledBeforeInitialisationAndNothingInitialisedTwice) {
  startWithSubnets();
  const std::string before = w.state();
  const TraceRecorder t;
  w.mrib->handleInitialize();
  EXPECT_EQ(t.messages.size(), 1u) << "its entry, and no more";
  w.mrib->initializeIs(false);
  const auto entry = Zan::create<Routing::Multicast::Rib::RouteKeyPrefix>(Lumo::IpGenPrefix("10.1.0.0/16"));
  entry->prefIs(7)->rpfIs(w.via("20.0.0.5"));
  w.config->routeIs(entry);
  EXPECT_EQ(t.messages.back().line, 95u);
  EXPECT_TRUE(t.messages.back().text.ends_with("ZanMribConfigPref::handleRpf()Abort. Not Initialized"));
  EXPECT_EQ(w.state(), before);
}

/// No change of the unicast trie follows, after which all would be offered again.
TEST_F(EngineTest, WhatAHandlerConfiguresDuringTheStartIsOfferedAtItsEnd) {
  w.fecs.fecIs({1, 1, {{{Lumo::IpAddr(), Lumo::IntfId(1)}}}});
  w.routes.routeIs({Lumo::Prefix("20.0.0.0/24"), RouteType::connected, 0, 1});
  const Watchers watchers(w, [&](const auto&) { w.rpfIs("10.1.0.0/16", 1, w.via("20.0.0.5")); });
  w.start();
  EXPECT_NE(w.show("10.1.0.0/16"), "none");
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
