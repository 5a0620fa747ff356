#pragma once

#include "Pim/MribTrieBuilder/RouteReactors.h"
#include "Routing/Multicast/Shadow/Status.h"
#include "Zan/Export.h"
#include "Zan/Reactor.h"

namespace Routing::Multicast::Rib {

/// Keeps the longest-match trie "mribTrie4" of the MRIB shadow status in step with the routes of the MRIB
/// status. A route enters the trie when its preference changes while it has vias, or when one of its vias
/// comes or goes; it leaves the trie when it leaves the status.
class ZAN_EXPORT MribTrieBuilderSm : public Zan::VFPtrInterface {
 public:
  class ZanRoute;
  class ZanStatus;
  using ShadowStatus = Routing::Multicast::Shadow::Status;
  using RouteIterator = Zan::HashMap<ZanRoute, Lumo::Prefix>::Iterator;

  /// The value of `deletedPreference` that says that no removal is recorded.
  static constexpr U8 deletedPreferenceUnknown = 0;

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
  const Zan::Ptr<TrieGen>& trie() const { return trie_; }
  void trieIs(const Zan::Ptr<TrieGen>& trie);
  /// Preference of the route most recently removed from the trie, until something is inserted.
  U8 deletedPreference() const { return deletedPreference_; }
  void deletedPreferenceIs(U8 v) { deletedPreference_ = v; }
  /// Insertions into and removals from the trie.
  U32 trieUpdates() const { return trieUpdates_; }
  void trieUpdatesIs(U32 v) { trieUpdates_ = v; }
  void trieUpdatesInc(U32 n) { trieUpdates_ += n; }

  /// The reactor on the route of a prefix, or null.
  Zan::Ptr<ZanRoute> route(const Lumo::Prefix& prefix) const;
  /// The prefix will be looked up soon.
  [[gnu::always_inline]] void routePrefetch(const Lumo::Prefix& prefix) const { route_.prefetch(prefix); }
  U32 routeCount() const { return route_.size(); }
  RouteIterator routeIterator() { return route_.iterator(); }
  /// Watches a route; does not touch the trie. Throws a range exception for null.
  Zan::Ptr<ZanRoute> routeIs(const Zan::Ptr<Route const>& route);
  /// Stops watching the route of a prefix; does not touch the trie. Returns the reactor, if any.
  Zan::Ptr<ZanRoute> routeDel(const Lumo::Prefix& prefix);
  void routeDelAll();
  /// Called for every reactor that leaves the collection.
  void routeNotify(const Lumo::Prefix& prefix, const Zan::Ptr<ZanRoute>& reactor);
  Zan::Ptr<ZanRoute> newRoute(const Zan::Ptr<Route const>& route);

  /// Makes and publishes the trie.
  void handleInitialize();
  /// Loads every route of the status into the empty trie.
  void handleRoute();
  /// Called when the route that a reactor watches leaves the status.
  void zan_handleRoute(const Zan::Ptr<ZanRoute>& reactor);

 private:
  bool initialize_ = false;
  Zan::Ptr<ZanStatus> status_;
  Zan::Ptr<ShadowStatus> mribRouteStatus_;
  Zan::Ptr<TrieGen> trie_;
  U8 deletedPreference_ = deletedPreferenceUnknown;
  RouteReactors<MribTrieBuilderSm, ZanRoute, Route> route_;
  U32 trieUpdates_ = 0;
};

/// Watches the route collection of the MRIB status.
class ZAN_EXPORT MribTrieBuilderSm::ZanStatus
    : public Zan::Reactor<Status::NotifieeConst, MribTrieBuilderSm> {
 public:
  ZanStatus(const Zan::Ptr<Status const>& status, MribTrieBuilderSm* owner);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& notifier) override;
  void onRoute(const Lumo::Prefix& prefix) override;
  void onRoutezanImmediate() override;
  using Status::NotifieeConst::onRoute;

  void mribTrieBuilderSmIs(MribTrieBuilderSm* owner) { ownerIs(owner); }
};

/// Watches one route of the MRIB status and keeps its prefix in the trie.
class ZAN_EXPORT MribTrieBuilderSm::ZanRoute : public Zan::Reactor<Route::NotifieeConst, MribTrieBuilderSm>,
                                               public Zan::HashMember<ZanRoute> {
 public:
  ZanRoute(const Zan::Ptr<Route const>& route, MribTrieBuilderSm* owner);

  void onPreference() override { handlePreference(); }
  void onVia(const Fib::Via& via) override { handleVia(via); }
  void onViazanImmediate() override {}  // intended: a change of the whole via collection is ignored
  void handleDefault(Zan::ActivityConfig* activity, Zan::AttributeId attribute, bool leaving) override;
  using Route::NotifieeConst::onVia;
  const Zan::ZanType* fwkType() const override;

  MribTrieBuilderSm* mribTrieBuilderSm() const { return owner(); }
  void mribTrieBuilderSmIs(MribTrieBuilderSm* owner) { ownerIs(owner); }
  const Lumo::Prefix& fwkKey() const { return notifier()->prefix(); }
  void zanLeft();

  void handlePreference();
  void handleVia(const Fib::Via& via);
  void handleDel();

 private:
  void insertPrefix();
};

/// Creates the builder on an MRIB status and the shadow status that publishes the trie.
ZAN_EXPORT Zan::Ptr<MribTrieBuilderSm> mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status,
    const Zan::Ptr<Routing::Multicast::Shadow::Status>& mribRouteStatus);

}  // namespace Routing::Multicast::Rib
