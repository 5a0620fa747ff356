#pragma once

#include <cstddef>

#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Zan {

/// The pool that counted objects come from: one free list for every 16 bytes of size, filled from 64 KiB
/// chunks that live until the process ends. An object costs its size rounded up to 16, without a header.
/// Safe to use from several threads. Under AddressSanitizer it hands every request to the system, so that
/// use after release is found.
class ZAN_EXPORT ZanMemPool {
 public:
  static void* allocate(std::size_t size);
  static void release(void* object, std::size_t size) noexcept;
  /// Bytes in objects now handed out, rounded as the pool rounds them.
  static U64 bytesInUse();
  /// Bytes in the chunks, which `bytesInUse` is part of.
  static U64 bytesHeld();
};

}  // namespace Zan
