#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "Zan/Export.h"
#include "Zan/Hash.h"
#include "Zan/Types.h"

namespace Lumo {

/// Identifies an interface by number (a host on Linux uses the kernel's interface index). 0 is no interface.
class ZAN_EXPORT IntfId {
 public:
  constexpr IntfId() = default;
  constexpr explicit IntfId(U32 value) : value_(value) {}

  constexpr U32 value() const { return value_; }
  U64 hash() const { return Zan::mix(value_, 1); }
  std::string stringValue() const { return std::to_string(value_); }

  friend constexpr auto operator<=>(IntfId, IntfId) = default;

 private:
  U32 value_ = 0;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, IntfId id);

}  // namespace Lumo
