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
const std::vector<const char*> addressPool{"20.0.0.5", "20.0.0.200", "30.0.0.9",  "30.1.2.3", "40.9.9.9",
                                           "40.1.1.7", "10.1.1.1",   "10.9.9.9",  "60.1.1.1", "60.9.9.9",
                                           "70.7.7.7", "70.1.1.1",   "80.0.0.1",  "99.9.9.9", "50.0.0.1",
                                           "20.0.9.9", "40.2.0.0",   "20.0.0.128"};
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
      addresses_{world_.ipStatus, Zan::create<Ip::Status>("ipStatus2")},
      intfs_{world_.intfDir, Zan::create<Interface::AllIntfStatusDir>("intfStatus2")},
      tries_{world_.unicastTrie, Zan::create<Routing::TrieGen>("unicast2", Lumo::ipv4())} {
  for (U32 id = 1; id <= intfCount; ++id) {
    if (chance(80)) intfIs(id);
    if (chance(80)) addressIs(id);
  }
  for (int i = 0; i < 3; ++i) unicast(false);
  for (auto n = random_() % 40; n > 0; --n) configure();
}

U32 RandomEvents::intf() {
  return 1 + static_cast<U32>(random_() % intfCount);
}

std::string RandomEvents::prefixText() {
  return chance(70) ? pick(configPool) : pick(connectedPool);
}

bool RandomEvents::apply(const std::string& name, const OnModel& onModel, const OnEngine& onEngine) {
  PlainMrib trial(model_);
  try {
    onModel(trial);
  } catch (const plain::Forbidden&) {
    return false;
  }
  event_ += name + "; ";
  model_ = std::move(trial);
  onEngine();
  return true;
}

void RandomEvents::start() {
  if (way_ == Way::traced) recorder_ = std::make_unique<TraceRecorder>();
  newEngine();
}

void RandomEvents::newEngine() {
  const auto order = tableOrder();
  const IpGenPrefix last = world_.unicastTrie->changedRoute();
  apply(
      "start", [&](auto& m) { m.start(order, last); }, [&] { world_.start(); });
  if (world_.mrib) resolver().wholePassesIs(way_ == Way::whole);
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
  switch (random_() % 24) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
      unicast(true);
      break;
    case 5:
    case 6:
    case 7:
      interfaces();
      break;
    case 8:
      chance(50) ? inputReplacedForAWhile() : inputReplaced(random_() % 5);
      break;
    case 9:
      chance(30) ? restart() : chance(50) ? sleep() : zombie();
      break;
    case 10:
      statusWritten();
      break;
    case 11:
      setWritten();
      break;
    case 12:
      operationCalled();
      break;
    case 13:
      chance(40) ? defaultPrefixSet() : chance(10) ? burst() : operationCalled();
      break;
    default:
      configure();
  }
  traced_ += model_.traces.size();
}

// ---- Agents ----

void RandomEvents::interfaces() {
  const U32 id = intf();
  switch (random_() % 5) {
    case 0:
    case 1:
      return addressIs(id);
    case 2:
      apply(
          "no address " + std::to_string(id), [&](auto& m) { m.addressTables[m.addressesInUse].erase(id); },
          [&] { world_.ipStatus->intfAddrDel(IntfId(id)); });
      return;
    case 3:
      return intfIs(id);
    default:
      apply(
          "no interface " + std::to_string(id), [&](auto& m) { m.intfTables[m.intfsInUse].erase(id); },
          [&] { world_.intfDir->intfStatusDel(IntfId(id)); });
  }
}

void RandomEvents::intfIs(U32 id) {
  if (model_.intfs().contains(id)) return;
  const std::string name = 'e' + std::to_string(id) + '.' + std::to_string(++objects_);
  const plain::Intf intf{objects_, name};
  apply(
      "interface " + name, [&](auto& m) { m.intfTables[m.intfsInUse][id] = intf; },
      [&] { world_.intfIs(id, name); });
}

