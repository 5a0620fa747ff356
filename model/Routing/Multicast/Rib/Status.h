#pragma once

#include "Routing/Multicast/Rib/Route.h"
#include "Zan/Export.h"
#include "Zan/Tap.h"

namespace Routing::Multicast {

/// The MRIB status: the multicast routes that are in force, by prefix.
template <class Family>
class ZAN_EXPORT StatusOf : public Zan::NamedEntity {
 public:
  using Prefix = typename Family::Prefix;
  using Route = RouteOf<Family>;
  using RouteMap = Zan::HashMap<Route, Prefix>;
  class NotifieeConst;

  static constexpr Zan::AttributeId routeId = 130;
  static constexpr Zan::AttributeId trieId = 131;

  explicit StatusOf(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~StatusOf() override;

  /// The route of a prefix, or null. Owned by the status; hold it by `Ptr` across a change.
  Route* route(const Prefix& prefix) const { return route_.lookup(prefix); }
  /// So many routes will come, before there are any.
  void routeReserve(U32 count) { route_.reserve(count); }
  /// The prefix will be looked up soon.
  [[gnu::always_inline]] void routePrefetch(const Prefix& prefix) const { route_.prefetch(prefix); }
  U32 routeCount() const { return route_.size(); }
  typename RouteMap::IteratorConst routeIterator() const { return route_.iterator(); }
  /// Creates the route if it is absent, and returns it.
  Zan::Ptr<Route> routeIs(const Prefix& prefix);
  /// Removes the route. Its own watchers hear first that it leaves, then those of the collection.
  void routeDel(const Prefix& prefix) { route_.erase(prefix); }
  /// Removes the routes that there are now; those that watchers add meanwhile stay.
  void routeDelAll() { route_.eraseAll(); }
  /// Tells the watchers that any route may have changed.
  void routeNotifyAll() const;
  /// For the shadow status that mirrors this one and has the trie: tells the watchers that it is another one.
  void zanTellTrie() const { tell<&NotifieeConst::onTrie>(trieId); }

  /// Every route that comes, goes or changes its preference, type or vias, by its prefix.
  const Zan::Taps<Prefix>& taps() const { return taps_; }

  void isNondestructingIs(bool nondestructing) override;
  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  friend class RouteOf<Family>;
  void routeLeft(Route& route);

  RouteMap route_;
  Zan::Taps<Prefix> taps_;
};

/// The order of the handlers is part of the interface.
template <class Family>
class ZAN_EXPORT StatusOf<Family>::NotifieeConst : public Zan::NotifieeOf<StatusOf<Family>> {
 public:
  virtual void onIsNondestructing() { this->onAttribute(isNondestructingId); }
  virtual void onRoute(const Prefix&) { this->onCollectionNotification(Zan::literal<"route">()); }
  virtual void onRoutezanImmediate() { this->onCollectionNotification(Zan::literal<"route">()); }
  virtual void onRoute() { this->onCollectionNotification(Zan::literal<"route">()); }
  /// The shadow status that mirrors this one has published another trie over these routes.
  virtual void onTrie() { this->onAttribute(trieId); }
};

extern template class ZAN_EXPORT StatusOf<Family4>;
extern template class ZAN_EXPORT StatusOf<Family6>;

}  // namespace Routing::Multicast

namespace Routing::Multicast::Rib {
using Status = StatusOf<Family4>;
}  // namespace Routing::Multicast::Rib
