#include "Exporter.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Access.h"

namespace host {

using kernel::Hop;
using kernel::Route;
using Lumo::Prefix;

namespace {

constexpr U8 mostRepeats = 2;  // soon, and after a rest

/// Whether these are the ways that are wanted. It does not matter whether they are in use, nor that one is
/// `onlink` that need not be.
bool serve(const std::vector<Hop>& ways, const std::vector<Hop>& wanted) {
  return std::equal(ways.begin(), ways.end(), wanted.begin(), wanted.end(), [](const Hop& x, const Hop& y) {
    return x.gateway == y.gateway && x.link == y.link && (y.flags & ~x.flags & Hop::onlink) == 0;
  });
}

void addOther(std::vector<Route>& others, Route route) {
  for (Hop& hop : route.hops) hop.flags = 0;
  others.push_back(std::move(route));
}

}  // namespace

std::string_view nameOf(Exporter::Why why) {
  constexpr std::array<std::string_view, 6> names{"none",     "changed", "leftover",
                                                  "putRight", "retried", "repeated"};
  return names[static_cast<std::size_t>(why)];
}

// ---- What is wanted, and what has to be looked at ----

void Exporter::want(const Prefix& prefix, Wanted wanted) {
  const auto known = entries_.find(prefix);
  if (known == entries_.end() && wanted == Wanted{}) return;
  Entry& entry = known == entries_.end() ? entries_[prefix] : known->second;
  if (entry.wanted == wanted) return;
  const bool isSame = entry.wanted.type == wanted.type && serve(entry.wanted.hops, wanted.hops);
  entry.wanted = std::move(wanted);
  noteFault(prefix, entry);
  if (isSame && !entry.refused) return;
  entry.changed = !isSame || entry.changed;
  entry.deleted = false;
  rightIs(entry, false);
  enqueue(prefix, entry);
}

void Exporter::check(const Prefix& prefix) {
  const auto known = entries_.find(prefix);
  Found found = find(prefix, {});
  if (known == entries_.end() && found.routes.empty()) return;
  Entry& entry = known == entries_.end() ? entries_[prefix] : known->second;
  noteOthers(entry, std::move(found.others));
  enqueue(prefix, entry);
}

void Exporter::crossed(const Prefix& prefix) {
  const auto known = entries_.find(prefix);
  if (known == entries_.end()) return;
  known->second.crossed = true;
  enqueue(prefix, known->second);
}

void Exporter::begin() {
  begun_ = true;
  leftovers_ = queue_.size();
}

void Exporter::linkChanged(U32 link, Nanos now) {
  constexpr std::size_t many = 1000;
  if (linkChanges_.size() > many)
    std::erase_if(linkChanges_, [&](const auto& change) { return change.second + news < now; });
  linkChanges_[link] = now;
}

void Exporter::checkRefused() {
  for (const auto& [prefix, fault] : faults_) {
    if (fault.refused) check(prefix);
  }
}

void Exporter::enqueue(const Prefix& prefix, Entry& entry) {
  if (!std::exchange(entry.queued, true) && !entry.resting) queue_.push_back(prefix);
}

/// What rested is looked at: it may have gone again before the mirror heard of it, and is news to nobody
/// then. What was refused is not, unless somebody asked for it. What is only to be repeated need not rest as
/// long as what has changed.
void Exporter::wake(Nanos now) {
  for (; !resting_.empty() && resting_.begin()->first <= now; resting_.erase(resting_.begin())) {
    const Prefix prefix = resting_.begin()->second;
    Entry& entry = entries_[prefix];
    const Nanos rested = entry.writtenAt + rest;
    if (entry.changed && now < rested) {
      resting_.emplace(rested, prefix);
      continue;
    }
    entry.resting = false;
    if (entry.queued || !entry.refused || !entry.wanted.isRoute()) {
      entry.queued = true;
      queue_.push_back(prefix);
    }
  }
}

Nanos Exporter::due() const {
  if (begun_ && !queue_.empty()) return 0;
  return resting_.empty() ? retryAt_ : std::min(retryAt_, resting_.begin()->first);
}

// ---- What is to be written ----

Exporter::Batch Exporter::next(Nanos now, std::size_t limit) {
  Batch batch;
  if (now >= retryAt_) {
    retryAt_ = ~Nanos{0};
    checkRefused();
  }
  wake(now);
  for (std::size_t looks = 10 * limit; begun_ && !queue_.empty() && batch.size() < limit && looks > 0;
       --looks) {
    const Prefix prefix = queue_.front();
    queue_.pop_front();
    Entry& entry = entries_[prefix];
    entry.queued = false;
    consider(prefix, entry, batch, now);
    leftovers_ -= leftovers_ > 0;
  }
  return batch;
}

/// A route that may have gone with its link is added, not deleted first: if it is there, that fails and
/// nothing was missing. Over a link that is down, the next news is of something else that is wanted.
void Exporter::consider(const Prefix& prefix, Entry& entry, Batch& batch, Nanos now) {
  Found found = find(prefix, entry.wanted);
  noteOthers(entry, std::move(found.others));
  rightIs(entry, found.right && found.certain && entry.wanted.isRoute());
  const bool again = isToBeAgain(entry);
  if (found.right && found.certain && !again) {
    entry.probed = entry.changed = false;
    refusalIs(prefix, entry, {});
    if (!entry.wanted.isRoute() && entry.wanted.fault.empty()) entries_.erase(prefix);
    return;
  }
  if (found.right && ((entry.probed && !again) || !canStand(entry.wanted))) return;
  // What may have gone was deleted once: a dump will tell whether it had.
  const bool isDoubtful = !entry.wanted.isRoute() && !found.certain;
  if (isDoubtful && entry.deleted && !entry.refused) return;
  entry.deleted = isDoubtful;
  entry.changed &= !found.right;
  entry.probed = found.right && !again;
  if (!entry.probed) {
    for (const Route& route : found.routes) batch.push_back({false, route});
  }
  if (entry.wanted.isRoute()) batch.push_back({true, routeFor(prefix, entry.wanted)});
  wrote(prefix, entry, found, now);
}

void Exporter::wrote(const Prefix& prefix, Entry& entry, const Found& before, Nanos now) {
  entry.why = reasonOf(entry);
  entry.writtenAt = now;
  entry.changed = entry.crossed = false;
  ++counters_.written;
  counters_.putRight += entry.why == Why::putRight;
  noteRepeats(entry, before, now);
  entry.resting = true;
  resting_.emplace_hint(resting_.end(), now + (entry.repeats == mostRepeats ? doubt : rest), prefix);
}

Exporter::Why Exporter::reasonOf(const Entry& entry) const {
  if (leftovers_ > 0 && !entry.wanted.isRoute()) return Why::leftover;
  if (entry.changed) return Why::changed;
  if (entry.repeats > 0 && !entry.crossed) return Why::repeated;
  return entry.refused ? Why::retried : Why::putRight;
}

void Exporter::written(const Batch& batch, std::span<const kernel::RouteFault> faults) {
  auto fault = faults.begin();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    const kernel::RouteOp& op = batch[i];
    const Prefix prefix = op.route.prefix.v4Prefix();
    Entry& entry = entries_[prefix];
    if (fault != faults.end() && fault->op == i) {
      failed(op, *fault++, entry);
    } else if (op.add) {
      refusalIs(prefix, entry, {});
    }
  }
}

