#pragma once

#include "Routing/Multicast/Shadow/Status.h"

namespace Routing6::Multicast::Shadow {

using Status = Routing::Multicast::ShadowStatusOf<Routing::Family6>;

}  // namespace Routing6::Multicast::Shadow
