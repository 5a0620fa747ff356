#include "Past.h"

#include <fmt/format.h>

#include <set>

using namespace host;
using Lumo::IpAddr;

namespace {

std::string wordsOf(const PastRoute& route) {
  if (route.type == mrib::RouteType::unknown) return "";
  std::string words = fmt::format("{} {}", static_cast<int>(route.type), route.preference);
  for (const auto& via : route.vias) words += ' ' + via.neighbor.stringValue() + '@' + via.interface;
  return words;
}

}  // namespace

Past::Past(Router& router) : router_(router) {
  forget();
  subscription_ = router.subscribe(
      [this](const Router::News& news) { states_[news.update.generation] = stateOf(router_); });
}

void Past::forget() {
  states_.clear();
  states_[router_.generation()] = stateOf(router_);
}

Past::State Past::stateOf(const Router& router) {
  State state;
  for (const mrib::Route& route : router.agent().routes()) {
    if (KernelFeed::isStandIn(route.prefix)) continue;
    PastRoute past{route.type, route.preference, {}};
    for (const mrib::NextHop& hop : route.nextHops) {
      const std::string* name = router.linkName(hop);
      past.vias.push_back({router.isAttached(hop) ? IpAddr() : hop.address, name ? *name : ""});
    }
    state[route.prefix] = wordsOf(past);
  }
  return state;
}

std::string Past::answerOf(const State& state, IpAddr source) {
  for (U32 length = 33; length-- > 0;) {
    const auto at = state.find(Lumo::Prefix(source, length));
    if (at != state.end()) return at->first.stringValue() + ' ' + at->second;
  }
  return "";
}

std::string Past::difference(const History& history, const std::vector<std::string>& sources) {
  const auto first = states_.lower_bound(history.begin().generation);
  if (first != states_.end()) states_.erase(states_.begin(), first);
  std::string wrong = routesDifference(history);
  for (const std::string& source : sources) {
    if (wrong.empty()) wrong = answersDifference(history, IpAddr(source));
  }
  return wrong;
}

/// Back from the present, a generation at a time.
std::string Past::routesDifference(const History& history) const {
  State state = stateOf(router_);
  std::size_t left = history.size();
  for (auto at = states_.rbegin(); std::next(at) != states_.rend(); ++at) {
    if (state != at->second) return fmt::format("the history leads to another generation {}", at->first);
    for (; left > 0 && history[left - 1].moment.generation == at->first; --left) {
      const History::Change change = history[left - 1];
      const std::string before = wordsOf(change.before);
      if (state[change.prefix] != wordsOf(change.after) || before == state[change.prefix] ||
          change.moment.cause.empty()) {
        return fmt::format("the history tells of {} in generation {}: {}, then {}",
                           change.prefix.stringValue(), at->first, before, wordsOf(change.after));
      }
      state[change.prefix] = before;
      if (before.empty()) state.erase(change.prefix);
    }
  }
  return {};
}

std::string Past::answersDifference(const History& history, IpAddr source) const {
  std::set<U64> right;
  for (auto at = states_.begin(); std::next(at) != states_.end(); ++at) {
    const auto next = std::next(at);
    if (answerOf(at->second, source) != answerOf(next->second, source)) right.insert(next->first);
    if (at == states_.begin()) continue;
    const auto matches = history.matchesBefore(source, history.firstAfterGeneration(at->first));
    const std::string past =
        matches.empty() ? "" : matches[0].prefix.stringValue() + ' ' + wordsOf(matches[0].route);
    if (past != answerOf(at->second, source)) {
      return fmt::format("in generation {} {} had {}, not {}", at->first, source.stringValue(),
                         answerOf(at->second, source), past);
    }
  }
  std::set<U64> told;
  for (const std::size_t i : history.changesFor(source)) {
    const U64 generation = history[i].moment.generation;
    if (generation > states_.begin()->first) told.insert(generation);
  }
  if (told == right) return {};
  return fmt::format("{} changed in {} generations, not in {}", source.stringValue(), right.size(),
                     told.size());
}
