#include "Truth.h"

#include <fmt/format.h>

#include <algorithm>

#include "Describe.h"
#include "agent/RightAnswer.h"

using namespace host::kernel;
using Lumo::IpAddr;
using Lumo::Prefix;
using Kind = Answer::Kind;

namespace {

/// Where the plain model has the interface itself: one for each, so that whoever names it gets it.
IpAddr standIn(U32 link) {
  return IpAddr::fromHost(0x00010000 + link);
}

std::string textOf(const mrib::Route& route, const std::function<bool(const mrib::NextHop&)>& isAttached) {
  std::set<std::string> hops;
  for (const mrib::NextHop& hop : route.nextHops) {
    hops.insert((isAttached(hop) ? "" : hop.address.stringValue()) + '@' + std::to_string(hop.link) + ' ');
  }
  std::string text = "mrib " + route.prefix.stringValue() + ' ' + std::to_string(route.preference) + ": ";
  for (const std::string& hop : hops) text += hop;
  return text;
}

std::string textOf(const IpGenPrefix& prefix, const Answer& answer) {
  return fmt::format("unicast {} metric={} proto={}", describe(prefix, answer), answer.metric,
                     answer.protocol);
}

class Reader {
 public:
  Reader(VirtualKernel& kernel, bool needsCarrier) : kernel_(kernel), needsCarrier_(needsCarrier) {}

  /// False when the route says nothing, and the next one is asked.
  bool read(const Route& route, Answer& answer) const {
    const Route r = kernel_.shown(route);
    answer = {Kind::none, r.protocol, r.metric, {}};
    if (r.tos != 0) return false;
    if (r.type >= RouteType::blackhole) {
      answer.kind = static_cast<Kind>(static_cast<int>(Kind::blackhole) + static_cast<int>(r.type) -
                                      static_cast<int>(RouteType::blackhole));
      return true;
    }
    if (r.type > RouteType::local) return false;
    for (const Hop& hop : r.hops) take(hop, r.type == RouteType::local, answer);
    const bool direct = std::all_of(answer.hops.begin(), answer.hops.end(),
                                    [](const Hop& h) { return h.gateway == IpGenAddr(); });
    answer.kind = r.type == RouteType::local ? Kind::local : direct ? Kind::attached : Kind::gateway;
    return !answer.hops.empty();
  }

 private:
  void take(Hop hop, bool isLocal, Answer& answer) const {
    const auto link = kernel_.links().find(hop.link);
    const bool isDown = link == kernel_.links().end() || !link->second.up || (hop.flags & Hop::dead) != 0;
    if (!isLocal && (isDown || (needsCarrier_ && !link->second.lowerUp))) return;
    hop.flags &= Hop::onlink;
    answer.hops.push_back(hop);
  }

  VirtualKernel& kernel_;
  bool needsCarrier_;
};

}  // namespace

Truth::Truth(VirtualKernel& kernel, const host::Configuration& configuration, bool needsCarrier) {
  std::map<IpGenPrefix, Answer> unicast;
  const Reader reader(kernel, needsCarrier);
  for (const auto& [prefix, routes] : kernel.table(VirtualKernel::mainTable)) {
    Answer answer;
    if (std::any_of(routes.begin(), routes.end(), [&](const Route& r) { return reader.read(r, answer); })) {
      unicast[prefix] = answer;
    }
  }
  std::map<IpGenAddr, U32> own;  // the lowest link of those that have an address holds it
  const auto vrfTable = [&](U32 link) {
    return kernel.links().contains(link) ? kernel.links().at(link).vrfTable : 0;
  };
  for (const Address& a : kernel.addresses()) {
    if (vrfTable(a.link) + vrfTable(kernel.links().at(a.link).master) != 0) continue;
    U32& link = own.try_emplace(a.local, a.link).first->second;
    link = std::min(link, a.link);
  }
  for (const auto& [address, link] : own) {
    unicast[IpGenPrefix(address.v4Addr(), 32)] = {Kind::local, 2, 0, {{{}, link, 0}}};
  }

  RightAnswer right;
  std::map<std::string, std::string> names;
  for (const auto& [index, link] : kernel.links()) {
    right.links[index] = {index, link.name};
    for (const std::string& name : link.alternativeNames) names.emplace(name, link.name);
  }
  const auto connect = [&](const Prefix& prefix, U32 link) {
    right.routes.try_emplace(prefix, mrib::UnicastRoute{prefix, mrib::RouteType::connected, 0, {}})
        .first->second.nextHops.push_back({{}, link});
  };
  for (const auto& [prefix, answer] : unicast) {
    if (answer.kind != Kind::attached || prefix.v4Prefix().address().host() >> 28 == 0xE) continue;
    for (const Hop& hop : answer.hops) {
      connect(prefix.v4Prefix(), hop.link);
      if (right.addresses.try_emplace({hop.link, standIn(hop.link)}, false).second) {
        connect(Prefix(standIn(hop.link), 32), hop.link);
      }
    }
  }
  for (const host::MrouteLine& line : configuration.mroutes) {
    const auto* name = std::get_if<std::string>(&line.rpf);
    const auto known = name ? names.find(*name) : names.end();
    right.mroutes[line.prefix].insert({line.preference,
                                       name ? known == names.end() ? *name : known->second : "",
                                       name ? IpAddr() : std::get<IpAddr>(line.rpf)});
  }
  const auto isAttached = [&](const mrib::NextHop& hop) {
    return hop.address == IpAddr() || hop.address == standIn(hop.link) ||
           std::any_of(kernel.addresses().begin(), kernel.addresses().end(), [&](const Address& a) {
             return a.link == hop.link && a.local == IpGenAddr(hop.address);
           });
  };
  for (const auto& [prefix, route] : right.mrib()) {
    if (!host::KernelFeed::isStandIn(prefix)) lines.push_back(textOf(route, isAttached));
  }
  for (const auto& [prefix, answer] : unicast) lines.push_back(textOf(prefix, answer));
  std::sort(lines.begin(), lines.end());
}

Truth::Truth(const host::Router& router) {
  router.mirror().routes(Lumo::ipv4()).forEachAnswer([&](const IpGenPrefix& prefix, const Answer& answer) {
    lines.push_back(textOf(prefix, answer));
  });
  for (const mrib::Route& route : router.routes()) {
    lines.push_back(textOf(route, [&](const mrib::NextHop& hop) { return router.isAttached(hop); }));
  }
  std::sort(lines.begin(), lines.end());
}
