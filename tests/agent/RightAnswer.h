#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "mrib/Agent.h"

/// What an agent was told, as it stands, and the one right answer to it as a plain recursion over plain maps:
/// the judge of the agent layer. No history enters into it.
struct RightAnswer {
  using Prefix = Lumo::Prefix;
  using IpAddr = Lumo::IpAddr;
  /// A configured route: preference first, then the RPF, an address or a name.
  struct Line {
    U32 preference;
    std::string name;
    IpAddr address;
    auto operator<=>(const Line&) const = default;
  };
  using Mrib = std::map<Prefix, mrib::Route>;

  std::map<U32, mrib::Link> links;
  std::map<std::pair<U32, IpAddr>, bool> addresses;  // whether it is secondary
  std::map<Prefix, mrib::UnicastRoute> routes;
  std::map<Prefix, std::set<Line>> mroutes;

  Mrib mrib() const {
    Mrib all;
    for (const auto& [prefix, lines] : mroutes) route(prefix, all);
    for (const auto& [prefix, unicast] : routes) route(prefix, all);
    std::erase_if(all, [](const auto& r) { return r.second.nextHops.empty(); });
    return all;
  }
  /// The route of a prefix, and in `done` that of all that it takes; without next hops when there is none.
  mrib::Route route(const Prefix& prefix, Mrib& done) const {
    if (const auto found = done.find(prefix); found != done.end()) return found->second;
    mrib::Route answer{prefix};
    if (const auto u = routes.find(prefix);
        u != routes.end() && u->second.type == mrib::RouteType::connected) {
      answer.preference = u->second.preference;
      for (const mrib::Gateway& hop : u->second.nextHops) add(answer, hop.gateway.v4Addr(), hop.link);
      if (!answer.nextHops.empty()) answer.type = mrib::RouteType::connected;
    }
    mrib::Route configured{prefix};
    if (const auto lines = mroutes.find(prefix); lines != mroutes.end()) {
      for (const Line& line : lines->second) {
        if (!configured.nextHops.empty() && configured.preference != line.preference) break;
        configured.preference = static_cast<U8>(line.preference);
        resolve(prefix, line, configured, done);
      }
    }
    if (!configured.nextHops.empty()) {
      const bool twin = answer.type == mrib::RouteType::connected;
      answer = configured;
      answer.type = twin ? mrib::RouteType::connected : mrib::RouteType::multicastStatic;
    }
    std::sort(answer.nextHops.begin(), answer.nextHops.end());
    return done[prefix] = answer;
  }
  /// Adds what a line comes to; whether it resolves.
  bool resolve(const Prefix& prefix, const Line& line, mrib::Route& into, Mrib& done) const {
    const auto address = addressOf(line);
    if (!address || isHeld(prefix, line)) return false;
    for (int length = 32; length > 0; --length) {
      const Prefix match(*address, static_cast<U32>(length));
      if (leadsNowhere(prefix, match)) return false;
      if (!routes.contains(match) && !mroutes.contains(match)) continue;
      const mrib::Route through = route(match, done);
      if (through.nextHops.empty()) continue;
      if (!line.name.empty()) {
        add(into, *address, linkOf(line.name));
        return true;
      }
      const bool connected = through.type == mrib::RouteType::connected;
      for (const mrib::NextHop& hop : through.nextHops)
        add(into, connected ? *address : hop.address, hop.link);
      return true;
    }
    return false;
  }

  // ---- Circles ----
  static bool leadsNowhere(const Prefix& from, const Prefix& to) {
    return to.length() == 0 || (to.length() <= from.length() && to.contains(from.address()));
  }
  /// The configured prefixes that a line could resolve through with some connected routes.
  std::set<Prefix> targets(const Prefix& from, const Line& line) const {
    std::set<Prefix> all;
    const auto address = addressOf(line);
    for (const auto& [to, lines] : mroutes) {
      if (address && to.contains(*address) && !leadsNowhere(from, to)) all.insert(to);
    }
    return all;
  }
  bool reaches(const Prefix& from, const Prefix& to, bool byNameToo, std::set<Prefix>& seen) const {
    if (from == to) return true;
    if (!seen.insert(from).second) return false;
    for (const Line& line : mroutes.at(from)) {
      if (!line.name.empty() && !byNameToo) continue;
      for (const Prefix& next : targets(from, line)) {
        if (reaches(next, to, byNameToo, seen)) return true;
      }
    }
    return false;
  }
  bool isOnCircle(const Prefix& prefix, const Line& line, bool byNameToo) const {
    for (const Prefix& next : targets(prefix, line)) {
      std::set<Prefix> seen;
      if (reaches(next, prefix, byNameToo, seen)) return true;
    }
    return false;
  }
  bool isHeld(const Prefix& prefix, const Line& line) const { return isOnCircle(prefix, line, true); }
  /// Whether a circle is there whatever addresses the interfaces have.
  bool isRefused() const {
    for (const auto& [prefix, lines] : mroutes) {
      for (const Line& line : lines) {
        if (line.name.empty() && isOnCircle(prefix, line, false)) return true;
      }
    }
    return false;
  }

  // ---- Interfaces ----
  U32 linkOf(const std::string& name) const {
    for (const auto& [index, link] : links) {
      if (link.name == name) return index;
    }
    return 0;
  }
  std::optional<IpAddr> addressOf(const Line& line) const {
    if (line.name.empty()) return line.address;
    const U32 link = linkOf(line.name);
    for (const auto& [key, secondary] : addresses) {
      if (link != 0 && key.first == link && !secondary) return key.second;
    }
    return std::nullopt;
  }
  void add(mrib::Route& route, IpAddr address, U32 link) const {
    const mrib::NextHop hop{address, links.contains(link) ? link : 0};
    if (std::find(route.nextHops.begin(), route.nextHops.end(), hop) == route.nextHops.end()) {
      route.nextHops.push_back(hop);
    }
  }
};
