#pragma once

#include "Routing/Multicast/Rib/RouteKeyPrefix.h"

namespace Routing6::Multicast::Rib {

using Routing::Multicast::Rib::RouteKeyPrefix;

}  // namespace Routing6::Multicast::Rib
