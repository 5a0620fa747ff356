#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Values.h"

/// The names that `ip` gives to the kernel's numbers, and back. A number in text (also 0x...) is always taken
/// where a name is.
namespace host::kernel {

std::string protocolName(U8 protocol);
/// By the names as shipped, then by this machine's /etc/iproute2/rt_protos.
std::optional<U8> protocolNumber(std::string_view name);
std::optional<U8> scopeNumber(std::string_view name);
std::optional<U8> tosNumber(std::string_view name);
std::optional<RouteType> routeTypeNumber(std::string_view name);
std::optional<U8> operStateNumber(std::string_view name);
/// What a link of a kind, as IFLA_INFO_KIND and `ip` call it, does with the one below it.
Link::Follows followsOf(std::string_view kind);
/// A table by number or by name: local, main, default, or one of this machine's /etc/iproute2/rt_tables.
std::optional<U32> tableNumber(std::string_view name);

}  // namespace host::kernel