void Exporter::failed(const kernel::RouteOp& op, const kernel::RouteFault& fault, Entry& entry) {
  if (!op.add && fault.error == ESRCH) return;  // gone already
  if (kernel::isPassing(fault.error)) retryAt_ = std::min(retryAt_, entry.writtenAt + retry);
  if (!(op.add && entry.probed && fault.error == EEXIST)) {
    entry.crossed = true;  // readers who have lost ours still have
    return refusalIs(op.route.prefix.v4Prefix(), entry, fault.text);
  }
  --counters_.written;  // there all the time
  counters_.putRight -= entry.why == Why::putRight;
}

Exporter::Batch Exporter::withdrawal() const {
  Batch batch;
  table_.routes(Lumo::ipv4()).forEach([&](const Route& route) {
    if (route.protocol != protocol) return;
    batch.push_back({false, route});
    batch.back().route.table = table_.settings().table;
  });
  for (const auto& [prefix, entry] : entries_) {  // the mirror may not have heard of the last of them
    if (entry.wanted.isRoute()) batch.push_back({false, routeFor(prefix, entry.wanted)});
  }
  return batch;
}

// ---- What there is ----

/// What is not certain counts when nothing else is there: a dump will tell of it soon.
Exporter::Found Exporter::find(const Prefix& prefix, const Wanted& wanted) const {
  Found found;
  std::size_t certain = 0;
  std::size_t rightOnes[2] = {0, 0};
  table_.routes(Lumo::ipv4()).forEachOf(prefix, [&](const Route& route, bool isCertain) {
    if (route.protocol != protocol) return addOther(found.others, route);
    found.routes.push_back(route);
    found.routes.back().table = table_.settings().table;
    certain += isCertain;
    rightOnes[isCertain] += wanted.isRoute() && isRight(route, wanted);
  });
  if (!wanted.isRoute()) {
    found.right = found.routes.empty();
    found.certain = found.right || certain > 0;
  } else {
    found.certain = rightOnes[1] == 1 && certain == 1;
    found.right = found.certain || (rightOnes[0] > 0 && certain == 0);
  }
  return found;
}

