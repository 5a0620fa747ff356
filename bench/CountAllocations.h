#pragma once

#include "Zan/Types.h"

/// How often the program has called operator new.
U64 allocations();
