#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ConfigFile.h"
#include "KernelState.h"

namespace host {

/// A circle of configured prefixes that could resolve through each other, spelled out with the lines, or
/// nothing. There is an edge from a prefix to every other configured prefix that covers the address of one of
/// its RPFs, at any preference; an interface RPF has its interface's address. The engine follows dependants
/// without a guard, so a configuration with a circle must never reach it. (A prefix that covers its own RPF
/// is no circle: the engine does not resolve a route through itself.)
std::optional<std::string> findCircle(const std::vector<MrouteLine>& lines, const KernelState& kernel);

/// What an operator should know of a configuration that is accepted all the same.
std::vector<std::string> warningsFor(const std::vector<MrouteLine>& lines, const KernelState& kernel);

}  // namespace host
