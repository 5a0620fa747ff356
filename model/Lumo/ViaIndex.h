#pragma once

#include "Zan/Exception.h"
#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Lumo {

/// Index into a FEC's via array, 0 to 127. Any other value is refused with a range exception.
class ZAN_EXPORT ViaIndex {
 public:
  static constexpr U32 min = 0;
  static constexpr U32 max = 127;

  explicit ViaIndex(U32 value) : value_(value) {
    if (value > max) {
      Zan::throwRangeException("ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
    }
  }
  U32 value() const { return value_; }

 private:
  U32 value_;
};

}  // namespace Lumo
