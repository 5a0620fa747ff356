#include "Clock.h"

#include <chrono>

namespace host {

Nanos monotonicNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<Nanos>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

}  // namespace host
