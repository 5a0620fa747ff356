// The smallest host: one interface, one connected subnet, one configured route, resolved.
#include <iostream>

#include "Pim/MribSm/MribSm.h"

int main() {
  using namespace Routing::Multicast::Rib;
  using Lumo::IntfId, Lumo::IpAddr, Lumo::IpGenPrefix, Lumo::Prefix;

  // Interfaces: who they are, and their addresses.
  auto intfs = Zan::create<Interface::AllIntfStatusDir>("intfStatus");
  intfs->intfStatusIs(IntfId(1), "eth0");
  auto ipStatus = Zan::create<Ip::Status>("ipStatus");
  ipStatus->intfAddrIs(IntfId(1), IpAddr("20.0.0.1"));
  auto intfInfo = interfaceInfoFactory();
  intfInfo->ipStatusIs(ipStatus);
  intfInfo->statusIs(intfs);

  // The unicast RIB's tables, in shared memory, with one connected route.
  Quarn::Fib::RouteStatusWriter routes;
  Quarn::Fib::ForwardingStatusWriter fecs;
  Quarn::Fib::Fec fec{};
  fec.fecId = 1;
  fec.viaCount = 1;
  fec.via[0] = {IpAddr(), IntfId(1)};
  fecs.fecIs(fec);
  routes.routeIs({Prefix("20.0.0.0/24"), Routing::Fib::RouteType::connected, 0, fec.fecId});
  auto urib = Zan::create<Routing::Shadow::Status>("urib");
  urib->routeStatusIs(Zan::create<Quarn::Fib::RouteStatus>(routes.fd()));
  urib->forwardingStatusIs(Zan::create<Quarn::Fib::ForwardingStatus>(fecs.fd()));
  urib->trieIs(Zan::create<Routing::TrieGen>("unicast", Lumo::ipv4()));

  // The engine, and a configured route; from here on every change of an input is followed at once.
  auto config = Zan::create<Config>("config");
  auto mribStatus = Zan::create<Status>("mrib");
  auto mrib = mribSmFactory(intfInfo, urib, config, mribStatus, intfs);
  config->routeIs(IpGenPrefix("10.9.0.0/16"))->prefIs(1)->rpfIs(Rpf::ofAddr(Lumo::IpGenAddr("20.0.0.5")));

  // Which route would a packet from 10.9.1.2 have to come in by?
  const auto match = mrib->mribShadow()->trie()->longestMatch(IpGenPrefix("10.9.1.2/32"));
  const auto* route = mribStatus->route(match.v4Prefix());
  for (auto via = route->viaIterator(); via; ++via) std::cout << match << " via " << *via << '\n';
}
