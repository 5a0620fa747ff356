#include "VirtualKernel.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>

using namespace host::kernel;

namespace {

constexpr U8 protocolKernel = 2;
constexpr U8 passing = Hop::dead | Hop::linkdown;

U64 rank(const Route& r) {
  return U64{0xFFu - r.tos} << 32 | r.metric;
}

bool isSame(Route a, Route b) {
  for (Route* r : {&a, &b}) {
    for (Hop& h : r->hops) h.flags &= static_cast<U8>(~passing);
  }
  return a == b;
}

IpGenAddr host4(U32 subnet, U32 last) {
  return IpGenAddr(Lumo::IpAddr::fromHost(0x0A000000 | subnet << 8 | last));
}

IpGenPrefix subnetOf(const Address& a) {
  const U32 mask = Lumo::Prefix::mask(a.length);
  return IpGenPrefix(Lumo::IpAddr::fromHost(a.peer.v4Addr().host() & mask), a.length);
}

}  // namespace

VirtualKernel::VirtualKernel(Dice& dice, const host::Nanos& now) : dice_(dice), now_(now) {
  reset();
}

void VirtualKernel::reset() {
  links_.clear();
  addresses_.clear();
  nextHops_.clear();
  tables_.clear();
  ignoresLinkdown_ = false;
  for (U32 i = 1; i <= 3; ++i) {
    links_[i] = {i, "eth" + std::to_string(i), {}, true, true, true, 6, 0, 0};
    addresses_.push_back({i, host4(i, 1), host4(i, 1), 24, 0, false, false});
    connect(addresses_.back());
  }
  dropDeadRoutes();
  loseEvents();
}

// ---- Routes ----

Hop VirtualKernel::hop() {
  const bool direct = dice_(3) == 0;
  const U8 flags = !direct && dice_(6) == 0 ? Hop::onlink : Hop::Flag{};
  return {direct ? IpGenAddr() : host4(dice_(4), 200 + dice_(2)), 1 + dice_(4), flags};
}

Route VirtualKernel::route() {
  static const std::vector<IpGenPrefix> direct{IpGenPrefix("10.0.1.0/25"), IpGenPrefix("10.0.2.0/24"),
                                               IpGenPrefix("10.0.9.1/32"), IpGenPrefix("10.0.9.2/32"),
                                               IpGenPrefix("232.0.0.0/8"), IpGenPrefix("20.0.0.0/8")};
  static const std::vector<IpGenPrefix> distant{IpGenPrefix("0.0.0.0/0"), IpGenPrefix("20.0.0.0/8"),
                                                IpGenPrefix("21.0.0.0/8"), IpGenPrefix("20.1.0.0/16")};
  Route r;
  r.table = mainTable;
  r.metric = dice_(3);
  r.tos = dice_(8) == 0 ? 16 : 0;
  r.protocol = dice_(2) ? 3 : 11;
  const bool isDirect = dice_(2) == 0;
  const auto& prefixes = isDirect ? direct : distant;
  r.prefix = prefixes[dice_(static_cast<U32>(prefixes.size()))];
  if (const U32 kind = dice_(6); kind == 0) {
    r.type = static_cast<RouteType>(static_cast<U32>(RouteType::blackhole) + dice_(4));
  } else if (kind == 1 && !nextHops_.empty()) {
    r.nextHop = std::next(nextHops_.begin(), dice_(static_cast<U32>(nextHops_.size())))->first;
  } else {
    for (U32 n = 1 + dice_(4) / 3; n > 0; --n) {
      r.hops.push_back(hop());
      if (isDirect) r.hops.back() = {{}, r.hops.back().link, 0};
    }
    if (kind == 2 && isDirect) r.type = static_cast<RouteType>(static_cast<U32>(RouteType::local) + dice_(4));
  }
  r.rest = dice_(6) == 0;
  if (!addresses_.empty() && dice_(6) == 0) {
    r.source = addresses_[dice_(static_cast<U32>(addresses_.size()))].local;
  }
  return r;
}

void VirtualKernel::addRoute() {
  const Route r = route();
  const bool stands = std::all_of(r.hops.begin(), r.hops.end(), [&](const Hop& h) {
    return links_.contains(h.link) && links_.at(h.link).up;
  });
  if (stands) insert(r, dice_(4));
}

