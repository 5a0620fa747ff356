#include "RandomEvents.h"

#include <algorithm>

using Lumo::IntfId;
using Lumo::IpAddr;
using Lumo::IpGenPrefix;
using plain::PlainMrib;
using Routing::Fib::RouteType;
using EngineRpf = Routing::Multicast::Rib::Rpf;

namespace {

const std::vector<const char*> connectedPool{"20.0.0.0/24", "20.0.0.128/25", "30.0.0.0/24", "30.1.0.0/16",
                                             "40.0.0.0/8",  "40.1.0.0/16",   "0.0.0.0/0",   "50.0.0.0/24"};
const std::vector<const char*> configPool{
    "10.0.0.0/8",  "10.1.0.0/16", "10.1.1.0/24", "60.0.0.0/8",  "60.1.0.0/16", "70.0.0.0/8", "70.7.0.0/16",
    "80.0.0.0/12", "0.0.0.0/0",   "40.1.1.0/24", "20.0.0.0/16", "30.0.0.0/24", "",           "2001:db8::/32"};
const std::vector<const char*> addressPool{
    "20.0.0.5", "20.0.0.255", "30.0.0.9", "30.1.2.3",       "40.9.9.9", "40.1.1.7",
    "10.1.1.1", "10.9.9.9",   "60.1.1.1", "60.255.255.255", "70.7.7.7", "70.1.1.1",
    "80.0.0.1", "99.9.9.9",   "50.0.0.1", "20.0.9.9",       "40.2.0.0", "20.0.0.128"};
const std::vector<int> preferencePool{1, 2, 3, 200};
constexpr U32 intfCount = 5;
constexpr U32 burstPrefixes = 40;

std::string burstPrefix(U32 i) {
  return "110." + std::to_string(i) + ".0.0/16";
}
EngineRpf engineRpf(const plain::Rpf& rpf) {
  return rpf.type == 1 ? EngineRpf::ofIntf(IntfId(rpf.intf))
                       : EngineRpf::ofAddr(Lumo::IpGenAddr(rpf.address));
}

}  // namespace

RandomEvents::RandomEvents(U64 seed, Way way)
    : random_(seed),
      extras_(seed),
      way_(way),
      configs_{world_.config, Zan::create<EngineWorld::Config>("config2")},
      addresses_{world_.ipStatus, Zan::create<Ip::Status>("ipStatus2"), nullptr},
      intfs_{world_.intfDir, Zan::create<Interface::AllIntfStatusDir>("intfStatus2"), nullptr},
      tries_{world_.unicastTrie, Zan::create<Routing::TrieGen>("unicast2", Lumo::ipv4())} {
  for (U32 id = 1; id <= intfCount; ++id) {
    if (chance(80)) intfIs(id);
    if (chance(80)) addressIs(id);
  }
  for (int i = 0; i < 3; ++i) unicast(pick(connectedPool), false);
  for (auto n = random_() % 40; n > 0; --n) configure();
}

U32 RandomEvents::intf() {
  return 1 + static_cast<U32>(random_() % intfCount);
}

std::string RandomEvents::prefixText() {
  return chance(70) ? pick(configPool) : pick(connectedPool);
}

bool RandomEvents::allows(const std::string& event, const OnModel& onModel) {
  PlainMrib trial = model_.copy();
  try {
    onModel(trial);
  } catch (const plain::Forbidden&) {
    return false;
  }
  event_ += event + "; ";
  model_ = std::move(trial);
  return true;
}

void RandomEvents::start() {
  if (way_ == Way::traced || way_ == Way::marked) recorder_ = std::make_unique<TraceRecorder>(mostTraced());
  newEngine();
}

void RandomEvents::newEngine() {
  const auto order = tableOrder();
  const IpGenPrefix last = world_.unicastTrie->changedRoute();
  if (!allows("start", [&](auto& m) { m.start(order, last); })) return;
  world_.start();
  resolver().wholePassesIs(way_ == Way::whole);
}

