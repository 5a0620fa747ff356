#pragma once

#include "Routing/Multicast/Rib/PrefixSet.h"

namespace Routing6::Multicast::Rib {

using Routing::Multicast::Rib::PrefixSet;

}  // namespace Routing6::Multicast::Rib
