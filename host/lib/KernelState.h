#pragma once

#include <string>
#include <vector>

#include "Lumo/IpAddr.h"
#include "Lumo/Prefix.h"

namespace host {

struct Link {
  U32 index;
  std::string name;
  bool up;
};

struct Address {
  U32 link;
  Lumo::IpAddr address;
  U8 length;
  bool secondary;
};

struct NextHop {
  Lumo::IpAddr gateway;  ///< 0.0.0.0: the destination is on the link itself
  U32 link;
  friend bool operator==(const NextHop&, const NextHop&) = default;
};

struct KernelRoute {
  Lumo::Prefix prefix;
  bool connected;        ///< scope link and no gateway
  U8 preference;         ///< the usual administrative distance of its protocol
  std::string protocol;  ///< as `ip route` names it
  U32 metric;
  std::vector<NextHop> nextHops;
};

/// What a router's kernel knows: links, IPv4 addresses and the IPv4 unicast routes of the main table.
struct KernelState {
  std::vector<Link> links;
  std::vector<Address> addresses;
  std::vector<KernelRoute> routes;
  std::vector<std::string> notes;  ///< what was left out, for people

  const Link* link(U32 index) const;
  const Link* link(const std::string& name) const;
};

/// The usual administrative distance of a routing protocol as `ip route` names it; 200 for unknown ones.
U8 preferenceOf(const std::string& protocol);

/// Puts a state read from anywhere in order: of several routes to one prefix the one with the lowest metric
/// stays, and of more than 128 next hops the first 128.
void normalise(KernelState& state);

}  // namespace host
