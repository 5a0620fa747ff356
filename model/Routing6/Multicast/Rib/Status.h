#pragma once

#include "Routing/Multicast/Rib/Status.h"

namespace Routing6::Multicast::Rib {

using Status = Routing::Multicast::StatusOf<Routing::Family6>;

}  // namespace Routing6::Multicast::Rib
