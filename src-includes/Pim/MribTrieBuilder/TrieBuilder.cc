#include "Pim/MribTrieBuilder/TrieBuilder.h"

#include "Pim/KeyedReactor.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderTrace.h"
#include "Zan/ZanType.h"

namespace Routing {

using Zan::Ptr;

template <class Types>
Ptr<typename Types::Builder> TrieBuilder<Types>::MribTrieBuilderSmIs(
    const Ptr<Status const>& status, const Ptr<ShadowStatus>& mribRouteStatus) {
  return Zan::ValidPtr<Builder>(Zan::create<Builder>(status, mribRouteStatus)).ptr();
}

template <class Types>
void TrieBuilder<Types>::start(const Ptr<Status const>& status, const Ptr<ShadowStatus>& mribRouteStatus) {
  if (status) status_ = Zan::create<ZanStatus>(status, &self());
  mribRouteStatus_ = mribRouteStatus;
  self().handleInitialize();
  self().handleRoute();
  reconcile(*status);
}

template <class Types>
TrieBuilder<Types>::~TrieBuilder() {
  TrieBuilder::zanDoZombieReactors(true);
  if (status_) status_->mribTrieBuilderSmIs(nullptr);
  for (auto reactor = route_.iterator(); reactor; ++reactor) reactor->mribTrieBuilderSmIs(nullptr);
  route_.eraseAll();
}

template <class Types>
void TrieBuilder<Types>::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  VFPtrInterface::hasNotificationActiveIs(active);
  if (status_) status_->hasNotificationActiveIs(active);
  for (auto reactor = route_.iterator(); reactor; ++reactor) reactor->hasNotificationActiveIs(active);
}

template <class Types>
void TrieBuilder<Types>::zanDoZombieReactors(bool zombie) {
  if (zombie == isZombie()) return;
  if (status_) status_->zanDoZombieReactors(zombie);
  for (auto reactor = route_.iterator(); reactor; ++reactor) reactor->zanDoZombieReactors(zombie);
  isMarkedForDeletionIs(zombie);
}

template <class Types>
const Zan::ZanType* TrieBuilder<Types>::fwkType() const {
  static const Zan::ZanType type(Types::name, VFPtrInterface::fwkType());
  return &type;
}

// ---- Status and trie ----

template <class Types>
Ptr<typename TrieBuilder<Types>::Status const> TrieBuilder<Types>::status() const {
  return status_ ? status_->notifierPtr() : nullptr;
}

template <class Types>
void TrieBuilder<Types>::trieIs(const Ptr<TrieGen>& trie) {
  if (trie_ == trie) return;
  trie_ = trie;
}

template <class Types>
void TrieBuilder<Types>::publishTrie(const char* name, Lumo::AddressFamily af) {
  const Ptr<TrieBuilder> pin(this);
  mribRouteStatus()->routeIs(status());
  mribRouteStatus()->trieIs(name, af);
  trieIs(mribRouteStatus()->trie());
  initializeIs(true);
}

template <class Types>
void TrieBuilder<Types>::loadTrie(U32 updates) {
  const Ptr<TrieBuilder> pin(this);
  const Ptr<Status const> routes = status();
  for (auto r = routes->routeIterator(); r; ++r) {
    presentTrie().routeIs(r->prefix(), true);
    trieUpdates_ += updates;
  }
  ZAN_TRACE_OF(Multicast::Rib::mribTrieBuilderTrace, this, 0, __LINE__, "handleRoute",
               "Trie built with " << presentTrie().nodes() << " nodes "
                                  << " and " << routes->routeCount() << " routes");
}

// ---- The reactors on the routes ----

template <class Types>
Ptr<typename Types::ZanRoute> TrieBuilder<Types>::routeIs(const Ptr<Route const>& route) {
  if (!route) {
    Zan::throwRangeException("null _route parameter to mutator for " + std::string(Types::name) +
                             "::route not allowed\"");
  }
  Ptr<ZanRoute> reactor = this->route(route->prefix());
  if (reactor && reactor->notifier() == route.get()) return reactor;
  if (reactor) {
    reactor->notifierIs(route);
  } else {
    reactor = newRoute(route);
  }
  reactor->zanDoZombieReactors(isZombie());
  return reactor;
}

