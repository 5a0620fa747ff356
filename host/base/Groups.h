#pragma once

#include "Lumo/Prefix.h"

namespace host {

/// The addresses of groups (RFC 5771): none of them is a source or a neighbour.
inline constexpr Lumo::Prefix groups(Lumo::IpAddr::fromHost(0xE0000000), 4);

}  // namespace host
