#include "KernelState.h"

#include <algorithm>
#include <unordered_map>

#include "Quarn/Fib/ForwardingStatus.h"

namespace host {

const Link* KernelState::link(U32 index) const {
  const auto it = std::find_if(links.begin(), links.end(), [&](const Link& l) { return l.index == index; });
  return it == links.end() ? nullptr : &*it;
}

const Link* KernelState::link(const std::string& name) const {
  const auto it = std::find_if(links.begin(), links.end(), [&](const Link& l) { return l.name == name; });
  return it == links.end() ? nullptr : &*it;
}

U8 preferenceOf(const std::string& protocol) {
  static const std::unordered_map<std::string, U8> distances{
      {"kernel", 0},   {"boot", 1},    {"static", 1},  {"dhcp", 1},   {"ra", 1},
      {"redirect", 1}, {"bgp", 20},    {"eigrp", 90},  {"ospf", 110}, {"isis", 115},
      {"rip", 120},    {"babel", 100}, {"zebra", 200}, {"bird", 200}, {"gated", 200}};
  const auto it = distances.find(protocol);
  return it == distances.end() ? U8{200} : it->second;
}

void normalise(KernelState& state) {
  struct Hash {
    std::size_t operator()(const Lumo::Prefix& p) const { return p.hash(); }
  };
  std::unordered_map<Lumo::Prefix, std::size_t, Hash> best;
  best.reserve(state.routes.size());
  std::size_t kept = 0;
  for (KernelRoute& route : state.routes) {
    const auto [it, isNew] = best.try_emplace(route.prefix, kept);
    if (isNew) {
      if (&state.routes[kept] != &route) state.routes[kept] = std::move(route);
      ++kept;
    } else if (route.metric < state.routes[it->second].metric) {
      state.routes[it->second] = std::move(route);
    }
  }
  state.routes.erase(state.routes.begin() + static_cast<std::ptrdiff_t>(kept), state.routes.end());
  for (KernelRoute& route : state.routes) {
    if (route.nextHops.size() <= Quarn::Fib::Fec::maxVias) continue;
    state.notes.push_back("route " + route.prefix.stringValue() + " has " +
                          std::to_string(route.nextHops.size()) + " next hops: the first 128 are used");
    route.nextHops.resize(Quarn::Fib::Fec::maxVias);
  }
}

}  // namespace host
