#pragma once

#include "KernelState.h"

namespace host::kernel {
class Mirror;
}

namespace host {

/// Reads links, IPv4 addresses and the IPv4 unicast routes of the main table from the kernel this process
/// runs on. Needs no privilege. Throws Error.
KernelState readKernel();

/// Reads the same from a folder with what `ip -j` saved: link.json, addr.json, route.json and, where it is
/// there, nexthop.json. Throws Error, naming file, place and what was expected.
KernelState readIpJson(const std::string& folder);

/// What a mirror knows of IPv4, its best routes with their usable IPv4 next hops.
KernelState stateOf(const kernel::Mirror& mirror);

}  // namespace host
