#include "judge.h"

#include "../RightAnswer.h"

// The plain recursion judges what a host in C says: a bridge between their values, and nothing else.

namespace {

using Lumo::IpAddr;
using Lumo::Prefix;

RightAnswer inputs, present;
RightAnswer::Mrib answer, heard;
bool heardWrong = false;

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

bool isInForce(const Prefix& prefix, const RightAnswer::Line& line) {
  RightAnswer::Mrib done = answer;
  mrib::Route scratch{prefix};
  return present.resolve(prefix, line, scratch, done) && answer.at(prefix).preference == line.preference;
}

}  // namespace

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

void judge_anew() {
  inputs = present = {};
  answer.clear();
  heard.clear();
}
void judge_heard(const mrib_route* before, const mrib_route* after) {
  const Prefix prefix = prefixOf(after->prefix);
  const auto was = heard.find(prefix);
  if (!(routeOf(*before) == (was == heard.end() ? mrib::Route{prefix} : was->second))) heardWrong = true;
  heard[prefix] = routeOf(*after);
  if (after->type == 0) heard.erase(prefix);
}
int judge_heard_all() {
  return !heardWrong && heard == answer;
}

int judge_route(const mrib_route* route) {
  const auto found = answer.find(prefixOf(route->prefix));
  return found != answer.end() && found->second == routeOf(*route);
}
uint32_t judge_route_count() {
  return static_cast<U32>(answer.size());
}
int judge_unresolved(const mrib_unresolved* u) {
  const Prefix prefix = prefixOf(u->mroute->prefix);
  const RightAnswer::Line line = lineOf(*u->mroute);
  const bool held = u->reason == MRIB_REASON_HELD_BACK;
  return u->reason != MRIB_REASON_UNSETTLED && !isInForce(prefix, line) &&
         held == present.isHeld(prefix, line);
}
uint32_t judge_unresolved_count() {
  U32 count = 0;
  for (const auto& [prefix, lines] : present.mroutes) {
    for (const RightAnswer::Line& line : lines) count += isInForce(prefix, line) ? 0 : 1;
  }
  return count;
}
