#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "ConfigError.h"
#include "Configuration.h"

namespace host {

/// A configuration with commands applied to it, in their order: what a file may hold but `include`, and
/// `no ip mroute PREFIX {NEXTHOP|INTERFACE [neighbor ADDRESS]} [PREFERENCE]` (without a preference: at all of
/// them; without a neighbour: whatever it is), `no ip multicast rpf-lookup-mode` and `no ip multicast
/// export-table`. To add what is there, or to take away what is not, is an error. Throws ConfigurationError,
/// which names the commands, and then none is applied.
Configuration edited(const Configuration& before, std::span<const std::string> commands);

/// What distinguishes two configurations; where lines were written, and their order, does not.
struct Difference {
  struct Preference {
    MrouteLine before;
    MrouteLine after;  ///< the same prefix and RPF, another preference or neighbour
  };
  std::vector<MrouteLine> added;
  std::vector<MrouteLine> gone;
  std::vector<Preference> changed;
  std::optional<std::pair<LookupMode, LookupMode>> lookupMode;  ///< before and after, if they differ

  bool empty() const { return added.empty() && gone.empty() && changed.empty() && !lookupMode; }
};

/// All in order of prefix and RPF. Costs two look-ups a line, and a sort of what differs.
Difference differenceOf(const Configuration& before, const Configuration& after);

}  // namespace host
