#include "KernelReader.h"

#include <algorithm>

#include "LiveMirror.h"
#include "Names.h"
#include "Saved.h"

namespace host {

namespace {

using kernel::Answer;

kernel::Mirror::Settings settings() {
  kernel::Mirror::Settings settings;
  settings.ipv6 = false;
  return settings;
}

/// The engine's next hops are of IPv4.
std::vector<NextHop> v4HopsOf(const Answer& answer) {
  std::vector<NextHop> hops;
  for (const kernel::Hop& hop : answer.hops) {
    if (hop.gateway.af() != Lumo::ipv6()) hops.push_back({hop.gateway.v4Addr(), hop.link});
  }
  return hops;
}

void addRoute(const kernel::IpGenPrefix& prefix, const Answer& answer, KernelState& state) {
  if (answer.kind != Answer::Kind::attached && answer.kind != Answer::Kind::gateway) return;
  std::vector<NextHop> hops = v4HopsOf(answer);
  if (hops.empty()) {
    state.notes.push_back("route " + prefix.stringValue() + " has no IPv4 next hop: left out");
    return;
  }
  const bool connected = answer.kind == Answer::Kind::attached;
  std::string protocol = kernel::protocolName(answer.protocol);
  const U8 preference = connected ? U8{0} : preferenceOf(protocol);
  state.routes.push_back(
      {prefix.v4Prefix(), connected, preference, std::move(protocol), answer.metric, std::move(hops)});
}

}  // namespace

KernelState stateOf(const kernel::Mirror& mirror) {
  KernelState state;
  for (const auto& [index, entry] : mirror.topology().links.all()) {
    state.links.push_back({index, entry.value.link.name, entry.value.link.up});
  }
  for (const auto& [key, entry] : mirror.topology().addresses.all()) {
    const kernel::Address& a = entry.value;
    if (a.local.af() != Lumo::ipv4()) continue;
    state.addresses.push_back({a.link, a.local.v4Addr(), a.length, a.secondary});
  }
  const kernel::RouteTable& routes = mirror.routes(Lumo::ipv4());
  state.routes.reserve(routes.routeCount());
  routes.forEachAnswer([&](const auto& prefix, const Answer& answer) { addRoute(prefix, answer, state); });
  normalise(state);
  return state;
}

KernelState readKernel() {
  kernel::LiveMirror live(settings(), kernel::monotonicNow());
  readAll(live);
  live.mirror().takeChanges();
  return stateOf(live.mirror());
}

KernelState readIpJson(const std::string& folder) {
  kernel::Mirror mirror(settings(), 0);
  readSaved(folder, mirror);
  mirror.takeChanges();
  return stateOf(mirror);
}

}  // namespace host