/// As fib_table_insert() does it; the verbs are add, prepend, append and replace.
bool VirtualKernel::insert(Route r, U32 verb) {
  for (Hop& h : r.hops) h.flags |= links_.at(h.link).lowerUp ? Hop::Flag{} : Hop::linkdown;
  auto& list = tables_[r.table][r.prefix];
  const auto first =
      std::find_if(list.begin(), list.end(), [&](const Route& o) { return rank(o) >= rank(r); });
  const auto end = std::find_if(first, list.end(), [&](const Route& o) { return rank(o) > rank(r); });
  const bool known = std::any_of(first, end, [&](const Route& o) { return isSame(o, r); });
  if (known || (verb == 0 && first != end)) return false;
  U16 flags = NLM_F_CREATE | NLM_F_EXCL;
  if (first == end) {
    list.insert(first, r);
  } else if (verb == 3) {
    *first = r;
    flags = NLM_F_REPLACE;
  } else {
    list.insert(verb == 1 ? first : end, r);
    flags = static_cast<U16>(verb == 1 ? NLM_F_CREATE : NLM_F_CREATE | NLM_F_APPEND);
  }
  tell(RouteChange{r}, flags);
  if (r.table == exportTable) followed_[r.prefix] = r.protocol == 220 && r.metric == 220;
  return true;
}

void VirtualKernel::lose(const IpGenPrefix& prefix) {
  if (const auto at = followed_.find(prefix); at != followed_.end()) at->second = false;
}

void VirtualKernel::erase(const Route& route) {
  auto& list = tables_[route.table][route.prefix];
  const auto at = std::find_if(list.begin(), list.end(), [&](const Route& r) { return isSame(r, route); });
  if (at == list.end()) return;
  tell(RouteChange{*at, true});
  if (route.table == exportTable) lose(route.prefix);
  list.erase(at);
}

std::vector<VirtualKernel::Route> VirtualKernel::routesOf(U32 table) {
  std::vector<Route> all;
  for (const auto& [prefix, list] : tables_[table]) all.insert(all.end(), list.begin(), list.end());
  return all;
}

void VirtualKernel::deleteRoute(U32 table) {
  const auto all = routesOf(table);
  if (!all.empty()) erase(all[dice_(static_cast<U32>(all.size()))]);
}

/// Somebody else writes to the table that the daemon exports to, mostly where that has written.
void VirtualKernel::changeExported() {
  if (dice_(3) == 0) return deleteRoute(exportTable);
  Route r = route();
  r.table = exportTable;
  r.tos = 0;
  r.protocol = dice_(2) ? 220 : 99;
  r.metric = dice_(2) ? 220 : 5;
  std::vector<IpGenPrefix> used;
  for (const auto& [prefix, list] : tables_[exportTable]) {
    if (!list.empty()) used.push_back(prefix);
  }
  if (!used.empty() && dice_(4) != 0) r.prefix = used[dice_(static_cast<U32>(used.size()))];
  const int fault = faultOf(r);
  if (fault == 0 || fault == EEXIST) insert(r, r.protocol == 220 ? 0 : dice_(4));
}

/// For want of room, only what it takes to tell good gateways from bad ones.
int VirtualKernel::faultOf(const Route& route) {
  for (const Hop& h : route.hops) {
    const auto link = links_.find(h.link);
    if (link == links_.end()) return ENODEV;
    if (!link->second.up) return ENETDOWN;
    if (h.gateway == IpGenAddr() || (h.flags & Hop::onlink) != 0) continue;
    const bool reachable =
        std::any_of(tables_[mainTable].begin(), tables_[mainTable].end(), [&](const auto& t) {
          return t.first.v4Prefix().contains(h.gateway.v4Addr()) &&
                 std::any_of(t.second.begin(), t.second.end(), [&](const Route& r) {
                   return std::any_of(r.hops.begin(), r.hops.end(),
                                      [&](const Hop& o) { return o.link == h.link; });
                 });
        });
    if (!reachable) return ENETUNREACH;
  }
  const auto& list = tables_[route.table][route.prefix];
  const bool taken =
      std::any_of(list.begin(), list.end(), [&](const Route& o) { return rank(o) == rank(route); });
  return taken ? EEXIST : 0;
}

