#pragma once

#include "Routing/Family.h"
#include "Routing/Fib/RouteType.h"
#include "Routing/Fib/Via.h"
#include "Routing/Multicast/Rib/PrefixSet.h"
#include "Zan/Export.h"
#include "Zan/HashMap.h"
#include "Zan/ListSet.h"

namespace Routing::Multicast {

template <class Family>
class StatusOf;

/// One route of the MRIB status: where packets from the sources in `prefix` must come in.
template <class Family>
class ZAN_EXPORT RouteOf : public Zan::Entity, public Zan::HashMember<RouteOf<Family>> {
 public:
  using Prefix = typename Family::Prefix;
  using Via = Fib::ViaOf<Family>;
  using PrefixSet = Rib::PrefixSet;
  using PtrConst = Zan::Ptr<RouteOf const>;
  class NotifieeConst;

  static constexpr Zan::AttributeId prefixId = 130;
  static constexpr Zan::AttributeId preferenceId = 131;
  static constexpr Zan::AttributeId routeTypeId = 132;
  static constexpr Zan::AttributeId viaId = 133;
  static constexpr Zan::AttributeId creationTimeId = 134;
  static constexpr Zan::AttributeId metricId = 135;
  static constexpr Zan::AttributeId prefixSetId = 136;

  explicit RouteOf(const Prefix& prefix) : prefix_(prefix) {}
  ~RouteOf() override;

  const Prefix& prefix() const { return prefix_; }
  const Prefix& fwkKey() const { return prefix_; }
  Zan::Name name() const override { return Zan::Name(prefix_.stringValue()); }

  /// 0 until set; the lower wins.
  U8 preference() const { return preference_; }
  void preferenceIs(U8 preference);
  Fib::RouteType routeType() const { return routeType_; }
  void routeTypeIs(Fib::RouteType type);
  /// Seconds since 1970; 0 for a route that was not made from configuration.
  double creationTime() const { return creationTime_; }
  void creationTimeIs(const double& seconds);
  U32 metric() const { return metric_; }
  void metricIs(U32 metric);

  /// Whether the route holds this very via.
  bool via(const Via& via) const;
  U32 viaCount() const { return via_.size(); }
  /// Walks the vias in the order in which they were added. At the end when the route has gone.
  using ViaIterator = typename Zan::ListSet<Via>::Iterator;
  ViaIterator viaIterator() const { return via_.iterator(); }
  /// What a `ViaIterator` can be made on where it lives in another object.
  const Zan::ListSet<Via>& viaList() const { return via_; }
  void viaIs(const Via& via, bool present);
  void viaDel(const Via& via);
  /// Removes the vias that there are now; watchers hear of each one after its removal, and those that they
  /// add meanwhile stay.
  void viaDelAll();
  /// Tells the watchers that any via may have changed.
  void viaNotifyAll() const;

  /// The prefix set with this resolving prefix, or null.
  PrefixSet::Ptr prefixSet(const Lumo::IpGenPrefix& lPrefix) const;
  U32 prefixSetCount() const { return prefixSet_.size(); }
  typename Zan::ListSet<PrefixSet::Ptr>::Iterator prefixSetIterator() const { return prefixSet_.iterator(); }
  /// Links the set under its resolving prefix, in place of another one that was there.
  void prefixSetIs(const PrefixSet::Ptr& set);
  void prefixSetDel(const Lumo::IpGenPrefix& lPrefix);
  /// Tells the watchers that any prefix set may have changed.
  void prefixSetNotifyAll() const;

  void isNondestructingIs(bool nondestructing) override;
  void zanLeft();
  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  void touched() const;
  const PrefixSet::Ptr* findSet(const Lumo::IpGenPrefix& lPrefix) const;

  Prefix prefix_;
  U8 preference_ = 0;
  Fib::RouteType routeType_{};
  U32 metric_ = 0;
  double creationTime_ = 0;
  Zan::ListSet<Via> via_;
  Zan::ListSet<PrefixSet::Ptr> prefixSet_;
};

/// The order of the handlers is part of the interface.
template <class Family>
class ZAN_EXPORT RouteOf<Family>::NotifieeConst : public Zan::NotifieeOf<RouteOf<Family>> {
 public:
  virtual void onIsNondestructing() { this->onAttribute(isNondestructingId); }
  virtual void onPreference() { this->onAttribute(preferenceId); }
  virtual void onRouteType() { this->onAttribute(routeTypeId); }
  virtual void onVia(const Via&) { this->onCollectionNotification(Zan::literal<"via">()); }
  virtual void onViazanImmediate() { this->onCollectionNotification(Zan::literal<"via">()); }
  virtual void onVia() { this->onCollectionNotification(Zan::literal<"via">()); }
  virtual void onCreationTime() { this->onAttribute(creationTimeId); }
  virtual void onMetric() { this->onAttribute(metricId); }
  virtual void onPrefixSet(const Lumo::IpGenPrefix&) {
    this->onCollectionNotification(Zan::literal<"prefixSet">());
  }
  virtual void onPrefixSetzanImmediate() { this->onCollectionNotification(Zan::literal<"prefixSet">()); }
  virtual void onPrefixSet() { this->onCollectionNotification(Zan::literal<"prefixSet">()); }
};

extern template class ZAN_EXPORT RouteOf<Family4>;
extern template class ZAN_EXPORT RouteOf<Family6>;

}  // namespace Routing::Multicast

namespace Routing::Multicast::Rib {
using Route = RouteOf<Family4>;
}  // namespace Routing::Multicast::Rib
