#include <algorithm>

#include "inside/AgentImpl.h"
#include "inside/Texts.h"

// A transaction on its way: staged and checked as a whole, then told to the engine step by step, then what
// has changed is published.

namespace mrib {

using EngineRoute = EngineRun::EngineRoute;

namespace {

CommitResult refused(std::vector<Refusal> refusals, std::size_t count, U64 generation) {
  CommitResult result;
  result.generation = generation;
  result.refusals = std::move(refusals);
  result.refusalCount = count;
  return result;
}

/// Makes a route without next hops what is published of one of the engine.
void copy(const EngineRoute& from, Route& into) {
  into.type = from.routeType();
  into.preference = from.preference();
  const auto& vias = from.viaList();
  for (U32 i = 0; i < vias.size(); ++i) into.nextHops.push_back(nextHopOf(vias[i]));
  if (vias.size() > 1) std::sort(into.nextHops.begin(), into.nextHops.end());
}

bool isConnected(const Unicast::Move& move) {
  return !move.op || (move.op->present && move.op->type == RouteType::connected);
}

/// An engine that has no memory to follow a change goes on as if it had, and would not get far: what it
/// throws goes no further than to who has told it. So this throws it anew, behind each step.
class EachStep {
 public:
  template <class F>
  void operator()(F step) const {
    step();
    if (Zan::notificationsWithoutMemory() != before_) throw std::bad_alloc();
  }

