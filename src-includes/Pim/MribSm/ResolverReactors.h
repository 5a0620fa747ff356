#pragma once

#include "Pim/MribSm/RouteResolverSm.h"
#include "Zan/Export.h"

namespace Routing::Multicast::Rib {

/// Watches the unicast shadow status, so that the resolver always follows its current trie.
class ZAN_EXPORT RouteResolverSm::ZanUribStatus
    : public Zan::Reactor<Routing::Shadow::Status::NotifieeConst, RouteResolverSm> {
 public:
  /// Binds without a look at the trie: the resolver's constructor does that when everything stands.
  ZanUribStatus(const Zan::Ptr<Routing::Shadow::Status>& status, RouteResolverSm* resolver)
      : Reactor(resolver) {
    bind(status);
    isRegisteredNotifieeIs(true);
  }

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& status) override {
    if (status.get() == rawNotifier()) return;
    Reactor::notifierIs(status);
    isRegisteredNotifieeIs(true);
    onTrie();
  }
  void onTrie() override {
    if (owner()) owner()->zan_TrieInIs(notifier() ? notifier()->trie() : nullptr);
  }

  void routeResolverSmIs(RouteResolverSm* resolver) { ownerIs(resolver); }
};

/// Holds the MRIB status that the resolver writes; reacts to nothing.
class ZAN_EXPORT RouteResolverSm::ZanMribStatus
    : public Zan::Reactor<Status::NotifieeConst, RouteResolverSm> {
 public:
  ZanMribStatus(const Zan::Ptr<Status>& status, RouteResolverSm* resolver) : Reactor(resolver) {
    bind(status);
  }

  void routeResolverSmIs(RouteResolverSm* resolver) { ownerIs(resolver); }
};

/// Watches the unicast trie for the prefix that changed last.
class ZAN_EXPORT RouteResolverSm::ZanZan_TrieIn
    : public Zan::Reactor<TrieGen::NotifieeConst, RouteResolverSm> {
 public:
  explicit ZanZan_TrieIn(RouteResolverSm* resolver) : Reactor(resolver) {}

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& trie) override {
    if (trie.get() == rawNotifier()) return;
    Reactor::notifierIs(trie);
    isRegisteredNotifieeIs(true);
    onChangedRoute();
  }
  void onChangedRoute() override {
    if (notifier() && owner() && hasNotificationActive()) owner()->handleChangedRoute();
  }

  void routeResolverSmIs(RouteResolverSm* resolver) { ownerIs(resolver); }
};

}  // namespace Routing::Multicast::Rib
