#include "mrib/Agent.h"

#include <algorithm>

#include "inside/AgentImpl.h"

namespace mrib {

Agent::Agent() : Agent(Options{}) {}
Agent::Agent(const Options& options) : impl_(std::make_unique<Impl>(options)) {}
Agent::~Agent() = default;

/// What can be worked with.
Agent::Impl& Agent::whole() const {
  if (impl_->isHalf()) impl_ = impl_->madeAnew();
  return *impl_;
}

CommitResult Agent::commit(const Transaction& t) {
  return whole().commit(t);
}

SettleResult Agent::settle() {
  return whole().settle();
}

bool Agent::mayDiffer() const {
  return impl_->mayDiffer;
}

bool Agent::lacksMemory() const {
  return impl_->isHalf();
}

U64 Agent::healed() const {
  return impl_->healed;
}

U64 Agent::generation() const {
  return impl_->generation;
}

const Route* Agent::rpf(Lumo::IpAddr source) const {
  impl_->published.prefetchMatch(source);
  const EngineRun* run = impl_->run.get();
  const int length =
      run && !impl_->isAhead ? run->trie().matchLength(source) : impl_->published.matchLength(source);
  return length < 0 ? nullptr : impl_->published.find({source, static_cast<U32>(length)});
}

const Route* Agent::route(const Lumo::Prefix& prefix) const {
  return impl_->published.find(prefix);
}

Routes Agent::routes() const {
  return impl_->published.all();
}

const Link* Agent::link(U32 index) const {
  const Intf* intf = whole().interfaces.find(index);
  return intf && intf->exists() ? &intf->link : nullptr;
}

std::vector<Link> Agent::links() const {
  std::vector<Link> links;
  for (const auto& [index, intf] : whole().interfaces.all()) {
    if (intf.exists()) links.push_back(intf.link);
  }
  return links;
}

std::vector<Mroute> Agent::mroutes() const {
  return whole().mroutes();
}

std::vector<Unresolved> Agent::unresolved() const {
  return whole().unresolved();
}

std::vector<Resolution> Agent::resolutions(const Lumo::Prefix& prefix) const {
  return whole().resolutions(prefix);
}

std::vector<Mroute> Agent::circle(const Mroute& heldBack) const {
  return whole().circle(heldBack);
}

U64 Agent::subscribe(Listener listener) {
  impl_->subscriptions.push_back({++impl_->lastSubscription, std::move(listener)});
  return impl_->lastSubscription;
}

/// One that unsubscribes while listeners are told leaves its place, so that the others keep theirs.
void Agent::unsubscribe(U64 subscription) {
  auto& all = impl_->subscriptions;
  const auto at = std::find_if(all.begin(), all.end(), [&](const auto& s) { return s.id == subscription; });
  if (at == all.end()) return;
  at->id = 0;
  if (!impl_->telling) all.erase(at);
}

const Zan::Ptr<Routing::Multicast::Rib::MribSm>& Agent::engine() const {
  return whole().run->mribSm();
}

}  // namespace mrib
