#pragma once

#include "Routing/Multicast/Rib/Rpf.h"

namespace Routing6::Multicast::Rib {

using Routing::Multicast::Rib::Rpf;

}  // namespace Routing6::Multicast::Rib
