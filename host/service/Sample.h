#pragma once

#include <string>

#include "Router.h"

namespace host {

/// A configuration that shows something on this router: a route through a neighbour with a backup by
/// interface, and a route that resolves through the first one. Empty when there is no connected subnet with
/// room for a neighbour, or when nothing of the kind fits.
std::string sampleConfiguration(const Router& router);

}  // namespace host
