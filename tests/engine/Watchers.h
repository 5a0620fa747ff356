#pragma once

#include <functional>

#include "EngineWorld.h"

/// Calls `hear` with the prefix for every route, configured prefix and trie entry that comes or goes; that of
/// the trie only where there is an engine.
class Watchers {
 public:
  using Hear = std::function<void(const Lumo::IpGenPrefix&)>;

  Watchers(const EngineWorld& w, Hear h) : hear(std::move(h)) {
    watch<OfRoutes<EngineWorld::Config, Lumo::IpGenPrefix>>(w.config);
    watch<OfRoutes<EngineWorld::Status, Lumo::Prefix>>(w.mribStatus);
    if (w.mrib) watch<OfTrie>(w.mrib->mribShadow()->trie());
  }
  Watchers(const Watchers&) = delete;
  Watchers& operator=(const Watchers&) = delete;

  const Hear hear;

 private:
  template <class Record, class Key>
  struct OfRoutes : Record::NotifieeConst {
    explicit OfRoutes(const Watchers& a) : all(a) {}
    void onRoute(const Key& prefix) override { all.hear(prefix); }
    const Watchers& all;
  };
  struct OfTrie : Routing::TrieGen::NotifieeConst {
    explicit OfTrie(const Watchers& a) : all(a) {}
    void onChangedRoute() override { all.hear(this->notifier()->changedRoute()); }
    const Watchers& all;
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
