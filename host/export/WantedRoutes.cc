#include "WantedRoutes.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Escape.h"

namespace host {

using kernel::Hop;
using kernel::RouteType;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;

namespace {

constexpr int deepest = 32;            // ways through other configured routes
constexpr std::size_t mostWays = 128;  // more than readers take

}  // namespace

void WantedRoutes::configurationChanged() {
  lines_.clear();
  const auto& mroutes = router_.configuration().mroutes;
  const auto isNamed = [](const MrouteLine& line) { return line.neighbor != IpAddr(); };
  if (std::none_of(mroutes.begin(), mroutes.end(), isNamed)) return;
  for (const MrouteLine& line : mroutes) lines_.push_back(&line);
  std::sort(lines_.begin(), lines_.end(), [](Line a, Line b) { return a->prefix < b->prefix; });
}

/// Packets from where the MRIB has no route are dropped under mrib-only, which a look-up in the kernel finds
/// only if the table says so.
Wanted WantedRoutes::of(const Prefix& prefix) const {
  const bool forKernel = user_ == ExportFor::kernel;
  const bool mribOnly = router_.configuration().lookupMode == LookupMode::mribOnly;
  Wanted wanted;
  if (KernelFeed::isStandIn(prefix)) return wanted;
  const mrib::Route* route = router_.agent().route(prefix);
  const bool isMiss = route ? route->nextHops.empty() : prefix == Prefix() && mribOnly;
  if (isMiss && forKernel) wanted.type = RouteType::unreachable;
  if (!route || isMiss || (!forKernel && route->preference == 0)) return wanted;
  for (const mrib::NextHop& hop : route->nextHops) addWay(prefix, hop, wanted);
  if (!wanted.hops.empty()) wanted.type = RouteType::unicast;
  return wanted;
}

void WantedRoutes::addWay(const Prefix& prefix, const mrib::NextHop& hop, Wanted& wanted) const {
  if (hop.link == 0) return;
  if (!router_.isAttached(hop)) return addHop(IpGenAddr(hop.address), hop.link, wanted);
  if (user_ == ExportFor::kernel) return addHop({}, hop.link, wanted);
  if (addNeighbor(prefix, hop.link, wanted)) return;
  const std::string* name = router_.linkName(hop);
  const MrouteLine line{prefix, name ? *name : "INTERFACE", 1, 0};
  wanted.fault = fmt::format(
      "the neighbour on {} is not known: it is no point-to-point link with one peer, and none is named "
      "({} neighbor ADDRESS)",
      name ? escaped(*name) : "?", textOf(line));
}

bool WantedRoutes::addNeighbor(const Prefix& prefix, U32 link, Wanted& wanted) const {
  IpAddr neighbor = namedNeighbor(prefix, link);
  if (neighbor == IpAddr()) {
    const auto peers = peersOf(link);
    if (peers.size() != 1) return false;
    neighbor = *peers.begin();
  }
  addHop(IpGenAddr(neighbor), link, wanted);
  return true;
}

void WantedRoutes::addHop(const IpGenAddr& gateway, U32 link, Wanted& wanted) const {
  const bool direct = gateway == IpGenAddr();
  const Hop hop{gateway, link, direct || isOnLink(gateway, link) ? U8{0} : U8{Hop::onlink}};
  if (std::find(wanted.hops.begin(), wanted.hops.end(), hop) != wanted.hops.end()) return;
  if (wanted.hops.size() < mostWays) {
    wanted.hops.push_back(hop);
  } else {
    wanted.fault = fmt::format("it has more than {} ways, and the first of them are exported", mostWays);
  }
}

/// By an address of the router's: by a route alone it is to the kernel, and not to daemons that read the
/// table.
bool WantedRoutes::isOnLink(const IpGenAddr& gateway, U32 link) const {
  bool isInSubnet = false;
  router_.mirror().topology().forEachIpv4Of(link, [&](const kernel::Address& a) {
    isInSubnet |= Prefix(a.peer.v4Addr(), a.length).contains(gateway.v4Addr());
  });
  const kernel::Answer& answer = router_.mirror().answer(router_.mirror().longestMatch(gateway));
  return isInSubnet && answer.kind == kernel::Answer::Kind::attached &&
         std::any_of(answer.hops.begin(), answer.hops.end(), [&](const Hop& h) { return h.link == link; });
}

/// The line that leads to the link names it, be it by way of other lines.
IpAddr WantedRoutes::namedNeighbor(const Prefix& prefix, U32 link, int deep) const {
  const mrib::Route* route = router_.agent().route(prefix);
  if (!route || deep == deepest) return {};
  for (const Line line : linesOf(prefix)) {
    if (line->preference != route->preference) continue;
    if (const auto* name = std::get_if<std::string>(&line->rpf)) {
      const mrib::Link* known = router_.agent().link(link);
      if (known && known->name == router_.feed().agentName(*name)) return line->neighbor;
    } else if (const mrib::Route* through = router_.agent().rpf(std::get<IpAddr>(line->rpf))) {
      const IpAddr found = through == route ? IpAddr() : namedNeighbor(through->prefix, link, deep + 1);
      if (found != IpAddr()) return found;
    }
  }
  return {};
}

std::span<const WantedRoutes::Line> WantedRoutes::linesOf(const Prefix& prefix) const {
  const auto first =
      std::partition_point(lines_.begin(), lines_.end(), [&](Line line) { return line->prefix < prefix; });
  const auto end =
      std::partition_point(first, lines_.end(), [&](Line line) { return line->prefix == prefix; });
  return {first, end};
}

std::set<IpAddr> WantedRoutes::peersOf(U32 link) const {
  std::set<IpAddr> peers;
  router_.mirror().topology().forEachIpv4Of(link, [&](const kernel::Address& a) {
    if (a.peer != a.local && a.length == Prefix::maxLength) peers.insert(a.peer.v4Addr());
  });
  return peers;
}

}  // namespace host
