#include "RouteTable.h"

#include <linux/netlink.h>

#include <algorithm>
#include <utility>

namespace host::kernel {

namespace {

constexpr U8 passing = Hop::dead | Hop::linkdown;  // flags that say nothing about which hop it is
constexpr U8 protocolKernel = 2;

bool sameHop(const Hop& a, const Hop& b) {
  return a.gateway == b.gateway && a.link == b.link && ((a.flags ^ b.flags) & ~passing) == 0;
}

bool sameHops(const std::vector<Hop>& a, const std::vector<Hop>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameHop);
}

bool hasHop(const std::vector<Hop>& hops, const Hop& hop) {
  return std::any_of(hops.begin(), hops.end(), [&](const Hop& h) { return sameHop(h, hop); });
}

bool isPartOf(const std::vector<Hop>& part, const std::vector<Hop>& whole) {
  return std::all_of(part.begin(), part.end(), [&](const Hop& h) { return hasHop(whole, h); });
}

bool isV6(const Route& route) {
  return route.prefix.af() == Lumo::ipv6();
}

}  // namespace

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
      route.type, route.protocol,         route.scope,  false};
  ++routes_;
  return number;
}

void RouteTable::release(U32 number) {
  if (!records_[number].own) --routes_;
  hops_.drop(records_[number].hops);
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

// Routes to one prefix

bool RouteTable::isSame(const Record& r, const Route& route) const {
  return !r.own && r.tos == route.tos && r.metric == route.metric && r.type == route.type &&
         r.protocol == route.protocol && r.scope == route.scope && r.nextHop == route.nextHop &&
         r.rest == route.rest && sameHops(hops_[r.hops], route.hops);
}

/// Where the routes with the same TOS and metric lie: higher TOS first, then lower metrics.
RouteTable::Rank RouteTable::rankOf(const List& list, const Route& route) const {
  const auto key = [](U8 tos, U32 metric) { return U64{0xFFu - tos} << 32 | metric; };
  const auto before = [&](U32 n, U64 k) {
    return records_[n].own || key(records_[n].tos, records_[n].metric) < k;
  };
  const U64 k = key(route.tos, route.metric);
  const auto first = std::partition_point(list.begin(), list.end(), [&](U32 n) { return before(n, k); });
  const auto end = std::partition_point(first, list.end(), [&](U32 n) { return before(n, k + 1); });
  const auto same = std::find_if(first, end, [&](U32 n) { return isSame(records_[n], route); });
  const auto at = [&](auto it) { return static_cast<std::size_t>(it - list.begin()); };
  return {at(first), at(end), same == end ? none : at(same)};
}

/// Confirms a record and takes over what may change about it. True when something did.
bool RouteTable::refresh(U32 node, U32 number, const Route& route, Epoch epoch) {
  Record& r = records_[number];
  const bool wasInDoubt = r.epoch <= topology_.lastLoss;
  r.epoch = std::max(r.epoch, epoch);
  if (wasInDoubt) wait(node);
  if (hops_[r.hops] == route.hops) return false;
  const U32 had = r.hops;
  r.hops = hops_.hold(route.hops);
  hops_.drop(had);
  wait(node);
  return true;
}

void RouteTable::eraseFrom(List& list, std::size_t at) {
  release(list[at]);
  list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
}

// Events

bool RouteTable::change(const Route& route, U16 flags, bool gone, Epoch now) {
  if (gone && find(route.prefix) == PrefixIndex::nothing && !dumping_) return true;
  const U32 node = findOrMake(route.prefix);
  const Message message{route, flags, gone, now};
  if (!dumping_) return tell(node, message);
  Aside& aside = putAside(node, message);
  tell(node, message);
  aside.replaced |= (flags & NLM_F_REPLACE) != 0;
  aside.several |= nodes_[node].first != none && records_[nodes_[node].first].next != none;
  return true;  // told again at the end, to a better listener
}

bool RouteTable::tell(U32 node, const Message& message) {
  List list = listOf(node);
  const bool fits = message.gone ? tellGone(list, message.route) : tellNew(list, node, message);
  relink(node, list);
  wait(node);
  return fits;
}

bool RouteTable::tellNew(List& list, U32 node, const Message& message) {
  const auto put = [&](std::size_t at) {
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), record(message.route, message.epoch));
  };
  Rank rank = rankOf(list, message.route);
  if ((message.flags & NLM_F_EXCL) != 0) {  // it is the only one of its rank
    for (std::size_t at = rank.end; at-- > rank.first;) {
      if (at != rank.same) eraseFrom(list, at);
    }
    rank = rankOf(list, message.route);
  }
  if ((message.flags & NLM_F_REPLACE) != 0 && rank.first < rank.end && rank.same != rank.first) {
    replaceFirst(list, rank, message);
    return !isV6(message.route) || rank.end - rank.first == 1;
  }
  if (rank.same != none) {
    refresh(node, list[rank.same], message.route, message.epoch);
    return true;
  }
  if (isV6(message.route) && rank.first < rank.end) return growLegs(list, rank, message);
  put((message.flags & NLM_F_APPEND) != 0 ? rank.end : rank.first);
  return true;
}

