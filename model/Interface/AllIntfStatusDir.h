#pragma once

#include "Interface/IntfStatus.h"
#include "Zan/Export.h"
#include "Zan/Tap.h"

namespace Interface {

/// The interfaces of the router, by identifier.
class ZAN_EXPORT AllIntfStatusDir : public Zan::NamedEntity {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId intfStatusId = 130;

  explicit AllIntfStatusDir(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~AllIntfStatusDir() override;

  /// The interface under an identifier, or null. Owned by the directory.
  IntfStatus* intfStatus(Lumo::IntfId id) const { return intfStatus_.lookup(id); }
  U32 intfStatusCount() const { return intfStatus_.size(); }
  Zan::HashMap<IntfStatus, Lumo::IntfId>::IteratorConst intfStatusIterator() const;
  /// Adds the interface if it is absent and returns it; an existing one keeps its name.
  Zan::Ptr<IntfStatus> intfStatusIs(Lumo::IntfId id, const Zan::Name& name);
  void intfStatusDel(Lumo::IntfId id) { intfStatus_.erase(id); }
  /// Tells the watchers that any interface may have come or gone.
  void intfStatusNotifyAll() const;

  /// Every interface that comes or goes.
  const Zan::Taps<Lumo::IntfId>& taps() const { return taps_; }

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  friend class IntfStatus;
  void intfStatusLeft(IntfStatus& member);

  Zan::HashMap<IntfStatus, Lumo::IntfId> intfStatus_;
  Zan::Taps<Lumo::IntfId> taps_;
};

class ZAN_EXPORT AllIntfStatusDir::NotifieeConst : public Zan::NotifieeOf<AllIntfStatusDir> {
 public:
  virtual void onIntfStatus(const Lumo::IntfId&) { onCollectionNotification(Zan::literal<"intfStatus">()); }
  virtual void onIntfStatuszanImmediate() { onCollectionNotification(Zan::literal<"intfStatus">()); }
  virtual void onIntfStatus() { onCollectionNotification(Zan::literal<"intfStatus">()); }
};

}  // namespace Interface
