#pragma once

#include "Routing/Multicast/Rib/RouteKeyPrefix.h"
#include "Zan/Export.h"
#include "Zan/Tap.h"

namespace Routing::Multicast::Rib {

/// An RPF that came to or left an entry of the configuration, at a preference; without RPF, the entry itself
/// or one of its preferences did.
struct ConfigChange {
  const RouteKeyPrefix& entry;
  bool present;
  const Rpf* rpf = nullptr;
  U8 preference = 0;
};

/// The MRIB configuration: the statically configured multicast routes by source prefix.
class ZAN_EXPORT Config : public Zan::NamedEntity {
 public:
  class NotifieeConst;
  using RouteMap = Zan::HashMap<RouteKeyPrefix, Lumo::IpGenPrefix>;
  static constexpr Zan::AttributeId routeId = 130;

  explicit Config(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~Config() override;

  /// The entry of a prefix, or null. Owned by the configuration.
  RouteKeyPrefix* route(const Lumo::IpGenPrefix& prefix) const { return route_.lookup(prefix); }
  U32 routeCount() const { return route_.size(); }
  /// So many entries will come, before there are any.
  void routeReserve(U32 count) { route_.reserve(count); }
  /// The prefix will be looked up soon.
  [[gnu::always_inline]] void routePrefetch(const Lumo::IpGenPrefix& prefix) const {
    route_.prefetch(prefix);
  }
  RouteMap::IteratorConst routeIterator() const { return route_.iterator(); }
  /// Adds an entry without preferences if there is none for `prefix`, and returns the entry.
  Zan::Ptr<RouteKeyPrefix> routeIs(const Lumo::IpGenPrefix& prefix);
  /// Enters a finished entry, which then is announced once. It replaces another one for its prefix. Throws a
  /// range exception for null and for an entry that another configuration has.
  void routeIs(const Zan::Ptr<RouteKeyPrefix>& entry);
  void routeDel(const Lumo::IpGenPrefix& prefix) { route_.erase(prefix); }
  /// Tells the watchers that any entry may have changed.
  void routeNotifyAll() const;

  /// Every RPF and every entry that comes or goes. An entry that goes takes its RPFs along first.
  const Zan::Taps<ConfigChange>& taps() const { return taps_; }
  /// Every prefix that is about to be looked up and probably added: those who keep more under the same prefix
  /// can start to load it, so that one wait for the memory serves all.
  const Zan::Taps<Lumo::IpGenPrefix>& expectations() const { return expectations_; }

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  friend class RouteKeyPrefix;
  void enter(RouteKeyPrefix& entry);
  void routeLeft(RouteKeyPrefix& entry);
  void routeTouched(const RouteKeyPrefix& entry, bool present) const;
  void tellRoute(const Lumo::IpGenPrefix& prefix) const;

  RouteMap route_;
  U64 nextOrder_ = 1;
  Zan::Taps<ConfigChange> taps_;
  Zan::Taps<Lumo::IpGenPrefix> expectations_;
};

class ZAN_EXPORT Config::NotifieeConst : public Zan::NotifieeOf<Config> {
 public:
  virtual void onRoute(const Lumo::IpGenPrefix&) { onCollectionNotification(Zan::literal<"route">()); }
  virtual void onRoutezanImmediate() { onCollectionNotification(Zan::literal<"route">()); }
  virtual void onRoute() { onCollectionNotification(Zan::literal<"route">()); }
};

}  // namespace Routing::Multicast::Rib
