#pragma once

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

}  // namespace Routing::Fib
