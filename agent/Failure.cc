#include "inside/AgentImpl.h"

// A commit or a settling that has failed half way, which is to say that memory has run out. What is published
// is put back at once, for which there is always memory; all else is made anew when it is needed next, from
// what the agent was told before.

namespace mrib {

void Agent::Impl::failed(std::vector<Change>& changes, std::unique_ptr<Plan> plan) {
  unpublish(changes);
  if (plan && plan->begun) halfDone_ = std::move(plan);
  run.reset();
}

Transaction Agent::Impl::toldBefore() const {
  Transaction told = halfDone_ ? halfDone_->before : Transaction();
  std::set<Lumo::Prefix> moved;
  for (const Unicast::Move& move : halfDone_ ? halfDone_->moves : std::vector<Unicast::Move>()) {
    if (move.op) moved.insert(move.prefix);
  }
  for (const auto& [index, intf] : interfaces.all()) {
    if (!halfDone_ || !halfDone_->links.contains(index)) Interfaces::tell(index, intf, told);
  }
  unicast.tellAll([&](const Lumo::Prefix& prefix) { return !moved.contains(prefix); }, told);
  config.tellBefore(told);
  return told;
}

std::unique_ptr<Agent::Impl> Agent::Impl::madeAnew() {
  auto anew = std::make_unique<Impl>(options);
  const CommitResult result = anew->commit(toldBefore());
  ZAN_ASSERT_TEXT(result.accepted, "what an agent has taken once it takes again");
  std::swap(anew->published, published);
  subscriptions.swap(anew->subscriptions);
  anew->lastSubscription = lastSubscription;
  anew->generation = generation;
  anew->healed = healed;
  anew->mayDiffer = anew->isAhead = mayDiffer;
  return anew;
}

}  // namespace mrib
