#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "Pim/MribSm/ConfigReactors.h"
#include "Pim/MribSm/InputReactors.h"
#include "Pim/MribSm/ResolverReactors.h"
#include "TraceRecorder.h"
#include "Watchers.h"

// Hosts that do in a handler, or with a part of the engine that they kept, what they had better not.

namespace {

using Lumo::IpGenPrefix;
using Routing::Multicast::Rib::RouteKeyPrefix;
using Routing::Multicast::Rib::RouteResolverSm;
using Routing::Multicast::Rib::routeResolverSmFactory;
using Action = std::function<void()>;

/// Counts the routes that come and go, the changes of the trie and of the configuration, and does `act` at
/// number `turn` of them.
class Meddler {
 public:
  explicit Meddler(EngineWorld& w) : watchers_(w, [this](const IpGenPrefix&) { heard(); }) {}
  void actAt(int turn, Action act) {
    turn_ = turn;
    act_ = std::move(act);
  }
  bool hasActed() const { return !act_; }

 private:
  void heard() {
    if (!act_ || turn_-- > 0) return;
    std::exchange(act_, nullptr)();
  }

  Watchers watchers_;
  int turn_ = 0;
  Action act_;
};

/// An engine that is still to be started, with two interfaces.
struct TwoInterfaces : EngineWorld {
  TwoInterfaces() {
    for (U32 id = 1; id <= 2; ++id) {
      intfIs(id, "eth" + std::to_string(id));
      connectedIs(std::to_string(id) + "0.0.0.0/24", id);
    }
  }
};

/// A chain of routes, one with a second preference and two with a second way, and what an agent may do to it.
struct Chain : TwoInterfaces {
  Chain() {
    rpfIs("50.0.0.0/8", 1, via("10.0.0.5"));
    rpfIs("50.0.0.0/8", 2, via("20.0.0.5"));
    rpfIs("60.0.0.0/8", 1, via("50.1.1.1"));
    rpfIs("60.0.0.0/8", 1, via("20.0.0.6"));
    rpfIs("70.0.0.0/8", 1, via("60.1.1.1"));
    start();
  }
  static Zan::Ptr<RouteKeyPrefix> entry(const std::string& prefix, const std::string& rpf) {
    auto made = Zan::create<RouteKeyPrefix>(IpGenPrefix(prefix));
    made->prefIs(1)->rpfIs(via(rpf));
    return made;
  }
  std::string state() const {
    std::string text;
    for (auto r = mribStatus->routeIterator(); r; ++r) text += show(r->prefix().stringValue()) + "\n";
    return text;
  }