/// The weights of several ways are all that `rest` tells of ours.
bool Exporter::isRight(const Route& route, const Wanted& wanted) const {
  return route.type == wanted.type && route.metric == metric && route.tos == 0 && route.nextHop == 0 &&
         (route.rest == 0 || route.hops.size() > 1) && serve(route.hops, wanted.hops);
}

void Exporter::noteOthers(Entry& entry, std::vector<Route> others) {
  entry.crossed |= others != entry.others;
  entry.others = std::move(others);
}

/// One of our own metric would keep ours from being added again.
bool Exporter::isToBeAgain(const Entry& entry) const {
  if (readers_ != Readers::follow || !entry.wanted.isRoute()) return false;
  return (entry.crossed || entry.repeats > 0) &&
         std::none_of(entry.others.begin(), entry.others.end(),
                      [](const Route& other) { return other.metric == metric && other.tos == 0; });
}

void Exporter::noteRepeats(Entry& entry, const Found& before, Nanos now) const {
  if (entry.repeats > 0) {
    --entry.repeats;
  } else if (readers_ == Readers::follow && entry.wanted.isRoute() &&
             (haveChanged(entry.wanted.hops, now) ||
              std::any_of(before.routes.begin(), before.routes.end(),
                          [&](const Route& route) { return haveChanged(route.hops, now); }))) {
    entry.repeats = mostRepeats;
  }
}

/// The links.
bool Exporter::haveChanged(const std::vector<Hop>& hops, Nanos now) const {
  return std::any_of(hops.begin(), hops.end(), [&](const Hop& hop) {
    const auto change = linkChanges_.find(hop.link);
    return change != linkChanges_.end() && now < change->second + news;
  });
}

bool Exporter::canStand(const Wanted& wanted) const {
  return std::all_of(wanted.hops.begin(), wanted.hops.end(), [&](const Hop& hop) {
    const kernel::Link* link = table_.topology().link(hop.link);
    return link && link->up;
  });
}

Route Exporter::routeFor(const Prefix& prefix, const Wanted& wanted) const {
  const auto isDirect = [](const Hop& hop) { return hop.gateway == Lumo::IpGenAddr(); };
  Route route;
  route.prefix = prefix;
  route.table = table_.settings().table;
  route.metric = metric;
  route.type = wanted.type;
  route.protocol = protocol;
  route.hops = wanted.hops;
  const bool isOnLink = !route.hops.empty() && std::all_of(route.hops.begin(), route.hops.end(), isDirect);
  route.scope = isOnLink ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
  return route;
}

// ---- The books ----

void Exporter::rightIs(Entry& entry, bool right) {
  right_ = right_ + right - std::exchange(entry.right, right);
}

void Exporter::refusedIs(Entry& entry, bool refused) {
  refused_ = refused_ + refused - std::exchange(entry.refused, refused);
}

void Exporter::refusalIs(const Prefix& prefix, Entry& entry, std::string text) {
  const bool refused = !text.empty();
  if (!refused && !entry.refused) return;
  refusedIs(entry, refused);
  if (refused) {
    faults_[prefix] = {true, std::move(text)};
  } else {
    noteFault(prefix, entry);
  }
}

void Exporter::noteFault(const Prefix& prefix, Entry& entry) {
  if (!entry.wanted.fault.empty()) {
    refusedIs(entry, false);
    faults_[prefix] = {false, entry.wanted.fault};
  } else if (!entry.refused || !entry.wanted.isRoute()) {
    refusedIs(entry, false);
    faults_.erase(prefix);
  }
}

const Exporter::Entry* Exporter::entry(const Prefix& prefix) const {
  const auto at = entries_.find(prefix);
  return at == entries_.end() ? nullptr : &at->second;
}

}  // namespace host
