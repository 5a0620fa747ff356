#pragma once

#include "Routing/Fib/Via.h"

namespace Routing6::Fib {

using Via = Routing::Fib::ViaOf<Routing::Family6>;

}  // namespace Routing6::Fib