 private:
  const U64 before_ = Zan::notificationsWithoutMemory();
};

}  // namespace

NextHop nextHopOf(const Routing::Fib::Via& via) {
  return {via.hop, via.intfStatus ? via.intfStatus->intfId().value() : 0};
}

std::optional<EngineRun::Rpf> rpfOf(const Mroutes& config, const Line& line) {
  using Rpf = EngineRun::Rpf;
  if (line.held) return std::nullopt;
  if (!line.byName) return Rpf::ofAddr(Lumo::IpGenAddr(Lumo::IpAddr::fromHost(line.rpf)));
  const U32 link = config.name(line.rpf).link;
  return link != 0 ? std::optional(Rpf::ofIntf(Lumo::IntfId(link))) : std::nullopt;
}

Agent::Impl::Impl(const Options& o) : options(o), config(options.originText) {
  run = freshRun();
}

CommitResult Agent::Impl::commit(const Transaction& t) {
  if (busy) return refused({{"a commit or a settling is under way", {}}}, 1, generation);
  if (t.refusalCount() > 0) {
    std::vector<Refusal> refusals = t.refusals();
    for (Refusal& refusal : refusals) nameOrigin(refusal, options.originText);
    return refused(std::move(refusals), t.refusalCount(), generation);
  }
  const Busy guard(busy);
  auto plan = std::unique_ptr<Plan>(new Plan{t, interfaces.stage(t.linkOps())});
  CommitResult result;
  try {
    carryOut(*plan, result);
  } catch (...) {
    failed(result.changes, std::move(plan));
    throw;
  }
  if (result.accepted) tell({generation, result.changes, false});
  return result;
}

void Agent::Impl::carryOut(Plan& plan, CommitResult& result) {
  std::vector<Refusal> refusals = stage(plan);
  if (!refusals.empty()) {
    config.rollBack();
    const std::size_t count = refusals.size();
    result = refused(std::move(refusals), count, generation);
    return;
  }
  result.notes = plan.t.notes();
  plan.begun = true;
  bool differs = false;
  if (isRebuild(plan)) {
    rebuild(plan);
    publishAll(result.changes);
  } else {
    const std::vector<Lumo::Prefix> changed = config.changed();
    follow(plan, changed);
    publishTouched(result.changes);
    differs = mayDiffer || !isRight(changed);
  }
  config.keep();
  result.accepted = true;
  result.generation = ++generation;
  result.mayDiffer = mayDiffer = differs;
}

// ---- Staging ----

std::vector<Refusal> Agent::Impl::stage(Plan& plan) {
  std::vector<Refusal> refusals;
  for (std::string& fault : interfaces.faults(plan.links)) refusals.push_back({std::move(fault), {}});
  if (!refusals.empty()) return refusals;
  for (const auto& [index, intf] : plan.links) {
    if (const Intf* present = interfaces.find(index)) Interfaces::tell(index, *present, plan.before);
  }
  config.stage(plan.t, interfaces);
  stageNames(plan.links);
  std::set<U32> replaced;
  for (const auto& [index, intf] : plan.links) {
    if (interfaces.replaces(index, intf)) replaced.insert(index);
  }
  plan.moves = unicast.plan(plan.t, replaced);
  for (const Unicast::Move& move : plan.moves) {
    if (move.op) unicast.tell(move.prefix, plan.before);
  }
  // A configured route that takes the place of a connected one is put upon it again.
  for (const Unicast::Move& move : plan.moves) {
    if (isConnected(move) || unicast.copied(move.prefix)) config.stageAnew(move.prefix);
  }
  return config.check();
}

/// What RPFs by interface name will find.
void Agent::Impl::stageNames(const Interfaces::Staged& links) {
  for (const auto& [index, intf] : links) {
    const Intf* present = interfaces.find(index);
    if (!present || !present->exists() || present->link.name == intf.link.name) continue;
    const auto hasItNow = [&](const auto& other) { return other.second.link.name == present->link.name; };
    if (std::none_of(links.begin(), links.end(), hasItNow)) config.stageName(present->link.name, 0, {});
  }
  for (const auto& [index, intf] : links) {
    if (intf.exists()) config.stageName(intf.link.name, index, intf.rpfAddress());
  }
}

bool Agent::Impl::isRebuild(const Plan& plan) const {
  const std::size_t changes = config.changedCount() + plan.moves.size();
  return changes >= options.rebuildFrom && changes * 4 >= std::size_t{config.size()} + unicast.size();
}

// ---- To the engine ----

std::span<const EngineRun::Offer> Agent::Impl::offersOf(const Mroutes::Node* node) {
  offers_.clear();
  if (!node) return offers_;
  for (const Line& line : node->lines) {
    const auto rpf = rpfOf(config, line);
    if (!rpf) continue;
    EngineRun::Offer& offer = offers_.emplace_back();
    offer.rpf = *rpf;
    offer.preference = line.preference;
  }
  return offers_;
}

std::unique_ptr<EngineRun> Agent::Impl::freshRun() {
  const EachStep step;
  auto fresh = std::make_unique<EngineRun>(config.size());
  const std::vector<const Mroutes::Node*> nodes = config.inOrder();
  std::vector<const Mroutes::Node*> others;
  constexpr std::size_t lead = 8;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const Mroutes::Node* node = nodes[i];
    if (i + lead < nodes.size()) fresh->expect(nodes[i + lead]->prefix);
    if (node->leaf && !unicast.copied(node->prefix)) {
      step([&] { fresh->configure(node->prefix, offersOf(node)); });
    } else {
      others.push_back(node);
    }
  }
  step([&] { fresh->start(interfaces, unicast); });
  for (const Mroutes::Node* node : others) step([&] { fresh->configure(node->prefix, offersOf(node)); });
  return fresh;
}

/// With a new engine, for which everything is in place before it starts. The old one is gone by then, so that
/// it follows nothing of it.
void Agent::Impl::rebuild(const Plan& plan) {
  run.reset();
  for (const Unicast::Move& move : plan.moves) unicast.withdraw(move);
  interfaces.apply(plan.links);
  for (const Unicast::Move& move : plan.moves) unicast.announce(move, plan.t);
  run = freshRun();
}

