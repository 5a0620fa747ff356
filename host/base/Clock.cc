#include "Clock.h"

#include <chrono>

namespace host {

namespace {

template <class Clock>
Nanos read() {
  const auto now = Clock::now().time_since_epoch();
  return static_cast<Nanos>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

}  // namespace

Nanos monotonicNow() {
  return read<std::chrono::steady_clock>();
}

Nanos wallNow() {
  return read<std::chrono::system_clock>();
}

}  // namespace host
