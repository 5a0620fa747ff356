#pragma once

#include "Configuration.h"
#include "Router.h"
#include "VirtualKernel.h"

/// What a virtual kernel and a configuration come to, straight from their records: no history enters into it.
struct Truth {
  std::vector<std::string> lines;  ///< of both tables, in order

  Truth(VirtualKernel& kernel, const host::Configuration& configuration, bool needsCarrier);
  /// The same of a router.
  explicit Truth(const host::Router& router);
};
