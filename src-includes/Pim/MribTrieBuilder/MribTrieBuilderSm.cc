#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"

#include "Pim/MribTrieBuilder/MribTrieBuilderTrace.h"
#include "Zan/ZanType.h"

#define TRACE(context, level, ...) ZAN_TRACE(mribTrieBuilderTrace, context, level, __VA_ARGS__)

namespace Routing::Multicast::Rib {

Zan::TraceHandle mribTrieBuilderTrace("MribTrieBuilder");

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing::Multicast::Rib::MribTrieBuilderSm::handleInitialize()";
constexpr const char* sigRoute = "void Routing::Multicast::Rib::MribTrieBuilderSm::handleRoute()";
constexpr const char* sigPreference =
    "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handlePreference()";
constexpr const char* sigVia =
    "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleVia(const Routing::Fib::Via&)";
constexpr const char* sigDel = "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleDel()";

}  // namespace

// ---- The builder ----

Ptr<MribTrieBuilderSm> mribTrieBuilderSmFactory(const Ptr<Status const>& status,
                                                const Ptr<Shadow::Status>& mribRouteStatus) {
  return MribTrieBuilderSm::MribTrieBuilderSmIs(status, mribRouteStatus);
}

Ptr<MribTrieBuilderSm> MribTrieBuilderSm::MribTrieBuilderSmIs(const Ptr<Status const>& status,
                                                              const Ptr<ShadowStatus>& mribRouteStatus) {
  return Zan::ValidPtr<MribTrieBuilderSm>(Zan::create<MribTrieBuilderSm>(status, mribRouteStatus)).ptr();
}

MribTrieBuilderSm::MribTrieBuilderSm(const Ptr<Status const>& status,
                                     const Ptr<ShadowStatus>& mribRouteStatus)
    : status_(status ? Zan::create<ZanStatus>(status, this) : nullptr), mribRouteStatus_(mribRouteStatus) {
  handleInitialize();
  handleRoute();
  route_.reconcile(*this->status(), *this);
}

MribTrieBuilderSm::~MribTrieBuilderSm() {
  zanDoZombieReactors(true);
  if (status_) status_->mribTrieBuilderSmIs(nullptr);
  route_.orphan();
}

void MribTrieBuilderSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  VFPtrInterface::hasNotificationActiveIs(active);
  if (status_) status_->hasNotificationActiveIs(active);
  route_.hasNotificationActiveIs(active);
}

void MribTrieBuilderSm::zanDoZombieReactors(bool zombie) {
  if (zombie == isZombie()) return;
  if (status_) status_->zanDoZombieReactors(zombie);
  route_.zanDoZombieReactors(zombie);
  isMarkedForDeletionIs(zombie);
}

const Zan::ZanType* MribTrieBuilderSm::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::MribTrieBuilderSm", VFPtrInterface::fwkType());
  return &type;
}

Ptr<Status const> MribTrieBuilderSm::status() const {
  return status_ ? status_->notifierPtr() : nullptr;
}

void MribTrieBuilderSm::trieIs(const Ptr<TrieGen>& trie) {
  if (trie_ == trie) return;
  trie_ = trie;
}

void MribTrieBuilderSm::handleInitialize() {
  TRACE(this, 8, sigInitialize);
  ZAN_ASSERT(status() && mribRouteStatus());
  mribRouteStatus()->routeIs(status());
  mribRouteStatus()->trieIs("mribTrie4", Lumo::ipv4());
  trieIs(mribRouteStatus()->trie());
  initializeIs(true);
}

void MribTrieBuilderSm::handleRoute() {
  TRACE(this, 8, sigRoute);
  if (!initialize()) return;
  ZAN_ASSERT(trie()->nodes() == 0);
  const Ptr<Status const> routes = status();
  for (auto r = routes->routeIterator(); r; ++r) {
    trie()->routeIs(r->prefix(), true);
    trieUpdatesInc(1);
  }
  TRACE(this, 0,
        "Trie built with " << trie()->nodes() << " nodes "
                           << " and " << routes->routeCount() << " routes");
  deletedPreferenceIs(deletedPreferenceUnknown);
}

void MribTrieBuilderSm::zan_handleRoute(const Ptr<ZanRoute>& reactor) {
  reactor->handleDel();
}