int VirtualKernel::write(const RouteOp& op) {
  if (op.add) {
    const int fault = faultOf(op.route);
    if (fault == 0) insert(op.route, 0);
    return fault;
  }
  for (Route& r : std::vector(tables_[op.route.table][op.route.prefix])) {
    Route asked = op.route;  // what a request does not say, any has
    asked.rest = r.rest;
    asked.source = r.source;
    if (isSame(r, asked)) return erase(r), 0;
  }
  return ESRCH;
}

/// What it says of a route: also what a next-hop object stands for, and which legs are not used.
Route VirtualKernel::shown(Route r) const {
  const auto add = [&](const NextHop& object) {
    object.blackhole ? void(r.type = RouteType::blackhole) : r.hops.push_back(object.hop);
  };
  if (const auto object = nextHops_.find(r.nextHop); object != nextHops_.end()) {
    if (object->second.group.empty()) add(object->second);
    for (const U32 id : object->second.group) add(nextHops_.at(id));
  }
  for (Hop& h : r.hops) h.flags |= ignoresLinkdown_ && (h.flags & Hop::linkdown) ? Hop::dead : Hop::Flag{};
  return r;
}

// ---- Links ----

VirtualKernel::Link* VirtualKernel::someLink() {
  return links_.empty() ? nullptr
                        : &std::next(links_.begin(), dice_(static_cast<U32>(links_.size())))->second;
}

void VirtualKernel::legsAre(U32 link, U8 flag, bool set) {
  for (auto& [number, table] : tables_) {
    for (auto& [prefix, list] : table) {
      for (Route& r : list) {
        for (Hop& h : r.hops) {
          if (h.link != link || r.type == RouteType::local) continue;
          h.flags = static_cast<U8>(set ? h.flags | flag : h.flags & ~flag);
        }
      }
    }
  }
}

/// In silence.
template <class F>
void VirtualKernel::dropRoutesIf(F matches) {
  for (auto& [number, table] : tables_) {
    for (auto& [prefix, list] : table) {
      if (std::erase_if(list, matches) > 0 && number == exportTable) lose(prefix);
    }
  }
}

/// Without its last leg a route goes.
void VirtualKernel::dropDeadRoutes() {
  const auto isDead = [](const Hop& h) { return (h.flags & Hop::dead) != 0; };
  dropRoutesIf(
      [&](const Route& r) { return !r.hops.empty() && std::all_of(r.hops.begin(), r.hops.end(), isDead); });
}

/// A link that comes up announces its connected routes only; legs over it come back by themselves.
void VirtualKernel::linkIs(Link& link, bool up) {
  if (link.up == up) return;
  link.up = link.lowerUp = link.running = up;
  legsAre(link.index, Hop::dead | (up ? Hop::linkdown : 0), !up);
  dropDeadRoutes();
  if (!up) eraseNextHopsOn(link.index);
  tell(LinkChange{link});
  if (!up) return;
  for (const Address& a : addresses_) {
    if (a.link == link.index) connect(a);
  }
}

void VirtualKernel::carrierIs(Link& link, bool carrier) {
  if (!link.up || link.lowerUp == carrier) return;
  link.lowerUp = link.running = carrier;
  legsAre(link.index, Hop::linkdown, !carrier);
  if (!carrier) eraseNextHopsOn(link.index);
  tell(LinkChange{link});
}

/// Names and alternative names are unique. Of the latter nobody is told while the link is down.
void VirtualKernel::rename() {
  Link* link = someLink();
  if (!link) return;
  const bool alternative = dice_(2) == 0;
  const std::string name = (alternative ? "other" : "eth") + std::to_string(1 + dice_(5));
  for (const auto& [index, other] : links_) {
    const bool has = std::count(other.alternativeNames.begin(), other.alternativeNames.end(), name) > 0;
    if (other.name == name || (has && index != link->index)) return;
  }
  if (!alternative) link->name = name;
  if (alternative && std::erase(link->alternativeNames, name) == 0) link->alternativeNames.push_back(name);
  if (!alternative || link->up) return tell(LinkChange{*link});
  hiding_ = true;
}

void VirtualKernel::makeLink() {
  const U32 index = 1 + dice_(5);
  const std::string name = "eth" + std::to_string(1 + dice_(5));
  const auto taken = [&](const auto& l) { return l.first == index || l.second.name == name; };
  if (std::any_of(links_.begin(), links_.end(), taken)) return;
  const bool up = dice_(2) == 0;
  const U32 table = dice_(6) == 0 ? vrfTable : 0;
  tell(LinkChange{links_[index] = {index, name, {}, up, up, up, 6, 0, table}});
}

