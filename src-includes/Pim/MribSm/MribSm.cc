#include "Pim/MribSm/MribSm.h"

#include "Pim/MribSm/ConfigReactors.h"
#include "Pim/MribSm/InputReactors.h"
#include "Pim/MribSm/MribSmTrace.h"
#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

Zan::TraceHandle mribSmTrace("MribSm");

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing::Multicast::Rib::MribSm::handleInitialize()";

template <class Reactor>
Ptr<Reactor> dropInput(Ptr<Reactor>& reactor) {
  Ptr<Reactor> old = std::exchange(reactor, nullptr);
  Zan::retire(old, &Reactor::mribSmIs);
  return old;
}

/// The rule of every watched input: the same value changes nothing, null drops the reactor, another value
/// re-targets it or makes one. What is dropped or replaced hears nothing more.
template <class Reactor, class Value, class Make>
void watchInput(Ptr<Reactor>& input, const Value& value, bool zombie, Make make) {
  const Zan::PtrInterface* watched = input ? input->rawNotifier() : nullptr;
  if (watched == value.get() && (input || !value)) return;
  if (!value) {
    dropInput(input);
    return;
  }
  if (!input) input = make();
  const Ptr<Reactor> reactor = input;
  reactor->notifierIs(value);
  if (input == reactor) reactor->zanDoZombieReactors(zombie);  // unless a handler has dropped it meanwhile
}

template <class T>
void assign(Ptr<T>& field, const Ptr<T>& value) {
  if (field == value) return;
  field = value;
}

}  // namespace

Ptr<MribSm> mribSmFactory(const Ptr<InterfaceInfo const>& intfInfo,
                          const Ptr<Routing::Shadow::Status>& uribShadowStatus,
                          const Ptr<Config const>& mribConfig, const Ptr<Status>& mribStatus,
                          const Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir) {
  const Zan::ValidPtr<MribSm> sm(
      Zan::create<MribSm>(intfInfo, uribShadowStatus, mribConfig, mribStatus, allIntfStatusDir));
  sm->hasNotificationActiveIs(true);
  return sm.ptr();
}

MribSm::MribSm(const Ptr<InterfaceInfo const>& intfInfo, const Ptr<Routing::Shadow::Status>& uribShadowStatus,
               const Ptr<Config const>& mribConfig, const Ptr<Status>& mribStatus,
               const Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir)
    : intfInfo_(intfInfo ? newIntfInfo(intfInfo) : nullptr),
      uribShadowStatus_(uribShadowStatus ? newUribShadowStatus(uribShadowStatus) : nullptr),
      mribConfig_(mribConfig ? newMribConfig(mribConfig) : nullptr),
      mribStatus_(mribStatus),
      allIntfStatusDir_(allIntfStatusDir) {
  if (intfInfo) {
    ipStatusIs(intfInfo->ipStatus());
    intfStatusIs(intfInfo->status());
    intfConfigIs(intfInfo->config());
  }
  try {
    handleInitialize();
    forgetConfigPrefixes();
    if (mribConfig) reconcileConfigPrefixes();
  } catch (...) {
    detach();  // a reactor that somebody still holds must not reach what never was
    throw;
  }
}

MribSm::~MribSm() {
  detach();
}

void MribSm::detach() {
  departure_.tell(*this);
  zanDoZombieReactors(true);
  if (intfInfo_) intfInfo_->mribSmIs(nullptr);
  if (uribShadowStatus_) uribShadowStatus_->mribSmIs(nullptr);
  if (mribConfig_) mribConfig_->mribSmIs(nullptr);
  for (auto p = mribConfigPrefix_.iterator(); p; ++p) p->mribSmIs(nullptr);
  routeResolverDel();
  mribShadowDel();
  trieBuilderDel();
}

void MribSm::handleInitialize() {
  const Ptr<MribSm> pin(this);
  MRIB_TRACE_AT(8, 17, sigInitialize);
  if (initialize()) return;
  defaultPrefixIs(Lumo::IpGenPrefix("0.0.0.0/0"));
  mribShadowIs("mribShadow");
  trieBuilderIs(mribStatus(), mribShadow());
  routeResolverIs(uribShadowStatus(), mribStatus(), allIntfStatusDir());
  initializeIs(true);
}

void MribSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  VFPtrInterface::hasNotificationActiveIs(active);
  if (intfInfo_) intfInfo_->hasNotificationActiveIs(active);
  if (uribShadowStatus_) uribShadowStatus_->hasNotificationActiveIs(active);
  if (mribConfig_) mribConfig_->hasNotificationActiveIs(active);
  for (auto p = mribConfigPrefix_.iterator(); p; ++p) p->hasNotificationActiveIs(active);
  if (routeResolver_) routeResolver_->hasNotificationActiveIs(active);
  if (trieBuilder_) trieBuilder_->hasNotificationActiveIs(active);
}

void MribSm::zanDoZombieReactors(bool zombie) {
  if (zombie == isZombie()) return;
  if (intfInfo_) intfInfo_->zanDoZombieReactors(zombie);
  if (uribShadowStatus_) uribShadowStatus_->zanDoZombieReactors(zombie);
  if (mribConfig_) mribConfig_->zanDoZombieReactors(zombie);
  for (auto p = mribConfigPrefix_.iterator(); p; ++p) p->zanDoZombieReactors(zombie);
  isMarkedForDeletionIs(zombie);
}

const Zan::ZanType* MribSm::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::MribSm", VFPtrInterface::fwkType());
  return &type;
}

// ---- Inputs ----

Ptr<InterfaceInfo const> MribSm::intfInfo() const {
  return intfInfo_ ? intfInfo_->notifierPtr() : nullptr;
}

void MribSm::intfInfoIs(const Ptr<InterfaceInfo const>& intfInfo) {
  watchInput(intfInfo_, intfInfo, isZombie(), [this] { return newIntfInfo(nullptr); });
}

Ptr<MribSm::ZanIntfInfo> MribSm::intfInfoDel() {
  return dropInput(intfInfo_);
}