void RandomEvents::addressIs(U32 id) {
  const std::string address = pick(addressPool);
  apply(
      "address " + address + " of " + std::to_string(id),
      [&](auto& m) { m.addressTables[m.addressesInUse][id] = IpAddr(address); },
      [&] { world_.intfAddrIs(id, address); });
}

void RandomEvents::unicast(bool mayDelete) {
  unicast(pick(connectedPool), mayDelete);
}

void RandomEvents::unicast(const std::string& text, bool mayDelete) {
  const IpGenPrefix prefix(text);
  const bool connected = chance(75);
  if (mayDelete && model_.unicastRoute(prefix) && chance(60)) {
    apply(
        "unicast " + text + " deleted",
        [&](auto& m) {
          std::erase_if(m.unicast, [&](const auto& u) { return u.prefix == prefix; });
          m.unicastChanged(prefix);
        },
        [&] { world_.unicastDel(text); });
    return;
  }
  plain::UnicastRoute route{prefix, connected, static_cast<int>(random_() % 4), {}};
  std::vector<EngineWorld::Hop> hops;
  for (auto n = random_() % 3; n > 0; --n) {
    hops.push_back({chance(50) ? "0.0.0.0" : "20.0.0.77", intf()});
    route.vias.emplace_back(IpAddr(hops.back().address), hops.back().intf);
  }
  apply(
      "unicast " + text + (connected ? " connected" : ""),
      [&](auto& m) {
        std::erase_if(m.unicast, [&](const auto& u) { return u.prefix == prefix; });
        m.unicast.push_back(route);
        m.unicastChanged(prefix);
      },
      [&] {
        world_.unicastIs(text, connected ? RouteType::connected : RouteType::igp,
                         static_cast<U8>(route.preference), hops);
      });
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
  if (!model_.entry(prefix)) {
    if (!apply(
            "prefix " + text, [&](auto& m) { m.prefixAdded(prefix); },
            [&] { world_.config->routeIs(prefix); }))
      return;
  } else if (chance(8)) {
    apply(
        "no prefix " + text, [&](auto& m) { m.prefixDeleted(prefix); },
        [&] { world_.config->routeDel(prefix); });
    return;
  }
  const auto& prefs = model_.entry(prefix)->prefs;
  const bool present = prefs.contains(preference);
  if (present && chance(15)) {
    apply(
        "no preference " + text + " " + std::to_string(preference),
        [&](auto& m) { m.preferenceDeleted(prefix, preference); },
        [&] { world_.config->route(prefix)->prefDel(u8); });
    return;
  }
  if (present && !prefs.at(preference).rpfs.empty() && chance(40)) {
    const auto& rpfs = prefs.at(preference).rpfs;
    const plain::Rpf rpf = *std::next(rpfs.begin(), static_cast<std::ptrdiff_t>(random_() % rpfs.size()));
    apply(
        "no rpf " + text + " " + std::to_string(preference) + " " + rpf.text(),
        [&](auto& m) { m.rpfDeleted(prefix, preference, rpf); },
        [&] { world_.rpfDel(text, u8, engineRpf(rpf)); });
    return;
  }
  rpfAdded(text, preference, someRpf());
}

void RandomEvents::rpfAdded(const std::string& text, int preference, const plain::Rpf& rpf) {
  const IpGenPrefix prefix(text);
  const auto u8 = static_cast<U8>(preference);
  if (!model_.entry(prefix)->prefs.contains(preference) &&
      !apply(
          "preference " + text + " " + std::to_string(preference),
          [&](auto& m) { m.preferenceAdded(prefix, preference); },
          [&] { world_.config->route(prefix)->prefIs(u8); }))
    return;
  apply(
      "rpf " + text + " " + std::to_string(preference) + " " + rpf.text(),
      [&](auto& m) { m.rpfAdded(prefix, preference, rpf); }, [&] { world_.rpfIs(text, u8, engineRpf(rpf)); });
}

