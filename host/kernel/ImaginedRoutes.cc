#include <algorithm>

#include "Error.h"
#include "Escape.h"
#include "Groups.h"
#include "ImaginedKernel.h"

// What Linux makes of a request for a route.

namespace host::kernel {

using Lumo::IpAddr;
using Lumo::Prefix;
using Verb = RouteRequest::Verb;

namespace {

constexpr U8 protocolBoot = 3;
constexpr U8 scopeUniverse = 0;
constexpr U8 scopeLink = 253;
constexpr U8 scopeHost = 254;
constexpr U8 scopeNowhere = 255;
constexpr U32 tableLocal = 255;

/// But for what passes (their flags) and what no request says (metrics, weights).
bool isSame(const Route& a, const Route& b) {
  const auto sameHop = [](const Hop& x, const Hop& y) {
    return x.gateway == y.gateway && x.link == y.link && ((x.flags ^ y.flags) & Hop::onlink) == 0;
  };
  return a.type == b.type && a.protocol == b.protocol && a.scope == b.scope && a.nextHop == b.nextHop &&
         a.source == b.source &&
         std::equal(a.hops.begin(), a.hops.end(), b.hops.begin(), b.hops.end(), sameHop);
}

/// Those that lead nowhere.
bool isRejecting(RouteType type) {
  return type == RouteType::blackhole || type == RouteType::unreachable || type == RouteType::prohibit ||
         type == RouteType::throwing;
}

bool isLocal(RouteType type) {
  return type == RouteType::local || type == RouteType::broadcast || type == RouteType::anycast;
}

/// That of a request which names none.
U8 scopeOf(const RouteRequest& request) {
  if (request.type == RouteType::local) return scopeHost;
  if (isLocal(request.type) || request.type == RouteType::multicast) return scopeLink;
  if (request.verb == Verb::del) return scopeNowhere;
  const bool isUnicast = request.type == RouteType::unspecified || request.type == RouteType::unicast;
  const bool isDirect = !request.isMultipath && request.nextHop == 0 && !request.legs.empty() &&
                        request.legs.front().gateway == IpGenAddr();
  return isUnicast && isDirect ? scopeLink : scopeUniverse;
}

/// Routes of this type reach no farther.
U8 widestScopeOf(RouteType type) {
  return type == RouteType::local ? scopeHost : isLocal(type) ? scopeLink : scopeUniverse;
}

}  // namespace

// ---- The route that a request means ----

/// Those that a next-hop object stands for.
std::vector<Hop> ImaginedKernel::hopsBy(U32 id) const {
  std::vector<Hop> hops;
  const auto object = nextHops_.find(id);
  if (object == nextHops_.end()) return hops;
  if (object->second.group.empty()) hops.push_back(object->second.hop);
  for (const U32 member : object->second.group) {
    if (const auto leg = nextHops_.find(member); leg != nextHops_.end()) hops.push_back(leg->second.hop);
  }
  return hops;
}

/// The way to a gateway: to one of the router's own addresses, else by routes whose scope is that of a link
/// at least; by one link, when it is not 0. Nothing: there is none.
std::optional<Hop> ImaginedKernel::wayTo(IpAddr gateway, U32 link, U8 scope) const {
  const U8 least = std::max(scopeLink, static_cast<U8>(scope + 1));
  for (const Address& address : addresses_) {
    const bool isIt =
        address.local == IpGenAddr(gateway) && (link == 0 || address.link == link) && isHeld(address);
    if (isIt && least <= scopeHost) return Hop{IpGenAddr(), address.link, 0};
  }
  for (U32 length = Prefix::maxLength + 1; length-- > 0;) {
    const auto at = routes_.find(Prefix(gateway, length));
    if (at == routes_.end()) continue;
    for (const Route& route : at->second) {
      if (route.tos != 0 || route.scope < least) continue;
      if (route.type != RouteType::unicast && route.type != RouteType::local) return std::nullopt;
      const std::vector<Hop> hops = route.nextHop == 0 ? route.hops : hopsBy(route.nextHop);
      for (const Hop& hop : hops) {
        if (!isDead(hop) && (link == 0 || hop.link == link)) return hop;
      }
    }
  }
  return std::nullopt;
}

Hop ImaginedKernel::hopOf(const RouteRequest::Leg& leg, U8 scope) const {
  Hop hop{leg.gateway, 0, leg.onlink ? U8{Hop::onlink} : U8{0}};
  if (!leg.link.empty()) hop.link = linkNamed(leg.link);
  const std::string gateway = leg.gateway.stringValue();
  const bool isDirect = leg.gateway == IpGenAddr();
  const bool isIpv4 = leg.gateway.af() == Lumo::ipv4() && !isDirect;
  if (isIpv4 && (groups.contains(leg.gateway.v4Addr()) || isBroadcast(leg.gateway.v4Addr())))
    throw Error("the gateway " + gateway + " is a group or broadcast address");
  if (isIpv4 && !leg.onlink) {
    const auto way = wayTo(leg.gateway.v4Addr(), hop.link, scope);
    if (!way) throw Error("the gateway " + gateway + " is on no link" + (leg.link.empty() ? "" : " there"));
    hop.link = way->link;
  }
  if (leg.onlink && isDirect) throw Error("onlink is for gateways");
  if (leg.onlink && isOwn(leg.gateway))
    throw Error("the gateway " + gateway + " is the router's own address");
  const auto found = links_.find(hop.link);
  if (found == links_.end()) throw Error("it needs a link (dev NAME)");
  const Link& link = found->second;
  if (scope == scopeHost) return hop;
  if (leg.gateway.af() == Lumo::ipv6() && link.loopback)
    throw Error("no IPv6 gateway is beyond a loopback link");
  if (!link.up) throw Error("link " + escaped(link.name) + " is down");
  hop.flags |= flagsOver(link);
  return hop;
}

/// Those that a request writes down, where its scope goes with them and with those of its object.
std::vector<Hop> ImaginedKernel::hopsOf(const RouteRequest& request, U8 scope) const {
  std::vector<Hop> hops;
  for (const RouteRequest::Leg& leg : request.legs) hops.push_back(hopOf(leg, scope));
  const std::vector<Hop> ways = request.nextHop == 0 ? hops : hopsBy(request.nextHop);
  if (scope == scopeHost && (ways.size() != 1 || ways.front().gateway != IpGenAddr()))
    throw Error("a route of scope host has one next hop, without a gateway");
  if (scope >= scopeLink && !ways.empty() && (ways.front().flags & Hop::onlink) != 0)
    throw Error("onlink does not go with scope link or host");
  return hops;
}

Route ImaginedKernel::routeOf(const RouteRequest& request) const {
  Route route;
  route.prefix = request.prefix;
  route.table = known_.settings().table;
  route.type = request.type == RouteType::unspecified ? RouteType::unicast : request.type;
  route.protocol = request.protocol.value_or(protocolBoot);
  route.metric = request.metric;
  route.tos = request.tos;
  route.nextHop = request.nextHop;
  route.source = request.source;
  route.scope = request.scope.value_or(scopeOf(request));
  const bool isReal = isRejecting(route.type) || route.scope <= scopeHost;
  if (!isReal || route.scope < widestScopeOf(route.type)) throw Error("no route of this type has that scope");
  if (request.nextHop != 0) {
    const auto object = nextHops_.find(request.nextHop);
    if (object == nextHops_.end()) throw Error("there is no such next-hop object");
    if (object->second.blackhole) route.type = RouteType::unicast;  // as mirrors have it: the object says it
  }
  if (isRejecting(route.type)) {
    if (!request.legs.empty()) throw Error("a route of this type has no next hop");
    return route;
  }
  if (request.legs.empty() && request.nextHop == 0) throw Error("it needs a next hop (via, dev or nhid)");
  if (request.source != IpGenAddr() && !isOwn(request.source)) {
    throw Error("the preferred source is no address of this router");
  }
  route.hops = hopsOf(request, route.scope);
  return route;
}

// ---- Its place among others ----

void ImaginedKernel::put(const Route& route, Verb verb) {
  List& list = routes_[route.prefix.v4Prefix()];
  const U64 rank = rankOf(route.tos, route.metric);
  const auto isFrom = [&](U64 least) {
    return [least](const Route& r) { return rankOf(r.tos, r.metric) >= least; };
  };
  const auto first = std::find_if(list.begin(), list.end(), isFrom(rank));
  const auto end = std::find_if(first, list.end(), isFrom(rank + 1));
  const auto same = std::find_if(first, end, [&](const Route& r) { return isSame(r, route); });
  if (first == end) {
    if (verb == Verb::change) throw Error("there is no such route to change");
    list.insert(first, route);
  } else if (verb == Verb::replace || verb == Verb::change) {
    if (same != end && same != first) throw Error("there is such a route already, and it is not the first");
    *first = route;
  } else if (verb == Verb::add || (same != end && route.protocol != 2)) {
    throw Error("there is such a route already");
  } else if (same == end) {
    list.insert(verb == Verb::append ? end : first, route);
  }
}

void ImaginedKernel::changeRoute(const RouteRequest& request) {
  if (request.table.value_or(isLocal(request.type) ? tableLocal : known_.settings().table) !=
      known_.settings().table) {
    throw Error("that is not the table that the unicast routes are read from");
  }
  if (request.nextHop != 0 && !request.legs.empty()) throw Error("it has next hops of its own beside nhid");
  if (request.verb == Verb::del) return deleteRoute(request);
  const Route route = routeOf(request);
  put(route, request.verb);
}

bool ImaginedKernel::matchesHops(const Route& route, const RouteRequest& request) const {
  if (request.nextHop != 0) return route.nextHop == request.nextHop;
  if (request.legs.empty()) return true;
  if (route.nextHop != 0 || route.hops.empty()) return false;
  const auto matchesLeg = [&](const RouteRequest::Leg& leg, const Hop& hop) {
    return (leg.link.empty() || linkNamed(leg.link) == hop.link) &&
           (leg.gateway == IpGenAddr() || leg.gateway == hop.gateway);
  };
  if (!request.isMultipath) return matchesLeg(request.legs.front(), route.hops.front());
  return route.hops.size() <= request.legs.size() &&
         std::equal(route.hops.begin(), route.hops.end(), request.legs.begin(),
                    [&](const Hop& hop, const auto& leg) { return matchesLeg(leg, hop); });
}

bool ImaginedKernel::matches(const Route& route, const RouteRequest& request) const {
  const U8 scope = request.scope.value_or(scopeOf(request));
  return route.tos == request.tos && (request.metric == 0 || request.metric == route.metric) &&
         (request.type == RouteType::unspecified || request.type == route.type) &&
         (scope == scopeNowhere || scope == route.scope) &&
         (request.source == IpGenAddr() || request.source == route.source) &&
         (!request.protocol || *request.protocol == route.protocol) && matchesHops(route, request);
}

void ImaginedKernel::deleteRoute(const RouteRequest& request) {
  const auto at = routes_.find(request.prefix);
  if (at == routes_.end() || at->second.empty()) {
    throw Error("there is no route to " + request.prefix.stringValue());
  }
  const auto gone = std::find_if(at->second.begin(), at->second.end(),
                                 [&](const Route& route) { return matches(route, request); });
  if (gone == at->second.end()) {
    throw Error("none of the routes to " + request.prefix.stringValue() + " is such a route");
  }
  at->second.erase(gone);
}

}  // namespace host::kernel
