#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"

#include "Pim/MribTrieBuilder/MribTrieBuilderTrace.h"
#include "Zan/ZanType.h"

#define TRACE(context, level, ...) \
  ZAN_TRACE(Routing::Multicast::Rib::mribTrieBuilderTrace, context, level, __VA_ARGS__)

namespace Routing6::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleInitialize()";
constexpr const char* sigRoute = "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleRoute()";
constexpr const char* sigRouteOf =
    "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleRoute(const Lumo::Ip6Prefix&)";
constexpr const char* sigVia =
    "void Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleVia(const Routing6::Fib::Via&)";

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
  static const Zan::ZanType type("Routing6::Multicast::Rib::MribTrieBuilderSm", VFPtrInterface::fwkType());
  return &type;
}

Ptr<Status const> MribTrieBuilderSm::status() const {
  return status_ ? status_->notifierPtr() : nullptr;
}

void MribTrieBuilderSm::trieIs(const Ptr<Routing::TrieGen>& trie) {
  if (trie_ == trie) return;
  trie_ = trie;
}

void MribTrieBuilderSm::handleInitialize() {
  TRACE(this, 8, sigInitialize);
  ZAN_ASSERT(status() && mribRouteStatus());
  mribRouteStatus()->routeIs(status());
  mribRouteStatus()->trieIs("mribTrie6", Lumo::ipv6());
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
  }
  TRACE(this, 0,
        "Trie built with " << trie()->nodes() << " nodes "
                           << " and " << routes->routeCount() << " routes");
}

/// *Intended*: counts whether or not the trie changes.
void MribTrieBuilderSm::handleRoute(const Lumo::Ip6Prefix& prefix) {
  TRACE(this, 8, sigRouteOf << "( " << prefix << " )");
  ZAN_ASSERT(status() && trie());
  if (status()->route(prefix)) {
    trie()->routeIs(prefix, true);
  } else {
    trie()->routeDel(prefix);
  }
  ++trieUpdates_;
}

// ---- The reactors on the routes ----

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::route(const Lumo::Ip6Prefix& prefix) const {
  return route_.at(prefix);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::routeIs(const Ptr<Route const>& route) {
  if (!route) {
    Zan::throwRangeException(
        "null _route parameter to mutator for Routing6::Multicast::Rib::MribTrieBuilderSm::route not "
        "allowed\"");
  }
  return route_.watch(route, *this);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::newRoute(const Ptr<Route const>& route) {
  return route_.add(route, *this);
}

Ptr<MribTrieBuilderSm::ZanRoute> MribTrieBuilderSm::routeDel(const Lumo::Ip6Prefix& prefix) {
  return route_.drop(prefix);
}

void MribTrieBuilderSm::routeDelAll() {
  route_.dropAll();
}

void MribTrieBuilderSm::routeNotify(const Lumo::Ip6Prefix&, const Ptr<ZanRoute>& reactor) {
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

void MribTrieBuilderSm::ZanStatus::onRoute(const Lumo::Ip6Prefix& prefix) {
  if (!notifier() || !owner()) return;
  owner()->handleRoute(prefix);
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
  bind(route);
  isRegisteredNotifieeIs(true);
  zanDoZombieReactors(owner->isZombie());
}

const Zan::ZanType* MribTrieBuilderSm::ZanRoute::fwkType() const {
  static const Zan::ZanType type("Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute", Reactor::fwkType());
  return &type;
}

void MribTrieBuilderSm::ZanRoute::zanLeft() {
  if (owner()) owner()->routeNotify(fwkKey(), Ptr<ZanRoute>(this));
}

void MribTrieBuilderSm::ZanRoute::handleVia(const Fib::Via& via) {
  TRACE(this, 8, sigVia << "( " << via << " ) " << (notifier()->via(via) ? "Addition" : "Deletion"));
  if (owner()) owner()->handleRoute(notifier()->prefix());
}

}  // namespace Routing6::Multicast::Rib
