#pragma once

#include "Configuration.h"
#include "Router.h"
#include "VirtualKernel.h"

/// What a virtual kernel and a configuration come to, straight from their records: no history enters into it.
struct Truth {
  std::map<host::kernel::IpGenPrefix, host::kernel::Answer> unicast;
  std::map<Lumo::Prefix, std::string> mrib;

  Truth(VirtualKernel& kernel, const host::Configuration& configuration, bool needsCarrier);
  /// The same of a router.
  explicit Truth(const host::Router& router);
  /// The lines that only one of them has, for people.
  static std::string difference(const Truth& expected, const Truth& actual);
};
