#include "Target.h"
#include "agent/AgentDriver.h"

// Reads the bytes as transactions on an agent, which is judged as its random test judges it.

namespace {

void run(fuzz::Bytes bytes) {
  if (bytes.empty()) return;
  constexpr U32 rebuildFrom[] = {4, 12, 100000};
  agentrandom::Driver driver(fuzz::Dice(bytes.subspan(1)), rebuildFrom[bytes[0] % 3]);
  for (U32 step = 0; step < 12 && !driver.isOver(); ++step)
    fuzz::must(driver.step(bytes[0] % 4 != 0).empty());
}

const fuzz::Target target("agent", run);

}  // namespace
