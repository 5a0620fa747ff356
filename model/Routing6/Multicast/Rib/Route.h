#pragma once

#include "Routing/Multicast/Rib/Route.h"

namespace Routing6::Multicast::Rib {

using Route = Routing::Multicast::RouteOf<Routing::Family6>;

}  // namespace Routing6::Multicast::Rib
