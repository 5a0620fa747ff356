#pragma once

#include <optional>
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

/// A configured multicast route: `ip mroute PREFIX {NEXTHOP|INTERFACE [neighbor ADDRESS]}
/// [PREFERENCE]`.
struct MrouteLine {
  Lumo::Prefix prefix;
  std::variant<Lumo::IpAddr, std::string> rpf;  ///< next hop address or interface name
  U8 preference;                                ///< 1 to 255
  U64 origin;                                   ///< where it was written, for `Configuration::placeOf`
  Lumo::IpAddr neighbor{};  ///< who sends by that interface, for those who must know; 0.0.0.0: not named
};

/// Who is to use the routes of an exported table.
enum class ExportFor : U8 {
  frr,    ///< a daemon that looks for PIM neighbours among its gateways
  kernel  ///< programs that ask the kernel for routes
};

/// The kernel table that the MRIB is written into.
struct ExportTable {
  U32 table = 0;
  ExportFor user = ExportFor::frr;
  friend bool operator==(const ExportTable&, const ExportTable&) = default;
};

/// What a configuration says. A value: whoever holds it may change it.
struct Configuration {
  std::vector<MrouteLine> mroutes;  ///< each of prefix, RPF and preference once, in the order as written
  LookupMode lookupMode = LookupMode::mribThenUrib;
  std::optional<ExportTable> exportTable;
  std::vector<std::string> files;  ///< all that were read, in this order
  bool includes = false;           ///< others, though there may be none

  /// "FILE:LINE", escaped, or "the command line" for what was configured by hand.
  std::string placeOf(U64 origin) const;
};

}  // namespace host
