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
  Zan::SortedSet<Rpf>::Iterator rpfIterator() const { return rpf_.iterator(); }
  void rpfIs(const Rpf& rpf);
  void rpfDel(const Rpf& rpf);

  void zanLeft();
  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  void touched(const Rpf& rpf, bool present) const;

  U8 preference_;
  Zan::SortedSet<Rpf> rpf_;
};

class ZAN_EXPORT RouteKeyPreference::NotifieeConst : public Zan::Entity::NotifieeConst {
 public:
  virtual void onRpf(const Rpf&) { onCollectionNotification(Zan::literal<"rpf">()); }
  virtual void onRpfzanImmediate() { onCollectionNotification(Zan::literal<"rpf">()); }
  virtual void onRpf() { onCollectionNotification(Zan::literal<"rpf">()); }

  const RouteKeyPreference* notifier() const { return static_cast<const RouteKeyPreference*>(rawNotifier()); }
};

}  // namespace Routing::Multicast::Rib
