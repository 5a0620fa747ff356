#pragma once

#include "Routing/Multicast/Rib/Rpf.h"
#include "Zan/Entity.h"
#include "Zan/Export.h"
#include "Zan/RbTreeMap.h"
#include "Zan/SortedSet.h"

namespace Routing::Multicast::Rib {

/// The RPFs configured for a prefix at one preference (1 to 255, the lower wins).
class ZAN_EXPORT RouteKeyPreference : public Zan::Entity, public Zan::RbTreeMember<RouteKeyPreference> {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId preferenceId = 130;
  static constexpr Zan::AttributeId rpfId = 131;

  explicit RouteKeyPreference(U8 preference) : preference_(preference) {}
  ~RouteKeyPreference() override;

  U8 preference() const { return preference_; }
  U8 fwkKey() const { return preference_; }
  Zan::Name name() const override { return Zan::Name(std::to_string(preference_)); }

  bool rpf(const Rpf& rpf) const { return rpf_.contains(rpf); }
  U32 rpfCount() const { return rpf_.size(); }
  /// Walks the RPFs in ascending order. Keeps the entry alive.
  Zan::SortedSet<Rpf>::Iterator rpfIterator() const {
    return rpf_.iteratorHolding(Zan::Ptr<RouteKeyPreference const>(this));
  }
  void rpfIs(const Rpf& rpf);
  void rpfDel(const Rpf& rpf);
  /// Tells the watchers that any RPF may have changed.
  void rpfNotifyAll() const;

  void zanLeft();
  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  void touched(const Rpf& rpf, bool present) const;

  U8 preference_;
  Zan::SortedSet<Rpf> rpf_;
};

class ZAN_EXPORT RouteKeyPreference::NotifieeConst : public Zan::NotifieeOf<RouteKeyPreference> {
 public:
  virtual void onRpf(const Rpf&) { onCollectionNotification(Zan::literal<"rpf">()); }
  virtual void onRpfzanImmediate() { onCollectionNotification(Zan::literal<"rpf">()); }
  virtual void onRpf() { onCollectionNotification(Zan::literal<"rpf">()); }
};

}  // namespace Routing::Multicast::Rib
