#include "Message.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>

#include "Names.h"
#include "Zan/Hash.h"

namespace host::kernel {

std::string text(Bytes payload, const char* what) {
  const auto* first = reinterpret_cast<const char*>(payload.data());
  std::string value(first, strnlen(first, payload.size()));
  if (value.empty()) throw MalformedBytes(std::string(what) + ": empty");
  return value;
}

IpGenAddr address(Bytes payload, const char* what) {
  if (payload.size() == 4) return IpGenAddr(Lumo::IpAddr::fromNetwork(number<U32>(payload, what)));
  return IpGenAddr(Lumo::Ip6Addr(number<Lumo::Ip6Addr::Bytes>(payload, what)));
}

namespace {

constexpr U8 hopFlags = Hop::dead | Hop::onlink | Hop::linkdown;
static_assert(RTNH_F_DEAD == Hop::dead && RTNH_F_ONLINK == Hop::onlink && RTNH_F_LINKDOWN == Hop::linkdown);
static_assert(RTN_THROW == static_cast<int>(RouteType::throwing));

bool isIp(U8 family) {
  return family == AF_INET || family == AF_INET6;
}

U32 hashOf(U32 seed, U16 type, Bytes payload) {
  U64 hash = Zan::mix(seed, type);
  for (const U8 byte : payload) hash = Zan::mix(hash, byte);
  return static_cast<U32>(hash) | 1;
}

/// The kind of a link, and of a VRF device its table.
void takeLinkInfo(Link& link, Bytes linkInfo) {
  bool isVrf = false;
  forAttributes(linkInfo, [&](U16 type, Bytes payload) {
    if (type == IFLA_INFO_KIND) {
      const std::string kind = text(payload, "link kind");
      isVrf = kind == "vrf";
      link.follows = followsOf(kind);
    }
    if (type != IFLA_INFO_DATA || !isVrf) return;
    forAttributes(payload, [&](U16 inner, Bytes value) {
      if (inner == IFLA_VRF_TABLE) link.vrfTable = number<U32>(value, "VRF table");
    });
  });
}

/// Bridges report their ports as links of a family of their own, wireless drivers report scans: neither says
/// anything about the link.
bool isAside(const ifinfomsg& info, bool wireless) {
  return info.ifi_family != AF_UNSPEC || wireless;
}

std::optional<Link> parseLink(Bytes body) {
  const auto info = take<ifinfomsg>(body, "link");
  Link link;
  bool wireless = false;
  bool isLowerElsewhere = false;  // in another namespace, where indices are others
  link.index = static_cast<U32>(info.ifi_index);
  link.up = (info.ifi_flags & IFF_UP) != 0;
  link.lowerUp = link.up && (info.ifi_flags & IFF_LOWER_UP) != 0;
  link.running = link.up && (info.ifi_flags & IFF_RUNNING) != 0;
  link.loopback = (info.ifi_flags & IFF_LOOPBACK) != 0;
  forAttributes(body, [&](U16 type, Bytes payload) {
    if (type == IFLA_IFNAME) link.name = text(payload, "link name");
    if (type == IFLA_OPERSTATE) link.operState = number<U8>(payload, "operational state");
    if (type == IFLA_MASTER) link.master = number<U32>(payload, "master");
    if (type == IFLA_LINKINFO) takeLinkInfo(link, payload);
    if (type == IFLA_LINK) link.lower = number<U32>(payload, "lower link");
    if (type == IFLA_LINK_NETNSID) isLowerElsewhere = true;
    if (type == IFLA_WIRELESS) wireless = true;
    if (type == IFLA_PROP_LIST) {
      forAttributes(payload, [&](U16 inner, Bytes name) {
        if (inner == IFLA_ALT_IFNAME) link.alternativeNames.push_back(text(name, "alternative name"));
      });
    }
  });
  if (isAside(info, wireless)) return std::nullopt;
  if (link.follows == Link::Follows::nothing || isLowerElsewhere) link.lower = 0;
  if (info.ifi_index <= 0 || link.name.empty()) throw MalformedBytes("link: without index or name");
  return link;
}

std::optional<Address> parseAddress(Bytes body) {
  const auto info = take<ifaddrmsg>(body, "address");
  if (!isIp(info.ifa_family)) return std::nullopt;
  Address result;
  U32 flags = info.ifa_flags;
  result.link = info.ifa_index;
  result.length = info.ifa_prefixlen;
  result.scope = info.ifa_scope;
  forAttributes(body, [&](U16 type, Bytes payload) {
    if (type == IFA_LOCAL) result.local = address(payload, "local address");
    if (type == IFA_ADDRESS) result.peer = address(payload, "address");
    if (type == IFA_RT_PRIORITY) result.metric = number<U32>(payload, "metric of an address");
    if (type == IFA_FLAGS) flags = number<U32>(payload, "address flags");
  });
  // IPv6 gives the local address only beside a peer.
  if (result.local == IpGenAddr()) result.local = result.peer;
  if (result.peer == IpGenAddr()) result.peer = result.local;
  const auto family = info.ifa_family == AF_INET ? Lumo::ipv4() : Lumo::ipv6();
  if (result.local.af() != family || result.peer.af() != family || result.link == 0 ||
      result.length > (family == Lumo::ipv4() ? 32 : 128)) {
    throw MalformedBytes("address: family, link or length");
  }
  result.secondary = info.ifa_family == AF_INET && (flags & IFA_F_SECONDARY) != 0;
  result.noPrefixRoute = (flags & IFA_F_NOPREFIXROUTE) != 0;
  result.tentative = (flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) != 0 && (flags & IFA_F_OPTIMISTIC) == 0;
  return result;
}

std::vector<U32> parseGroup(Bytes payload) {
  std::vector<U32> members;
  while (!payload.empty()) members.push_back(take<nexthop_grp>(payload, "next-hop group").id);
  return members;
}

/// Objects for bridges (fdb) are none that a route could use.
std::optional<NextHop> parseNextHop(Bytes body) {
  const auto info = take<nhmsg>(body, "next hop");
  NextHop result;
  bool fdb = false;
  result.hop.flags = static_cast<U8>(info.nh_flags & hopFlags);
  forAttributes(body, [&](U16 type, Bytes payload) {
    if (type == NHA_ID) result.id = number<U32>(payload, "next-hop id");
    if (type == NHA_GROUP) result.group = parseGroup(payload);
    if (type == NHA_BLACKHOLE) result.blackhole = true;
    if (type == NHA_OIF) result.hop.link = number<U32>(payload, "next-hop link");
    if (type == NHA_GATEWAY) result.hop.gateway = address(payload, "next-hop gateway");
    if (type == NHA_FDB) fdb = true;
  });
  if (fdb) return std::nullopt;
  if (result.id == 0) throw MalformedBytes("next hop: without id");
  return result;
}

/// A gateway of a family that is not the route's: the family, then the address.
IpGenAddr parseVia(Bytes payload) {
  const U16 family = take<U16>(payload, "via");
  if (family != AF_INET && family != AF_INET6) throw MalformedBytes("via: unknown family");
  return address(payload, "via");
}

void takeHopAttribute(Hop& hop, U16 type, Bytes payload) {
  if (type == RTA_GATEWAY) hop.gateway = address(payload, "gateway");
  if (type == RTA_VIA) hop.gateway = parseVia(payload);
}

std::vector<Hop> parseMultipath(Bytes payload, U32& rest) {
  std::vector<Hop> hops;
  while (!payload.empty()) {
    Bytes leg = payload;
    const auto head = take<rtnexthop>(leg, "next hop of a route");
    if (head.rtnh_len < sizeof head || head.rtnh_len > payload.size()) {
      throw MalformedBytes("next hop of a route: wrong length");
    }
    Hop hop;
    hop.link = static_cast<U32>(head.rtnh_ifindex);
    hop.flags = head.rtnh_flags & hopFlags;
    forAttributes(leg.first(head.rtnh_len - sizeof head),
                  [&](U16 type, Bytes value) { takeHopAttribute(hop, type, value); });
    hops.push_back(hop);
    rest = hashOf(rest, head.rtnh_hops, {});
    payload = payload.subspan(std::min<std::size_t>((head.rtnh_len + 3u) & ~3u, payload.size()));
  }
  return hops;
}

IpGenPrefix prefixOf(U8 family, const IpGenAddr& to, U8 length) {
  const bool v4 = family == AF_INET;
  if (length > (v4 ? 32 : 128)) throw MalformedBytes("route: length of its prefix");
  if (to != IpGenAddr() && to.af() != (v4 ? Lumo::ipv4() : Lumo::ipv6())) {
    throw MalformedBytes("route: family of its prefix");
  }
  if (v4) return IpGenPrefix(to.v4Addr(), length);
  return IpGenPrefix(Lumo::Ip6Prefix(to.v6Addr(), length));
}

/// Cache entries are no routes, and IPv6 routes that ask for a source prefix are none for every packet.
std::optional<Route> parseRoute(Bytes body) {
  const auto info = take<rtmsg>(body, "route");
  if (!isIp(info.rtm_family) || (info.rtm_flags & RTM_F_CLONED) != 0 || info.rtm_src_len != 0) {
    return std::nullopt;
  }
  Route route;
  Hop hop;
  IpGenAddr to;
  U32 weights = 0;
  bool multipath = false;
  hop.flags = static_cast<U8>(info.rtm_flags & hopFlags);
  route.table = info.rtm_table;
  forAttributes(body, [&](U16 type, Bytes payload) {
    takeHopAttribute(hop, type, payload);
    if (type == RTA_TABLE) route.table = number<U32>(payload, "table");
    if (type == RTA_DST) to = address(payload, "destination");
    if (type == RTA_PRIORITY) route.metric = number<U32>(payload, "metric");
    if (type == RTA_OIF) hop.link = number<U32>(payload, "link");
    if (type == RTA_NH_ID) route.nextHop = number<U32>(payload, "next-hop id");
    if (type == RTA_PREFSRC) route.source = address(payload, "preferred source");
    if (type == RTA_METRICS || type == RTA_FLOW) route.rest ^= hashOf(0, type, payload);
    if (type == RTA_MULTIPATH) {
      multipath = true;
      route.hops = parseMultipath(payload, weights);
    }
  });
  route.prefix = prefixOf(info.rtm_family, to, info.rtm_dst_len);
  route.tos = info.rtm_tos;
  route.type = static_cast<RouteType>(info.rtm_type);
  route.protocol = info.rtm_protocol;
  route.scope = info.rtm_scope;
  if (route.nextHop == 0) route.rest ^= weights;  // a group's weights are the group's
  if (!multipath && hop.link != 0) route.hops.push_back(hop);
  // The order of the legs of an IPv6 route is an accident of which one was asked about.
  if (info.rtm_family == AF_INET6) std::sort(route.hops.begin(), route.hops.end());
  return route;
}

template <class Change, class Parse>
void emit(Event& event, Bytes body, bool gone, Parse parse, const EventSink& sink) {
  if (auto value = parse(body)) {
    event.body = Change{std::move(*value), gone};
    sink(std::move(event));
  }
}

void parseBody(Event& event, U16 type, Bytes body, const EventSink& sink) {
  switch (type) {
    case NLMSG_ERROR:
      event.body = Refused{take<S32>(body, "error")};
      return sink(std::move(event));
    case NLMSG_DONE:
      event.body = DumpEnd{body.empty() ? 0 : take<S32>(body, "end of dump")};
      return sink(std::move(event));
    case NLMSG_OVERRUN:
      event.body = Lost{};
      return sink(std::move(event));
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return emit<LinkChange>(event, body, type == RTM_DELLINK, parseLink, sink);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return emit<AddressChange>(event, body, type == RTM_DELADDR, parseAddress, sink);
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
      return emit<NextHopChange>(event, body, type == RTM_DELNEXTHOP, parseNextHop, sink);
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return emit<RouteChange>(event, body, type == RTM_DELROUTE, parseRoute, sink);
    case RTM_NEWNETCONF:
      event.body = SettingChange{};
      return sink(std::move(event));
    default:
      return;
  }
}

}  // namespace

void parseMessages(Bytes datagram, const EventSink& sink) {
  try {
    forMessages(datagram, [&](const nlmsghdr& header, Bytes body) {
      Event event{header.nlmsg_seq, header.nlmsg_flags, {}};
      parseBody(event, header.nlmsg_type, body, sink);
    });
  } catch (const MalformedBytes& fault) {
    sink(Event{0, 0, Malformed{fault.what()}});
  }
}

}  // namespace host::kernel