  const std::vector<Action> events{
      [this] { unicastDel("10.0.0.0/24"); },
      [this] { connectedIs("30.0.0.0/24", 1); },
      [this] { rpfIs("50.0.0.0/8", 1, via("20.0.0.7")); },
      [this] { rpfDel("60.0.0.0/8", 1, via("50.1.1.1")); },
      [this] { config->route(IpGenPrefix("50.0.0.0/8"))->prefDel(1); },
      [this] { config->routeDel(IpGenPrefix("50.0.0.0/8")); },
      [this] { config->routeIs(entry("80.0.0.0/8", "70.1.1.1")); },
      [this] { mrib->mribConfigPrefixDelAll(); },
      [this] { mrib->routeResolverIs(urib, mribStatus, nullptr); },
      [this] { mrib->routeResolver()->doDelRoute(IpGenPrefix("60.0.0.0/8")); },
      [this] { mrib->trieBuilder()->routeDelAll(), mrib->trieBuilder()->trieIs(nullptr); },
      [this] {
        const auto other = Zan::create<Config>("other");
        other->routeIs(entry("70.0.0.0/8", "20.0.0.8"));
        other->routeIs(entry("50.0.0.0/8", "20.0.0.9"));
        other->routeIs(entry("60.0.0.0/8", "50.0.0.9"));
        mrib->mribConfigIs(other);
      },
  };
};

TEST(CarelessHost, MayReleaseTheEngineInAnyHandlerAndTheEventIsDone) {
  int moments = 0;
  for (std::size_t event = 0; event < Chain().events.size(); ++event) {
    Chain quiet;
    quiet.events[event]();
    for (int turn = 0;; ++turn, ++moments) {
      Chain w;
      Meddler meddler(w);
      meddler.actAt(turn, [&] { w.mrib = nullptr; });
      w.events[event]();
      if (!meddler.hasActed()) break;
      EXPECT_EQ(w.state(), quiet.state()) << "event " << event << " turn " << turn;
      const auto after = w.state();
      w.connectedIs("44.0.0.0/24", 1);
      w.rpfIs("45.0.0.0/8", 1, w.via("20.0.0.5"));
      EXPECT_EQ(w.state(), after) << "nobody is there any more";
    }
  }
  EXPECT_GE(moments, 18);
}

TEST(CarelessHost, MayTakePartsAwayInAnyHandlerOrHearsWhatIsMissing) {
  const std::vector<std::function<void(Chain&)>> acts{
      [](Chain& w) { w.mrib->routeResolverDel(); },
      [](Chain& w) { w.mrib->trieBuilderDel(); },
      [](Chain& w) { w.mrib->mribShadowDel(); },
      [](Chain& w) { w.mrib->mribConfigIs(nullptr); },
      [](Chain& w) { w.mrib->uribShadowStatusIs(nullptr); },
      [](Chain& w) { w.mrib->intfInfoIs(nullptr); },
      [](Chain& w) { w.mrib->mribConfigPrefixDelAll(); },
      [](Chain& w) { w.mrib->routeResolver()->uribStatusDel(); },
      [](Chain& w) { w.mrib->routeResolver()->mribStatusDel(); },
      [](Chain& w) { w.mrib->routeResolverIs(nullptr, w.mribStatus, w.intfDir); },
      [](Chain& w) { w.config->routeDel(IpGenPrefix("60.0.0.0/8")); },
      [](Chain& w) {
        w.config = nullptr;
        w.mrib->mribConfigIs(Zan::create<EngineWorld::Config>("other"));
      },
      [](Chain& w) { w.events.back()(); },
  };
  const auto run = [&](std::size_t act, std::size_t event) {
    for (int turn = 0, acted = true; acted; ++turn) {
      Chain w;
      Meddler meddler(w);
      meddler.actAt(turn, [&] {
        if (w.mrib->routeResolver()) acts[act](w);
      });
      w.events[event]();
      acted = meddler.hasActed();
      w.connectedIs("44.0.0.0/24", 1);
    }
    std::cerr << "went on\n";
    std::exit(0);
  };
  const auto wentOnOrAsserted = [](int status) {
    return (WIFEXITED(status) && WEXITSTATUS(status) == 0) ||
           (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
  };
  for (std::size_t act = 0; act < acts.size(); ++act) {
    for (std::size_t event = 0; event < Chain().events.size(); ++event) {
      EXPECT_EXIT(
          run(act, event), wentOnOrAsserted,
          "went on|assertion `(mribConfig|mribStatus|mribShadow.*|trie|route|rkPrefix|lpmRoute)' failed")
          << "act " << act << " event " << event;
    }
  }
}

TEST(CarelessHost, KeepsAResolverBeyondItsEngine) {
  Chain w;
  const auto made = routeResolverSmFactory(w.urib, w.mribStatus, w.intfDir, w.mrib.get());
  const auto without = routeResolverSmFactory(nullptr, nullptr, w.intfDir, nullptr);
  for (const bool active : {false, true}) without->hasNotificationActiveIs(active);
  without->mribStatusIs(w.mribStatus);
  EXPECT_EQ(made->mribSm(), w.mrib.get());
  const std::vector<Zan::Ptr<RouteResolverSm>> kept{w.mrib->routeResolver(), made, without};
  w.stop();
  const auto before = w.state();
  w.connectedIs("44.0.0.0/24", 1);
  w.unicastDel("10.0.0.0/24");
  EXPECT_EQ(w.state(), before) << "no notification reaches one";
  const IpGenPrefix prefix("60.0.0.0/8");
  for (const auto& resolver : kept) {
    EXPECT_EQ(resolver->mribSm(), nullptr);
    EXPECT_EQ(resolver->mribForPrefixCount(), 0u);
    resolver->handleInitialize();
    EXPECT_DEATH(resolver->doAddOrUpdateRoute(w.via("20.0.0.5"), prefix, 1), "assertion `mribSm' failed");
    EXPECT_DEATH(resolver->doMaybeRefreshRoutes(prefix, true), "assertion `mribSm' failed");
    EXPECT_DEATH(resolver->doDelRpf(w.via("20.0.0.5"), prefix), "assertion `mribSm' failed");
  }
  without->uribStatusIs(w.urib);
  EXPECT_DEATH(w.connectedIs("46.0.0.0/24", 1), "assertion `mribSm' failed") << "the first that comes";
}

TEST(CarelessHost, KeepsReactorsBeyondTheirEngine) {
  Chain w;
  const auto prefix = w.mrib->mribConfigPrefix(IpGenPrefix("60.0.0.0/8"));
  const auto pref = prefix->mribConfigPref(1);
  const auto config = w.mrib->mribConfigDel();
  const auto info = w.mrib->intfInfoDel();
  const auto route = w.mrib->trieBuilder()->route(Lumo::Prefix("10.0.0.0/24"));
  EXPECT_TRUE(route->ignores(Routing::Multicast::Rib::Route::routeTypeId)) << "no trie holds it";
  const auto urib = w.mrib->routeResolver()->uribStatusDel();
  const std::vector<Zan::Ptr<Zan::PtrInterface::NotifieeConst>> kept{pref, prefix, config, info, route, urib};
  w.stop();
  const auto before = w.state();
  const auto happens = [&](U8 n) {
    const std::string number = std::to_string(n);
    for (const U8 preference : {U8{1}, n}) w.rpfIs("60.0.0.0/8", preference, w.via("20.0.0." + number));
    w.rpfIs("6" + number + ".0.0.0/8", 1, w.via("20.0.0.7"));
    w.config->routeNotifyAll();
    w.intfInfo->ipStatusIs(n == 3 ? nullptr : w.ipStatus);
    w.intfInfo->statusIs(n == 3 ? nullptr : w.intfDir);
    w.urib->trieIs(n == 3 ? nullptr : w.unicastTrie);
    EXPECT_EQ(w.state(), before);
  };
  for (const auto& reactor : kept)
    reactor->notifierIs(Zan::Ptr<Zan::PtrInterface const>(reactor->rawNotifier()));
  happens(3);
  for (const auto& reactor : kept) {  // as if it were in use
    reactor->isMarkedForDeletionIs(false);
    reactor->hasNotificationActiveIs(true);
  }
  happens(4);
  prefix->handleDel();
  pref->handleDel();
  pref->handleRpf();
  route->handleDel();
  auto* watched = w.mribStatus->route(Lumo::Prefix("10.0.0.0/24"));
  watched->viaIs({Lumo::IpAddr("9.9.9.9"), nullptr}, true);
  watched->preferenceIs(9);
  w.mribStatus->routeDel(watched->prefix());
  pref->zanMribConfigPrefixIs(nullptr);
  for (const auto& reactor : kept) reactor->notifierIs(nullptr);
  config->onRoute(IpGenPrefix("60.0.0.0/8"));
  prefix->mribConfigPrefDelAll();
  EXPECT_EQ(prefix->mribConfigPrefCount(), 0u);
}

TEST(CarelessHost, TakesPartsAwayAndGivesThemAgain) {
  using Act = void (*)(Chain&);
  const std::vector<std::pair<Act, Act>> parts{
      {[](Chain& w) { w.mrib->intfInfoDel(); }, [](Chain& w) { w.mrib->intfInfoIs(w.intfInfo); }},
      {[](Chain& w) { w.mrib->uribShadowStatusDel(); }, [](Chain& w) { w.mrib->uribShadowStatusIs(w.urib); }},
      {[](Chain& w) { w.mrib->mribConfigDel(); }, [](Chain& w) { w.mrib->mribConfigIs(w.config); }},
      {[](Chain& w) { w.mrib->routeResolverDel(); },
       [](Chain& w) { w.mrib->routeResolverIs(w.urib, w.mribStatus, w.intfDir); }},
      {[](Chain& w) { w.mrib->trieBuilderDel(); },
       [](Chain& w) { w.mrib->trieBuilderIs(w.mribStatus, w.mrib->mribShadow()); }},
      {[](Chain& w) { w.mrib->mribShadowIs("other"); },
       [](Chain& w) { w.mrib->trieBuilderIs(w.mribStatus, w.mrib->mribShadow()); }},
      {[](Chain& w) { w.mrib->routeResolver()->uribStatusIs(nullptr); },
       [](Chain& w) { w.mrib->routeResolver()->uribStatusIs(w.urib); }},
      {[](Chain& w) {
         w.mrib->routeResolver()->uribStatusDel();
         EXPECT_FALSE(w.mrib->routeResolver()->zan_TrieIn()) << "it follows no other trie";
       },
       [](Chain& w) { w.mrib->routeResolver()->uribStatusIs(w.urib); }},
      {[](Chain& w) { w.urib->trieIs(nullptr), w.mrib->routeResolver()->handleChangedRoute(); },
       [](Chain& w) { w.urib->trieIs(w.unicastTrie); }},
      {[](Chain& w) { w.mrib->routeResolver()->mribStatusIs(nullptr); },
       [](Chain& w) { w.mrib->routeResolver()->mribStatusIs(w.mribStatus); }},
      {[](Chain& w) { w.mrib->routeResolver()->zanDoZombieReactors(true); },
       [](Chain& w) { w.mrib->routeResolver()->zanDoZombieReactors(false); }},
  };
  for (const auto& [take, give] : parts) {
    Chain w;
    const auto before = w.state();
    for (int twice = 0; twice < 2; ++twice) take(w);
    w.mrib->hasNotificationActiveIs(false);
    w.mrib->zanDoZombieReactors(true);
    w.mrib->zanDoZombieReactors(false);
    w.mrib->hasNotificationActiveIs(true);
    give(w);
    EXPECT_EQ(w.state(), before);
    w.rpfIs("90.0.0.0/8", 1, w.via("20.0.0.5"));
    EXPECT_NE(w.show("90.0.0.0/8"), "none");
  }
  Chain w;
  const auto before = w.state();
  w.stop();
  w.mribStatus->routeDelAll();
  w.mrib = Routing::Multicast::Rib::mribSmFactory(nullptr, nullptr, nullptr, w.mribStatus, w.intfDir);
  for (const auto& [take, give] : parts) give(w);
  EXPECT_EQ(w.state(), before) << "from an engine that had nothing but the status";
}

}  // namespace
