#pragma once

#include "Routing/Multicast/Rib/Config.h"

namespace Routing6::Multicast::Rib {

using Routing::Multicast::Rib::Config;

}  // namespace Routing6::Multicast::Rib