std::vector<IpGenPrefix> RandomEvents::tableOrder() const {
  std::vector<IpGenPrefix> order;
  world_.urib->routeStatus()->forEach([&](const Quarn::Fib::Route& r) { order.emplace_back(r.prefix); });
  return order;
}

void RandomEvents::traceToggled() {
  recorder_ = recorder_ ? nullptr : std::make_unique<TraceRecorder>();
}

void RandomEvents::step() {
  model_.traces.clear();
  event_.clear();
  if (way_ == Way::toggled && extras_() % 5 == 0) traceToggled();
  if (recorder_) recorder_->messages.clear();
  if (!world_.mrib) newEngine();
  something(random_() % 24);
  traced_ += model_.traces.size();
}

void RandomEvents::something(U64 kind) {
  if (kind < 10) return configure();
  if (kind < 15) return unicast(pick(connectedPool), true);
  if (kind < 18) return interfaces();
  if (kind == 18) return chance(50) ? inputReplacedForAWhile() : inputReplaced(random_() % 5);
  if (kind == 19) return chance(30) ? restart() : chance(50) ? sleep() : zombie();
  if (kind == 20) return statusWritten();
  if (kind == 21) return setWritten();
  if (kind == 22 && chance(40)) return defaultPrefixSet();
  if (kind == 22 && chance(10)) return burst();
  if (kind == 22 && chance(20)) return setAgain();
  operationCalled();
}

void RandomEvents::meanwhile(U64 events) {
  for (; events > 0; --events)
    chance(65) ? configure() : chance(50) ? interfaces() : unicast(pick(connectedPool), true);
}

// ---- Agents ----

void RandomEvents::interfaces() {
  const U32 id = intf();
  const U64 kind = random_() % 5;
  const std::string of = " of " + std::to_string(id);
  if (kind < 2) return addressIs(id);
  if (kind == 2) return intfIs(id);
  if (kind == 3 && world_.ipStatus &&
      allows("no address" + of, [&](auto& m) { m.addressTables[m.addressesInUse].erase(id); }))
    world_.ipStatus->intfAddrDel(IntfId(id));
  if (kind == 4 && world_.intfDir &&
      allows("no interface" + of, [&](auto& m) { m.intfTables[m.intfsInUse].erase(id); }))
    world_.intfDir->intfStatusDel(IntfId(id));
}

void RandomEvents::intfIs(U32 id) {
  if (!world_.intfDir || model_.intfs().contains(id)) return;
  const std::string name = 'e' + std::to_string(id) + '.' + std::to_string(++objects_);
  const plain::Intf intf{objects_, name};
  if (allows("interface " + name, [&](auto& m) { m.intfTables[m.intfsInUse][id] = intf; }))
    world_.intfIs(id, name);
}

void RandomEvents::addressIs(U32 id) {
  if (!world_.ipStatus) return;
  const std::string address = pick(addressPool);
  if (allows("address " + address + " of " + std::to_string(id),
             [&](auto& m) { m.addressTables[m.addressesInUse][id] = IpAddr(address); }))
    world_.intfAddrIs(id, address);
}

void RandomEvents::unicast(const std::string& text, bool mayDelete) {
  const IpGenPrefix prefix(text);
  const auto replace = [&](PlainMrib& m, const std::vector<plain::UnicastRoute>& by) {
    std::erase_if(m.unicast, [&](const auto& u) { return u.prefix == prefix; });
    m.unicast.insert(m.unicast.end(), by.begin(), by.end());
    m.unicastChanged(prefix);
  };
  if (mayDelete && model_.unicastRoute(prefix) && chance(60)) {
    if (allows("unicast " + text + " deleted", [&](auto& m) { replace(m, {}); })) world_.unicastDel(text);
    return;
  }
  const bool connected = chance(75);
  plain::UnicastRoute route{prefix, connected, static_cast<int>(random_() % 4), {}};
  std::vector<EngineWorld::Hop> hops;
  for (auto n = random_() % 3; n > 0; --n) {
    hops.push_back({chance(50) ? "0.0.0.0" : "20.0.0.77", intf()});
    route.vias.emplace_back(IpAddr(hops.back().address), hops.back().intf);
  }
  if (!allows("unicast " + text + (connected ? " connected" : ""), [&](auto& m) { replace(m, {route}); }))
    return;
  world_.unicastIs(text, connected ? RouteType::connected : RouteType::igp, static_cast<U8>(route.preference),
                   hops);
}

