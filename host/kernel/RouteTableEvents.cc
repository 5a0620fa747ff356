#include <linux/netlink.h>

#include <algorithm>
#include <utility>

#include "RouteTable.h"

// What events do to the routes of a prefix.

namespace host::kernel {

namespace {

constexpr U8 protocolKernel = 2;
constexpr U8 passing = Hop::dead | Hop::linkdown;  // flags that say nothing about which hop it is

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

bool RouteTable::isSame(const Record& r, const Route& route) const {
  return !r.own && r.tos == route.tos && r.metric == route.metric && r.type == route.type &&
         r.protocol == route.protocol && r.scope == route.scope && r.nextHop == route.nextHop &&
         r.rest == route.rest && sources_[r.source] == route.source && sameHops(hops_[r.hops], route.hops);
}

/// Where the routes with the same TOS and metric lie: higher TOS first, then lower metrics.
RouteTable::Rank RouteTable::rankOf(const List& list, const Route& route) const {
  const auto before = [&](U32 n, U64 k) {
    return records_[n].own || host::kernel::rankOf(records_[n].tos, records_[n].metric) < k;
  };
  const U64 k = host::kernel::rankOf(route.tos, route.metric);
  const auto first = std::partition_point(list.begin(), list.end(), [&](U32 n) { return before(n, k); });
  const auto end = std::partition_point(first, list.end(), [&](U32 n) { return before(n, k + 1); });
  const auto same = std::find_if(first, end, [&](U32 n) { return isSame(records_[n], route); });
  const auto at = [&](auto it) { return static_cast<std::size_t>(it - list.begin()); };
  return {at(first), at(end), same == end ? none : at(same)};
}

/// Confirms a record and takes over what may change about it. True when something did.
bool RouteTable::refresh(U32 node, U32 number, const Route& route, Epoch epoch) {
  Record& r = records_[number];
  const bool wasInDoubt =
      r.epoch <= topology_.lastLoss || (r.nextHop != 0 && topology_.isYounger(r.nextHop, r.epoch));
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
  // Linux tells of a route again, as if it were one that replaces, when its next-hop object has changed.
  const bool isToldAgain = message.route.nextHop != 0 && rank.same != none;
  const bool replaces = (message.flags & NLM_F_REPLACE) != 0 && !isToldAgain;
  if (replaces && rank.first < rank.end && rank.same != rank.first) {
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

void RouteTable::own(const IpGenPrefix& address, U32 link) {
  const U32 node = findOrMake(address);
  List list = listOf(node);
  if (!list.empty() && records_[list.front()].own) eraseFrom(list, 0);
  if (link != 0) {
    Route route;
    route.hops.push_back({IpGenAddr(), link, 0});
    route.protocol = protocolKernel;
    const U32 number = record(route, 0);
    records_[number].own = 1;
    --routes_;
    list.insert(list.begin(), number);
  }
  relink(node, list);
  wait(node);
}

}  // namespace host::kernel
