#pragma once

#include <string>
#include <vector>

#include "Configuration.h"
#include "KernelState.h"

namespace host {

/// What an operator should know of a configuration that is accepted all the same.
std::vector<std::string> warningsFor(const std::vector<MrouteLine>& lines, const KernelState& kernel);

}  // namespace host