plain::Rpf RandomEvents::someRpf() {
  plain::Rpf rpf;
  rpf.type = chance(30) ? 1 : 2;
  if (rpf.type == 1) rpf.intf = intf();
  if (rpf.type == 2) rpf.address = IpAddr(pick(addressPool));
  return rpf;
}

void RandomEvents::configure() {
  const std::string text = pick(configPool);
  const IpGenPrefix prefix(text);
  const int preference = pick(preferencePool);
  const auto u8 = static_cast<U8>(preference);
  if (model_.entry(prefix) && chance(8)) return prefixDeleted(text);
  if (!prefixAdded(text)) return;
  const auto& prefs = model_.entry(prefix)->prefs;
  const auto present = prefs.find(preference);
  const std::string of = text + " " + std::to_string(preference);
  if (present != prefs.end() && chance(15)) {
    if (allows("no preference " + of, [&](auto& m) { m.preferenceDeleted(prefix, preference); }))
      world_.config->route(prefix)->prefDel(u8);
  } else if (present != prefs.end() && !present->second.rpfs.empty() && chance(40)) {
    const auto& rpfs = present->second.rpfs;
    const plain::Rpf rpf = *std::next(rpfs.begin(), static_cast<std::ptrdiff_t>(random_() % rpfs.size()));
    if (allows("no rpf " + of + " " + rpf.text(), [&](auto& m) { m.rpfDeleted(prefix, preference, rpf); }))
      world_.rpfDel(text, u8, engineRpf(rpf));
  } else {
    rpfAdded(text, preference, someRpf());
  }
}

/// Whether it is there now.
bool RandomEvents::prefixAdded(const std::string& text) {
  const IpGenPrefix prefix(text);
  if (model_.entry(prefix)) return true;
  if (!allows("prefix " + text, [&](auto& m) { m.prefixAdded(prefix); })) return false;
  world_.config->routeIs(prefix);
  return true;
}

void RandomEvents::prefixDeleted(const std::string& text) {
  const IpGenPrefix prefix(text);
  if (allows("no prefix " + text, [&](auto& m) { m.prefixDeleted(prefix); })) world_.config->routeDel(prefix);
}

void RandomEvents::rpfAdded(const std::string& text, int preference, const plain::Rpf& rpf) {
  const IpGenPrefix prefix(text);
  const auto u8 = static_cast<U8>(preference);
  const std::string of = text + " " + std::to_string(preference);
  if (!model_.entry(prefix)->prefs.contains(preference)) {
    if (!allows("preference " + of, [&](auto& m) { m.preferenceAdded(prefix, preference); })) return;
    world_.config->route(prefix)->prefIs(u8);
  }
  if (allows("rpf " + of + " " + rpf.text(), [&](auto& m) { m.rpfAdded(prefix, preference, rpf); }))
    world_.rpfIs(text, u8, engineRpf(rpf));
}

/// Many prefixes by one address, or all of them gone: whatever happens to that address marks everything.
void RandomEvents::burst() {
  const plain::Rpf rpf{2, 0, IpAddr(pick(addressPool))};
  const bool present = model_.entry(IpGenPrefix(burstPrefix(0))) != nullptr;
  for (U32 i = 0; i < burstPrefixes; ++i) {
    if (present) {
      prefixDeleted(burstPrefix(i));
    } else if (prefixAdded(burstPrefix(i))) {
      rpfAdded(burstPrefix(i), 1, rpf);
    }
  }
}

