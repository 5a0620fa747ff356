#pragma once

#include <cstdlib>

#include "Zan/Types.h"

/// How many seeds a random test takes: as many as MRIB_SEEDS in the environment says, otherwise its usual
/// number, a quarter of it with sanitizers, which make each of them take five times as long.
inline U64 seedsOr(U64 usual) {
  if (const char* more = std::getenv("MRIB_SEEDS")) return std::strtoull(more, nullptr, 10);
#ifdef MRIB_SANITIZED
  usual /= 4;
#endif
  return usual;
}
