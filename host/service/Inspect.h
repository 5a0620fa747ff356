#pragma once

#include <string>
#include <vector>

#include "Zan/GenericIf.h"

namespace host {

/// What to look at, and what to do to it first.
struct InspectRequest {
  std::string path;                ///< "MribSm/routeResolver/mribForPrefix[20.0.0.0/24]"; empty for the root
  std::vector<std::string> sets;   ///< "NAME=VALUE"
  std::vector<std::string> calls;  ///< "NAME ARGUMENT=VALUE ..."
  unsigned depth = 2;              ///< objects within objects that are shown
  bool json = false;
};

/// Walks the objects below `root`, named `rootName`, through reflection alone. Throws an `Error` that names
/// what is wrong and the nearest right name.
std::string inspect(const Zan::GenericIf& root, const std::string& rootName, const InspectRequest& request);

}  // namespace host