void RouteTable::replaceFirst(List& list, const Rank& rank, const Message& message) {
  if (rank.same != none) eraseFrom(list, rank.same);
  release(list[rank.first]);
  list[rank.first] = record(message.route, message.epoch);
}

/// IPv6 adds a leg to a route by telling the whole of it again. False: what Linux made of several routes of
/// one rank, only a dump can tell.
bool RouteTable::growLegs(List& list, const Rank& rank, const Message& message) {
  for (std::size_t at = rank.first; at < rank.end; ++at) {
    if (!isPartOf(hops_[records_[list[at]].hops], message.route.hops)) continue;
    release(list[at]);
    list[at] = record(message.route, message.epoch);
    return false;
  }
  list.insert(list.begin() + static_cast<std::ptrdiff_t>(rank.end), record(message.route, message.epoch));
  return false;
}

/// IPv6 removes a leg by telling that leg alone.
bool RouteTable::shrinkLegs(List& list, const Rank& rank, const Route& route) {
  for (std::size_t at = rank.first; at < rank.end; ++at) {
    Record& r = records_[list[at]];
    std::vector<Hop> hops = hops_[r.hops];
    if (!isPartOf(route.hops, hops)) continue;
    std::erase_if(hops, [&](const Hop& h) { return hasHop(route.hops, h); });
    if (hops.empty()) {
      eraseFrom(list, at);
    } else {
      const U32 had = r.hops;
      r.hops = hops_.hold(hops);
      hops_.drop(had);
    }
    break;
  }
  return false;
}

bool RouteTable::tellGone(List& list, const Route& route) {
  const Rank rank = rankOf(list, route);
  if (rank.same != none) {
    eraseFrom(list, rank.same);
    return true;
  }
  if (rank.first == rank.end) return true;
  return isV6(route) && shrinkLegs(list, rank, route);
}

// Dumps

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

void RouteTable::own(const IpGenPrefix& address, U32 link) {
  const U32 node = findOrMake(address);
  List list = listOf(node);
  if (!list.empty() && records_[list.front()].own) eraseFrom(list, 0);
  if (link != 0) {
    Route route;
    route.hops.push_back({IpGenAddr(), link, 0});
    route.protocol = protocolKernel;
    const U32 number = record(route, 0);
    records_[number].own = true;
    --routes_;
    list.insert(list.begin(), number);
  }
  relink(node, list);
  wait(node);
}

// Answers

bool RouteTable::settle(std::size_t& budget, std::vector<IpGenPrefix>& changed) {
  for (; !waiting_.empty() && budget > 0; --budget) {
    const U32 node = waiting_.back();
    waiting_.pop_back();
    nodes_[node].waits = false;
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
