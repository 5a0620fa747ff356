#pragma once

#include "Routing/Multicast/Rib/RouteKeyPreference.h"

namespace Routing6::Multicast::Rib {

using Routing::Multicast::Rib::RouteKeyPreference;

}  // namespace Routing6::Multicast::Rib
