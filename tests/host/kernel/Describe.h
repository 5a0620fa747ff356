#pragma once

#include <string>
#include <vector>

#include "Mirror.h"

/// What a mirror knows, a line a record, and what it means, a line a prefix: in an order of their own, so
/// that two mirrors that agree have the same lines.
std::vector<std::string> describe(const host::kernel::Mirror& mirror);

std::string describe(const host::kernel::Link& link);
std::string describe(const host::kernel::Address& address);
std::string describe(const host::kernel::NextHop& nextHop);
std::string describe(const host::kernel::Route& route);

/// One answer: "10.0.0.0/8 gateway 10.0.0.2@2 10.0.0.3@3".
std::string describe(const host::kernel::IpGenPrefix& prefix, const host::kernel::Answer& answer);

/// The lines that only one of them has, for people; empty when they agree.
std::string difference(const std::vector<std::string>& a, const std::vector<std::string>& b);
