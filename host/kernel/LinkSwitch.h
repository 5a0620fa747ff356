#pragma once

#include <functional>
#include <string>

namespace host::kernel {

/// Whether a switch of links (net.ipv4.conf.*.NAME) is on for one: for all, or for this one.
using LinkSwitch = std::function<bool(const std::string& name, const std::string& link)>;

/// As this machine's kernel has it; off where /proc/sys is hidden from this process.
bool isSwitchedOn(const std::string& name, const std::string& link);

}  // namespace host::kernel
