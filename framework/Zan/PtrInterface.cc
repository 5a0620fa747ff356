#include "Zan/PtrInterface.h"

#include "Zan/ZanType.h"

namespace Zan {

PtrInterface::~PtrInterface() = default;

const ZanType* PtrInterface::fwkType() const {
  static const ZanType type("Zan::PtrInterface", nullptr);
  return &type;
}

}  // namespace Zan
