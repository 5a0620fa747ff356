#include "inside/AgentImpl.h"

namespace mrib {

/// The fresh engine gets the prefixes targets first, so that each is final before anything resolves through
/// it.
SettleResult Agent::Impl::settle() {
  if (busy) return {generation, {}};
  const Busy guard(busy);
  std::unique_ptr<EngineRun> present;
  SettleResult result;
  try {
    present = std::exchange(run, freshRun());
    publishAll(result.changes);
  } catch (...) {
    failed(result.changes, nullptr);
    throw;
  }
  // One that is published alike may yet be made up of interfaces that are no more.
  if (result.changes.empty() && !mayDiffer) run = std::move(present);
  mayDiffer = false;
  if (!result.changes.empty()) ++generation;
  healed += result.changes.size();
  result.generation = generation;
  if (!result.changes.empty()) tell({generation, result.changes, true});
  return result;
}

}  // namespace mrib
