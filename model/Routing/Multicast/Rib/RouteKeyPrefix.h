#pragma once

#include "Lumo/IpGenPrefix.h"
#include "Routing/Multicast/Rib/RouteKeyPreference.h"
#include "Zan/Export.h"
#include "Zan/HashMap.h"

namespace Routing::Multicast::Rib {

/// One configured source prefix with its preferences, lowest first.
class ZAN_EXPORT RouteKeyPrefix : public Zan::Entity, public Zan::HashMember<RouteKeyPrefix> {
 public:
  class NotifieeConst;
  using PrefMap = Zan::RbTreeMap<RouteKeyPreference, U8>;
  static constexpr Zan::AttributeId prefixId = 130;
  static constexpr Zan::AttributeId prefId = 131;

  explicit RouteKeyPrefix(const Lumo::IpGenPrefix& prefix) : prefix_(prefix) {}
  ~RouteKeyPrefix() override;

  const Lumo::IpGenPrefix& prefix() const { return prefix_; }
  const Lumo::IpGenPrefix& fwkKey() const { return prefix_; }
  /// Whether the engine makes a route of it: it works on IPv4 only and leaves an entry whose prefix is empty
  /// or of the other family alone.
  bool isResolvable() const { return prefix_.af() == Lumo::ipv4(); }
  Zan::Name name() const override { return Zan::Name(prefix_.stringValue()); }

  /// The entry at a preference, or null. Owned by the prefix.
  RouteKeyPreference* pref(U8 preference) const { return pref_.lookup(preference); }
  U32 prefCount() const { return pref_.size(); }
  PrefMap::IteratorConst prefIterator() const { return pref_.iterator(); }
  /// The entry with the lowest preference, or null.
  const RouteKeyPreference* bestPref() const { return pref_.first(); }
  /// Adds an entry without RPFs if there is none at `preference`, and returns the entry.
  Zan::Ptr<RouteKeyPreference> prefIs(U8 preference);
  /// Enters a finished entry, which then is announced once. It replaces another one at its preference. Throws
  /// a range exception for null and for an entry that another prefix has.
  void prefIs(const Zan::Ptr<RouteKeyPreference>& entry);
  void prefDel(U8 preference) { pref_.erase(preference); }
  /// Tells the watchers that any preference may have changed.
  void prefNotifyAll() const;

  /// Grows in the order in which a configuration's walk meets its entries.
  U64 order() const { return order_; }

  void zanLeft();
  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  friend class RouteKeyPreference;
  friend class Config;
  void prefLeft(RouteKeyPreference& entry);
  void rpfTouched(U8 preference, const Rpf& rpf, bool present) const;
  void prefTouched(const RouteKeyPreference& entry, bool present) const;
  void tellPref(U8 preference) const;

  Lumo::IpGenPrefix prefix_;
  U64 order_ : 48 = 0;  // what the 18 bytes before leave of three words; enough for years of insertions
  PrefMap pref_;
};

class ZAN_EXPORT RouteKeyPrefix::NotifieeConst : public Zan::NotifieeOf<RouteKeyPrefix> {
 public:
  virtual void onPref(const U8&) { onCollectionNotification(Zan::literal<"pref">()); }
  virtual void onPrefzanImmediate() { onCollectionNotification(Zan::literal<"pref">()); }
  virtual void onPref() { onCollectionNotification(Zan::literal<"pref">()); }
};

}  // namespace Routing::Multicast::Rib