// ---- Careless agents ----

void RandomEvents::inputReplaced(U64 which) {
  if (which == 0 && allows("configuration replaced", [](auto& m) { m.configReplaced(1 - m.configInUse); })) {
    world_.config = configs_[model_.configInUse];
    world_.mrib->mribConfigIs(world_.config);
  }
  const auto next = [](auto& inUse) { inUse = (inUse + 1) % 3; };
  if (which == 1 && allows("addresses replaced", [&](auto& m) { next(m.addressesInUse); })) {
    world_.ipStatus = addresses_[model_.addressesInUse];
    world_.intfInfo->ipStatusIs(world_.ipStatus);
  }
  if (which == 2 && allows("interfaces replaced", [&](auto& m) { next(m.intfsInUse); })) {
    world_.intfDir = intfs_[model_.intfsInUse];
    world_.intfInfo->statusIs(world_.intfDir);
  }
  const auto trie = tries_[world_.unicastTrie == tries_[0] ? 1 : 0];
  const IpGenPrefix last = trie->changedRoute();
  if (which == 3 && allows("unicast trie replaced", [&](auto& m) { m.unicastChanged(last); })) {
    world_.unicastTrie = trie;
    world_.urib->trieIs(trie);
  }
  if (which == 4) resolverReplaced();
}

void RandomEvents::resolverReplaced() {
  const auto order = tableOrder();
  const IpGenPrefix last = world_.unicastTrie->changedRoute();
  const auto onModel = [&](PlainMrib& m) {
    m.resolverIntfs = (m.resolverIntfs + 1) % 3;
    m.newResolver(order, last);
  };
  if (!allows("resolver replaced", onModel)) return;
  world_.mrib->routeResolverIs(world_.urib, world_.mribStatus, intfs_[model_.resolverIntfs]);
  resolver().wholePassesIs(way_ == Way::whole);
}

/// An input is another one for a while; in which, where it is toggled, level 8 is traced.
void RandomEvents::inputReplacedForAWhile() {
  const U64 which = random_() % 3;
  const bool toggle = way_ == Way::toggled && !recorder_;
  if (toggle) traceToggled();
  inputReplaced(which);
  meanwhile(4);
  if (toggle) traceToggled();
  inputReplaced(which);
  unicast(pick(connectedPool), true);
}

/// What the engine has already: nothing happens.
void RandomEvents::setAgain() {
  auto& mrib = *world_.mrib;
  event_ += "all set again; ";
  mrib.intfInfoIs(mrib.intfInfo());
  mrib.uribShadowStatusIs(mrib.uribShadowStatus());
  mrib.mribConfigIs(mrib.mribConfig());
  mrib.mribShadowIs(mrib.mribShadow()->name());
  mrib.trieBuilderIs(mrib.mribStatus(), mrib.mribShadow());
  mrib.routeResolverIs(resolver().uribStatus(), resolver().mribStatus(), resolver().intfStatus());
  mrib.hasNotificationActiveIs(true);
  mrib.zanDoZombieReactors(false);
  mrib.trieBuilder()->zanDoZombieReactors(false);
  mrib.trieBuilder()->trieIs(mrib.mribShadow()->trie());
  resolver().uribStatusIs(world_.urib);
  resolver().mribStatusIs(world_.mribStatus);
  world_.urib->routeStatusIs(world_.urib->routeStatus());
  world_.urib->forwardingStatusIs(world_.urib->forwardingStatus());
  world_.urib->trieIs(world_.unicastTrie);
  world_.intfInfo->ipStatusIs(world_.ipStatus);
  world_.intfInfo->statusIs(world_.intfDir);
}

/// The engine goes, the MRIB status stays, and the configuration is another one when the next engine starts.
void RandomEvents::restart() {
  if (allows("stop", [](auto& m) { m.stop(); })) world_.stop();
  meanwhile(random_() % 6);
  newEngine();
}

