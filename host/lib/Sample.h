#pragma once

#include <string>

#include "KernelState.h"

namespace host {

/// A configuration that shows something on a router with this state: for a connected subnet, a route through
/// a neighbour in it with a backup by interface, and a route that resolves through the first one. Empty when
/// there is no connected subnet with room for a neighbour.
std::string sampleConfig(const KernelState& kernel);

/// A small router's state for machines without a connected route.
KernelState sampleCapture();

}  // namespace host
