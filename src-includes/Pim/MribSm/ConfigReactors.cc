#include "Pim/MribSm/ConfigReactors.h"

#include "Pim/KeyedReactor.h"
#include "Pim/MribSm/MribSmTrace.h"
#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* sigPrefixDel = "void Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::handleDel()";
constexpr const char* sigPrefDel =
    "void Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleDel()";
constexpr const char* sigRpfs =
    "void Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleRpf()";
constexpr const char* sigRpf =
    "void Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleRpf(const "
    "Routing::Multicast::Rib::Rpf&)";

/// Offers every RPF of an entry to the resolver; true when at least one is installed.
bool offer(RouteResolverSm& resolver, const RouteKeyPreference& entry, const Lumo::IpGenPrefix& prefix) {
  const Ptr<RouteKeyPreference const> pin(&entry);
  bool installed = false;
  for (auto rpf = entry.rpfIterator(); rpf; ++rpf) {
    installed |= RouteResolverSm::isInstalled(resolver.doAddOrUpdateRoute(*rpf, prefix, entry.preference()));
  }
  return installed;
}

}  // namespace

// ---- ZanMribConfig: the configuration ----

MribSm::ZanMribConfig::ZanMribConfig(const Ptr<Config const>& config, MribSm* mribSm) : Reactor(mribSm) {
  bind(config);
  followExpectations();
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanMribConfig::notifierIs(const Ptr<PtrInterface const>& config) {
  if (config.get() == rawNotifier()) return;
  isRegisteredNotifieeIs(false);
  Reactor::notifierIs(config);
  followExpectations();
  onRoutezanImmediate();
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanMribConfig::onRoute(const Lumo::IpGenPrefix& prefix) {
  if (!notifier() || !owner()) return;
  if (const RouteKeyPrefix* entry = notifier()->route(prefix)) {
    owner()->mribConfigPrefixIs(Ptr<RouteKeyPrefix const>(entry));
  } else {
    owner()->mribConfigPrefixDel(prefix);
  }
}

void MribSm::ZanMribConfig::followExpectations() {
  if (notifier()) {
    expectations_.attach(notifier()->expectations());
  } else {
    expectations_.detach();
  }
}

void MribSm::ZanMribConfig::expect(const Lumo::IpGenPrefix& prefix) {
  if (owner()) owner()->expect(prefix);
}

void MribSm::ZanMribConfig::onRoutezanImmediate() {
  if (notifier() && owner()) owner()->reconcileConfigPrefixes();
}

// ---- ZanMribConfigPrefix: one prefix ----

MribSm::ZanMribConfigPrefix::ZanMribConfigPrefix(const Ptr<RouteKeyPrefix const>& rkPrefix,
                                                 Zan::ActivityConfig* activity, MribSm* mribSm)
    : Reactor(mribSm), zanFwkActivity_(activity) {
  bind(rkPrefix);
  zanDoZombieReactors(mribSm->isZombie());
}

void MribSm::ZanMribConfigPrefix::start() {
  reconcilePrefs();
  isRegisteredNotifieeIs(true);
}

MribSm::ZanMribConfigPrefix::~ZanMribConfigPrefix() {
  for (auto p = mribConfigPref_.iterator(); p; ++p) {
    p->zanDoZombieReactors(true);
    p->zanMribConfigPrefixIs(nullptr);
  }
}

void MribSm::ZanMribConfigPrefix::hasNotificationActiveIs(bool active) {
  Reactor::hasNotificationActiveIs(active);
  for (auto p = mribConfigPref_.iterator(); p; ++p) p->hasNotificationActiveIs(active);
}

void MribSm::ZanMribConfigPrefix::zanDoZombieReactors(bool zombie) {
  Reactor::zanDoZombieReactors(zombie);
  for (auto p = mribConfigPref_.iterator(); p; ++p) p->zanDoZombieReactors(zombie);
}

void MribSm::ZanMribConfigPrefix::notifierIs(const Ptr<PtrInterface const>& rkPrefix) {
  if (rkPrefix.get() == rawNotifier()) return;
  if (owner()) assertKeepsKey<RouteKeyPrefix>(fwkKey(), rkPrefix);
  isRegisteredNotifieeIs(false);
  Reactor::notifierIs(rkPrefix);
  reconcilePrefs();
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanMribConfigPrefix::onPref(const U8& preference) {
  if (!notifier() || !owner()) return;
  if (const RouteKeyPreference* entry = notifier()->pref(preference)) {
    mribConfigPrefIs(Ptr<RouteKeyPreference const>(entry));
  } else {
    mribConfigPrefDel(preference);
  }
}

void MribSm::ZanMribConfigPrefix::onPrefzanImmediate() {
  reconcilePrefs();
}

void MribSm::ZanMribConfigPrefix::reconcilePrefs() {
  if (!notifier() || !owner()) return;
  const Ptr<RouteKeyPrefix const> rkPrefix = notifierPtr();
  for (auto p = rkPrefix->prefIterator(); p; ++p) {
    mribConfigPrefIs(Ptr<RouteKeyPreference const>(p.get()));
    if (notifier() != rkPrefix.get()) return;  // a handler has put another in its place
  }
  for (auto p = mribConfigPref_.iterator(); p; ++p) {
    if (!rkPrefix->pref(p->fwkKey().preference)) p.erase();
    if (notifier() != rkPrefix.get()) return;
  }
}

Ptr<MribSm::ZanMribConfigPrefix::ZanMribConfigPref> MribSm::ZanMribConfigPrefix::mribConfigPref(
    U8 preference) const {
  return Ptr<ZanMribConfigPref>(mribConfigPref_.lookup({preference}));
}

Ptr<MribSm::ZanMribConfigPrefix::ZanMribConfigPref> MribSm::ZanMribConfigPrefix::mribConfigPrefIs(
    const Ptr<RouteKeyPreference const>& rkPreference) {
  if (!rkPreference) {
    Zan::throwRangeException(
        "null _mribConfigPref parameter to mutator for "
        "Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::mribConfigPref not allowed\"");
  }
  Ptr<ZanMribConfigPref> reactor = mribConfigPref(rkPreference->preference());
  if (reactor && reactor->notifier() == rkPreference.get()) return reactor;
  if (reactor) {
    reactor->notifierIs(rkPreference);
  } else {
    reactor = newMribConfigPref(rkPreference);
  }
  if (reactor->zanMribConfigPrefix()) reactor->zanDoZombieReactors(isZombie());
  return reactor;
}

Ptr<MribSm::ZanMribConfigPrefix::ZanMribConfigPref> MribSm::ZanMribConfigPrefix::newMribConfigPref(
    const Ptr<RouteKeyPreference const>& rkPreference) {
  ZAN_ASSERT(rkPreference);
  auto reactor =
      Zan::create<ZanMribConfigPref>(rkPreference, Zan::zanActivitySmFor(zanFwkActivity_.get()), this);
  mribConfigPref_.insert(reactor);
  reactor->start();
  return reactor;
}

Ptr<MribSm::ZanMribConfigPrefix::ZanMribConfigPref> MribSm::ZanMribConfigPrefix::mribConfigPrefDel(
    U8 preference) {
  return mribConfigPref_.erase({preference});
}

void MribSm::ZanMribConfigPrefix::mribConfigPrefDelAll() {
  mribConfigPref_.eraseAll();
}

void MribSm::ZanMribConfigPrefix::mribConfigPrefNotify(U8, const Ptr<ZanMribConfigPref>& reactor) {
  zan_handleMribConfigPref(reactor);
  Zan::retire(reactor, &ZanMribConfigPref::zanMribConfigPrefixIs);
}

void MribSm::ZanMribConfigPrefix::zan_handleMribConfigPref(const Ptr<ZanMribConfigPref>& reactor) {
  reactor->handleDel();
}

const Zan::ZanType* MribSm::ZanMribConfigPrefix::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix", Reactor::fwkType());
  return &type;
}

void MribSm::ZanMribConfigPrefix::zanLeft() {
  if (owner()) owner()->mribConfigPrefixNotify(fwkKey(), Ptr<ZanMribConfigPrefix>(this));
}

void MribSm::ZanMribConfigPrefix::handleDel() {
  ZAN_ASSERT(notifier());
  const Lumo::IpGenPrefix prefix = notifier()->prefix();
  MRIB_TRACE(8, sigPrefixDel << prefix);
  if (!owner() || !owner()->routeResolver() || !notifier()->isResolvable()) return;
  owner()->routeResolver()->doMaybeRefreshRoutes(prefix, false);
}

// ---- ZanMribConfigPref: one preference ----

MribSm::ZanMribConfigPrefix::ZanMribConfigPref::ZanMribConfigPref(
    const Ptr<RouteKeyPreference const>& rkPreference, Ptr<Zan::ActivitySm> actsm,
    ZanMribConfigPrefix* zanMribConfigPrefix)
    : Reactor(zanMribConfigPrefix), actsm_(std::move(actsm)) {
  bind(rkPreference);
  zanDoZombieReactors(zanMribConfigPrefix->isZombie());
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::start() {
  handleRpf();
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::notifierIs(const Ptr<PtrInterface const>& rkPreference) {
  if (rkPreference.get() == rawNotifier()) return;
  if (owner()) assertKeepsKey<RouteKeyPreference>(fwkKey().preference, rkPreference);
  isRegisteredNotifieeIs(false);
  Reactor::notifierIs(rkPreference);
  if (notifier()) handleRpf();
  isRegisteredNotifieeIs(true);
}

const Zan::ZanType* MribSm::ZanMribConfigPrefix::ZanMribConfigPref::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref",
                                 Reactor::fwkType());
  return &type;
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::zanLeft() {
  if (owner()) owner()->mribConfigPrefNotify(fwkKey().preference, Ptr<ZanMribConfigPref>(this));
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::onRpf(const Rpf& rpf) {
  if (!isZombie()) handleRpf(rpf);
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleRpf() {
  if (!mribSm()) return;
  const Ptr<RouteKeyPreference const> entry = notifierPtr();
  MRIB_TRACE_AT(8, 92, sigRpfs << entry->preference());
  if (!mribSm()->initialize()) {
    MRIB_TRACE_AT(8, 95, sigRpfs << "Abort. Not Initialized");
    return;
  }
  for (auto rpf = entry->rpfIterator(); rpf; ++rpf) handleRpf(*rpf);
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleRpf(const Rpf& rpf) {
  MribSm* engine = mribSm();
  if (!engine || !notifier()) return;
  const Ptr<RouteKeyPrefix const> rkPrefix = owner()->notifierPtr();
  const Lumo::IpGenPrefix prefix = rkPrefix ? rkPrefix->prefix() : Lumo::IpGenPrefix();
  const U8 preference = notifier()->preference();
  MRIB_TRACE_AT(5, 112,
                sigRpf << "( " << rpf << " )"
                       << " for prefix " << prefix << " with preference " << preference);
  RouteResolverSm* resolver = engine->routeResolver().get();
  if (!resolver) return;  // not there yet, or gone
  const RouteResolverSm::Kept kept(*resolver);
  const bool present = notifier()->rpf(rpf);
  const Lumo::IpGenPrefix lpm = engine->mribTrie().longestMatch(prefix);
  ZAN_ASSERT_AT(rpf.rpfType != Rpf::unknown(), "rpfType != unknown()", 123);
  ZAN_ASSERT(rkPrefix);
  if (!rkPrefix->isResolvable()) return;
  const RouteKeyPreference* best = rkPrefix->bestPref();
  if (!best || best->preference() != preference) {
    MRIB_TRACE_AT(8, 133,
                  sigRpf << "Not processing because route exists with " << (best ? best->preference() : U8{0})
                         << " preference");
    return;
  }
  if (!present) return handleRpfRemoved(*resolver, rpf, *rkPrefix, lpm);
  resolver->addRpf(rpf, *rkPrefix, preference);
  // *Intended*: without a match the refresh excludes no prefix; with one it excludes this prefix itself.
  resolver->doMaybeRefreshRoutes(lpm.empty() ? lpm : prefix, true);
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleRpfRemoved(RouteResolverSm& resolver,
                                                                      const Rpf& rpf,
                                                                      const RouteKeyPrefix& rkPrefix,
                                                                      const Lumo::IpGenPrefix& lpm) {
  const Lumo::IpGenPrefix prefix = rkPrefix.prefix();
  if (lpm.empty() || (lpm == resolver.mribSm()->defaultPrefix() && prefix != lpm)) {
    MRIB_TRACE_AT_OF(5, 158, "handleRpf",
                     sigRpf << "Prefix " << prefix << " Already deleted. Nothing to do.");
    return;
  }
  const Ptr<Route const> route(resolver.mribSm()->mribStatus()->route(lpm.v4Prefix()));
  resolver.doRecursiveDelete(route, resolver.mribForPrefix(lpm));
  resolver.doDelRpf(rpf, prefix);
  // This preference is the best one: it is tried first, then the others in ascending order.
  for (auto entry = rkPrefix.prefIterator(); entry; ++entry) {
    if (!offer(resolver, *entry, prefix)) continue;
    resolver.doRecursiveUpdate(resolver.mribForPrefix(lpm));
    return;
  }
  resolver.doDelRoute(lpm);
  resolver.doRecursiveUpdate(resolver.mribForPrefix(lpm));
}

void MribSm::ZanMribConfigPrefix::ZanMribConfigPref::handleDel() {
  ZAN_ASSERT(notifier());
  const U8 preference = notifier()->preference();
  MRIB_TRACE(8, sigPrefDel << preference);
  MribSm* engine = mribSm();
  RouteResolverSm* resolver = engine ? engine->routeResolver().get() : nullptr;
  if (!resolver) return;
  const RouteResolverSm::Kept kept(*resolver);
  const Ptr<RouteKeyPrefix const> rkPrefix = owner()->notifierPtr();
  if (!rkPrefix->isResolvable()) return;
  const Lumo::IpGenPrefix prefix = rkPrefix->prefix();
  for (auto entry = rkPrefix->prefIterator(); entry; ++entry) {
    if (!offer(*resolver, *entry, prefix)) continue;
    resolver->doMaybeRefreshRoutes(prefix, true);
    return;
  }
  const Route* route = engine->mribStatus()->route(prefix.v4Prefix());
  if (route && route->preference() == preference) resolver->doMaybeRefreshRoutes(prefix, false);
}

}  // namespace Routing::Multicast::Rib
