#pragma once

#include "Pim/MribTrieBuilder/RouteReactors.h"
#include "Routing6/Fib/Via.h"
#include "Routing6/Multicast/Rib/Route.h"
#include "Routing6/Multicast/Rib/Status.h"
#include "Routing6/Multicast/Shadow/Status.h"
#include "Zan/Export.h"
#include "Zan/Reactor.h"

namespace Routing6::Multicast::Rib {

/// Keeps the longest-match trie "mribTrie6" of the IPv6 MRIB shadow status in step with the routes of the
/// IPv6 MRIB status. Unlike its IPv4 twin it follows the route collection itself: a prefix is in the trie
/// when the status has a route for it, and every look at one counts as an update.
class ZAN_EXPORT MribTrieBuilderSm : public Zan::VFPtrInterface {
 public:
  class ZanRoute;
  class ZanStatus;
  using ShadowStatus = Routing6::Multicast::Shadow::Status;
  using RouteIterator = Zan::HashMap<ZanRoute, Lumo::Ip6Prefix>::Iterator;

  static Zan::Ptr<MribTrieBuilderSm> MribTrieBuilderSmIs(const Zan::Ptr<Status const>& status,
                                                         const Zan::Ptr<ShadowStatus>& mribRouteStatus);
  MribTrieBuilderSm(const Zan::Ptr<Status const>& status, const Zan::Ptr<ShadowStatus>& mribRouteStatus);

  void hasNotificationActiveIs(bool active) override;
  const Zan::ZanType* fwkType() const override;
  ~MribTrieBuilderSm() override;
  virtual void zanDoZombieReactors(bool zombie);

  bool initialize() const { return initialize_; }
  void initializeIs(bool v) { initialize_ = v; }
  Zan::Ptr<Status const> status() const;
  const Zan::Ptr<ShadowStatus>& mribRouteStatus() const { return mribRouteStatus_; }
  const Zan::Ptr<Routing::TrieGen>& trie() const { return trie_; }
  void trieIs(const Zan::Ptr<Routing::TrieGen>& trie);
  /// Insertions into and removals from the trie.
  U32 trieUpdates() const { return trieUpdates_; }
  void trieUpdatesIs(U32 v) { trieUpdates_ = v; }

  /// The reactor on the route of a prefix, or null.
  Zan::Ptr<ZanRoute> route(const Lumo::Ip6Prefix& prefix) const;
  U32 routeCount() const { return route_.size(); }
  RouteIterator routeIterator() { return route_.iterator(); }
  /// Watches a route; does not touch the trie. Throws a range exception for null.
  Zan::Ptr<ZanRoute> routeIs(const Zan::Ptr<Route const>& route);
  /// Stops watching the route of a prefix; does not touch the trie. Returns the reactor, if any.
  Zan::Ptr<ZanRoute> routeDel(const Lumo::Ip6Prefix& prefix);
  void routeDelAll();
  /// Called for every reactor that leaves the collection.
  void routeNotify(const Lumo::Ip6Prefix& prefix, const Zan::Ptr<ZanRoute>& reactor);
  Zan::Ptr<ZanRoute> newRoute(const Zan::Ptr<Route const>& route);

  /// Makes and publishes the trie.
  void handleInitialize();
  /// Loads every route of the status into the empty trie, without counting.
  void handleRoute();
  /// Takes a prefix into the trie or out of it, as the status has a route for it or not.
  void handleRoute(const Lumo::Ip6Prefix& prefix);

 private:
  bool initialize_ = false;
  Zan::Ptr<ZanStatus> status_;
  Zan::Ptr<ShadowStatus> mribRouteStatus_;
  Zan::Ptr<Routing::TrieGen> trie_;
  Routing::RouteReactors<MribTrieBuilderSm, ZanRoute, Route> route_;
  U32 trieUpdates_ = 0;
};

/// Watches the route collection of the MRIB status.
class ZAN_EXPORT MribTrieBuilderSm::ZanStatus
    : public Zan::Reactor<Status::NotifieeConst, MribTrieBuilderSm> {
 public:
  ZanStatus(const Zan::Ptr<Status const>& status, MribTrieBuilderSm* owner);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& notifier) override;
  void onRoute(const Lumo::Ip6Prefix& prefix) override;
  void onRoutezanImmediate() override;
  using Status::NotifieeConst::onRoute;

  void mribTrieBuilderSmIs(MribTrieBuilderSm* owner) { ownerIs(owner); }
};

/// Watches one route of the MRIB status and keeps its prefix in the trie.
class ZAN_EXPORT MribTrieBuilderSm::ZanRoute : public Zan::Reactor<Route::NotifieeConst, MribTrieBuilderSm>,
                                               public Zan::HashMember<ZanRoute> {
 public:
  ZanRoute(const Zan::Ptr<Route const>& route, MribTrieBuilderSm* owner);

  void onVia(const Fib::Via& via) override { handleVia(via); }
  void onViazanImmediate() override {}  // intended: a change of the whole via collection is ignored
  using Route::NotifieeConst::onVia;
  const Zan::ZanType* fwkType() const override;

  MribTrieBuilderSm* mribTrieBuilderSm() const { return owner(); }
  void mribTrieBuilderSmIs(MribTrieBuilderSm* owner) { ownerIs(owner); }
  const Lumo::Ip6Prefix& fwkKey() const { return notifier()->prefix(); }
  void zanLeft();

  void handleVia(const Fib::Via& via);
};

/// Creates the builder on an MRIB status and the shadow status that publishes the trie.
ZAN_EXPORT Zan::Ptr<MribTrieBuilderSm> mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status,
    const Zan::Ptr<Routing6::Multicast::Shadow::Status>& mribRouteStatus);

}  // namespace Routing6::Multicast::Rib
