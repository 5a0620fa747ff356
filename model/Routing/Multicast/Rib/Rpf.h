#pragma once

#include <compare>
#include <ostream>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Zan/Export.h"

namespace Routing::Multicast::Rib {

/// What a configured multicast route resolves through: an interface or an address.
struct ZAN_EXPORT Rpf {
  enum class Type : U8 { unknown = 0, intf = 1, addr = 2 };

  static constexpr Type unknown() { return Type::unknown; }
  static constexpr Type intf() { return Type::intf; }
  static constexpr Type addr() { return Type::addr; }

  static Rpf ofIntf(Lumo::IntfId id) { return {Type::intf, id, {}}; }
  static Rpf ofAddr(const Lumo::IpGenAddr& address) { return {Type::addr, {}, address}; }

  Type rpfType = Type::unknown;
  Lumo::IntfId intfId;      ///< for `intf`
  Lumo::IpGenAddr address;  ///< for `addr`

  friend bool operator==(const Rpf&, const Rpf&) = default;
  /// By type, interface, address.
  friend std::strong_ordering operator<=>(const Rpf&, const Rpf&) = default;
  U64 hash() const { return Zan::mix(address.hash() ^ intfId.value(), static_cast<U64>(rpfType)); }
  /// "intf 7", "addr 10.0.0.1" or "unknown".
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& out, const Rpf& rpf) { return out << rpf.stringValue(); }
};

}  // namespace Routing::Multicast::Rib
