#pragma once

#include "Zan/HashMap.h"
#include "Zan/Reactor.h"

namespace Routing {

/// The reactors that a trie builder keeps on the routes of a status, one a route, by prefix: the bookkeeping
/// that the builders of both families share. What a route does to the trie is each builder's own.
template <class Builder, class ZanRoute, class Route>
class RouteReactors {
 public:
  using Prefix = typename Route::Prefix;
  using Map = Zan::HashMap<ZanRoute, Prefix>;

  Zan::Ptr<ZanRoute> at(const Prefix& prefix) const { return Zan::Ptr<ZanRoute>(map_.lookup(prefix)); }
  [[gnu::always_inline]] void prefetch(const Prefix& prefix) const { map_.prefetch(prefix); }
  U32 size() const { return map_.size(); }
  typename Map::Iterator iterator() { return map_.iterator(); }

  /// The reactor on a route: the present one, one that watched another route of this prefix before, or a new
  /// one.
  Zan::Ptr<ZanRoute> watch(const Zan::Ptr<Route const>& route, Builder& builder) {
    Zan::Ptr<ZanRoute> reactor = at(route->prefix());
    if (reactor && reactor->notifier() == route.get()) return reactor;
    if (reactor) {
      reactor->notifierIs(route);
    } else {
      reactor = builder.newRoute(route);
    }
    reactor->zanDoZombieReactors(builder.isZombie());
    return reactor;
  }
  Zan::Ptr<ZanRoute> add(const Zan::Ptr<Route const>& route, Builder& builder) {
    auto reactor = Zan::create<ZanRoute>(route, &builder);
    map_.insert(reactor);
    return reactor;
  }
  Zan::Ptr<ZanRoute> drop(const Prefix& prefix) { return map_.erase(prefix); }
  void dropAll() { map_.eraseAll(); }
  /// Watches every route of a status, and no other.
  template <class Status>
  void reconcile(const Status& status, Builder& builder) {
    for (auto route = status.routeIterator(); route; ++route) {
      builder.routeIs(Zan::Ptr<Route const>(route.get()));
    }
    for (auto reactor = map_.iterator(); reactor; ++reactor) {
      if (!status.route(reactor->fwkKey())) reactor.erase();
    }
  }

  void hasNotificationActiveIs(bool active) {
    for (auto reactor = map_.iterator(); reactor; ++reactor) reactor->hasNotificationActiveIs(active);
  }
  void zanDoZombieReactors(bool zombie) {
    for (auto reactor = map_.iterator(); reactor; ++reactor) reactor->zanDoZombieReactors(zombie);
  }
  /// The builder is being destroyed: no reactor must reach it any more.
  void orphan() {
    for (auto reactor = map_.iterator(); reactor; ++reactor) reactor->mribTrieBuilderSmIs(nullptr);
    map_.eraseAll();
  }

 private:
  Map map_;
};

}  // namespace Routing
