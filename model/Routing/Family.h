#pragma once

#include <string_view>

#include "Lumo/AddressFamily.h"
#include "Lumo/Ip6Prefix.h"
#include "Lumo/Prefix.h"
#include "Zan/Export.h"

namespace Routing {

/// What tells the IPv4 records from the IPv6 ones.
struct ZAN_EXPORT Family4 {
  using Addr = Lumo::IpAddr;
  using Prefix = Lumo::Prefix;
  static constexpr std::string_view prefixName = "Lumo::Prefix";
  static constexpr std::string_view viaName = "Routing::Fib::Via";
  static constexpr std::string_view routeName = "Routing::Multicast::Rib::Route";
  static constexpr std::string_view statusName = "Routing::Multicast::Rib::Status";
  static constexpr std::string_view shadowName = "Routing::Multicast::Shadow::Status";
};

struct ZAN_EXPORT Family6 {
  using Addr = Lumo::Ip6Addr;
  using Prefix = Lumo::Ip6Prefix;
  static constexpr std::string_view prefixName = "Lumo::Ip6Prefix";
  static constexpr std::string_view viaName = "Routing6::Fib::Via";
  static constexpr std::string_view routeName = "Routing6::Multicast::Rib::Route";
  static constexpr std::string_view statusName = "Routing6::Multicast::Rib::Status";
  static constexpr std::string_view shadowName = "Routing6::Multicast::Shadow::Status";
};

}  // namespace Routing