/// A VRF takes a link down and up again, into or out of its table.
void VirtualKernel::masterIs(Link& link, U32 master) {
  if (link.master == master || link.index == master || (master != 0 && !links_.contains(master))) return;
  const U32 before = vrfTableOf(link);
  link.master = master;
  tell(LinkChange{link});
  if (vrfTableOf(link) == before || !link.up) return;
  linkIs(link, false);
  linkIs(link, true);
}

U32 VirtualKernel::vrfTableOf(const Link& link) const {
  if (link.vrfTable != 0) return link.vrfTable;
  return link.master == 0 ? 0 : links_.at(link.master).vrfTable;
}

void VirtualKernel::deleteLink() {
  Link* link = someLink();
  if (!link) return;
  linkIs(*link, false);
  const U32 index = link->index;
  for (const Address& a : std::vector(addresses_)) {
    if (a.link == index) deleteAddress(a);
  }
  dropRoutesIf([&](const Route& r) {
    return std::any_of(r.hops.begin(), r.hops.end(), [&](const Hop& h) { return h.link == index; });
  });
  for (auto& [other, slave] : links_) {
    if (slave.master == index) masterIs(slave, 0);
  }
  tell(LinkChange{*link, true});
  links_.erase(index);
}

// ---- Addresses ----

void VirtualKernel::connect(const Address& a) {
  if (a.secondary || !links_.at(a.link).up) return;
  Route r;
  r.prefix = subnetOf(a);
  r.table = tableOf(a.link);
  r.protocol = protocolKernel;
  r.scope = RT_SCOPE_LINK;
  r.hops = {{{}, a.link, 0}};
  insert(r, 2);
}

/// The first address of a link lets dead legs live again.
void VirtualKernel::addAddress() {
  const Link* link = someLink();
  if (!link) return;
  Address a;
  a.link = link->index;
  a.local = host4(dice_(4), 1 + dice_(2));
  a.peer = dice_(4) == 0 ? host4(9, 1 + dice_(2)) : a.local;
  a.length = a.peer == a.local ? 24 : 32;
  const auto isOf = [&](const Address& o) { return o.link == a.link; };
  for (const Address& o : addresses_) {
    if (isOf(o) && o.local == a.local) return;
    a.secondary |= isOf(o) && o.length == a.length && subnetOf(o) == subnetOf(a);
  }
  const bool isFirst = std::none_of(addresses_.begin(), addresses_.end(), isOf);
  addresses_.push_back(a);
  tell(AddressChange{a});
  if (dice_(10) == 0) tell(AddressChange{a});
  connect(a);
  if (isFirst && link->up) legsAre(a.link, Hop::dead, false);
}

/// Takes its secondaries along, or the first takes its place, and as the last one of its link all routes over
/// that.
void VirtualKernel::deleteAddress(Address a) {
  const auto same = [&](const Address& o) { return o.link == a.link && o.local == a.local; };
  const auto at = std::find_if(addresses_.begin(), addresses_.end(), same);
  if (at == addresses_.end()) return;
  a = *at;
  addresses_.erase(at);
  const bool promotes = faulty_ && dice_(2) == 0;
  const auto follows = [&](const Address& o) {
    return !a.secondary && o.link == a.link && o.secondary && subnetOf(o) == subnetOf(a);
  };
  for (const Address& o : std::vector(addresses_)) {
    if (!promotes && follows(o)) deleteAddress(o);
  }
  tell(AddressChange{a, true});
  const auto isHere = [&](const Address& o) { return o.local == a.local; };
  if (std::none_of(addresses_.begin(), addresses_.end(), isHere)) {
    dropRoutesIf([&](const Route& r) { return r.source == a.local; });
  }
  if (!a.secondary) {
    for (const Route& r : std::vector(tables_[tableOf(a.link)][subnetOf(a)])) {
      if (r.protocol == protocolKernel && r.hops.front().link == a.link) erase(r);
    }
  }
  if (const auto next = std::find_if(addresses_.begin(), addresses_.end(), follows);
      next != addresses_.end()) {
    next->secondary = false;
    tell(AddressChange{*next});
    connect(*next);
  }
  if (std::any_of(addresses_.begin(), addresses_.end(), [&](const Address& o) { return o.link == a.link; }))
    return;
  legsAre(a.link, Hop::dead, true);
  dropRoutesIf([&](const Route& r) { return r.type == RouteType::local && r.hops[0].link == a.link; });
  dropDeadRoutes();
  eraseNextHopsOn(a.link);
}

