#include "ImaginedKernel.h"

#include <linux/if.h>

#include <algorithm>

#include "Error.h"

// What an imagined kernel is made of and made into, and what its links do.

namespace host::kernel {

namespace {

constexpr U8 scopeHost = 254;

bool uses(const std::vector<Hop>& hops, U32 link) {
  return std::any_of(hops.begin(), hops.end(), [&](const Hop& hop) { return hop.link == link; });
}

}  // namespace

// ---- From a mirror, and back ----

ImaginedKernel::ImaginedKernel(const Mirror& mirror, LinkSwitch isOn)
    : known_(mirror), isOn_(std::move(isOn)), vrf_(mirror.topology().vrfOf(mirror.settings().table)) {
  const Topology& topology = mirror.topology();
  for (const auto& [index, entry] : topology.links.all()) links_.emplace(index, entry.value.link);
  for (const auto& [key, entry] : topology.addresses.all()) {
    if (entry.value.local.af() != Lumo::ipv4() || !links_.contains(entry.value.link)) continue;
    addresses_.push_back(entry.value);
    take(Lumo::Prefix(entry.value.local.v4Addr(), Lumo::Prefix::maxLength));  // what the address hides
    take(Lumo::Prefix(entry.value.peer.v4Addr(), entry.value.length));        // and stands beside
  }
  for (const auto& [id, entry] : topology.nextHops.all()) nextHops_.emplace(id, entry.value);
  const auto mayAttach = [](U32 nextHop, const std::vector<Hop>& hops) {
    return nextHop != 0 ||
           std::any_of(hops.begin(), hops.end(), [](const Hop& hop) { return hop.gateway == IpGenAddr(); });
  };
  mirror.routes(Lumo::ipv4()).forEachPrefix(mayAttach, [&](const IpGenPrefix& p) { take(p.v4Prefix()); });
}

void ImaginedKernel::take(const Lumo::Prefix& prefix) {
  if (routes_.contains(prefix)) return;
  List list;
  known_.routes(Lumo::ipv4()).forEachOf(prefix, [&](const Route& route, bool certain) {
    if (!certain) return;
    list.push_back(route);
    list.back().table = known_.settings().table;
  });
  routes_.emplace(prefix, std::move(list));
}

std::size_t ImaginedKernel::takeOver(const std::set<U32>& links, std::size_t most) {
  std::size_t left = 0;
  const auto wanted = [&](U32, const std::vector<Hop>& hops) {
    return std::any_of(hops.begin(), hops.end(), [&](const Hop& hop) { return links.contains(hop.link); });
  };
  known_.routes(Lumo::ipv4()).forEachPrefix(wanted, [&](const IpGenPrefix& prefix) {
    if (routes_.contains(prefix.v4Prefix())) return;
    if (most == 0) {
      ++left;
    } else {
      --most;
      take(prefix.v4Prefix());
    }
  });
  return left;
}

std::unique_ptr<Mirror> ImaginedKernel::mirrored() const {
  Mirror::Settings settings = known_.settings();
  settings.ipv6 = false;
  auto mirror = std::make_unique<Mirror>(settings, 0);
  for (Mirror::Action action; (action = mirror->next(0)).kind != Mirror::Action::Kind::wait;) {
    if (action.kind != Mirror::Action::Kind::dump) continue;
    const auto give = [&](auto body) { mirror->answered({action.sequence, 0, std::move(body)}, 0); };
    if (action.dump == Dump::links) {
      for (const auto& [index, link] : links_) give(LinkChange{link});
    } else if (action.dump == Dump::addresses) {
      for (const Address& address : addresses_) give(AddressChange{address});
    } else if (action.dump == Dump::nextHops) {
      for (const auto& [id, nextHop] : nextHops_) give(NextHopChange{nextHop});
    } else {
      for (const auto& [prefix, list] : routes_) {
        for (const Route& route : list) {
          give(RouteChange{route});
        }
      }
    }
    give(DumpEnd{});
  }
  return mirror;
}

std::vector<Lumo::Prefix> ImaginedKernel::prefixes() const {
  std::vector<Lumo::Prefix> all;
  for (const auto& [prefix, list] : routes_) all.push_back(prefix);
  return all;
}

// ---- Links ----

U32 ImaginedKernel::linkNamed(const std::string& name) const {
  for (const auto& [index, link] : links_) {
    const auto& others = link.alternativeNames;
    if (link.name == name || std::find(others.begin(), others.end(), name) != others.end()) return index;
  }
  throw Error("there is no such link");
}

std::set<U32> ImaginedKernel::withFollowers(U32 first) const {
  std::set<U32> all;
  std::vector<U32> next{first};
  while (!next.empty()) {
    const U32 index = next.back();
    next.pop_back();
    if (!all.insert(index).second) continue;
    for (const auto& [other, link] : links_) {
      if (link.lower == index) next.push_back(other);
    }
    if (const U32 master = links_.at(index).master; links_.contains(master)) next.push_back(master);
  }
  return all;
}

/// The links above a link, and the bridge or bond that it belongs to. A VRF has its carrier from nobody.
template <class F>
void ImaginedKernel::forDependents(const Link& link, F each) {
  for (auto& [index, other] : links_) {
    if (other.lower == link.index) each(other);
  }
  const auto master = links_.find(link.master);
  if (master != links_.end() && master->second.vrfTable == 0) each(master->second);
}

/// Of a pair, one end has it when the other is up; a bridge or a bond has that of any member.
bool ImaginedKernel::hasCarrier(const Link& link) const {
  const auto lower = links_.find(link.lower);
  if (lower != links_.end()) {
    const bool isPair = lower->second.lower == link.index;
    return isPair ? lower->second.up : lower->second.lowerUp;
  }
  bool hasMembers = false;
  for (const auto& [index, member] : links_) {
    if (member.master != link.index || link.vrfTable != 0) continue;
    if (member.lowerUp) return true;
    hasMembers = true;
  }
  return !hasMembers;
}

void ImaginedKernel::linkIs(U32 index, bool up) {
  Link& link = links_.at(index);
  if (link.up == up) return;
  const auto lower = links_.find(link.lower);
  if (up && link.follows == Link::Follows::state && lower != links_.end() && !lower->second.up) {
    throw Error("the link below it is down");
  }
  if (up) {
    comeUp(link);
  } else {
    goDown(link);
  }
}

void ImaginedKernel::goDown(Link& link) {
  link.up = link.lowerUp = link.running = false;
  link.operState = IF_OPER_DOWN;
  eraseNextHopsOver(link.index);
  killHops(link.index, false);
  forDependents(link, [&](Link& other) {
    if (other.follows == Link::Follows::state && other.up && other.lower == link.index) return goDown(other);
    if (!hasCarrier(other)) loseCarrier(other);
  });
}

void ImaginedKernel::comeUp(Link& link) {
  link.up = true;
  link.lowerUp = link.running = hasCarrier(link);
  link.operState = link.lowerUp ? IF_OPER_UP : IF_OPER_DOWN;
  for (const Address* address : addressesOf(link.index)) connect(*address);
  flagHops(link.index, Hop::dead);
  forDependents(link, [&](Link& other) {
    const bool follows = other.follows == Link::Follows::state && other.lower == link.index;
    if (follows && !other.up) return comeUp(other);
    gainCarrier(other);
  });
}

void ImaginedKernel::loseCarrier(Link& link) {
  if (!link.lowerUp) return;
  const U8 had = flagsOver(link);
  link.lowerUp = link.running = false;
  link.operState = IF_OPER_LOWERLAYERDOWN;
  eraseNextHopsOver(link.index);
  flagHops(link.index, had);
  forDependents(link, [&](Link& other) {
    if (!hasCarrier(other)) loseCarrier(other);
  });
}

void ImaginedKernel::gainCarrier(Link& link) {
  if (!link.up || link.lowerUp || !hasCarrier(link)) return;
  const U8 had = flagsOver(link);
  link.lowerUp = link.running = true;
  link.operState = IF_OPER_UP;
  flagHops(link.index, had);
  forDependents(link, [&](Link& other) { gainCarrier(other); });
}

// ---- What links take along, and give back ----

/// Those of a next hop over a link that is up.
U8 ImaginedKernel::flagsOver(const Link& link) const {
  if (link.lowerUp) return 0;
  return isOn_("ignore_routes_with_linkdown", link.name) ? Hop::dead | Hop::linkdown : Hop::linkdown;
}

/// A next hop that only shows as dead, because its link has no carrier, is there still.
bool ImaginedKernel::isDead(const Hop& hop) const {
  const auto link = links_.find(hop.link);
  return (hop.flags & Hop::dead) != 0 &&
         (link == links_.end() || !link->second.up || flagsOver(link->second) != (hop.flags & ~Hop::onlink));
}

void ImaginedKernel::eraseRoutesIf(const std::function<bool(Route&)>& matches) {
  for (auto& [prefix, list] : routes_) std::erase_if(list, matches);
}

/// A route goes with its last leg. Local ones go with the last address only.
void ImaginedKernel::killHops(U32 link, bool alsoOwn) {
  eraseRoutesIf([&](Route& route) {
    if (!uses(route.hops, link) || (route.scope == scopeHost && !alsoOwn)) return false;
    for (Hop& hop : route.hops) {
      if (hop.link == link) hop.flags |= Hop::dead | Hop::linkdown;
    }
    return std::all_of(route.hops.begin(), route.hops.end(), [&](const Hop& hop) { return isDead(hop); });
  });
}

/// Legs over a link that is up show how it is. `had` are the flags that they showed: those that were dead by
/// themselves stay so.
void ImaginedKernel::flagHops(U32 link, U8 had) {
  const U8 flags = flagsOver(links_.at(link));
  for (auto& [prefix, list] : routes_) {
    for (Route& route : list) {
      for (Hop& hop : route.hops) {
        if (hop.link != link) continue;
        const int own = Hop::onlink | (Hop::dead & ~had);
        hop.flags = static_cast<U8>((hop.flags & own) | flags);
      }
    }
  }
}

void ImaginedKernel::eraseNextHopsOver(U32 link) {
  std::vector<U32> gone;
  for (const auto& [id, object] : nextHops_) {
    if (object.group.empty() && !object.blackhole && object.hop.link == link) gone.push_back(id);
  }
  for (const U32 id : gone) eraseNextHop(id);
}

/// A group goes with its last member, and routes with their object.
void ImaginedKernel::eraseNextHop(U32 id) {
  nextHops_.erase(id);
  eraseRoutesIf([&](const Route& route) { return route.nextHop == id; });
  std::vector<U32> gone;
  for (auto& [group, object] : nextHops_) {
    if (std::erase(object.group, id) > 0 && object.group.empty()) gone.push_back(group);
  }
  for (const U32 group : gone) eraseNextHop(group);
}

}  // namespace host::kernel
