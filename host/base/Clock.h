#pragma once

#include "Zan/Types.h"

namespace host {

/// Monotonic time in nanoseconds. Nearly everything is handed it as an argument, so that a simulation can.
using Nanos = U64;

constexpr Nanos milliseconds(U64 n) {
  return n * 1'000'000;
}
constexpr Nanos seconds(U64 n) {
  return n * 1'000'000'000;
}

/// The clocks of this machine; that on the wall since 1970. Only programs read them.
Nanos monotonicNow();
Nanos wallNow();

}  // namespace host
