#include "Topology.h"

#include <algorithm>

namespace host::kernel {

const Link* Topology::link(U32 index) const {
  const auto* entry = links.find(index);
  return entry ? &entry->value.link : nullptr;
}

bool Topology::hasIpv4(U32 link) const {
  bool found = false;
  forEachIpv4Of(link, [&](const Address&) { found = true; });
  return found;
}

U32 Topology::vrfTableOf(const Link& link) const {
  if (link.vrfTable != 0) return link.vrfTable;
  const Link* master = link.master == 0 ? nullptr : this->link(link.master);
  return master ? master->vrfTable : 0;
}

U32 Topology::vrfOf(U32 table) const {
  const bool isVrf = std::any_of(links.all().begin(), links.all().end(),
                                 [&](const auto& l) { return l.second.value.link.vrfTable == table; });
  return isVrf ? table : 0;
}

std::map<IpGenAddr, U32> Topology::ownAddresses(U32 table) const {
  std::map<IpGenAddr, U32> own;
  forEachOwn(table, [&](const Address& address, const Link&) {
    if (!address.tentative) own.emplace(address.local, address.link);
  });
  return own;
}

bool Topology::isUsable(const Hop& hop, Epoch epoch) const {
  const Link* known = link(hop.link);
  return known && known->up && (known->lowerUp || !needsCarrier) && isConfirmed(hop, epoch) &&
         (hop.flags & Hop::dead) == 0;
}

bool Topology::isConfirmed(const Hop& hop, Epoch epoch) const {
  const auto* entry = links.find(hop.link);
  return entry && epoch > entry->value.down;
}

bool Topology::addUsable(U32 nextHop, Epoch epoch, std::vector<Hop>& hops) const {
  const auto* entry = nextHops.find(nextHop);
  // A route is younger than its object: an object that is younger took the place of one that went, and took
  // the routes of that one along.
  if (!entry || entry->born > epoch) return true;
  if (entry->value.blackhole) return false;
  const Epoch confirmed = std::min(epoch, entry->epoch);
  if (entry->value.group.empty() && isUsable(entry->value.hop, confirmed)) hops.push_back(entry->value.hop);
  for (const U32 member : entry->value.group) {
    const auto* leg = nextHops.find(member);
    if (!leg || leg->born > entry->epoch) continue;
    if (leg->value.blackhole) return false;
    if (isUsable(leg->value.hop, std::min(confirmed, leg->epoch))) hops.push_back(leg->value.hop);
  }
  return true;
}

}  // namespace host::kernel