// ---- The reactors on the routes ----

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::route(const Lumo::Prefix& prefix) const {
  return route_.at(prefix);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::routeIs(const Ptr<Route const>& route) {
  if (!route) {
    Zan::throwRangeException(
        "null _route parameter to mutator for Routing::Multicast::Rib::MribTrieBuilderSm::route not "
        "allowed\"");
  }
  return route_.watch(route, *this);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::newRoute(const Ptr<Route const>& route) {
  return route_.add(route, *this);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::routeDel(const Lumo::Prefix& prefix) {
  return route_.drop(prefix);
}

void MribTrieBuilderSm::routeDelAll() {
  route_.dropAll();
}

void MribTrieBuilderSm::routeNotify(const Lumo::Prefix&, const Ptr<ZanRoute>& reactor) {
  Zan::retire(reactor, &ZanRoute::mribTrieBuilderSmIs);
}

// ---- ZanStatus ----

MribTrieBuilderSm::ZanStatus::ZanStatus(const Ptr<Status const>& status, MribTrieBuilderSm* owner)
    : Reactor(owner) {
  bind(status);
  isRegisteredNotifieeIs(true);
}

void MribTrieBuilderSm::ZanStatus::notifierIs(const Ptr<PtrInterface const>& status) {
  if (status.get() == rawNotifier()) return;
  Reactor::notifierIs(status);
  isRegisteredNotifieeIs(true);
  onRoutezanImmediate();
}

void MribTrieBuilderSm::ZanStatus::onRoute(const Lumo::Prefix& prefix) {
  if (!notifier() || !owner()) return;
  if (const Route* present = notifier()->route(prefix)) {
    owner()->routeIs(Ptr<Route const>(present));
  } else {
    owner()->routeDel(prefix);
  }
}

void MribTrieBuilderSm::ZanStatus::onRoutezanImmediate() {
  if (notifier() && owner()) owner()->route_.reconcile(*notifierPtr(), *owner());
}

// ---- ZanRoute ----

MribTrieBuilderSm::ZanRoute::ZanRoute(const Ptr<Route const>& route, MribTrieBuilderSm* owner)
    : Reactor(owner) {
  ignoresIs(Route::routeTypeId);
  ignoresIs(Route::creationTimeId);
  ignoresIs(Route::metricId);
  ignoresIs(Route::prefixSetId);
  bind(route);
  isRegisteredNotifieeIs(true);
  zanDoZombieReactors(owner->isZombie());
}

const Zan::ZanType* MribTrieBuilderSm::ZanRoute::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute", Reactor::fwkType());
  return &type;
}

void MribTrieBuilderSm::ZanRoute::zanLeft() {
  if (owner()) owner()->routeNotify(fwkKey(), Ptr<ZanRoute>(this));
}

void MribTrieBuilderSm::ZanRoute::handleDefault(Zan::ActivityConfig*, Zan::AttributeId, bool leaving) {
  if (leaving && owner()) owner()->zan_handleRoute(Ptr<ZanRoute>(this));
}

void MribTrieBuilderSm::ZanRoute::handlePreference() {
  TRACE(this, 8, sigPreference);
  if (!owner() || notifier()->viaCount() == 0) return;
  insertPrefix();
}

/// *Intended*: a via that goes inserts the prefix like one that comes; only `handleDel` removes it.
void MribTrieBuilderSm::ZanRoute::handleVia(const Fib::Via& via) {
  TRACE(this, 8, sigVia << "( " << via << " ) " << (notifier()->via(via) ? "Addition" : "Deletion"));
  if (owner()) insertPrefix();
}

void MribTrieBuilderSm::ZanRoute::insertPrefix() {
  owner()->trie()->routeAdd(notifier()->prefix(), [this] { owner()->trieUpdatesInc(1); });
  owner()->deletedPreferenceIs(deletedPreferenceUnknown);
}

void MribTrieBuilderSm::ZanRoute::handleDel() {
  const U8 preference = notifier()->preference();
  // *Intended*: the preference is one raw byte of the text.
  TRACE(this, 8,
        sigDel << "Route with prefix " << notifier()->prefix() << " and preference "
               << Zan::Text::RawByte{preference} << " about to be deleted ");
  if (!owner()) return;
  owner()->deletedPreferenceIs(preference);
  owner()->trie()->routeDel(notifier()->prefix());
  owner()->trieUpdatesInc(1);
}

}  // namespace Routing::Multicast::Rib
