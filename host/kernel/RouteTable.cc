#include "RouteTable.h"

#include <algorithm>
#include <utility>

namespace host::kernel {

// Storage

U32 RouteTable::find(const IpGenPrefix& prefix) const {
  return index_.find(prefix.hash(), [&](U32 n) { return nodes_[n].prefix == prefix; });
}

U32 RouteTable::findOrMake(const IpGenPrefix& prefix) {
  if (const U32 known = find(prefix); known != PrefixIndex::nothing) return known;
  U32 node = static_cast<U32>(nodes_.size());
  if (freeNodes_.empty()) {
    nodes_.emplace_back();
    unconsidered_ += unconsidered_ > 0;  // the walk around has one more to pass
  } else {
    node = freeNodes_.back();
    freeNodes_.pop_back();
  }
  nodes_[node].prefix = prefix;
  index_.enter(node, prefix.hash(), [&](U32 n) { return nodes_[n].prefix.hash(); });
  return node;
}

void RouteTable::free(U32 node) {
  const auto hashOf = [&](U32 n) { return nodes_[n].prefix.hash(); };
  index_.leave(node, hashOf(node), hashOf);
  nodes_[node].prefix = {};
  freeNodes_.push_back(node);
}

U32 RouteTable::record(const Route& route, Epoch epoch) {
  U32 number = static_cast<U32>(records_.size());
  if (freeRecords_.empty()) {
    records_.emplace_back();
  } else {
    number = freeRecords_.back();
    freeRecords_.pop_back();
  }
  records_[number] = {
      none,       hops_.hold(route.hops), route.metric, route.nextHop, route.rest, epoch, route.tos,
      route.type, route.protocol,         route.scope,  false,         0};
  records_[number].source = sources_.hold(route.source) & 0x7FFFFFFF;
  ++routes_;
  return number;
}

void RouteTable::release(U32 number) {
  if (!records_[number].own) --routes_;
  hops_.drop(records_[number].hops);
  sources_.drop(records_[number].source);
  freeRecords_.push_back(number);
}

Route RouteTable::routeOf(const Node& node, const Record& r) const {
  Route route;
  route.prefix = node.prefix;
  route.metric = r.metric;
  route.tos = r.tos;
  route.type = r.type;
  route.protocol = r.protocol;
  route.scope = r.scope;
  route.nextHop = r.nextHop;
  route.rest = r.rest;
  route.source = sources_[r.source];
  route.hops = hops_[r.hops];
  return route;
}

RouteTable::List RouteTable::listOf(U32 node) const {
  List list;
  for (U32 at = nodes_[node].first; at != none; at = records_[at].next) list.push_back(at);
  return list;
}

void RouteTable::relink(U32 node, const List& list) {
  U32 next = none;
  for (auto at = list.rbegin(); at != list.rend(); ++at) {
    records_[*at].next = next;
    next = *at;
  }
  nodes_[node].first = next;
}

void RouteTable::wait(U32 node) {
  if (std::exchange(nodes_[node].waits, true)) return;
  waiting_.push_back(node);
}

// Answers

void RouteTable::hurry(const IpGenPrefix& prefix) {
  if (const U32 node = find(prefix); node != PrefixIndex::nothing) wait(node);
}

bool RouteTable::settle(std::size_t& budget, std::vector<IpGenPrefix>& changed) {
  for (; !waiting_.empty() && budget > 0; --budget) {
    const U32 node = waiting_.back();
    waiting_.pop_back();
    nodes_[node].waits = false;
    if (tellsEvery_ && !nodes_[node].prefix.empty()) changed.push_back(nodes_[node].prefix);
    consider(node, changed);
  }
  for (; unconsidered_ > 0 && budget > 0; --budget, --unconsidered_) {
    cursor_ = cursor_ + 1 < nodes_.size() ? cursor_ + 1 : 0;
    if (!nodes_[cursor_].waits) consider(static_cast<U32>(cursor_), changed);
  }
  return waiting_.empty() && unconsidered_ == 0;
}

void RouteTable::consider(U32 node, std::vector<IpGenPrefix>& changed) {
  Node& n = nodes_[node];
  if (n.prefix.empty()) return;
  scratch_.kind = Answer::Kind::none;
  scratch_.protocol = 0;
  scratch_.metric = 0;
  scratch_.hops.clear();
  for (U32 at = n.first; at != none && !meaning(records_[at], scratch_);) at = records_[at].next;
  if (scratch_ != answers_[n.answer]) {
    const U32 had = n.answer;
    n.answer = answers_.hold(scratch_);
    answers_.drop(had);
    U32& count = answersOfLength_[n.prefix.length()];
    count = count + (n.answer != 0) - (had != 0);
    changed.push_back(n.prefix);
  }
  if (n.answer == 0 && n.first == none) free(node);
}

bool RouteTable::isCertain(const Record& r) const {
  if (r.nextHop != 0) return r.epoch > topology_.lastLoss;
  const std::vector<Hop>& hops = hops_[r.hops];
  return std::all_of(hops.begin(), hops.end(),
                     [&](const Hop& hop) { return topology_.isConfirmed(hop, r.epoch); });
}

/// Fills in the answer that a route gives; false when it gives none, so that the next one is asked. Local
/// routes hold on links that are down, too.
bool RouteTable::meaning(const Record& r, Answer& answer) const {
  using Kind = Answer::Kind;
  const auto be = [&](Kind kind) {
    answer.kind = kind;
    answer.protocol = r.protocol;
    answer.metric = r.metric;
    if (kind > Kind::gateway) answer.hops.clear();
    return true;
  };
  if (r.tos != 0) return false;
  const bool isLocal = r.own || r.type == RouteType::local;
  if (r.type == RouteType::blackhole) return be(Kind::blackhole);
  if (r.type == RouteType::unreachable) return be(Kind::unreachable);
  if (r.type == RouteType::prohibit) return be(Kind::prohibit);
  if (r.type == RouteType::throwing) return be(Kind::throwing);
  if (r.type != RouteType::unicast && !isLocal) return false;
  if (r.nextHop != 0 && !topology_.addUsable(r.nextHop, r.epoch, answer.hops)) return be(Kind::blackhole);
  for (const Hop& hop : hops_[r.hops]) {
    if (isLocal || topology_.isUsable(hop, r.epoch)) answer.hops.push_back(hop);
  }
  if (answer.hops.empty()) return false;
  for (Hop& hop : answer.hops) hop.flags &= Hop::onlink;
  if (isLocal) return be(Kind::local);
  const bool direct = std::all_of(answer.hops.begin(), answer.hops.end(),
                                  [](const Hop& h) { return h.gateway == IpGenAddr(); });
  return be(direct ? Kind::attached : Kind::gateway);
}

const Answer& RouteTable::answer(const IpGenPrefix& prefix) const {
  const U32 node = find(prefix);
  return answers_[node == PrefixIndex::nothing ? 0 : nodes_[node].answer];
}

IpGenPrefix RouteTable::longestMatch(const IpGenAddr& address) const {
  const bool v4 = address.af() == Lumo::ipv4();
  for (U32 length = v4 ? 33 : 129; length-- > 0;) {
    if (answersOfLength_[length] == 0) continue;
    const IpGenPrefix prefix =
        v4 ? IpGenPrefix(address.v4Addr(), length) : IpGenPrefix(Lumo::Ip6Prefix(address.v6Addr(), length));
    if (answer(prefix).kind != Answer::Kind::none) return prefix;
  }
  return {};
}

}  // namespace host::kernel
