#pragma once

#include <string>
#include <vector>

#include "mrib/Agent.h"

namespace host {

/// Why a configured route does not resolve, in a sentence without a full stop: as the agent says it, but for
/// stand-ins of interfaces, which nobody needs to know of.
std::string whyOf(const mrib::Unresolved& unresolved);

/// The errors among `after` that were none before.
std::vector<mrib::Unresolved> newErrors(const std::vector<mrib::Unresolved>& before,
                                        std::vector<mrib::Unresolved> after);

}  // namespace host
