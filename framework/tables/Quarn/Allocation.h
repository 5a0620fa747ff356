#pragma once

#include <cstddef>

#include "Zan/Types.h"

namespace Quarn {

/// Whether the machine has memory for `count` times `bytesEach`. To be asked before it is taken: when there
/// is not enough, the system ends other processes to find it.
bool isMemoryFor(U64 count, U64 bytesEach);

/// Gives a file in memory its size, and all of its memory at once, so that no page is missing when it is
/// touched. False, with `errno`, when there is none, or a limit on the size of files is in the way.
bool allocate(int fd, std::size_t bytes);

}  // namespace Quarn
