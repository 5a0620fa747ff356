#pragma once

#include "Configuration.h"
#include "KernelState.h"
#include "mrib/Agent.h"

namespace host {

/// Tells an agent of a kernel's state and of a configuration, in one transaction. Throws Error when the agent
/// refuses it, with all that it says is wrong.
void feed(mrib::Agent& agent, const KernelState& kernel, const std::vector<MrouteLine>& lines);

}  // namespace host
