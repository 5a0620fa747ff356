#pragma once

#include "Lumo/IntfId.h"
#include "Zan/Entity.h"
#include "Zan/Export.h"
#include "Zan/HashMap.h"

namespace Interface {

/// The status of one interface: its identifier (the key) and its name. Vias refer to the object itself, so
/// an interface that is deleted and made again is another one to them.
class ZAN_EXPORT IntfStatus : public Zan::NamedEntity, public Zan::HashMember<IntfStatus> {
 public:
  IntfStatus(Lumo::IntfId intfId, Zan::Name name) : NamedEntity(std::move(name)), intfId_(intfId) {}

  Lumo::IntfId intfId() const { return intfId_; }
  Lumo::IntfId fwkKey() const { return intfId_; }
  void zanLeft();
  const Zan::ZanType* fwkType() const override;

 private:
  Lumo::IntfId intfId_;
};

}  // namespace Interface
