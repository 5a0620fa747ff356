#include "Feed.h"

#include "Error.h"

namespace host {

using mrib::RouteType;

namespace {

RouteType routeTypeOf(const KernelRoute& route) {
  if (route.connected) return RouteType::connected;
  if (route.preference <= 1) return RouteType::ipStatic;
  return route.protocol == "bgp" ? RouteType::egp : RouteType::igp;
}

/// Kernels have routes for groups among the unicast ones; no packet comes from there.
bool isOfGroups(const Lumo::Prefix& prefix) {
  const Lumo::Prefix groups(Lumo::IpAddr::fromHost(0xE0000000), 4);
  return prefix.length() >= groups.length() && groups.contains(prefix.address());
}

void addRoutes(mrib::Transaction& t, const KernelState& kernel) {
  std::vector<mrib::Gateway> hops;
  for (const KernelRoute& route : kernel.routes) {
    if (isOfGroups(route.prefix)) continue;
    hops.clear();
    for (const NextHop& hop : route.nextHops) hops.push_back({Lumo::IpGenAddr(hop.gateway), hop.link});
    t.route(route.prefix, routeTypeOf(route), route.preference, hops);
  }
}

}  // namespace

void feed(mrib::Agent& agent, const KernelState& kernel, const std::vector<MrouteLine>& lines) {
  mrib::Transaction t;
  for (const Link& link : kernel.links) t.link({link.index, link.name, link.up});
  for (const Address& a : kernel.addresses) t.address({a.link, Lumo::IpGenAddr(a.address), a.secondary});
  addRoutes(t, kernel);
  for (const MrouteLine& line : lines) {
    if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf)) {
      t.mroute(line.prefix, Lumo::IpGenAddr(*address), line.preference, line.origin);
    } else {
      t.mroute(line.prefix, std::get<std::string>(line.rpf), line.preference, line.origin);
    }
  }
  const mrib::CommitResult result = agent.commit(t);
  if (result) return;
  std::string text;
  for (const mrib::Refusal& refusal : result.refusals) text += "\n  " + refusal.text;
  throw Error("refused:" + (result.refusals.size() == 1 ? text.substr(2) : text));
}

}  // namespace host