/// Many prefixes by one address, or all of them gone: whatever happens to that address marks everything.
void RandomEvents::burst() {
  const plain::Rpf rpf{2, 0, IpAddr(pick(addressPool))};
  const bool present = model_.entry(IpGenPrefix(burstPrefix(0))) != nullptr;
  for (U32 i = 0; i < burstPrefixes; ++i) {
    const IpGenPrefix prefix(burstPrefix(i));
    if (present) {
      apply(
          "no burst", [&](auto& m) { m.prefixDeleted(prefix); }, [&] { world_.config->routeDel(prefix); });
    } else if (apply(
                   "burst", [&](auto& m) { m.prefixAdded(prefix); },
                   [&] { world_.config->routeIs(prefix); })) {
      rpfAdded(burstPrefix(i), 1, rpf);
    }
  }
}

// ---- Careless agents ----

void RandomEvents::inputReplaced(U64 which) {
  const auto other = [](std::size_t i) { return 1 - i; };
  switch (which) {
    case 0: {
      const auto by = other(model_.configInUse);
      apply(
          "configuration replaced", [&](auto& m) { m.configReplaced(by); },
          [&] {
            world_.config = configs_[by];
            world_.mrib->mribConfigIs(world_.config);
          });
      break;
    }
    case 1: {
      const auto by = other(model_.addressesInUse);
      apply(
          "addresses replaced", [&](auto& m) { m.addressesInUse = by; },
          [&] {
            world_.ipStatus = addresses_[by];
            world_.intfInfo->ipStatusIs(world_.ipStatus);
          });
      break;
    }
    case 2: {
      const auto by = other(model_.intfsInUse);
      apply(
          "interfaces replaced", [&](auto& m) { m.intfsInUse = by; },
          [&] {
            world_.intfDir = intfs_[by];
            world_.intfInfo->statusIs(world_.intfDir);
          });
      break;
    }
    case 3: {
      const auto trie = world_.unicastTrie == tries_[0] ? tries_[1] : tries_[0];
      const IpGenPrefix last = trie->changedRoute();
      apply(
          "unicast trie replaced", [&](auto& m) { m.unicastChanged(last); },
          [&] {
            world_.unicastTrie = trie;
            world_.urib->trieIs(trie);
          });
      break;
    }
    default: {
      const auto by = other(model_.resolverIntfs);
      const auto order = tableOrder();
      const IpGenPrefix last = world_.unicastTrie->changedRoute();
      apply(
          "resolver replaced",
          [&](auto& m) {
            m.resolverIntfs = by;
            m.newResolver(order, last);
          },
          [&] {
            world_.mrib->routeResolverIs(world_.urib, world_.mribStatus, intfs_[by]);
            resolver().wholePassesIs(way_ == Way::whole);
          });
    }
  }
}

/// An input is another one for a while; in which, where it is toggled, level 8 is traced.
void RandomEvents::inputReplacedForAWhile() {
  const U64 which = random_() % 3;
  const bool toggle = way_ == Way::toggled && !recorder_;
  if (toggle) traceToggled();
  inputReplaced(which);
  for (int i = 0; i < 4; ++i) chance(60) ? configure() : chance(50) ? interfaces() : unicast(true);
  if (toggle) traceToggled();
  inputReplaced(which);
  unicast(true);
}

/// The engine goes, the MRIB status stays, and the configuration is another one when the next engine starts.
void RandomEvents::restart() {
  apply(
      "stop", [](auto& m) { m.stop(); }, [&] { world_.stop(); });
  for (auto n = random_() % 6; n > 0; --n)
    chance(70) ? configure() : chance(50) ? interfaces() : unicast(true);
  newEngine();
}

void RandomEvents::sleep() {
  apply(
      "sleep", [](auto& m) { m.asleep = true; }, [&] { world_.mrib->hasNotificationActiveIs(false); });
  for (auto n = random_() % 6; n > 0; --n)
    chance(60) ? configure() : chance(50) ? interfaces() : unicast(true);
  apply(
      "wake", [](auto& m) { m.asleep = false; }, [&] { world_.mrib->hasNotificationActiveIs(true); });
  if (chance(80)) {
    apply(
        "look at every prefix", [](auto& m) { m.everyPrefixMayHaveChanged(); },
        [&] { world_.config->routeNotifyAll(); });
  }
  const IpGenPrefix prefix(pick(configPool));
  if (!model_.entry(prefix)) return;
  apply(
      "look at every preference", [&](auto& m) { m.everyPreferenceMayHaveChanged(prefix); },
      [&] { world_.config->route(prefix)->prefNotifyAll(); });
}

