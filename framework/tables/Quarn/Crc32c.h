#pragma once

#include <array>

#include "Zan/Types.h"

#ifdef __SSE4_2__
#include <nmmintrin.h>
#endif

namespace Quarn {

/// For CRC-32C (Castagnoli, RFC 3720), bits reversed: `crc32cTables[k][b]` is what byte `b` becomes after `k`
/// more bytes of zero, so that the eight bytes of a word can be looked up independently of each other.
inline constexpr auto crc32cTables = [] {
  std::array<std::array<U32, 256>, 8> t{};
  for (U32 byte = 0; byte < 256; ++byte) {
    U32 v = byte;
    for (int bit = 0; bit < 8; ++bit) v = v >> 1 ^ (0x82F63B78u & (0u - (v & 1)));
    t[0][byte] = v;
  }
  for (std::size_t k = 1; k < 8; ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const U32 v = t[k - 1][byte];
      t[k][byte] = v >> 8 ^ t[0][v & 0xFF];
    }
  }
  return t;
}();

/// One step of CRC-32C over the eight bytes of `word`, lowest first, on any processor.
constexpr U32 crc32cTableStep(U32 crc, U64 word) {
  word ^= crc;
  U32 next = 0;
  for (std::size_t i = 0; i < 8; ++i) next ^= crc32cTables[7 - i][word >> 8 * i & 0xFF];
  return next;
}

/// The same step by the processor's own instruction, where the build may use it.
inline U32 crc32cStep(U32 crc, U64 word) {
#ifdef __SSE4_2__
  return static_cast<U32>(_mm_crc32_u64(crc, word));
#else
  return crc32cTableStep(crc, word);
#endif
}

/// CRC-32C of `count` words. To go on from the CRC `c` of what precedes them, pass `~c` as the seed.
inline U32 crc32c(const U64* words, U32 count, U32 seed = 0xFFFFFFFFu) {
  for (U32 i = 0; i < count; ++i) seed = crc32cStep(seed, words[i]);
  return ~seed;
}

}  // namespace Quarn
