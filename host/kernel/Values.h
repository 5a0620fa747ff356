#pragma once

#include <string>
#include <vector>

#include "Clock.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"

/// What a router's kernel knows, as values. Numbers are the kernel's own (linux/rtnetlink.h), so that what is
/// read from it, from files and from a simulation is the same record.
namespace host::kernel {

using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

struct Link {
  /// What becomes of a link when the one below it goes down.
  enum class Follows : U8 {
    nothing,
    state,   ///< it goes down, too, and comes up again with it (VLAN)
    carrier  ///< it loses its carrier (macvlan, the other end of a veth pair)
  };

  U32 index = 0;
  std::string name;
  std::vector<std::string> alternativeNames;
  bool up = false;       ///< as configured
  bool lowerUp = false;  ///< has carrier; false while the link is down
  bool running = false;  ///< operational; false while the link is down
  U8 operState = 0;      ///< IF_OPER_*
  U32 master = 0;        ///< index of the bridge, bond or VRF it belongs to, or 0
  U32 vrfTable = 0;      ///< the table of a VRF device; 0 for every other link
  U32 lower = 0;         ///< index of the link that it follows, or 0
  Follows follows = Follows::nothing;
  bool loopback = false;
  friend bool operator==(const Link&, const Link&) = default;
};

struct Address {
  U32 link = 0;
  IpGenAddr local;
  IpGenAddr peer;  ///< the other end of a point-to-point address; `local` where there is none
  U8 length = 0;   ///< of the subnet, or of the peer's prefix
  U8 scope = 0;
  bool secondary = false;
  bool noPrefixRoute = false;  ///< the kernel makes no connected route of it
  U32 metric = 0;              ///< of its connected route
  bool tentative = false;      ///< IPv6, not the router's own until duplicate detection is through
  friend bool operator==(const Address&, const Address&) = default;
};

struct Hop {
  enum Flag : U8 { dead = 1, onlink = 4, linkdown = 16 };

  IpGenAddr gateway;  ///< empty: what the route leads to is on the link itself
  U32 link = 0;
  U8 flags = 0;
  friend bool operator==(const Hop&, const Hop&) = default;
  friend auto operator<=>(const Hop&, const Hop&) = default;
};

/// A next-hop object: a hop, a blackhole or a group of other objects.
struct NextHop {
  U32 id = 0;
  bool blackhole = false;
  Hop hop;
  std::vector<U32> group;  ///< identifiers; with members, `hop` means nothing
  friend bool operator==(const NextHop&, const NextHop&) = default;
};

enum class RouteType : U8 {
  unspecified,
  unicast,
  local,
  broadcast,
  anycast,
  multicast,
  blackhole,
  unreachable,
  prohibit,
  throwing,
  nat
};

struct Route {
  IpGenPrefix prefix;
  U32 table = 0;
  U32 metric = 0;
  U8 tos = 0;
  RouteType type = RouteType::unicast;
  U8 protocol = 0;   ///< RTPROT_*
  U8 scope = 0;      ///< RT_SCOPE_*
  U32 nextHop = 0;   ///< identifier of a next-hop object, or 0
  IpGenAddr source;  ///< that the router prefers on it; the route goes with that address. Empty: any
  /// A hash of what tells routes to one prefix apart but matters to nobody here (metrics, weights). 0 where
  /// it is not known, as in files.
  U32 rest = 0;
  std::vector<Hop> hops;  ///< with a next-hop object: what the kernel says it stands for, if it does
  friend bool operator==(const Route&, const Route&) = default;
};

/// Routes to one prefix are tried in this order: those for a TOS first, then by metric.
constexpr U64 rankOf(U8 tos, U32 metric) {
  return U64{0xFFu - tos} << 32 | metric;
}

}  // namespace host::kernel
