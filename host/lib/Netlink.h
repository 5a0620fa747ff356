#pragma once

#include "KernelState.h"

namespace host {

/// Reads links, IPv4 addresses and the IPv4 unicast routes of the main table from the kernel this process
/// runs on (RTNETLINK dumps; needs no privilege). A dump that a change interrupted is repeated. Throws Error.
KernelState readKernel();

}  // namespace host
