#include <algorithm>

#include "Error.h"
#include "ImaginedKernel.h"

// The addresses of an imagined kernel, and the routes that come and go with them.

namespace host::kernel {

using Lumo::IpAddr;
using Lumo::Prefix;

namespace {

constexpr U8 protocolKernel = 2;
constexpr U8 scopeLink = 253;
constexpr U8 scopeHost = 254;
constexpr U32 tableMain = 254;

Prefix subnetOf(const Address& address) {
  return {address.peer.v4Addr(), address.length};
}

bool isInSubnetOf(const Address& other, const Address& address) {
  return other.length == address.length && subnetOf(other) == subnetOf(address);
}

}  // namespace

std::vector<Address*> ImaginedKernel::addressesOf(U32 link) {
  std::vector<Address*> all;
  for (Address& address : addresses_) {
    if (address.link == link) all.push_back(&address);
  }
  return all;
}

bool ImaginedKernel::isOwn(const IpGenAddr& local) const {
  return std::any_of(addresses_.begin(), addresses_.end(),
                     [&](const Address& address) { return address.local == local && isHeld(address); });
}

/// Of a subnet that has more than two addresses, or of all.
bool ImaginedKernel::isBroadcast(IpAddr address) const {
  constexpr U8 longest = 30;
  return address.host() == ~U32{0} ||
         std::any_of(addresses_.begin(), addresses_.end(), [&](const Address& a) {
           const Prefix subnet = subnetOf(a);
           return a.length <= longest && links_.at(a.link).up && isHeld(a) && subnet.contains(address) &&
                  address.host() == (subnet.address().host() | ~Prefix::mask(a.length));
         });
}

/// For the table whose routes this knows.
bool ImaginedKernel::isHeld(const Address& address) const {
  return tableOf(links_.at(address.link)) == (vrf_ == 0 ? tableMain : vrf_);
}

U32 ImaginedKernel::tableOf(const Link& link) const {
  const auto master = links_.find(link.master);
  const U32 table = link.vrfTable != 0 || master == links_.end() ? link.vrfTable : master->second.vrfTable;
  return table == 0 ? tableMain : table;
}

bool ImaginedKernel::isConnecting(const Address& address) const {
  const Link& link = links_.at(address.link);
  const Prefix subnet = subnetOf(address);
  const bool isLonely = address.length == 32 && subnet.address() == address.local.v4Addr();
  return link.up && !link.loopback && !address.secondary && !address.noPrefixRoute && !isLonely &&
         subnet.address().host() >> 24 != 0 && tableOf(link) == known_.settings().table;
}

Route ImaginedKernel::connectedBy(const Address& address) const {
  const Link& link = links_.at(address.link);
  Route route;
  route.prefix = subnetOf(address);
  route.table = known_.settings().table;
  route.metric = address.metric;
  route.protocol = protocolKernel;
  route.scope = scopeLink;
  route.source = address.local;
  route.hops.push_back({IpGenAddr(), link.index, flagsOver(link)});
  return route;
}

void ImaginedKernel::connect(const Address& address) {
  if (isConnecting(address)) put(connectedBy(address), RouteRequest::Verb::append);
}

void ImaginedKernel::disconnect(const Address& address) {
  const auto at = isConnecting(address) ? routes_.find(subnetOf(address)) : routes_.end();
  if (at == routes_.end()) return;
  const auto gone = std::find_if(at->second.begin(), at->second.end(), [&](const Route& route) {
    return route.tos == 0 && route.type == RouteType::unicast && route.scope == scopeLink &&
           route.protocol == protocolKernel && route.source == address.local && route.nextHop == 0 &&
           route.hops.front().link == address.link;
  });
  if (gone != at->second.end()) at->second.erase(gone);
}

void ImaginedKernel::addAddress(U32 link, IpAddr local, U8 length) {
  Address address;
  address.link = link;
  address.local = address.peer = IpGenAddr(local);
  address.length = length;
  address.scope = local.host() >> 24 == 127 ? scopeHost : U8{0};
  for (const Address* other : addressesOf(link)) {
    if (!isInSubnetOf(*other, address)) continue;
    if (other->local == address.local) throw Error("the link has this address already");
    if (other->scope != address.scope) throw Error("the link has an address of another scope in this subnet");
    address.secondary = true;
  }
  addresses_.push_back(address);
  connect(address);
  if (links_.at(link).up) flagHops(link, Hop::dead);
}

void ImaginedKernel::erase(const Address& address) {
  std::erase_if(addresses_, [key = Topology::keyOf(address)](const Address& other) {
    return Topology::keyOf(other) == key;
  });
}

/// Routes that prefer an address as their source go when nobody has it any more.
void ImaginedKernel::drop(const Address& address) {
  disconnect(address);
  erase(address);
  if (!isOwn(address.local)) {
    eraseRoutesIf([&](const Route& route) { return route.source == address.local; });
  }
}

/// Secondaries go with their primary, unless one of them takes its place. With its last address a link gives
/// up IPv4, and all routes over it.
void ImaginedKernel::deleteAddress(U32 link, IpAddr local, std::optional<U8> length) {
  const auto found = std::find_if(addresses_.begin(), addresses_.end(), [&](const Address& a) {
    return a.link == link && a.local == IpGenAddr(local) &&
           (!length || (a.length == *length && subnetOf(a) == Prefix(local, *length)));
  });
  if (found == addresses_.end()) throw Error("the link has no such address");
  const Address gone = *found;
  std::vector<Address> secondaries;
  for (const Address& other : addresses_) {
    const bool follows = other.link == link && other.secondary && isInSubnetOf(other, gone);
    if (follows && !gone.secondary) secondaries.push_back(other);
  }
  const bool promotes = isOn_("promote_secondaries", links_.at(link).name);
  for (const Address& secondary : secondaries) {
    if (!promotes) drop(secondary);
  }
  drop(gone);
  if (promotes && !secondaries.empty()) {
    erase(secondaries.front());
    secondaries.front().secondary = false;
    addresses_.push_back(secondaries.front());
    connect(secondaries.front());
  }
  if (addressesOf(link).empty()) killHops(link, true);
}

}  // namespace host::kernel
