#include "Zan/PtrInterface.h"

#include "Zan/ZanType.h"

namespace Zan {

PtrInterface::~PtrInterface() = default;

void PtrInterface::newSharedReference() const {
  const U32 before = word_.fetch_add(1, std::memory_order_relaxed);
  if ((before & countMask) >= countMask - 1) refuseReference();
}

void PtrInterface::deleteSharedReference() const {
  const U32 before = word_.fetch_sub(1, std::memory_order_acq_rel);
  if ((before & countMask) == 1) handleZeroRef();
}

void PtrInterface::refuseReference() {
  assertionFailed({"references() < countMask", __FILE__, __LINE__, __PRETTY_FUNCTION__});
}

const ZanType* PtrInterface::fwkType() const {
  static const ZanType type("Zan::PtrInterface", nullptr);
  return &type;
}

}  // namespace Zan
