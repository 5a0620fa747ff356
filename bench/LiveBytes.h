#pragma once

#include "Zan/Types.h"

/// Bytes that the program has from operator new and not yet given back, as it asked for them: the same after
/// the same work, whatever the allocator makes of it.
U64 liveBytes();