/// With the engine that is there: what changes is taken out first, dependants before what they resolve
/// through, and put in anew the other way round.
void Agent::Impl::follow(const Plan& plan, const std::vector<Lumo::Prefix>& changed) {
  const EachStep step;
  run->listenIs(true);
  run->forgetTouched();
  for (auto at = changed.rbegin(); at != changed.rend(); ++at) step([&] { run->unconfigure(*at); });
  for (const Unicast::Move& move : plan.moves) step([&] { unicast.withdraw(move); });
  step([&] { interfaces.apply(plan.links); });
  for (const Unicast::Move& move : plan.moves) step([&] { unicast.announce(move, plan.t); });
  step([&] { restoreConnected(); });
  for (const Lumo::Prefix& prefix : changed)
    step([&] { run->configure(prefix, offersOf(config.find(prefix))); });
  step([&] { run->refresh(); });
  step([&] { restoreConnected(); });
  if (!run->allHeard()) throw std::bad_alloc();
}

/// Announces the connected routes again that went with a configured one of their prefix.
void Agent::Impl::restoreConnected() {
  for (std::size_t i = 0; i < run->touched().size(); ++i) {
    const Lumo::Prefix prefix = run->touched()[i];
    if (unicast.copied(prefix) && !run->status().route(prefix)) unicast.announceAgain(prefix);
  }
}

// ---- What has changed ----

void Agent::Impl::publishTouched(std::vector<Change>& changes) {
  for (const Lumo::Prefix& prefix : run->touched()) publish(prefix, run->status().route(prefix), changes);
}

void Agent::Impl::publishAll(std::vector<Change>& changes) {
  isAhead = false;
  const U32 count = run->status().routeCount();
  changes.reserve(std::max(count, published.size()) - std::min(count, published.size()));
  published.reserve(count);
  constexpr int lead = 8;
  auto ahead = run->status().routeIterator();
  for (int i = 0; i < lead; ++i) ++ahead;
  for (auto route = run->status().routeIterator(); route; ++route, ++ahead) {
    if (ahead) {
      published.prefetch(ahead->prefix());
      __builtin_prefetch(&ahead->viaList());
    }
    publish(route->prefix(), route.get(), changes);
  }
  if (published.size() == count) return;
  std::vector<Lumo::Prefix> gone;
  for (const Route& route : published.all()) {
    if (!run->status().route(route.prefix)) gone.push_back(route.prefix);
  }
  for (const Lumo::Prefix& prefix : gone) publish(prefix, nullptr, changes);
}

/// Publishes what the engine has under a prefix now, if it is something else than before.
void Agent::Impl::publish(const Lumo::Prefix& prefix, const EngineRoute* now, std::vector<Change>& changes) {
  Route* before = published.find(prefix);
  if (now && !before) {
    Change& added = changes.emplace_back();
    added.before.prefix = added.after.prefix = prefix;
    copy(*now, added.after);
    copy(*now, published.insert(prefix));  // not of that one, whose bytes are on their way to memory
  } else if (now) {
    Route after{prefix};
    copy(*now, after);
    if (*before == after) return;
    changes.push_back({*before, after});
    *before = std::move(after);
  } else if (before) {
    Change& lost = changes.emplace_back();
    lost.before = std::move(*before);
    lost.after.prefix = prefix;
    published.erase(*before);
  }
}

/// The other way, which needs no memory: nothing that was published takes more than it did. The last of the
/// changes may not have been made.
void Agent::Impl::unpublish(std::vector<Change>& changes) {
  for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
    Route* now = published.find(change->prefix());
    if (!change->added()) {
      (now ? *now : published.insert(change->prefix())) = std::move(change->before);
    } else if (now) {
      published.erase(*now);
    }
  }
}

void Agent::Impl::tell(const Update& update) {
  {
    const Busy guard(telling);
    const std::size_t present = subscriptions.size();
    for (std::size_t i = 0; i < present; ++i) {
      if (subscriptions[i].id == 0) continue;
      try {
        subscriptions[i].listener(update);
      } catch (...) {
        continue;  // what has happened stays so, and the others hear of it
      }
    }
  }
  std::erase_if(subscriptions, [](const Subscription& s) { return s.id == 0; });
}

}  // namespace mrib
