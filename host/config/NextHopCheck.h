#pragma once

#include <span>
#include <string>
#include <vector>

#include "ConfigError.h"
#include "Configuration.h"

namespace host {

/// An address that the router has, with the length of its subnet.
struct OwnSubnet {
  Lumo::IpAddr address;
  U32 length = 0;  ///< 0 to 32
  std::string interface;
};

/// The lines whose next hop is no neighbour with these addresses: it is the router's own, or the network or
/// broadcast address of a connected subnet. In the order of the lines.
std::vector<ConfigError> impossibleNextHops(const Configuration& configuration,
                                            std::span<const OwnSubnet> subnets);

}  // namespace host
