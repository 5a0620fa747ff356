#pragma once

#include "Routing/Multicast/Shadow/Status.h"
#include "Zan/Export.h"
#include "Zan/HashMap.h"
#include "Zan/Reactor.h"

namespace Routing {

/// The life of a trie builder, which both families have alike: what it is made of, how it starts and ends,
/// and the reactors that it keeps, one on the status and one on each route. What a change does to the trie is
/// each builder's own. `Types` names what belongs to one of them: the class itself (`Builder`), its `Family`,
/// its reactors `ZanStatus` and `ZanRoute`, which derive from the two below, and their names.
///
/// A builder is active from the start. It may be released from within any handler that it calls: then it goes
/// when the operation is done.
template <class Types>
class ZAN_EXPORT TrieBuilder : public Zan::VFPtrInterface {
 public:
  using Builder = typename Types::Builder;
  using ZanStatus = typename Types::ZanStatus;
  using ZanRoute = typename Types::ZanRoute;
  using Status = Multicast::StatusOf<typename Types::Family>;
  using Route = Multicast::RouteOf<typename Types::Family>;
  using ShadowStatus = Multicast::ShadowStatusOf<typename Types::Family>;
  using Prefix = typename Types::Family::Prefix;
  using RouteIterator = typename Zan::HashMap<ZanRoute, Prefix>::Iterator;
  class StatusReactor;
  class RouteReactor;

  static Zan::Ptr<Builder> MribTrieBuilderSmIs(const Zan::Ptr<Status const>& status,
                                               const Zan::Ptr<ShadowStatus>& mribRouteStatus);

  void hasNotificationActiveIs(bool active) override;
  const Zan::ZanType* fwkType() const override;
  ~TrieBuilder() override;
  virtual void zanDoZombieReactors(bool zombie);

  bool initialize() const { return initialize_; }
  void initializeIs(bool v) { initialize_ = v; }
  Zan::Ptr<Status const> status() const;
  const Zan::Ptr<ShadowStatus>& mribRouteStatus() const { return mribRouteStatus_; }
  /// The trie that is kept; without one, whatever has to write it asserts.
  const Zan::Ptr<TrieGen>& trie() const { return trie_; }
  void trieIs(const Zan::Ptr<TrieGen>& trie);
  /// Insertions into and removals from the trie.
  U32 trieUpdates() const { return trieUpdates_; }
  void trieUpdatesIs(U32 v) { trieUpdates_ = v; }

  /// The reactor on the route of a prefix, or null.
  Zan::Ptr<ZanRoute> route(const Prefix& prefix) const { return Zan::Ptr<ZanRoute>(route_.lookup(prefix)); }
  /// The prefix will be looked up soon.
  [[gnu::always_inline]] void routePrefetch(const Prefix& prefix) const { route_.prefetch(prefix); }
  U32 routeCount() const { return route_.size(); }
  RouteIterator routeIterator() { return route_.iterator(); }
  /// Watches a route; does not touch the trie. The reactor is the present one, one that watched another route
  /// of this prefix before, or a new one. Throws a range exception for null.
  Zan::Ptr<ZanRoute> routeIs(const Zan::Ptr<Route const>& route);
  /// Stops watching the route of a prefix; does not touch the trie. Returns the reactor, if any.
  Zan::Ptr<ZanRoute> routeDel(const Prefix& prefix) { return route_.erase(prefix); }
  void routeDelAll() { route_.eraseAll(); }
  /// Called for every reactor that leaves the collection.
  void routeNotify(const Prefix& prefix, const Zan::Ptr<ZanRoute>& reactor);
  Zan::Ptr<ZanRoute> newRoute(const Zan::Ptr<Route const>& route);

 protected:
  TrieBuilder() : VFPtrInterface(notificationActiveFlag) {}
  /// What every constructor does: `handleInitialize`, `handleRoute`, then a reactor for each route.
  void start(const Zan::Ptr<Status const>& status, const Zan::Ptr<ShadowStatus>& mribRouteStatus);
  /// Makes the trie, publishes it in the shadow status and keeps it from now on.
  void publishTrie(const char* name, Lumo::AddressFamily af);
  /// Puts every route of the status into the trie, which counts as `updates` for each.
  void loadTrie(U32 updates);
  /// The trie; it must exist.
  TrieGen& presentTrie() const {
    ZAN_ASSERT_TEXT(trie_, "trie");
    return *trie_;
  }

 private:
  Builder& self() { return static_cast<Builder&>(*this); }
  void reconcile(const Status& status);

  bool initialize_ = false;
  Zan::Ptr<ZanStatus> status_;
  Zan::Ptr<ShadowStatus> mribRouteStatus_;
  Zan::Ptr<TrieGen> trie_;
  Zan::HashMap<ZanRoute, Prefix> route_;
  U32 trieUpdates_ = 0;
};

/// Watches the route collection of the status, and keeps a reactor on each route of it.
template <class Types>
class ZAN_EXPORT TrieBuilder<Types>::StatusReactor
    : public Zan::Reactor<typename Status::NotifieeConst, Builder> {
 public:
  using Base = Zan::Reactor<typename Status::NotifieeConst, Builder>;

  StatusReactor(const Zan::Ptr<Status const>& status, Builder* owner);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& notifier) override;
  void onRoute(const Prefix& prefix) override;
  void onRoutezanImmediate() override;
  using Base::onRoute;

  void mribTrieBuilderSmIs(Builder* owner) { this->ownerIs(owner); }
};

/// Watches one route. While its builder keeps it, it watches a route of the same prefix.
template <class Types>
class ZAN_EXPORT TrieBuilder<Types>::RouteReactor
    : public Zan::Reactor<typename Route::NotifieeConst, Builder>,
      public Zan::HashMember<ZanRoute> {
 public:
  using Base = Zan::Reactor<typename Route::NotifieeConst, Builder>;

  RouteReactor(const Zan::Ptr<Route const>& route, Builder* owner);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& notifier) override;
  void onViazanImmediate() override {}  // intended: a change of the whole via collection is ignored
  const Zan::ZanType* fwkType() const override;

  Builder* mribTrieBuilderSm() const { return this->owner(); }
  void mribTrieBuilderSmIs(Builder* owner) { this->ownerIs(owner); }
  const Prefix& fwkKey() const { return this->notifier()->prefix(); }
  void zanLeft();
};

}  // namespace Routing