void RandomEvents::zombie() {
  apply(
      "zombie", [](auto& m) { m.zombie = true; }, [&] { world_.mrib->zanDoZombieReactors(true); });
  for (auto n = random_() % 4; n > 0; --n) chance(60) ? configure() : unicast(true);
  apply(
      "alive", [](auto& m) { m.zombie = false; }, [&] { world_.mrib->zanDoZombieReactors(false); });
  apply(
      "look at every prefix", [](auto& m) { m.everyPrefixMayHaveChanged(); },
      [&] { world_.config->routeNotifyAll(); });
}

void RandomEvents::statusWritten() {
  const std::string text = prefixText();
  const IpGenPrefix prefix(text);
  if (prefix.af() != Lumo::ipv4()) return;
  const auto key = prefix.v4Prefix();
  const auto* present = model_.route(prefix);
  if (!present || chance(10)) {
    apply(
        "route " + text, [&](auto& m) { m.statusRouteAdded(prefix); },
        [&] { world_.mribStatus->routeIs(key); });
    return;
  }
  const int preference = chance(20) ? 0 : pick(preferencePool);
  const U32 id = intf();
  switch (random_() % 6) {
    case 0:
      apply(
          "no route " + text, [&](auto& m) { m.statusRouteDeleted(prefix); },
          [&] { world_.mribStatus->routeDel(key); });
      break;
    case 1:
      apply(
          "route " + text + " preference " + std::to_string(preference),
          [&](auto& m) { m.setPreference(prefix, preference); },
          [&] { world_.mribStatus->route(key)->preferenceIs(static_cast<U8>(preference)); });
      break;
    case 2:
      apply(
          "route " + text + " type", [&](auto& m) { m.route(prefix)->type = 11 - m.route(prefix)->type; },
          [&] {
            auto* route = world_.mribStatus->route(key);
            route->routeTypeIs(RouteType(11 - static_cast<U8>(route->routeType())));
          });
      break;
    case 3:
      apply(
          "route " + text + " without vias", [&](auto& m) { m.delAllVias(prefix); },
          [&] { world_.mribStatus->route(key)->viaDelAll(); });
      break;
    case 4: {
      if (present->vias.empty()) return;
      const plain::Via gone = present->vias.front();
      apply(
          "route " + text + " loses a via", [&](auto& m) { m.delVia(prefix, gone); },
          [&] {
            auto* route = world_.mribStatus->route(key);
            route->viaDel(Routing::Fib::Via(*route->viaIterator()));
          });
      break;
    }
    default: {
      const auto it = model_.intfs().find(id);
      const plain::Via via{IpAddr("9.9.9.9"), it == model_.intfs().end() ? plain::Intf{} : it->second};
      apply(
          "route " + text + " gets a via", [&](auto& m) { m.addVia(prefix, via); },
          [&] {
            const auto* status = world_.intfDir->intfStatus(IntfId(id));
            world_.mribStatus->route(key)->viaIs({via.hop, Zan::Ptr<Interface::IntfStatus const>(status)},
                                                 true);
          });
    }
  }
}

