#pragma once

#include "Zan/Entity.h"
#include "Zan/Export.h"

namespace Interface {

/// The configuration of the router's interfaces. The MRIB passes it on and reads nothing of it.
class ZAN_EXPORT AllIntfConfigDir : public Zan::NamedEntity {
 public:
  explicit AllIntfConfigDir(Zan::Name name) : NamedEntity(std::move(name)) {}
  const Zan::ZanType* fwkType() const override;
};

}  // namespace Interface