void RandomEvents::sleep() {
  if (allows("sleep", [](auto& m) { m.asleep = true; })) world_.mrib->hasNotificationActiveIs(false);
  meanwhile(random_() % 6);
  if (allows("wake", [](auto& m) { m.asleep = false; })) world_.mrib->hasNotificationActiveIs(true);
  if (chance(80)) everyPrefixLookedAt();
  const IpGenPrefix prefix(pick(configPool));
  if (!model_.entry(prefix)) return;
  if (allows("every preference", [&](auto& m) { m.everyPreferenceMayHaveChanged(prefix); }))
    world_.config->route(prefix)->prefNotifyAll();
}

void RandomEvents::zombie() {
  if (allows("zombie", [](auto& m) { m.zombie = true; })) world_.mrib->zanDoZombieReactors(true);
  meanwhile(random_() % 4);
  if (allows("alive", [](auto& m) { m.zombie = false; })) world_.mrib->zanDoZombieReactors(false);
  everyPrefixLookedAt();
}

void RandomEvents::everyPrefixLookedAt() {
  if (allows("every prefix", [](auto& m) { m.everyPrefixMayHaveChanged(); })) world_.config->routeNotifyAll();
}

void RandomEvents::statusWritten() {
  const std::string text = prefixText();
  const IpGenPrefix prefix(text);
  if (prefix.af() != Lumo::ipv4()) return;
  const auto key = prefix.v4Prefix();
  const auto* present = model_.route(prefix);
  if (!present || chance(10)) {
    if (allows("route " + text, [&](auto& m) { m.statusRouteAdded(prefix); }))
      world_.mribStatus->routeIs(key);
    return;
  }
  const int preference = chance(20) ? 0 : pick(preferencePool);
  const U64 kind = random_() % 6;
  auto* route = world_.mribStatus->route(key);
  const auto is = [&](const std::string& change, const OnModel& onModel) {
    return allows("route " + text + change, onModel);
  };
  if (kind == 0 && is(" gone", [&](auto& m) { m.statusRouteDeleted(prefix); }))
    world_.mribStatus->routeDel(key);
  if (kind == 1 && is(" preference", [&](auto& m) { m.setPreference(prefix, preference); }))
    route->preferenceIs(static_cast<U8>(preference));
  if (kind == 2 && is(" type", [&](auto& m) { m.route(prefix)->type = 11 - m.route(prefix)->type; }))
    route->routeTypeIs(RouteType(11 - static_cast<U8>(route->routeType())));
  if (kind == 3 && is(" without vias", [&](auto& m) { m.delAllVias(prefix); })) route->viaDelAll();
  if (kind == 4 && !present->vias.empty() &&
      is(" loses a via", [&](auto& m) { m.delVia(prefix, plain::Via(m.route(prefix)->vias.front())); }))
    route->viaDel(Routing::Fib::Via(*route->viaIterator()));
  if (kind == 5) viaAdded(prefix, intf());
}

void RandomEvents::viaAdded(const IpGenPrefix& prefix, U32 id) {
  const auto it = model_.intfs().find(id);
  const plain::Via via{IpAddr("9.9.9.9"), it == model_.intfs().end() ? plain::Intf{} : it->second};
  if (!allows(prefix.stringValue() + " gets a via", [&](auto& m) { m.addVia(prefix, via); })) return;
  const auto* status = world_.intfDir ? world_.intfDir->intfStatus(IntfId(id)) : nullptr;
  world_.mribStatus->route(prefix.v4Prefix())
      ->viaIs({via.hop, Zan::Ptr<Interface::IntfStatus const>(status)}, true);
}

