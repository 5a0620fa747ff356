#pragma once

#include "Zan/Types.h"

/// How often the program has called operator new.
U64 allocations();
/// How many of these it has not given back.
U64 liveAllocations();
