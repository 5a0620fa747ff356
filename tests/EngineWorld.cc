#include "EngineWorld.h"

#include <map>

using Routing::Fib::RouteType;

EngineWorld::EngineWorld()
    : intfDir(Zan::create<Interface::AllIntfStatusDir>("intfStatus")),
      ipStatus(Zan::create<Ip::Status>("ipStatus")),
      intfInfo(Routing::Multicast::Rib::interfaceInfoFactory()),
      unicastTrie(Zan::create<Routing::TrieGen>("unicast", Lumo::ipv4())),
      urib(Zan::create<Routing::Shadow::Status>("urib")),
      config(Zan::create<Config>("config")),
      mribStatus(Zan::create<Status>("mrib")) {
  intfInfo->ipStatusIs(ipStatus);
  intfInfo->statusIs(intfDir);
  urib->routeStatusIs(Zan::create<Quarn::Fib::RouteStatus>(routes.fd()));
  urib->forwardingStatusIs(Zan::create<Quarn::Fib::ForwardingStatus>(fecs.fd()));
  routesInstance_ = routes.instance();
  fecsInstance_ = fecs.instance();
  urib->trieIs(unicastTrie);
}

EngineWorld::~EngineWorld() = default;

void EngineWorld::start() {
  mrib = Routing::Multicast::Rib::mribSmFactory(intfInfo, urib, config, mribStatus, intfDir);
}

void EngineWorld::followTables() {
  if (routes.instance() != routesInstance_) urib->routeStatus()->attach(routes.fd());
  if (fecs.instance() != fecsInstance_) urib->forwardingStatus()->attach(fecs.fd());
  routesInstance_ = routes.instance();
  fecsInstance_ = fecs.instance();
}

void EngineWorld::changed(const Lumo::Prefix& prefix) {
  followTables();
  const Lumo::IpGenPrefix key = prefix;
  const bool present = urib->routeStatus()->route(prefix).has_value();
  if (present == unicastTrie->route(key)) {
    unicastTrie->changedRouteIs(key);
  } else {
    unicastTrie->routeIs(key, present);
  }
}

void EngineWorld::unicastIs(const std::string& prefix, RouteType type, U8 preference, std::vector<Hop> hops) {
  Quarn::Fib::Fec fec{};
  fec.fecId = nextFec_++;
  fec.viaCount = static_cast<U32>(hops.size());
  for (U32 i = 0; i < fec.viaCount && i < fec.via.size(); ++i) {
    fec.via[i] = {Lumo::IpAddr(hops[i].address), Lumo::IntfId(hops[i].intf)};
  }
  fecs.fecIs(fec);
  const Lumo::Prefix key(prefix);
  routes.routeIs({key, type, preference, fec.fecId});
  changed(key);
}

void EngineWorld::unicastDel(const std::string& prefix) {
  const Lumo::Prefix key(prefix);
  if (const auto old = urib->routeStatus()->route(key)) fecs.fecDel(old->fecId);
  routes.routeDel(key);
  changed(key);
}

void EngineWorld::rpfIs(const std::string& prefix, U8 preference, const Rpf& rpf) {
  config->routeIs(Lumo::IpGenPrefix(prefix))->prefIs(preference)->rpfIs(rpf);
}

void EngineWorld::rpfDel(const std::string& prefix, U8 preference, const Rpf& rpf) {
  config->route(Lumo::IpGenPrefix(prefix))->pref(preference)->rpfDel(rpf);
}

std::string EngineWorld::show(const std::string& prefix) const {
  const auto* r = route(prefix);
  if (!r) return "none";
  std::string text = prefix + " p" + std::to_string(r->preference()) + " t" +
                     std::to_string(static_cast<U32>(r->routeType())) + " [";
  for (auto via = r->viaIterator(); via; ++via) {
    if (text.back() != '[') text += ", ";
    text += via->stringValue();
  }
  return text + "]";
}

std::string EngineWorld::state() const {
  std::string text;
  for (auto r = mribStatus->routeIterator(); r; ++r) {
    text += show(r->prefix().stringValue()) + " {";
    for (auto s = r->prefixSetIterator(); s; ++s) text += (*s)->lPrefix().stringValue() + ",";
    text += "}\n";
  }
  std::map<Lumo::IpGenPrefix, std::string> sets;
  for (auto s = mrib->routeResolver()->mribForPrefixIterator(); s; ++s) {
    std::string& members = sets[s->mribForPrefix()->lPrefix()];
    for (auto m = s->mribForPrefix()->prefixIterator(); m; ++m) (members += ' ') += m->stringValue();
  }
  for (const auto& [lpm, members] : sets) text += "set " + lpm.stringValue() + ":" + members + "\n";
  return text;
}
