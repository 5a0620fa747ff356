#include "Zan/PtrInterface.h"

#include "Zan/ZanType.h"

namespace Zan {

PtrInterface::~PtrInterface() {
  // One that was not born to a reference (on the stack, or in a constructor that throws) still has its own.
  ZAN_ASSERT_TEXT(!isCounted() || references() <= (isDying() ? 0u : 1u), "no reference outlives its object");
}

/// Comes here once more when the object, while it is being destroyed, drops a reference to itself.
void PtrInterface::handleZeroRef() const {
  if (isDying()) return;
  word_.store(countWord() | dyingFlag, std::memory_order_relaxed);  // nobody else knows the object now
  delete this;
}

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