/// Prefix sets that somebody keeps, makes, fills, and registers.
void RandomEvents::setWritten() {
  const IpGenPrefix lpm(prefixText()), member(prefixText());
  const std::size_t i = held_.empty() ? 0 : random_() % held_.size();
  switch (held_.empty() ? random_() % 5 : random_() % 8) {
    case 0:
      if (!model_.setOf(lpm)) return;
      apply(
          "set of " + lpm.stringValue() + " is kept", [&](auto& m) { m.held.push_back(m.setOf(lpm)); },
          [&] { held_.push_back(resolver().mribForPrefix(lpm)); });
      break;
    case 1:
      apply(
          "a set of " + lpm.stringValue(),
          [&](auto& m) {
            m.held.push_back(std::make_shared<plain::Set>(plain::Set{lpm, {}}));
          },
          [&] { held_.push_back(Routing::Multicast::Rib::PrefixSet::PrefixSetIs(lpm)); });
      break;
    case 2:
      apply(
          "no set of " + lpm.stringValue(), [&](auto& m) { m.dropSet(lpm); },
          [&] { resolver().mribForPrefixDel(lpm); });
      break;
    case 3:
      if (!chance(30)) return;
      apply(
          "no sets", [&](auto& m) { m.dropAllSets(); }, [&] { resolver().mribForPrefixDelAll(); });
      break;
    case 4:
      if (!model_.setOf(lpm)) return;
      apply(
          "set of " + lpm.stringValue() + " loses " + member.stringValue(),
          [&](auto& m) { m.setOf(lpm)->members.erase(member); },
          [&] { resolver().mribForPrefix(lpm)->prefixDel(member); });
      break;
    case 5:
      apply(
          "kept set " + std::to_string(i) + " registered", [&](auto& m) { m.registerSet(m.held[i]); },
          [&] { resolver().mribForPrefixIs(held_[i]); });
      break;
    case 6:
      if (!model_.route(member)) return;
      apply(
          "kept set " + std::to_string(i) + " gets " + member.stringValue(),
          [&](auto& m) { m.held[i]->members.insert(member); }, [&] { held_[i]->prefixIs(member, true); });
      break;
    default:
      apply(
          "kept set " + std::to_string(i) + " loses " + member.stringValue(),
          [&](auto& m) { m.held[i]->members.erase(member); }, [&] { held_[i]->prefixDel(member); });
  }
}

void RandomEvents::operationCalled() {
  const IpGenPrefix a(prefixText()), b(prefixText());
  const plain::Rpf rpf = someRpf();
  const int preference = pick(preferencePool);
  const std::size_t i = held_.empty() ? 0 : random_() % held_.size();
  const std::string of = a.stringValue() + " " + b.stringValue() + " " + rpf.text();
  switch (random_() % 9) {
    case 0:
      apply(
          "doAddOrUpdateRoute " + of, [&](auto& m) { m.addOrUpdate(rpf, a, preference); },
          [&] { resolver().doAddOrUpdateRoute(engineRpf(rpf), a, static_cast<U8>(preference)); });
      break;
    case 1:
      apply(
          "doDelRpf " + of, [&](auto& m) { m.delRpf(rpf, a); },
          [&] { resolver().doDelRpf(engineRpf(rpf), a); });
      break;
    case 2:
      apply(
          "doDelRoute " + of, [&](auto& m) { m.delRoute(a); }, [&] { resolver().doDelRoute(a); });
      break;
    case 3:
      apply(
          "doAddWatchPrefix " + of, [&](auto& m) { m.addWatch(a, b); },
          [&] { resolver().doAddWatchPrefix(a, b); });
      break;
    case 4:
      if (held_.empty()) return;
      apply(
          "doDelWatchPrefix " + of + " kept " + std::to_string(i), [&](auto& m) { m.delWatch(a, m.held[i]); },
          [&] { resolver().doDelWatchPrefix(a, held_[i]); });
      break;
    case 5:
      apply(
          "doDelWatchPrefix " + of, [&](auto& m) { m.delWatch(a, nullptr); },
          [&] { resolver().doDelWatchPrefix(a, nullptr); });
      break;
    case 6: {
      const bool add = chance(70);
      apply(
          "doMaybeRefreshRoutes " + of, [&](auto& m) { m.refresh(a, add); },
          [&] { resolver().doMaybeRefreshRoutes(a, add); });
      break;
    }
    case 7:
      if (a.af() != Lumo::ipv4()) return;
      apply(
          "doRecursiveDelete " + of, [&](auto& m) { m.recursiveDelete(a, m.setOf(b)); },
          [&] {
            const Routing::Multicast::Rib::Route::PtrConst route(world_.mribStatus->route(a.v4Prefix()));
            resolver().doRecursiveDelete(route, resolver().mribForPrefix(b));
          });
      break;
    default:
      apply(
          "doRecursiveUpdate " + of, [&](auto& m) { m.recursiveUpdate(m.setOf(a)); },
          [&] { resolver().doRecursiveUpdate(resolver().mribForPrefix(a)); });
  }
}

