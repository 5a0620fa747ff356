#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "Pim/MribSm/ConfigReactors.h"
#include "Seeds.h"
#include "Watchers.h"

// An agent's own reactors may change what the engine works on while it works. The marks must not lose that:
// random events with such reactors end, event by event, in the same state as with whole passes.

namespace {

class Agent {
 public:
  Agent(U64 seed, bool whole) : random_(seed) {
    for (U32 id = 1; id <= intfs; ++id) {
      w_.intfIs(id, "eth" + std::to_string(id));
      w_.intfAddrIs(id, address());
      if (id > 1) w_.connectedIs(connected(id), id);
    }
    for (auto n = random_() % 40; n > 0; --n) configure();
    w_.start();
    resolver().wholePassesIs(whole);
    watchers_.emplace(w_, [this](const Lumo::IpGenPrefix& changed) { react(changed); });
  }

  void step() {
    reactions_ = static_cast<int>(random_() % 5);
    const U64 kind = random_() % 13;
    const auto* entry = w_.config->route(prefix());
    if (kind == 0) return w_.unicastDel(connected(intf()));
    if (kind == 1 && entry) w_.config->routeDel(entry->prefix());
    if (kind == 2) return removeSome();
    if (kind == 3) return lookAtEverything();
    if (kind == 4) return writeStatus(prefix());
    if (kind > 4) change();
  }

  std::string state() const {
    const auto& builder = *w_.mrib->trieBuilder();
    return w_.state() + std::to_string(builder.trie()->nodes()) + " in the trie, " +
           std::to_string(builder.trieUpdates()) + " updates\n";
  }
  U32 routes() const { return w_.mribStatus->routeCount(); }

 private:
  static constexpr U32 intfs = 6, prefixes = 16;

  void react(const Lumo::IpGenPrefix& changed) {
    if (reactions_ <= 0) return;
    --reactions_;
    if (random_() % 8 == 0) writeStatus(random_() % 2 ? changed : prefix());
    if (random_() % 2) change();
  }
  /// Somebody else's doing: in a handler, often on the very route that the engine is at.
  void writeStatus(const Lumo::IpGenPrefix& prefix) {
    auto* route = w_.mribStatus->route(prefix.v4Prefix());
    if (!route) return;
    const U64 kind = random_() % 6;
    if (kind < 3) return route->viaDelAll();
    if (kind == 3) return resolver().doDelWatchPrefix(prefix, nullptr);
    const U8 preference = kind == 4 ? 1 : 2;
    const auto* entry = w_.config->route(prefix);
    // One that nobody has configured, of a configured route, is what the engine asserts not to find.
    if (!entry || entry->pref(preference)) route->preferenceIs(preference);
  }
  void lookAtEverything() {
    const auto config = w_.config;
    w_.mrib->mribConfigPrefixDelAll();
    w_.mrib->mribConfigIs(nullptr);
    w_.mrib->mribConfigIs(config);
  }
  void change() {
    const U64 kind = random_() % 8;
    if (kind == 0) return w_.connectedIs(connected(intf()), intf());
    if (kind == 1) return w_.intfAddrIs(intf(), address());
    if (kind == 2) return w_.intfIs(intf(), "eth" + std::to_string(random_() % 100));
    configure();
  }
  /// A preference, or one of its RPFs.
  void removeSome() {
    auto* entry = w_.config->route(prefix());
    auto* pref = entry ? entry->pref(random_() % 4 ? 1 : 2) : nullptr;
    if (!pref) return;
    const auto* route = w_.mribStatus->route(entry->prefix().v4Prefix());
    const auto rpf = pref->rpfIterator();
    if (rpf && random_() % 2 && (!route || entry->pref(route->preference()))) {
      pref->rpfDel(EngineWorld::Rpf(*rpf));
    } else {
      entry->prefDel(pref->preference());
    }
  }
  /// A prefix resolves through an interface or through one with a smaller number, so that no circle is made.
  void configure() {
    const U32 i = static_cast<U32>(random_() % prefixes);
    const U8 preference = random_() % 4 ? 1 : 2;
    auto rpf = EngineWorld::via(address());
    if (random_() % 6 == 0) rpf = EngineWorld::intf(intf());
    if (i > 0 && random_() % 3 == 0) rpf = EngineWorld::via(text(static_cast<U32>(random_() % i)) + ".9.9");
    std::string configured = text(i) + ".0.0/16";
    if (const U32 k = intf(); k > 1 && random_() % 16 == 0) {  // one that is connected, or may be
      configured = connected(k);
      rpf = EngineWorld::via("20." + std::to_string(k - 1) + ".1.1");
    }
    w_.rpfIs(configured, preference, rpf);
  }
  static std::string connected(U32 id) { return "20." + std::to_string(id) + ".0.0/16"; }
  static std::string text(U32 i) { return "10." + std::to_string(i); }
  Lumo::IpGenPrefix prefix() {
    return Lumo::IpGenPrefix(text(static_cast<U32>(random_() % prefixes)) + ".0.0/16");
  }
  U32 intf() { return 1 + static_cast<U32>(random_() % intfs); }
  std::string address() { return "20." + std::to_string(intf()) + ".3." + std::to_string(random_() % 9); }
  Routing::Multicast::Rib::RouteResolverSm& resolver() const { return *w_.mrib->routeResolver(); }

  std::mt19937_64 random_;
  EngineWorld w_;
  std::optional<Watchers> watchers_;
  int reactions_ = 0;
};

TEST(EngineHandlers, MayChangeWhatTheEngineWorksOn) {
  const U64 seeds = seedsOr(300);
  U64 routes = 0;
  for (U64 seed = 1; seed <= seeds; ++seed) {
    Agent whole(seed, true), marked(seed, false);
    ASSERT_EQ(whole.state(), marked.state()) << "seed " << seed << " at start";
    for (int step = 0; step < 60; ++step) {
      whole.step();
      marked.step();
      ASSERT_EQ(whole.state(), marked.state()) << "seed " << seed << " step " << step;
    }
    routes += marked.routes();
  }
  EXPECT_GT(routes, seeds * 5) << "the events reach the engine";
}

TEST(EngineHandlers, ARouteInThePlaceOfTheOneThatIsResolvedIsWatchedInstead) {
  EngineWorld w;
  w.intfIs(1, "eth1");
  w.connectedIs("20.1.0.0/16", 1);
  w.start();
  const Lumo::Prefix prefix("10.1.0.0/16");
  bool replaced = false;
  const Watchers watchers(w, [&](const Lumo::IpGenPrefix& changed) {
    if (changed.v4Prefix() != prefix || !w.mribStatus->route(prefix) || std::exchange(replaced, true)) return;
    w.mribStatus->routeDel(prefix);
    w.mribStatus->routeIs(prefix);
  });
  w.rpfIs("10.1.0.0/16", 1, w.via("20.1.3.1"));
  EXPECT_TRUE(replaced && w.mribStatus->route(prefix)->prefixSetCount() == 1);
}

}  // namespace
