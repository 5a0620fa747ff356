#pragma once

#include "Lumo/IpGenPrefix.h"
#include "Zan/Entity.h"
#include "Zan/Export.h"
#include "Zan/SortedSet.h"
#include "Zan/Tap.h"

namespace Routing::Multicast::Rib {

/// The multicast prefixes whose routes resolve through one prefix, `lPrefix`, in ascending order.
class ZAN_EXPORT PrefixSet : public Zan::Entity {
 public:
  class NotifieeConst;
  using Ptr = Zan::Ptr<PrefixSet>;
  static constexpr Zan::AttributeId lPrefixId = 130;
  static constexpr Zan::AttributeId prefixId = 131;

  /// A new set without members, name and parent. Throws "null ValidPtr" only when there is none to be had.
  static Ptr PrefixSetIs(const Lumo::IpGenPrefix& lPrefix);
  explicit PrefixSet(const Lumo::IpGenPrefix& lPrefix) : lPrefix_(lPrefix) {}
  ~PrefixSet() override;

  const Lumo::IpGenPrefix& lPrefix() const { return lPrefix_; }
  /// Whether `prefix` is a member.
  bool prefix(const Lumo::IpGenPrefix& prefix) const { return prefix_.contains(prefix); }
  U32 prefixCount() const { return prefix_.size(); }
  /// Walks the members in ascending order. Keeps the set alive.
  Zan::SortedSet<Lumo::IpGenPrefix>::Iterator prefixIterator() const {
    return prefix_.iteratorHolding(Zan::Ptr<PrefixSet const>(this));
  }
  void prefixIs(const Lumo::IpGenPrefix& prefix, bool member);
  /// Adds a member; false when it was one already.
  bool prefixAdd(const Lumo::IpGenPrefix& prefix);
  void prefixDel(const Lumo::IpGenPrefix& prefix);
  /// Tells the watchers that any member may have changed.
  void prefixNotifyAll() const;

  /// Every member that comes or goes.
  const Zan::Taps<Lumo::IpGenPrefix>& taps() const { return taps_; }

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  Lumo::IpGenPrefix lPrefix_;
  Zan::SortedSet<Lumo::IpGenPrefix> prefix_;
  Zan::Taps<Lumo::IpGenPrefix> taps_;
};

class ZAN_EXPORT PrefixSet::NotifieeConst : public Zan::NotifieeOf<PrefixSet> {
 public:
  virtual void onPrefix(const Lumo::IpGenPrefix&) { onCollectionNotification(Zan::literal<"prefix">()); }
  virtual void onPrefixzanImmediate() { onCollectionNotification(Zan::literal<"prefix">()); }
  virtual void onPrefix() { onCollectionNotification(Zan::literal<"prefix">()); }
};

}  // namespace Routing::Multicast::Rib