void RandomEvents::defaultPrefixSet() {
  const std::string text = chance(40) ? "0.0.0.0/0" : pick(connectedPool);
  const IpGenPrefix prefix(text);
  const bool machine = chance(30);
  apply(
      "default prefix " + prefix.stringValue(),
      [&](auto& m) { (machine ? m.smDefaultPrefix : m.defaultPrefix) = prefix; },
      [&] { machine ? world_.mrib->defaultPrefixIs(prefix) : resolver().defaultPrefixIs(prefix); });
  for (int i = 0; i < 3; ++i) {
    unicast(true);
    unicast(text, true);
  }
}

// ---- Comparison ----

std::string RandomEvents::difference() {
  std::string found = recorder_ ? traceDifference() : "";
  if (found.empty()) {
    const std::string a = state(), b = model_.state();
    if (a != b) found = "state\nengine:\n" + a + "model:\n" + b;
  }
  return found.empty() ? "" : found + "\nafter " + event_;
}

std::string RandomEvents::traceDifference() const {
  std::vector<std::string> engine, model;
  for (const auto& m : recorder_->messages) {
    if (!m.handle.starts_with("Mrib")) continue;
    engine.push_back(m.handle + " " + std::to_string(m.level) + " " + m.text);
    const std::string name = m.text.substr(0, m.text.find('('));  // a signature, in most messages
    if ((name.starts_with("void ") || name.starts_with("S32 ")) && !name.ends_with("::" + m.function))
      return "function " + m.function + " of " + m.text;
  }
  for (const auto& m : model_.traces)
    model.push_back(m.handle + " " + std::to_string(m.level) + " " + m.text);
  for (std::size_t i = 0; i < std::max(engine.size(), model.size()); ++i) {
    const std::string a = i < engine.size() ? engine[i] : "nothing";
    const std::string b = i < model.size() ? model[i] : "nothing";
    if (a != b) return "trace " + std::to_string(i) + "\n engine: " + a + "\n model:  " + b;
  }
  return "";
}

std::string RandomEvents::wronglyUnmarked() {
  const std::string before = model_.state();
  for (const auto& entry : model_.config()) {
    const auto* configured = world_.config->route(entry.prefix);
    if (extras_() % 5 != 0 || resolver().isMarked(*configured)) continue;
    PlainMrib trial(model_);
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
  std::string t;
  std::map<IpGenPrefix, std::string> sets;
  for (auto r = world_.mribStatus->routeIterator(); r; ++r) {
    t += world_.show(r->prefix().stringValue());
    t.pop_back();
    if (r->viaCount() > 0) t += ",";
    for (std::size_t at = 0; (at = t.find(", ", at)) != t.npos;) t.erase(at + 1, 1);
    t += "] {";
    for (auto s = r->prefixSetIterator(); s; ++s) t += (*s)->lPrefix().stringValue() + ",";
    t += "}\n";
  }
  for (auto s = resolver().mribForPrefixIterator(); s; ++s) {
    std::string& members = sets[s->mribForPrefix()->lPrefix()];
    for (auto m = s->mribForPrefix()->prefixIterator(); m; ++m) (members += ' ') += m->stringValue();
  }
  for (const auto& [lpm, members] : sets) t += "set " + lpm.stringValue() + ":" + members + "\n";
  const auto& builder = *world_.mrib->trieBuilder();
  std::set<IpGenPrefix> pool;
  for (const char* p : connectedPool) pool.insert(IpGenPrefix(p));
  for (const char* p : configPool) pool.insert(IpGenPrefix(p));
  for (U32 i = 0; i < burstPrefixes; ++i) pool.insert(IpGenPrefix(burstPrefix(i)));
  t += "trie";
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
