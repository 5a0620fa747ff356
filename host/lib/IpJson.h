#pragma once

#include <string>

#include "KernelState.h"

namespace host {

/// Reads link.json, addr.json and route.json, the output of `ip -j link`, `ip -j addr` and `ip -j route`,
/// from a folder. Throws Error, naming the file and the place, for anything that is not such output.
KernelState readIpJson(const std::string& folder);

}  // namespace host
