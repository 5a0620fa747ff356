#pragma once

namespace Zan {

/// The current time in seconds since 1970-01-01 00:00 UTC.
double now();

}  // namespace Zan
