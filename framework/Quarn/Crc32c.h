#pragma once

#include <array>

#include "Zan/Types.h"

#ifdef __SSE4_2__
#include <nmmintrin.h>
#endif

namespace Quarn {

/// One step of CRC-32C (Castagnoli, RFC 3720) over the eight bytes of `word`, lowest first.
inline U32 crc32cStep(U32 crc, U64 word) {
#ifdef __SSE4_2__
  return static_cast<U32>(_mm_crc32_u64(crc, word));
#else
  static constexpr auto table = [] {
    std::array<U32, 256> t{};
    for (U32 i = 0; i < 256; ++i) {
      U32 v = i;
      for (int bit = 0; bit < 8; ++bit) v = v >> 1 ^ (0x82F63B78u & (0u - (v & 1)));
      t[i] = v;
    }
    return t;
  }();
  for (int i = 0; i < 8; ++i) crc = crc >> 8 ^ table[(crc ^ word >> 8 * i) & 0xFF];
  return crc;
#endif
}

/// CRC-32C of `count` words.
inline U32 crc32c(const U64* words, U32 count, U32 seed = 0xFFFFFFFFu) {
  for (U32 i = 0; i < count; ++i) seed = crc32cStep(seed, words[i]);
  return ~seed;
}

}  // namespace Quarn
