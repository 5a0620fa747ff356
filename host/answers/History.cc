#include "History.h"

#include <algorithm>
#include <utility>

#include "Zan/Hash.h"

namespace host {

using Lumo::Prefix;

std::size_t History::RouteHash::operator()(const PastRoute& route) const {
  U64 hash = Zan::mix(static_cast<U64>(route.type), route.preference);
  for (const PastRoute::Via& via : route.vias) {
    hash = Zan::mix(hash ^ via.neighbor.host(), std::hash<std::string>()(via.interface));
  }
  return hash;
}

namespace {

/// It is held as long as it is remembered.
template <class Routes, class Last>
void forget(Routes& routes, Last& last) {
  routes.drop(last.number);
  last = {};
}

}  // namespace

History::History(Router& router, Clocks clocks, std::size_t most)
    : router_(router), clocks_(std::move(clocks)), most_(most) {
  begin_ = {router.generation(), clocks_.wall(), clocks_.monotonic(), "the history begins"};
  subscription_ = router.subscribe([this](const Router::News& news) { heard(news); });
}

/// A moment with more changes than are kept is kept no more than those before it.
void History::heard(const Router::News& news) {
  const auto isOurs = [](const mrib::Change& change) { return !KernelFeed::isStandIn(change.prefix()); };
  const auto& changes = news.update.changes;
  if (std::none_of(changes.begin(), changes.end(), isOurs)) return;
  moments_.push_back({news.update.generation, clocks_.wall(), clocks_.monotonic(), news.cause()});
  const std::size_t had = entries_.size();
  for (const mrib::Change& change : changes) {
    if (isOurs(change)) add(change);
  }
  forget(routes_, lastBefore_);  // the same next hop may have another name next time
  forget(routes_, lastAfter_);
  if (entries_.size() == had) moments_.pop_back();
  while (entries_.size() > most_) makeRoom();
}

void History::add(const mrib::Change& change) {
  const U32 before = change.added() ? 0 : numberOf(change.before, KernelFeed::When::before, lastBefore_);
  const U32 after = change.removed() ? 0 : numberOf(change.after, KernelFeed::When::now, lastAfter_);
  if (before == after) {  // it is called as before, too
    routes_.drop(before);
    return routes_.drop(after);
  }
  entries_.push_back({change.prefix(), static_cast<U32>(firstMoment_ + moments_.size() - 1), before, after});
}

PastRoute History::pastOf(const mrib::Route& route, KernelFeed::When when) const {
  PastRoute past{route.type, route.preference, {}};
  past.vias.reserve(route.nextHops.size());
  for (const mrib::NextHop& hop : route.nextHops) {
    const std::string* name = router_.linkName(hop, when);
    past.vias.push_back({router_.isAttached(hop, when) ? Lumo::IpAddr() : hop.address, name ? *name : ""});
  }
  return past;
}

U32 History::numberOf(const mrib::Route& route, KernelFeed::When when, Last& last) {
  const mrib::Route& known = last.route;
  const bool isSame =
      last.number != 0 && known.type == route.type && known.preference == route.preference &&
      std::equal(known.nextHops.begin(), known.nextHops.end(), route.nextHops.begin(), route.nextHops.end());
  if (!isSame) {
    forget(routes_, last);
    last = {route, routes_.hold(pastOf(route, when))};
  }
  routes_.holdAgain(last.number);
  return last.number;
}

/// The oldest moment goes, with all its changes: before the others the MRIB was as it left it.
void History::makeRoom() {
  const U32 oldest = entries_.front().moment;
  while (!entries_.empty() && entries_.front().moment == oldest) {
    routes_.drop(entries_.front().before);
    routes_.drop(entries_.front().after);
    entries_.pop_front();
    ++forgotten_;
  }
  begin_ = std::move(moments_.front());
  moments_.pop_front();
  ++firstMoment_;
}

History::Change History::operator[](std::size_t i) const {
  const Entry& entry = entries_[i];
  return {moments_[entry.moment - firstMoment_], entry.prefix, routes_[entry.before], routes_[entry.after]};
}

std::size_t History::firstAfterGeneration(U64 generation) const {
  const auto at = std::partition_point(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return moments_[entry.moment - firstMoment_].generation <= generation;
  });
  return static_cast<std::size_t>(at - entries_.begin());
}

/// Wall clocks may be set back, so that not all later changes have later times: of these the first.
std::size_t History::firstAfterTime(Nanos wall) const {
  const auto at =
      std::find_if(moments_.begin(), moments_.end(), [&](const Moment& m) { return m.wall > wall; });
  if (at == moments_.end()) return entries_.size();
  return firstAfterGeneration(at->generation - 1);
}

/// Backwards from the prefixes that the source has now: at each moment, the longest before and after it.
std::vector<std::size_t> History::changesFor(Lumo::IpAddr source) const {
  std::vector<bool> isThere(Prefix::maxLength + 1);
  for (U32 length = 0; length <= Prefix::maxLength; ++length) {
    isThere[length] = router_.agent().route(Prefix(source, length)) != nullptr;
  }
  const auto longest = [&] {
    const auto at = std::find(isThere.rbegin(), isThere.rend(), true);
    return Prefix::maxLength - static_cast<U32>(at - isThere.rbegin());  // wraps where there is none
  };
  std::vector<std::size_t> found;
  for (std::size_t end = entries_.size(); end > 0;) {
    std::size_t first = end - 1;
    while (first > 0 && entries_[first - 1].moment == entries_[end - 1].moment) --first;
    const U32 after = longest();
    for (std::size_t i = first; i < end; ++i) {
      if (entries_[i].prefix.contains(source)) isThere[entries_[i].prefix.length()] = entries_[i].before != 0;
    }
    const U32 before = longest();
    for (std::size_t i = end; i-- > first;) {
      const Prefix& prefix = entries_[i].prefix;
      const bool counts = prefix.length() == before || prefix.length() == after;
      if (counts && prefix.contains(source)) found.push_back(i);
    }
    end = first;
  }
  std::reverse(found.begin(), found.end());
  return found;
}

/// Backwards from what matches now.
std::vector<History::PastMatch> History::matchesBefore(Lumo::IpAddr address, std::size_t number) const {
  std::map<U32, PastMatch, std::greater<>> matches;  // by length
  for (U32 length = 0; length <= Prefix::maxLength; ++length) {
    const Prefix prefix(address, length);
    const mrib::Route* route = router_.agent().route(prefix);
    if (route && !KernelFeed::isStandIn(prefix))
      matches[length] = {prefix, pastOf(*route, KernelFeed::When::now), {}, {}};
  }
  for (std::size_t i = entries_.size(); i-- > 0;) {
    const Entry& entry = entries_[i];
    if (!entry.prefix.contains(address)) continue;
    const auto at = matches.find(entry.prefix.length());
    if (i < number) {
      if (at != matches.end() && !at->second.came) at->second.came = i;
    } else if (entry.before == 0) {
      matches.erase(entry.prefix.length());
    } else {
      matches[entry.prefix.length()] = {entry.prefix, routes_[entry.before], {}, i};
    }
  }
  std::vector<PastMatch> all;
  for (auto& [length, match] : matches) all.push_back(std::move(match));
  return all;
}

}  // namespace host
