#include "Agent.h"

#include <fmt/format.h>

#include "ConfigCheck.h"
#include "Error.h"

namespace host {

using namespace Routing::Multicast::Rib;
using Routing::Fib::RouteType;

namespace {

/// Interfaces that the configuration names and the kernel does not know get identifiers from here on, which
/// no kernel uses.
constexpr U32 firstUnknownIntf = 0x80000000;

RouteType routeTypeOf(const KernelRoute& route) {
  if (route.connected) return RouteType::connected;
  if (route.preference <= 1) return RouteType::ipStatic;
  return route.protocol == "bgp" ? RouteType::egp : RouteType::igp;
}

}  // namespace

Agent::Agent(const KernelState& kernel, const std::vector<MrouteLine>& lines)
    : intfDir_(Zan::create<Interface::AllIntfStatusDir>("intfStatus")),
      ipStatus_(Zan::create<Ip::Status>("ipStatus")),
      intfInfo_(interfaceInfoFactory()),
      urib_(Zan::create<Routing::Shadow::Status>("uribShadowStatus")),
      config_(Zan::create<Config>("mribConfig")),
      mribStatus_(Zan::create<Status>("mribStatus")) {
  if (const auto circle = findCircle(lines, kernel)) throw Error("configuration refused: " + *circle);
  loadInterfaces(kernel);
  loadRoutes(kernel);
  loadConfig(lines);
  mribSm_ = mribSmFactory(intfInfo_, urib_, config_, mribStatus_, intfDir_);
}

Agent::~Agent() = default;

void Agent::loadInterfaces(const KernelState& kernel) {
  for (const Link& link : kernel.links) {
    intfDir_->intfStatusIs(Lumo::IntfId(link.index), link.name);
    intfIds_.emplace(link.name, link.index);
  }
  for (const Address& a : kernel.addresses) {
    const Lumo::IntfId id(a.link);
    if (!a.secondary && !ipStatus_->intfAddr(id)) ipStatus_->intfAddrIs(id, a.address);
  }
  intfInfo_->ipStatusIs(ipStatus_);
  intfInfo_->statusIs(intfDir_);
}

/// Routes with the same next hops share a FEC.
U64 Agent::fecFor(const std::vector<NextHop>& hops) {
  std::vector<std::pair<U32, U32>> key;
  key.reserve(hops.size());
  for (const NextHop& h : hops) key.emplace_back(h.gateway.host(), h.link);
  const auto [it, isNew] = fecIds_.try_emplace(std::move(key), fecIds_.size() + 1);
  if (!isNew) return it->second;
  Quarn::Fib::Fec fec{};
  fec.fecId = it->second;
  fec.viaCount = static_cast<U32>(hops.size());
  for (U32 i = 0; i < fec.viaCount; ++i) fec.via[i] = {hops[i].gateway, Lumo::IntfId(hops[i].link)};
  fecs_.fecIs(fec);
  return fec.fecId;
}

void Agent::loadRoutes(const KernelState& kernel) {
  auto trie = Zan::create<Routing::TrieGen>("unicast", Lumo::ipv4());
  for (const KernelRoute& route : kernel.routes) {
    routes_.routeIs({route.prefix, routeTypeOf(route), route.preference, fecFor(route.nextHops)});
    trie->routeIs(route.prefix, true);
  }
  urib_->routeStatusIs(Zan::create<Quarn::Fib::RouteStatus>(routes_.fd()));
  urib_->forwardingStatusIs(Zan::create<Quarn::Fib::ForwardingStatus>(fecs_.fd()));
  urib_->trieIs(trie);
}

Rpf Agent::rpfOf(const MrouteLine& line) {
  if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf))
    return Rpf::ofAddr(Lumo::IpGenAddr(*address));
  const U32 next = firstUnknownIntf + static_cast<U32>(intfIds_.size());
  return Rpf::ofIntf(intfIds_.try_emplace(std::get<std::string>(line.rpf), next).first->second);
}

void Agent::loadConfig(const std::vector<MrouteLine>& lines) {
  for (const MrouteLine& line : lines) {
    config_->routeIs(Lumo::IpGenPrefix(line.prefix))->prefIs(line.preference)->rpfIs(rpfOf(line));
  }
}

Lumo::IpGenPrefix Agent::longestMatch(Lumo::IpAddr address) const {
  return mribSm_->mribShadow()->trie()->longestMatch({address, 32});
}

const Route* Agent::rpf(Lumo::IpAddr source) const {
  const Lumo::IpGenPrefix match = longestMatch(source);
  return match.empty() ? nullptr : mribStatus_->route(match.v4Prefix());
}

std::optional<std::string> Agent::whyUnresolved(const MrouteLine& line) const {
  const Route* route = mribStatus_->route(line.prefix);
  if (route && route->preference() == line.preference) return std::nullopt;
  if (route && route->preference() != 0 && route->preference() < line.preference) return std::nullopt;
  Lumo::IpAddr hop;
  if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf)) {
    hop = *address;
  } else {
    const Lumo::IntfId id = intfIds_.at(std::get<std::string>(line.rpf));
    if (!intfDir_->intfStatus(id)) return "there is no such interface";
    const auto* entry = ipStatus_->intfAddr(id);
    if (!entry) return "the interface has no IPv4 address";
    hop = entry->addr();
  }
  const Lumo::IpGenPrefix match = longestMatch(hop);
  if (match.empty()) return fmt::format("no MRIB route leads to {}", hop.stringValue());
  if (match == mribSm_->defaultPrefix()) {
    return fmt::format("only the default route leads to {}, which resolves nothing", hop.stringValue());
  }
  if (match == Lumo::IpGenPrefix(line.prefix)) return "it would resolve through itself";
  return fmt::format("{} resolves through {}, which covers the prefix itself", hop.stringValue(),
                     match.stringValue());
}

}  // namespace host
