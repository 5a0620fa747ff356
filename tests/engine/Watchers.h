#pragma once

#include <functional>

#include "EngineWorld.h"

/// Calls `hear` with the prefix for every route, configured prefix and trie entry that comes or goes, and
/// every via of a route; that of the trie only where there is an engine.
class Watchers {
 public:
  using Hear = std::function<void(const Lumo::IpGenPrefix&)>;

  Watchers(const EngineWorld& w, Hear h) : hear(std::move(h)) {
    watch<OfConfig>(w.config);
    watch<OfStatus>(w.mribStatus);
    for (auto r = w.mribStatus->routeIterator(); r; ++r) watch<OfVias>(Zan::Ptr<Route const>(r.get()));
    if (w.mrib) watch<OfTrie>(w.mrib->mribShadow()->trie());
  }
  Watchers(const Watchers&) = delete;
  Watchers& operator=(const Watchers&) = delete;

  const Hear hear;

 private:
  using Route = Routing::Multicast::Rib::Route;
  struct OfConfig : EngineWorld::Config::NotifieeConst {
    explicit OfConfig(Watchers& a) : all(a) {}
    void onRoute(const Lumo::IpGenPrefix& prefix) override { all.hear(prefix); }
    Watchers& all;
  };
  struct OfStatus : EngineWorld::Status::NotifieeConst {
    explicit OfStatus(Watchers& a) : all(a) {}
    void onRoute(const Lumo::Prefix& prefix) override {
      if (const auto* route = this->notifier()->route(prefix))
        all.watch<OfVias>(Zan::Ptr<Route const>(route));
      all.hear(prefix);
    }
    Watchers& all;
  };
  struct OfVias : Route::NotifieeConst {
    explicit OfVias(Watchers& a) : all(a) {}
    void onVia(const Routing::Fib::Via&) override { all.hear(this->notifier()->prefix()); }
    Watchers& all;
  };
  struct OfTrie : Routing::TrieGen::NotifieeConst {
    explicit OfTrie(Watchers& a) : all(a) {}
    void onChangedRoute() override { all.hear(this->notifier()->changedRoute()); }
    Watchers& all;
  };
  template <class Watcher, class Record>
  void watch(const Zan::Ptr<Record>& record) {
    const auto watcher = Zan::create<Watcher>(*this);
    watcher->notifierIs(record);
    watcher->isRegisteredNotifieeIs(true);
    watchers_.push_back(watcher);
  }

  std::vector<Zan::Ptr<Zan::PtrInterface>> watchers_;
};
