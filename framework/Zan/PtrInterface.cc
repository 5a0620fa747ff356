#include "Zan/PtrInterface.h"

#include "Zan/ZanType.h"

namespace Zan {

PtrInterface::~PtrInterface() = default;

const ZanType* PtrInterface::fwkType() const {
  static const ZanType type("Zan::PtrInterface", nullptr);
  return &type;
}

void PtrInterface::flagIs(U32 which, bool on) {
  if (!isCounted() || ((countWord() & which) == which) == on) return;
  if (singleThreaded()) {
    word_.store(on ? countWord() | which : countWord() & ~which, std::memory_order_relaxed);
  } else if (on) {
    word_.fetch_or(which, std::memory_order_relaxed);
  } else {
    word_.fetch_and(~which, std::memory_order_relaxed);
  }
}

}  // namespace Zan