// ---- Next-hop objects ----

/// With the routes that use it, and them in silence. Of it and of its groups only those who asked are told.
void VirtualKernel::eraseNextHop(U32 id, bool isAsked) {
  nextHops_.erase(id);
  ++changes_;
  if (isAsked) tell(NextHopChange{{id, false, {}, {}}, true});
  dropRoutesIf([&](const Route& r) { return r.nextHop == id; });
  for (U32 group = 4; group <= 5; ++group) {
    const auto at = nextHops_.find(group);
    if (at == nextHops_.end() || std::erase(at->second.group, id) == 0) continue;
    if (at->second.group.empty()) {
      eraseNextHop(group, isAsked);
    } else if (isAsked) {
      tell(NextHopChange{at->second});
    }
  }
}

void VirtualKernel::eraseNextHopsOn(U32 link) {
  for (U32 id = 1; id <= 3; ++id) {
    const auto at = nextHops_.find(id);
    if (at != nextHops_.end() && !at->second.blackhole && at->second.hop.link == link)
      eraseNextHop(id, false);
  }
}

/// Objects 1 to 3 are hops or blackholes, which are alone in a group; 4 and 5 are groups. Routes by one that
/// changes, be it in a group, are told of again, in place.
void VirtualKernel::changeNextHop() {
  NextHop object;
  object.id = 1 + dice_(5);
  if (dice_(3) == 0) {
    if (nextHops_.contains(object.id)) eraseNextHop(object.id, true);
    return;
  }
  object.blackhole = object.id <= 3 && dice_(4) == 0;
  object.hop = object.id <= 3 && !object.blackhole ? hop() : Hop();
  const auto link = links_.find(object.hop.link);
  if (object.hop.link != 0 && (link == links_.end() || !link->second.lowerUp)) return;
  for (U32 member = 1; member <= 3 && object.id > 3; ++member) {
    if (nextHops_.contains(member) && dice_(2)) object.group.push_back(member);
  }
  if (object.id > 3 && object.group.empty()) return;
  auto before = nextHops_;
  nextHops_[object.id] = object;
  const auto isBlackhole = [&](U32 id) { return nextHops_.at(id).blackhole; };
  for (const auto& [id, o] : nextHops_) {
    if (o.group.size() > 1 && std::any_of(o.group.begin(), o.group.end(), isBlackhole))
      return nextHops_.swap(before);
  }
  tell(NextHopChange{object});
  for (const Route& r : before.contains(object.id) ? routesOf(mainTable) : std::vector<Route>()) {
    const auto used = nextHops_.find(r.nextHop);
    if (used == nextHops_.end()) continue;
    const auto& group = used->second.group;
    const bool isIn = std::count(group.begin(), group.end(), object.id) > 0;
    if (r.nextHop == object.id || isIn) tell(RouteChange{r}, NLM_F_REPLACE);
  }
}

// ---- Chance ----

const char* VirtualKernel::change() {
  Link* link = someLink();
  const U32 what = dice_(26);
  if (what < 6) return addRoute(), "adds a route";
  if (what < 9) return deleteRoute(mainTable), "deletes a route";
  if (what < 12) return link ? linkIs(*link, !link->up) : void(), "link up or down";
  if (what < 13) return link ? carrierIs(*link, !link->lowerUp) : void(), "carrier";
  if (what < 14) return link ? masterIs(*link, dice_(2) ? 1 + dice_(5) : 0) : void(), "another master";
  if (what < 15) return rename(), "renames";
  if (what < 16) return deleteLink(), "deletes a link";
  if (what < 18) return makeLink(), "makes a link";
  if (what < 20) return addAddress(), "adds an address";
  if (what < 21) {
    if (!addresses_.empty()) deleteAddress(addresses_[dice_(static_cast<U32>(addresses_.size()))]);
    return "deletes an address";
  }
  if (what < 23) return changeNextHop(), "next-hop object";
  if (what < 24) return ignoresLinkdown_ ^= dice_(2) == 0, tell(SettingChange{}), "setting";
  return changeExported(), "exported table";
}