/// Prefix sets that somebody keeps, makes, fills, and registers.
void RandomEvents::setWritten() {
  const IpGenPrefix lpm(prefixText()), member(prefixText());
  const bool isRegistered = model_.setOf(lpm) != nullptr;
  const std::string of = "set of " + lpm.stringValue(), its = ' ' + member.stringValue();
  const std::size_t i = held_.empty() ? 0 : random_() % held_.size();
  const std::string kept = "kept set " + std::to_string(i);
  const U64 kind = random_() % (held_.empty() ? 5 : 8);
  if (kind == 0 && isRegistered && allows(of + " kept", [&](auto& m) { m.held.push_back(m.setOf(lpm)); }))
    held_.push_back(resolver().mribForPrefix(lpm));
  if (kind == 1 && allows("new " + of, [&](auto& m) { m.held.emplace_back(new plain::Set{lpm, {}}); }))
    held_.push_back(Routing::Multicast::Rib::PrefixSet::PrefixSetIs(lpm));
  if (kind == 2 && allows("no " + of, [&](auto& m) { m.dropSet(lpm); })) resolver().mribForPrefixDel(lpm);
  if (kind == 3 && chance(30) && allows("no sets", [](auto& m) { m.dropAllSets(); }))
    resolver().mribForPrefixDelAll();
  if (kind == 4 && isRegistered &&
      allows(of + " loses" + its, [&](auto& m) { m.setOf(lpm)->members.erase(member); }))
    resolver().mribForPrefix(lpm)->prefixDel(member);
  if (kind == 5 && allows(kept + " registered", [&](auto& m) { m.registerSet(m.held[i]); }))
    resolver().mribForPrefixIs(held_[i]);
  if (kind == 6 && model_.route(member) &&
      allows(kept + " gets" + its, [&](auto& m) { m.held[i]->members.insert(member); }))
    held_[i]->prefixIs(member, true);
  if (kind == 7 && allows(kept + " loses" + its, [&](auto& m) { m.held[i]->members.erase(member); }))
    held_[i]->prefixDel(member);
}

void RandomEvents::operationCalled() {
  const IpGenPrefix a(prefixText()), b(prefixText());
  const plain::Rpf rpf = someRpf();
  const int preference = pick(preferencePool);
  const std::size_t i = held_.empty() ? 0 : random_() % held_.size();
  const bool add = chance(70);
  const U64 kind = random_() % 9;
  const auto call = [&](U64 number, const char* name, const OnModel& onModel) {
    const std::string of = a.stringValue() + " " + b.stringValue() + " " + rpf.text();
    return kind == number && allows(name + (" " + of), onModel);
  };
  auto& sm = resolver();
  if (call(0, "doAddOrUpdateRoute", [&](auto& m) { m.result = m.addOrUpdate(rpf, a, preference); }))
    result_ = sm.doAddOrUpdateRoute(engineRpf(rpf), a, static_cast<U8>(preference));
  if (call(1, "doDelRpf", [&](auto& m) { m.delRpf(rpf, a); })) sm.doDelRpf(engineRpf(rpf), a);
  if (call(2, "doDelRoute", [&](auto& m) { m.delRoute(a); })) sm.doDelRoute(a);
  if (call(3, "doAddWatchPrefix", [&](auto& m) { m.addWatch(a, b); })) sm.doAddWatchPrefix(a, b);
  if (!held_.empty() && call(4, "doDelWatchPrefix, a kept set", [&](auto& m) { m.delWatch(a, m.held[i]); }))
    sm.doDelWatchPrefix(a, held_[i]);
  if (call(5, "doDelWatchPrefix", [&](auto& m) { m.delWatch(a, nullptr); })) sm.doDelWatchPrefix(a, nullptr);
  if (call(6, "doMaybeRefreshRoutes", [&](auto& m) { m.refresh(a, add); })) sm.doMaybeRefreshRoutes(a, add);
  if (a.af() == Lumo::ipv4() &&
      call(7, "doRecursiveDelete", [&](auto& m) { m.recursiveDelete(a, m.setOf(b)); })) {
    const Routing::Multicast::Rib::Route::PtrConst route(world_.mribStatus->route(a.v4Prefix()));
    sm.doRecursiveDelete(route, sm.mribForPrefix(b));
  }
  if (call(8, "doRecursiveUpdate", [&](auto& m) { m.recursiveUpdate(m.setOf(a)); }))
    sm.doRecursiveUpdate(sm.mribForPrefix(a));
}

