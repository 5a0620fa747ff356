#include "SimulatedKernel.h"

#include <linux/netlink.h>

#include <algorithm>

using namespace host::kernel;

namespace {

constexpr U32 linkCount = 3;
constexpr U32 prefixCount = 6;
constexpr U32 tableMain = 254;

U64 rank(const Route& r) {
  return U64{0xFFu - r.tos} << 32 | r.metric;
}

bool usesLink(const Route& r, U32 link) {
  return std::any_of(r.hops.begin(), r.hops.end(), [&](const Hop& h) { return h.link == link; });
}

}  // namespace

SimulatedKernel::SimulatedKernel(U32 seed) : random_(seed) {
  for (U32 i = 1; i <= linkCount; ++i) {
    Link link;
    link.index = i;
    link.name = "eth" + std::to_string(i);
    link.up = link.lowerUp = link.running = true;
    links_[i] = link;
  }
  for (int i = 0; i < 10; ++i) addRoute();
  events.clear();
}

Hop SimulatedKernel::hop() {
  return {IpGenAddr(Lumo::IpAddr::fromHost(0x0A000000 + pick(4))), 1 + pick(linkCount), 0};
}

Route SimulatedKernel::route() {
  Route r;
  r.prefix = IpGenPrefix(Lumo::IpAddr::fromHost((20 + pick(prefixCount)) << 24), 8);
  r.table = tableMain;
  r.metric = pick(3);
  r.tos = pick(8) == 0 ? 16 : 0;
  if (pick(4) == 0 && !nextHops_.empty()) {
    r.nextHop = std::next(nextHops_.begin(), pick(static_cast<U32>(nextHops_.size())))->first;
  } else {
    for (U32 n = 1 + pick(4) / 3; n > 0; --n) r.hops.push_back(hop());
  }
  return r;
}

/// As fib_table_insert() does it.
void SimulatedKernel::addRoute() {
  const Route r = route();
  for (const Hop& h : r.hops) {
    if (!links_[h.link].up) return;
  }
  auto& list = routes_[r.prefix];
  const auto first =
      std::find_if(list.begin(), list.end(), [&](const Route& o) { return rank(o) >= rank(r); });
  const auto end = std::find_if(first, list.end(), [&](const Route& o) { return rank(o) > rank(r); });
  const bool known = std::find(first, end, r) != end;
  const U32 verb = pick(replaces ? 4 : 3);  // add, prepend, append, replace
  if (known || (verb == 0 && first != end)) return;
  if (first == end) {
    list.insert(first, r);
    return tell(RouteChange{r}, NLM_F_CREATE | NLM_F_EXCL);
  }
  if (verb == 3) {
    *first = r;
    return tell(RouteChange{r}, NLM_F_REPLACE);
  }
  list.insert(verb == 1 ? first : end, r);
  tell(RouteChange{r}, static_cast<U16>(verb == 1 ? NLM_F_CREATE : NLM_F_CREATE | NLM_F_APPEND));
}

void SimulatedKernel::deleteRoute() {
  const auto at = routes_.find(route().prefix);
  if (at == routes_.end() || at->second.empty()) return;
  const auto gone = at->second.begin() + pick(static_cast<U32>(at->second.size()));
  tell(RouteChange{*gone, true});
  at->second.erase(gone);
}

template <class F>
void SimulatedKernel::eraseRoutesIf(F matches) {
  for (auto& [prefix, list] : routes_) std::erase_if(list, matches);
}

/// Without its last leg a route goes, without a word; and so do the objects on the link.
void SimulatedKernel::toggleLink() {
  Link& link = links_[1 + pick(linkCount)];
  link.up = link.lowerUp = link.running = !link.up;
  for (auto& [prefix, list] : routes_) {
    for (Route& r : list) {
      for (Hop& h : r.hops) {
        if (h.link == link.index) h.flags = link.up ? 0 : Hop::dead;
      }
    }
  }
  const auto isDead = [](const Hop& h) { return (h.flags & Hop::dead) != 0; };
  eraseRoutesIf([&](const Route& r) {
    return usesLink(r, link.index) && std::all_of(r.hops.begin(), r.hops.end(), isDead);
  });
  for (U32 id = 1; id <= 3 && !link.up; ++id) {
    const auto at = nextHops_.find(id);
    if (at != nextHops_.end() && at->second.hop.link == link.index) eraseNextHop(id);
  }
  tell(LinkChange{link});
}

void SimulatedKernel::eraseNextHop(U32 id) {
  nextHops_.erase(id);
  eraseRoutesIf([&](const Route& r) { return r.nextHop == id; });
  for (U32 group = 4; group <= 5; ++group) {
    const auto at = nextHops_.find(group);
    if (at == nextHops_.end() || std::erase(at->second.group, id) == 0) continue;
    if (at->second.group.empty()) eraseNextHop(group);
  }
}

/// Objects 1 to 3 are hops, 4 and 5 groups.
void SimulatedKernel::changeNextHop() {
  NextHop object;
  object.id = 1 + pick(5);
  if (pick(3) == 0) {
    if (!nextHops_.contains(object.id)) return;
    eraseNextHop(object.id);
    return tell(NextHopChange{object, true});
  }
  object.hop = object.id <= 3 ? hop() : Hop();
  if (object.id <= 3 && !links_[object.hop.link].up) return;
  for (U32 member = 1; member <= 3 && object.id > 3; ++member) {
    if (nextHops_.contains(member) && pick(2)) object.group.push_back(member);
  }
  if (object.id > 3 && object.group.empty()) return;
  const bool isReplaced = nextHops_.contains(object.id);
  nextHops_[object.id] = object;
  tell(NextHopChange{object});
  for (const auto& [prefix, list] : routes_) {  // they are told of again, in place
    for (const Route& r : list) {
      if (isReplaced && r.nextHop == object.id) tell(RouteChange{r}, NLM_F_REPLACE);
    }
  }
}

void SimulatedKernel::change(bool silence) {
  const U32 what = pick(silence ? 10 : 7);
  if (what < 4) return addRoute();
  if (what < 7) return deleteRoute();
  if (what < 8) return toggleLink();
  changeNextHop();
}

void SimulatedKernel::startDump(Dump dump, U32 sequence) {
  dump_ = dump;
  sequence_ = sequence;
  dumping_ = true;
  from_ = {};
  answers.clear();
}

void SimulatedKernel::dumpPart() {
  if (!dumping_) return;
  const auto answer = [&](auto body) { answers.push_back({sequence_, NLM_F_MULTI, std::move(body)}); };
  if (dump_ == Dump::routes4) {
    if (const auto at = routes_.upper_bound(from_); at != routes_.end()) {
      from_ = at->first;
      for (const Route& r : at->second) answer(RouteChange{r});
      return;
    }
  }
  if (dump_ == Dump::links) {
    for (const auto& [index, link] : links_) answer(LinkChange{link});
  }
  if (dump_ == Dump::nextHops) {
    for (const auto& [id, nextHop] : nextHops_) answer(NextHopChange{nextHop});
  }
  answer(DumpEnd{});
  dumping_ = false;
}

std::unique_ptr<Mirror> SimulatedKernel::mirrored() {
  auto mirror = std::make_unique<Mirror>(Mirror::Settings(), 0);
  for (Mirror::Action action; (action = mirror->next(0)).kind != Mirror::Action::Kind::wait;) {
    if (action.kind != Mirror::Action::Kind::dump) continue;
    startDump(action.dump, action.sequence);
    while (dumping_) dumpPart();
    for (auto& event : answers) mirror->answered(event, 0);
  }
  mirror->takeChanges();
  return mirror;
}
