#pragma once

#include <cstring>

#include "Zan/Types.h"

namespace Zan {

/// Mixes two words into one: a 128-bit product folded onto itself, so that every input bit reaches every
/// output bit in one multiplication. After "wyhash" by Wang Yi.
inline U64 mix(U64 a, U64 b) {
  __extension__ using U128 = unsigned __int128;
  const U128 product = static_cast<U128>(a ^ 0x9E3779B97F4A7C15u) * (b ^ 0xE7037ED1A0B428DBu);
  return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

/// Eight bytes at `p` as they lie in memory.
inline U64 load64(const void* p) {
  U64 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace Zan
