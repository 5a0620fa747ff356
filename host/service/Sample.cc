#include "Sample.h"

#include <algorithm>

#include "ConfigText.h"
#include "Configurator.h"

namespace host {

using Lumo::IpAddr;
using Lumo::Prefix;

namespace {

bool overlap(const Prefix& a, const Prefix& b) {
  return a.length() < b.length() ? a.contains(b.address()) : b.contains(a.address());
}

/// Prefixes for documentation (RFC 5737) that are not this router's own.
std::vector<Prefix> freePrefixes(const std::vector<mrib::Route>& connected) {
  std::vector<Prefix> prefixes{Prefix("203.0.113.0/24"), Prefix("198.51.100.0/24"), Prefix("192.0.2.0/24")};
  std::erase_if(prefixes, [&](const Prefix& p) {
    return std::any_of(connected.begin(), connected.end(),
                       [&](const auto& r) { return r.prefix.length() > 0 && overlap(p, r.prefix); });
  });
  return prefixes;
}

/// An address in a subnet that is not the router's own.
IpAddr neighbourIn(const Prefix& subnet, const std::vector<OwnSubnet>& own) {
  U32 host = subnet.address().host() + 1;
  const auto isOurs = [&](const OwnSubnet& o) { return o.address.host() == host; };
  while (std::any_of(own.begin(), own.end(), isOurs)) ++host;
  return IpAddr::fromHost(host);
}

}  // namespace

std::string sampleConfiguration(const Router& router) {
  const std::vector<mrib::Route> connected = router.routes();
  const std::vector<Prefix> free = freePrefixes(connected);
  const std::vector<OwnSubnet> own = ownSubnetsOf(router.mirror());
  for (const mrib::Route& route : connected) {
    if (route.prefix.length() == 0 || route.prefix.length() > 28 || free.size() < 2) continue;
    const mrib::Link* link = router.agent().link(route.nextHops[0].link);
    if (!link) continue;
    const IpAddr neighbour = neighbourIn(route.prefix, own);
    const IpAddr inFirst = IpAddr::fromHost(free[0].address().host() + 7);
    Configuration sample;
    sample.mroutes = {{free[0], neighbour, 1, 0}, {free[0], link->name, 250, 0}, {free[1], inFirst, 1, 0}};
    if (!router.tryConfiguration(sample).refusals.empty()) continue;
    return "! A sample that fits this machine; the prefixes are from RFC 5737.\n" + textOf(sample);
  }
  return "";
}

}  // namespace host
