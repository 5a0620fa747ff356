#pragma once

#include "Zan/Export.h"

namespace Zan {

/// The current time in seconds since 1970-01-01 00:00 UTC.
ZAN_EXPORT double now();

}  // namespace Zan