template <class Types>
Ptr<typename Types::ZanRoute> TrieBuilder<Types>::newRoute(const Ptr<Route const>& route) {
  auto reactor = Zan::create<ZanRoute>(route, &self());
  route_.insert(reactor);
  return reactor;
}

template <class Types>
void TrieBuilder<Types>::routeNotify(const Prefix&, const Ptr<ZanRoute>& reactor) {
  Zan::retire(reactor, &ZanRoute::mribTrieBuilderSmIs);
}

/// Watches every route of the status, and no other.
template <class Types>
void TrieBuilder<Types>::reconcile(const Status& status) {
  for (auto r = status.routeIterator(); r; ++r) routeIs(Ptr<Route const>(r.get()));
  for (auto reactor = route_.iterator(); reactor; ++reactor) {
    if (!status.route(reactor->fwkKey())) reactor.erase();
  }
}

template <class Types>
TrieBuilder<Types>::StatusReactor::StatusReactor(const Ptr<Status const>& status, Builder* owner)
    : Base(owner) {
  this->bind(status);
  this->isRegisteredNotifieeIs(true);
}

template <class Types>
void TrieBuilder<Types>::StatusReactor::notifierIs(const Ptr<Zan::PtrInterface const>& status) {
  if (status.get() == this->rawNotifier()) return;
  Base::notifierIs(status);
  this->isRegisteredNotifieeIs(true);
  onRoutezanImmediate();
}

template <class Types>
void TrieBuilder<Types>::StatusReactor::onRoute(const Prefix& prefix) {
  if (!this->notifier() || !this->owner()) return;
  if (const Route* present = this->notifier()->route(prefix)) {
    this->owner()->routeIs(Ptr<Route const>(present));
  } else {
    this->owner()->routeDel(prefix);
  }
}

template <class Types>
void TrieBuilder<Types>::StatusReactor::onRoutezanImmediate() {
  if (this->notifier() && this->owner()) this->owner()->reconcile(*this->notifierPtr());
}

template <class Types>
TrieBuilder<Types>::RouteReactor::RouteReactor(const Ptr<Route const>& route, Builder* owner) : Base(owner) {
  this->bind(route);
  this->isRegisteredNotifieeIs(true);
  this->zanDoZombieReactors(owner->isZombie());
}

template <class Types>
void TrieBuilder<Types>::RouteReactor::notifierIs(const Ptr<Zan::PtrInterface const>& route) {
  if (this->owner()) assertKeepsKey<Route>(fwkKey(), route);
  Base::notifierIs(route);
}

template <class Types>
const Zan::ZanType* TrieBuilder<Types>::RouteReactor::fwkType() const {
  static const Zan::ZanType type(Types::routeName, Base::fwkType());
  return &type;
}

template <class Types>
void TrieBuilder<Types>::RouteReactor::zanLeft() {
  if (Builder* builder = this->owner())
    builder->routeNotify(fwkKey(), Ptr<ZanRoute>(static_cast<ZanRoute*>(this)));
}

template class TrieBuilder<Multicast::Rib::MribTrieBuilderTypes>;
template class TrieBuilder<Routing6::Multicast::Rib::MribTrieBuilderTypes>;

}  // namespace Routing

Zan::Ptr<Routing::Multicast::Rib::MribTrieBuilderSm> Routing::Multicast::Rib::mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status, const Zan::Ptr<Shadow::Status>& mribRouteStatus) {
  return MribTrieBuilderSm::MribTrieBuilderSmIs(status, mribRouteStatus);
}

Zan::Ptr<Routing6::Multicast::Rib::MribTrieBuilderSm> Routing6::Multicast::Rib::mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status, const Zan::Ptr<Shadow::Status>& mribRouteStatus) {
  return MribTrieBuilderSm::MribTrieBuilderSmIs(status, mribRouteStatus);
}