void RandomEvents::defaultPrefixSet() {
  const std::string text = chance(40) ? "0.0.0.0/0" : pick(connectedPool);
  const IpGenPrefix prefix(text);
  const bool machine = chance(30);
  if (allows("default prefix " + text,
             [&](auto& m) { (machine ? m.smDefaultPrefix : m.defaultPrefix) = prefix; }))
    machine ? world_.mrib->defaultPrefixIs(prefix) : resolver().defaultPrefixIs(prefix);
  for (int i = 0; i < 3; ++i) {
    unicast(pick(connectedPool), true);
    unicast(text, true);
  }
}

// ---- Comparison ----

std::string RandomEvents::difference() {
  std::string found = recorder_ ? traceDifference() : "";
  if (model_.result != result_) found += "result " + std::to_string(result_);
  if (found.empty()) {
    const std::string a = state(), b = model_.state();
    if (a != b) found = "state\nengine:\n" + a + "model:\n" + b;
  }
  return found.empty() ? "" : found + "\nafter " + event_;
}

std::string RandomEvents::traceDifference() const {
  std::vector<std::string> engine, model;
  const auto say = [](const auto& m) { return m.handle + " " + std::to_string(m.level) + " " + m.text; };
  for (const auto& m : recorder_->messages) {
    if (!m.handle.starts_with("Mrib")) continue;
    engine.push_back(say(m));
    const std::string name = m.text.substr(0, m.text.find('('));  // a signature, in most messages
    if ((name.starts_with("void ") || name.starts_with("S32 ")) && !name.ends_with("::" + m.function))
      return "function " + m.function + " of " + m.text;
  }
  for (const auto& m : model_.traces) {
    if (m.level <= mostTraced()) model.push_back(say(m));
  }
  for (std::size_t i = 0; i < std::max(engine.size(), model.size()); ++i) {
    const std::string a = i < engine.size() ? engine[i] : "nothing";
    const std::string b = i < model.size() ? model[i] : "nothing";
    if (a != b) return std::string("\n engine: ").append(a).append("\n model:  ").append(b);
  }
  return "";
}

std::string RandomEvents::wronglyUnmarked() {
  const std::string before = model_.state();
  for (const auto& entry : model_.config()) {
    const auto* configured = world_.config->route(entry.prefix);
    if (extras_() % 5 != 0 || resolver().isMarked(*configured)) continue;
    PlainMrib trial = model_.copy();
    try {
      trial.offerPrefix(entry.prefix);
    } catch (const plain::Forbidden&) {
      continue;
    }
    if (trial.state() != before)
      return entry.prefix.stringValue() + " in\n" + before + "ends in\n" + trial.state() + "after " + event_;
  }
  return "";
}

/// The engine's state in the words of the model.
std::string RandomEvents::state() const {
  std::string t = world_.state() + "trie";
  const auto& builder = *world_.mrib->trieBuilder();
  std::set<IpGenPrefix> pool;
  for (const char* p : connectedPool) pool.insert(IpGenPrefix(p));
  for (const char* p : configPool) pool.insert(IpGenPrefix(p));
  for (U32 i = 0; i < burstPrefixes; ++i) pool.insert(IpGenPrefix(burstPrefix(i)));
  U32 stored = 0;
  for (const IpGenPrefix& p : pool) {
    if (!builder.trie()->route(p)) continue;
    (t += ' ') += p.stringValue();
    ++stored;
  }
  t += builder.trie()->nodes() == static_cast<S32>(stored) ? "" : " and more";
  t += builder.routeCount() == world_.mribStatus->routeCount() ? "" : " and a lost reactor";
  return t + "\ndeleted " + std::to_string(builder.deletedPreference()) + " updates " +
         std::to_string(builder.trieUpdates()) + "\n";
}
