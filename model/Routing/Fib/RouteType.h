#pragma once

#include <ostream>

#include "Zan/Types.h"

namespace Routing::Fib {

/// Where a route of the unicast FIB, or of the MRIB, comes from.
enum class RouteType : U8 {
  unknown = 0,
  drop = 1,
  receive = 2,
  ipStatic = 3,
  multicastStatic = 4,  ///< an MRIB route made from configuration
  igp = 5,
  egp = 6,
  connected = 7,  ///< a directly connected subnet
};

/// The type's name, "unknown" for a value that is none of them.
constexpr const char* name(RouteType type) {
  switch (type) {
    case RouteType::unknown:
      break;
    case RouteType::drop:
      return "drop";
    case RouteType::receive:
      return "receive";
    case RouteType::ipStatic:
      return "ipStatic";
    case RouteType::multicastStatic:
      return "multicastStatic";
    case RouteType::igp:
      return "igp";
    case RouteType::egp:
      return "egp";
    case RouteType::connected:
      return "connected";
  }
  return "unknown";
}
inline std::ostream& operator<<(std::ostream& out, RouteType type) {
  return out << name(type);
}

}  // namespace Routing::Fib
