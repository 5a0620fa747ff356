#include "judge.h"

#include "../RightAnswer.h"

// Asks an agent everything, as a host would, and has the plain recursion judge it.

namespace {

using Lumo::IpAddr;
using Lumo::Prefix;

RightAnswer inputs, present;
RightAnswer::Mrib answer, heard;
bool heardWrong = false;
U32 healed = 0;

template <class T>
IpAddr addressOf(const T& value) {
  return IpAddr::fromHost(U32{value.bytes[0]} << 24 | U32{value.bytes[1]} << 16 | U32{value.bytes[2]} << 8 |
                          value.bytes[3]);
}
Prefix prefixOf(const mrib_prefix& prefix) {
  return {addressOf(prefix), prefix.length};
}
RightAnswer::Line lineOf(const mrib_mroute& m) {
  const bool byName = m.rpf_address.family == MRIB_NONE;
  return {m.preference, byName ? m.rpf_interface : "", byName ? IpAddr() : addressOf(m.rpf_address)};
}
mrib::Route routeOf(const mrib_route& r) {
  mrib::Route route{prefixOf(r.prefix), mrib::RouteType{r.type}, r.preference};
  for (U32 i = 0; i < r.next_hop_count; ++i) {
    route.nextHops.push_back({addressOf(r.next_hops[i].neighbour), r.next_hops[i].link});
  }
  return route;
}

/// A route to be filled in, with room for its next hops.
struct Space {
  mrib_next_hop hops[8];
  mrib_route route{};
  Space() { route.size = sizeof route, route.next_hops = hops, route.next_hop_room = 8; }
};

void hear(void*, const mrib_update* update) {
  Space before, after;
  for (U32 i = 0; mrib_change_at(update, i, &before.route, &after.route) == MRIB_OK; ++i) {
    const mrib::Route now = routeOf(after.route);
    const auto was = heard.find(now.prefix);
    heardWrong |= !(routeOf(before.route) == (was == heard.end() ? mrib::Route{now.prefix} : was->second));
    heard[now.prefix] = now;
    if (after.route.type == 0) heard.erase(now.prefix);
  }
  if (update->flags & MRIB_UPDATE_SETTLED) healed += update->change_count;
}

bool isInForce(const Prefix& prefix, const RightAnswer::Line& line) {
  RightAnswer::Mrib done = answer;
  mrib::Route scratch{prefix};
  return present.resolve(prefix, line, scratch, done) && answer.at(prefix).preference == line.preference;
}

int unresolved(void* count, const mrib_unresolved* u) {
  ++*static_cast<U32*>(count);
  const Prefix prefix = prefixOf(u->mroute->prefix);
  const RightAnswer::Line line = lineOf(*u->mroute);
  const bool held = u->reason == MRIB_REASON_HELD_BACK;
  return u->reason == MRIB_REASON_UNSETTLED || isInForce(prefix, line) ||
         held != present.isHeld(prefix, line);
}

}  // namespace

void judge_agent(mrib_agent* agent) {
  inputs = present = {};
  answer.clear();
  heard.clear();
  mrib_subscribe(agent, hear, nullptr);
}
uint32_t judge_faults(mrib_agent* agent) {
  Space now;
  U32 wrong = 0, routes = 0, count = 0, expected = 0;
  for (; mrib_route_at(agent, routes, &now.route) == MRIB_OK; ++routes) {
    const auto found = answer.find(prefixOf(now.route.prefix));
    wrong += found == answer.end() || !(found->second == routeOf(now.route));
  }
  wrong += mrib_visit_unresolved(agent, unresolved, &count) != MRIB_OK;
  for (const auto& [prefix, lines] : present.mroutes) {
    for (const RightAnswer::Line& line : lines) expected += !isInForce(prefix, line);
  }
  return wrong + (routes != answer.size()) + (count != expected) + (heardWrong || heard != answer);
}
uint32_t judge_healed() {
  return healed;
}

void judge_begin() {
  inputs = present;
}
void judge_link_set(const mrib_link* l) {
  inputs.links[l->index] = {l->index, l->name, !(l->flags & MRIB_LINK_DOWN),
                            !(l->flags & MRIB_LINK_NO_CARRIER)};
}
void judge_link_del(uint32_t index) {
  inputs.links.erase(index);
  std::erase_if(inputs.addresses, [=](const auto& a) { return a.first.first == index; });
}
void judge_address_set(const mrib_address* a) {
  inputs.addresses[{a->link, addressOf(a->ip)}] = (a->flags & MRIB_SECONDARY) != 0;
}
void judge_address_del(uint32_t link, const mrib_ip* ip) {
  inputs.addresses.erase({link, addressOf(*ip)});
}
void judge_route_set(const mrib_unicast* r) {
  mrib::UnicastRoute route{prefixOf(r->prefix), mrib::RouteType{r->type}, r->preference, {}};
  for (U32 i = 0; i < r->next_hop_count; ++i) {
    route.nextHops.push_back({Lumo::IpGenAddr(addressOf(r->next_hops[i].neighbour)), r->next_hops[i].link});
  }
  inputs.routes.insert_or_assign(prefixOf(r->prefix), route);
}
void judge_route_del(const mrib_prefix* prefix) {
  inputs.routes.erase(prefixOf(*prefix));
}
void judge_mroute_set(const mrib_mroute* m) {
  inputs.mroutes[prefixOf(m->prefix)].insert(lineOf(*m));
}
void judge_mroute_del(const mrib_mroute* m) {
  const auto found = inputs.mroutes.find(prefixOf(m->prefix));
  if (found == inputs.mroutes.end()) return;
  found->second.erase(lineOf(*m));
  if (found->second.empty()) inputs.mroutes.erase(found);
}

int judge_commit(int accepted) {
  const bool refused = inputs.isRefused();
  if (!refused) present = inputs;
  answer = present.mrib();
  return (accepted != 0) != refused;
}