Ptr<MribSm::ZanIntfInfo> MribSm::newIntfInfo(const Ptr<InterfaceInfo const>& intfInfo) {
  auto reactor = Zan::create<ZanIntfInfo>(intfInfo, this);
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

/// The agent handed it in as mutable; the reactor base only knows the read-only view.
Ptr<Routing::Shadow::Status> MribSm::uribShadowStatus() const {
  if (!uribShadowStatus_) return nullptr;
  return Ptr<Routing::Shadow::Status>(const_cast<Routing::Shadow::Status*>(uribShadowStatus_->notifier()));
}

void MribSm::uribShadowStatusIs(const Ptr<Routing::Shadow::Status>& uribShadowStatus) {
  watchInput(uribShadowStatus_, uribShadowStatus, isZombie(),
             [this] { return newUribShadowStatus(nullptr); });
}

Ptr<MribSm::ZanUribShadowStatus> MribSm::uribShadowStatusDel() {
  return dropInput(uribShadowStatus_);
}

Ptr<MribSm::ZanUribShadowStatus> MribSm::newUribShadowStatus(
    const Ptr<Routing::Shadow::Status>& uribShadowStatus) {
  auto reactor = Zan::create<ZanUribShadowStatus>(uribShadowStatus, this);
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

Ptr<Config const> MribSm::mribConfig() const {
  return mribConfig_ ? mribConfig_->notifierPtr() : nullptr;
}

const Config* MribSm::rawMribConfig() const {
  return mribConfig_ ? mribConfig_->notifier() : nullptr;
}

void MribSm::mribConfigIs(const Ptr<Config const>& mribConfig) {
  const Ptr<MribSm> pin(this);
  watchInput(mribConfig_, mribConfig, isZombie(), [this] { return newMribConfig(nullptr); });
}

Ptr<MribSm::ZanMribConfig> MribSm::mribConfigDel() {
  return dropInput(mribConfig_);
}

Ptr<MribSm::ZanMribConfig> MribSm::newMribConfig(const Ptr<Config const>& mribConfig) {
  auto reactor = Zan::create<ZanMribConfig>(mribConfig, this);
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

void MribSm::ipStatusIs(const Ptr<Ip::Status const>& v) {
  assign(ipStatus_, v);
}

void MribSm::intfStatusIs(const Ptr<Interface::AllIntfStatusDir const>& v) {
  assign(intfStatus_, v);
}

void MribSm::intfConfigIs(const Ptr<Interface::AllIntfConfigDir const>& v) {
  assign(intfConfig_, v);
}

// ---- Children ----

Ptr<RouteResolverSm> MribSm::routeResolverIs(const Ptr<Routing::Shadow::Status>& uribStatus,
                                             const Ptr<Status>& mribStatus,
                                             const Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir) {
  const Ptr<MribSm> pin(this);
  const bool same = routeResolver_ && routeResolver_->uribStatus() == uribStatus &&
                    routeResolver_->mribStatus() == mribStatus &&
                    routeResolver_->intfStatus() == allIntfStatusDir;
  if (!same) {
    routeResolver_ = newRouteResolver(uribStatus, mribStatus, allIntfStatusDir);
    routeResolver_->hasNotificationActiveIs(true);
  }
  return Zan::ValidPtr<RouteResolverSm>(routeResolver_).ptr();
}

Ptr<RouteResolverSm> MribSm::newRouteResolver(
    const Ptr<Routing::Shadow::Status>& uribStatus, const Ptr<Status>& mribStatus,
    const Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir) {
  return Zan::create<RouteResolverSm>(uribStatus, mribStatus, allIntfStatusDir, this);
}

Ptr<RouteResolverSm> MribSm::routeResolverDel() {
  return std::exchange(routeResolver_, nullptr);
}

Ptr<MribSm::MribShadow> MribSm::mribShadowIs(const Zan::Name& name) {
  const Ptr<MribSm> pin(this);
  if (!mribShadow_ || !(mribShadow_->name() == name)) {
    mribShadowDel();
    mribShadow_ = newMribShadow(name);
  }
  return Zan::ValidPtr<MribShadow>(mribShadow_).ptr();
}

Ptr<MribSm::MribShadow> MribSm::newMribShadow(const Zan::Name& name) {
  return Zan::create<MribShadow>(name);
}

Ptr<MribSm::MribShadow> MribSm::mribShadowDel() {
  Ptr<MribShadow> old = std::exchange(mribShadow_, nullptr);
  if (old) old->parentIs(nullptr);
  return old;
}

const TrieGen& MribSm::mribTrie() const {
  ZAN_ASSERT(mribShadow() && mribShadow()->trie());
  return *mribShadow()->trie();
}

Ptr<MribTrieBuilderSm> MribSm::trieBuilderIs(const Ptr<Status const>& mribStatus,
                                             const Ptr<MribShadow>& mribShadow) {
  const Ptr<MribSm> pin(this);
  const bool same =
      trieBuilder_ && trieBuilder_->status() == mribStatus && trieBuilder_->mribRouteStatus() == mribShadow;
  if (!same) {
    trieBuilder_ = newTrieBuilder(mribStatus, mribShadow);
    trieBuilder_->hasNotificationActiveIs(true);
  }
  return Zan::ValidPtr<MribTrieBuilderSm>(trieBuilder_).ptr();
}

Ptr<MribTrieBuilderSm> MribSm::newTrieBuilder(const Ptr<Status const>& mribStatus,
                                              const Ptr<MribShadow>& mribShadow) {
  return Zan::create<MribTrieBuilderSm>(mribStatus, mribShadow);
}

Ptr<MribTrieBuilderSm> MribSm::trieBuilderDel() {
  return std::exchange(trieBuilder_, nullptr);
}

// ---- Configured prefixes ----

Ptr<MribSm::ZanMribConfigPrefix> MribSm::mribConfigPrefix(const Lumo::IpGenPrefix& prefix) const {
  return Ptr<ZanMribConfigPrefix>(mribConfigPrefix_.lookup(prefix));
}

Ptr<MribSm::ZanMribConfigPrefix> MribSm::mribConfigPrefixIs(const Ptr<RouteKeyPrefix const>& rkPrefix) {
  if (!rkPrefix) {
    Zan::throwRangeException(
        "null _mribConfigPrefix parameter to mutator for "
        "Routing::Multicast::Rib::MribSm::mribConfigPrefix not allowed\"");
  }
  Ptr<ZanMribConfigPrefix> reactor = mribConfigPrefix(rkPrefix->prefix());
  if (reactor && reactor->notifier() == rkPrefix.get()) return reactor;
  if (reactor) {
    reactor->notifierIs(rkPrefix);
  } else {
    reactor = newMribConfigPrefix(rkPrefix);
  }
  // A handler may have taken the reactor out meanwhile, or released this.
  if (reactor->mribSm()) reactor->zanDoZombieReactors(isZombie());
  return reactor;
}

Ptr<MribSm::ZanMribConfigPrefix> MribSm::newMribConfigPrefix(const Ptr<RouteKeyPrefix const>& rkPrefix) {
  ZAN_ASSERT(rkPrefix);
  auto reactor = Zan::create<ZanMribConfigPrefix>(rkPrefix, nullptr, this);
  mribConfigPrefix_.insert(reactor);
  reactor->start();
  return reactor;
}

Ptr<MribSm::ZanMribConfigPrefix> MribSm::mribConfigPrefixDel(const Lumo::IpGenPrefix& prefix) {
  const Ptr<MribSm> pin(this);
  return mribConfigPrefix_.erase(prefix);
}

void MribSm::mribConfigPrefixDelAll() {
  const Ptr<MribSm> pin(this);
  mribConfigPrefix_.eraseAll();
}

void MribSm::mribConfigPrefixNotify(const Lumo::IpGenPrefix&, const Ptr<ZanMribConfigPrefix>& reactor) {
  zan_handleMribConfigPrefix(reactor);
  Zan::retire(reactor, &ZanMribConfigPrefix::mribSmIs);
}

void MribSm::zan_handleMribConfigPrefix(const Ptr<ZanMribConfigPrefix>& reactor) {
  reactor->handleDel();
}

void MribSm::expect(const Lumo::IpGenPrefix& prefix) const {
  expectReactor(prefix);
  expectOffer(prefix);
}

void MribSm::expectOffer(const Lumo::IpGenPrefix& prefix) const {
  const Lumo::Prefix key = prefix.v4Prefix();
  if (mribStatus_) mribStatus_->routePrefetch(key);
  if (trieBuilder_) trieBuilder_->routePrefetch(key);
}

void MribSm::expectReactor(const Lumo::IpGenPrefix& prefix) const {
  mribConfigPrefix_.prefetch(prefix);
}

/// Those that handlers have had made while the engine was not ready have offered nothing.
void MribSm::forgetConfigPrefixes() {
  for (auto p = mribConfigPrefix_.iterator(); p; ++p) {
    Zan::retire(Ptr<ZanMribConfigPrefix>(p.get()), &ZanMribConfigPrefix::mribSmIs);
    p.erase();
  }
}

void MribSm::reconcileConfigPrefixes() {
  const Ptr<MribSm> pin(this);
  const Ptr<Config const> config = mribConfig();
  mribConfigPrefix_.reserve(config->routeCount());
  for (ConfigWalk<&MribSm::expectReactor> entry(*this, *config); entry; ++entry) {
    mribConfigPrefixIs(Ptr<RouteKeyPrefix const>(&*entry));
    if (rawMribConfig() != config.get()) return;  // a handler has put another in its place
  }
  if (mribConfigPrefix_.size() == config->routeCount()) return;  // each entry has one: there is no other
  for (auto p = mribConfigPrefix_.iterator(); p; ++p) {
    if (!config->route(p->fwkKey())) p.erase();
    if (rawMribConfig() != config.get()) return;
  }
}

}  // namespace Routing::Multicast::Rib
