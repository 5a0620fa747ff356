#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>

#include "EngineWorld.h"
#include "Pim/MribSm/ConfigReactors.h"

// An agent's own reactors may change what the engine works on while it works. The marks must not lose that:
// random events with such reactors end, event by event, in the same state as with whole passes.

namespace {

/// These call `react` for every configured prefix, route and trie entry that comes or goes.
struct ConfigWatcher : EngineWorld::Config::NotifieeConst {
  explicit ConfigWatcher(std::function<void()> r) : react(std::move(r)) {}
  void onRoute(const Lumo::IpGenPrefix&) override { react(); }
  std::function<void()> react;
};
struct StatusWatcher : EngineWorld::Status::NotifieeConst {
  explicit StatusWatcher(std::function<void()> r) : react(std::move(r)) {}
  void onRoute(const Lumo::Prefix&) override { react(); }
  std::function<void()> react;
};
struct TrieWatcher : Routing::TrieGen::NotifieeConst {
  explicit TrieWatcher(std::function<void()> r) : react(std::move(r)) {}
  void onChangedRoute() override { react(); }
  std::function<void()> react;
};

class Agent {
 public:
  Agent(U64 seed, bool whole) : random_(seed) {
    for (U32 id = 1; id <= intfs; ++id) {
      w_.intfIs(id, "eth" + std::to_string(id));
      w_.intfAddrIs(id, address());
      if (id > 1) w_.connectedIs("20." + std::to_string(id) + ".0.0/16", id);
    }
    for (auto n = random_() % 40; n > 0; --n) configure();
    w_.start();
    resolver().wholePassesIs(whole);
    watch(Zan::create<ConfigWatcher>([this] { react(); }), w_.config);
    watch(Zan::create<StatusWatcher>([this] { react(); }), w_.mribStatus);
    watch(Zan::create<TrieWatcher>([this] { react(); }), w_.mrib->mribShadow()->trie());
  }

  void step() {
    reactions_ = static_cast<int>(random_() % 5);
    switch (random_() % 15) {
      case 0:
        w_.unicastDel("20." + std::to_string(intf()) + ".0.0/16");
        break;
      case 1:
        if (auto* entry = w_.config->route(prefix())) w_.config->routeDel(entry->prefix());
        break;
      case 2:
        removeSome();
        break;
      case 3: {  // the same again: everybody looks at everything
        const auto config = w_.config;
        w_.mrib->mribConfigPrefixDelAll();
        w_.mrib->mribConfigIs(nullptr);
        w_.mrib->mribConfigIs(config);
        break;
      }
      case 4:
        writeStatus();
        break;
      case 5:
        w_.mrib->hasNotificationActiveIs(false);
        for (int i = 0; i < 3; ++i) random_() % 4 ? change() : removeSome();
        w_.mrib->hasNotificationActiveIs(true);
        w_.config->routeNotifyAll();
        break;
      case 6:  // one of them the same again
        if (const auto* entry = w_.config->route(prefix())) {
          w_.mrib->mribConfigPrefixDel(entry->prefix());
          w_.mrib->mribConfigPrefixIs(Zan::Ptr<Routing::Multicast::Rib::RouteKeyPrefix const>(entry));
        }
        break;
      default:
        change();
    }
  }

  std::string state() const {
    std::string text;
    for (auto r = w_.mribStatus->routeIterator(); r; ++r) {
      text += w_.show(r->prefix().stringValue()) + " {";
      for (auto s = r->prefixSetIterator(); s; ++s) text += (*s)->lPrefix().stringValue() + ' ';
      text += "}\n";
    }
    for (auto s = resolver().mribForPrefixIterator(); s; ++s) {
      text += s->mribForPrefix()->lPrefix().stringValue() + ':';
      for (auto m = s->mribForPrefix()->prefixIterator(); m; ++m) text += ' ' + m->stringValue();
      text += '\n';
    }
    const auto& builder = *w_.mrib->trieBuilder();
    return text + std::to_string(builder.trie()->nodes()) + " in the trie, " +
           std::to_string(builder.trieUpdates()) + " updates\n";
  }
  U32 routes() const { return w_.mribStatus->routeCount(); }

 private:
  static constexpr U32 intfs = 6, prefixes = 16;

  void react() {
    if (reactions_ <= 0) return;
    --reactions_;
    if (random_() % 8 == 0) writeStatus();
    if (random_() % 2) change();
  }
  /// Somebody else's doing.
  void writeStatus() {
    auto* route = w_.mribStatus->route(prefix().v4Prefix());
    if (!route) return;
    random_() % 2 ? route->viaDelAll() : route->preferenceIs(random_() % 2 ? 1 : 2);
  }
  void change() {
    switch (random_() % 8) {
      case 0:
        w_.connectedIs("20." + std::to_string(intf()) + ".0.0/16", intf());
        break;
      case 1:
        w_.intfAddrIs(intf(), address());
        break;
      case 2:
        w_.intfIs(intf(), "eth" + std::to_string(random_() % 100));
        break;
      default:
        configure();
    }
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
    if (const U32 k = intf(); k > 1 && random_() % 16 == 0) {  // one that is connected, or may be
      w_.rpfIs("20." + std::to_string(k) + ".0.0/16", preference,
               EngineWorld::via("20." + std::to_string(k - 1) + ".1.1"));
    } else {
      w_.rpfIs(text(i) + ".0.0/16", preference, rpf);
    }
  }
  static std::string text(U32 i) { return "10." + std::to_string(i); }
  Lumo::IpGenPrefix prefix() {
    return Lumo::IpGenPrefix(text(static_cast<U32>(random_() % prefixes)) + ".0.0/16");
  }
  U32 intf() { return 1 + static_cast<U32>(random_() % intfs); }
  std::string address() { return "20." + std::to_string(intf()) + ".3." + std::to_string(random_() % 9); }
  Routing::Multicast::Rib::RouteResolverSm& resolver() const { return *w_.mrib->routeResolver(); }

  template <class Watcher, class Record>
  void watch(const Zan::Ptr<Watcher>& watcher, const Zan::Ptr<Record>& record) {
    watcher->notifierIs(record);
    watcher->isRegisteredNotifieeIs(true);
    watchers_.push_back(watcher);
  }

  std::mt19937_64 random_;
  EngineWorld w_;
  std::vector<Zan::Ptr<Zan::PtrInterface>> watchers_;
  int reactions_ = 0;
};

TEST(EngineHandlers, MayChangeWhatTheEngineWorksOn) {
  const char* more = std::getenv("MRIB_SEEDS");
  const U64 seeds = more ? std::strtoull(more, nullptr, 10) : 300;
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

}  // namespace
