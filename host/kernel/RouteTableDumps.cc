#include <linux/netlink.h>

#include <utility>

#include "RouteTable.h"

// What dumps do to the routes, and what becomes of events that come while one runs.

namespace host::kernel {

void RouteTable::startDump(Epoch now) {
  aside_.clear();
  dumping_ = true;
  unsure_ = false;
  dumpEpoch_ = now;
}

void RouteTable::dumped(const Route& route) {
  if (!aside_.empty()) {
    if (const auto it = aside_.find(route.prefix); it != aside_.end()) {
      it->second.dumped.push_back(route);
      return;
    }
  }
  putDumped(findOrMake(route.prefix), route);
}

/// The routes of a prefix come in their order: each goes behind those of its rank that came before it.
void RouteTable::putDumped(U32 node, const Route& route) {
  const U32 only = nodes_[node].first;
  if (only != none && records_[only].next == none && isSame(records_[only], route)) {
    healed_ += refresh(node, only, route, dumpEpoch_);
    return;
  }
  List list = listOf(node);
  const Rank rank = rankOf(list, route);
  U32 number = none;
  if (rank.same != none) {
    number = list[rank.same];
    healed_ += refresh(node, number, route, dumpEpoch_);
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(rank.same));
  } else {
    number = record(route, dumpEpoch_);
    ++healed_;
  }
  const std::size_t end = rank.end - (rank.same != none);
  std::size_t at = rank.first;
  while (at < end && records_[list[at]].epoch >= dumpEpoch_) ++at;
  list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), number);
  relink(node, list);
  if (at != rank.same) wait(node);
}

/// The first event about a prefix takes along what the dump has told of it already.
RouteTable::Aside& RouteTable::putAside(U32 node, const Message& message) {
  const auto [it, isNew] = aside_.try_emplace(nodes_[node].prefix);
  for (U32 at = isNew ? nodes_[node].first : none; at != none; at = records_[at].next) {
    const Record& r = records_[at];
    if (!r.own && r.epoch >= dumpEpoch_) it->second.dumped.push_back(routeOf(nodes_[node], r));
  }
  it->second.messages.push_back(message);
  return it->second;
}

void RouteTable::rebuild(const IpGenPrefix& prefix, const Aside& aside) {
  const U32 node = findOrMake(prefix);
  List list = listOf(node);
  std::erase_if(list, [&](U32 number) {
    if (records_[number].own) return false;
    release(number);
    return true;
  });
  for (const Route& route : aside.dumped) {
    const std::size_t end = rankOf(list, route).end;
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(end), record(route, dumpEpoch_));
  }
  relink(node, list);
  for (const Message& message : aside.messages) tell(node, message);
}

/// Telling once more what a dump has seen already does no harm, but for a replacement: what was the first of
/// several then need not be the first now.
void RouteTable::bringBack() {
  for (const auto& [prefix, aside] : aside_) {
    rebuild(prefix, aside);
    unsure_ |= aside.replaced && (aside.several || aside.dumped.size() > 1 || !wasFilled_);
  }
  aside_.clear();
  wasFilled_ = true;
}

bool RouteTable::finishDump(std::size_t& budget) {
  if (std::exchange(dumping_, false)) {
    bringBack();
    sweepAt_ = 0;
  }
  for (; sweepAt_ < nodes_.size() && budget > 0; ++sweepAt_, --budget) sweep(static_cast<U32>(sweepAt_));
  return sweepAt_ >= nodes_.size();
}

void RouteTable::sweep(U32 node) {
  const auto isOld = [&](U32 n) { return !records_[n].own && records_[n].epoch < dumpEpoch_; };
  U32 at = nodes_[node].first;
  while (at != none && !isOld(at)) at = records_[at].next;
  if (at == none) return;
  List list = listOf(node);
  healed_ += std::erase_if(list, [&](U32 number) {
    if (!isOld(number)) return false;
    release(number);
    return true;
  });
  relink(node, list);
  wait(node);
}

}  // namespace host::kernel
