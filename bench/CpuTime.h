#pragma once

#include <ctime>

/// Of this thread.
inline double cpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

/// Seconds of CPU that `step` takes: it never waits, and other work on the machine is none of its cost.
template <class Step>
double timed(Step step) {
  const double start = cpuSeconds();
  step();
  return cpuSeconds() - start;
}
