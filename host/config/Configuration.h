#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Lumo/IpAddr.h"
#include "Lumo/Prefix.h"

namespace host {

/// Which table answers a question about a source, as routers name it (`ip multicast rpf-lookup-mode`).
enum class LookupMode : U8 {
  mribOnly,       ///< the MRIB alone
  mribThenUrib,   ///< the unicast table where the MRIB has no route
  uribOnly,       ///< the unicast table alone
  longerPrefix,   ///< the longer match of both; the MRIB's when they are equally long
  lowerDistance,  ///< the lower preference of both; the MRIB's when they are equal
};

/// A configured multicast route: `ip mroute PREFIX {NEXTHOP|INTERFACE} [PREFERENCE]`.
struct MrouteLine {
  Lumo::Prefix prefix;
  std::variant<Lumo::IpAddr, std::string> rpf;  ///< next hop address or interface name
  U8 preference;                                ///< 1 to 255
  U64 origin;                                   ///< where it was written, for `Configuration::placeOf`
};

/// What a configuration says. A value: whoever holds it may change it.
struct Configuration {
  std::vector<MrouteLine> mroutes;  ///< each of prefix, RPF and preference once, in the order as written
  LookupMode lookupMode = LookupMode::mribThenUrib;
  std::vector<std::string> files;  ///< all that were read, in this order

  /// "FILE:LINE", escaped, or "the command line" for what was configured by hand.
  std::string placeOf(U64 origin) const;
};

}  // namespace host
