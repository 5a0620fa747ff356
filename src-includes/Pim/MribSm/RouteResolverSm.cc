#include "Pim/MribSm/RouteResolverSm.h"

#include "Pim/MribSm/MribSm.h"
#include "Pim/MribSm/MribSmTrace.h"
#include "Pim/MribSm/ResolverReactors.h"
#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing::Multicast::Rib::RouteResolverSm::handleInitialize()";
constexpr const char* opChangedRoute = "handleChangedRoute";
constexpr const char* sigChangedRoute = "void Routing::Multicast::Rib::RouteResolverSm::handleChangedRoute()";

}  // namespace

Ptr<RouteResolverSm> routeResolverSmFactory(const Ptr<Routing::Shadow::Status>& uribStatus,
                                            const Ptr<Status>& mribStatus,
                                            const Ptr<Interface::AllIntfStatusDir const>& intfStatus,
                                            MribSm* mribSm) {
  return Zan::ValidPtr<RouteResolverSm>(
             Zan::create<RouteResolverSm>(uribStatus, mribStatus, intfStatus, mribSm))
      .ptr();
}

RouteResolverSm::RouteResolverSm(const Ptr<Routing::Shadow::Status>& uribStatus,
                                 const Ptr<Status>& mribStatus,
                                 const Ptr<Interface::AllIntfStatusDir const>& intfStatus, MribSm* mribSm)
    : VFPtrInterface(notificationActiveFlag),
      uribStatus_(uribStatus ? Zan::create<ZanUribStatus>(uribStatus, this) : nullptr),
      mribStatus_(mribStatus ? Zan::create<ZanMribStatus>(mribStatus, this) : nullptr),
      intfStatus_(intfStatus),
      mribSm_(mribSm) {
  if (mribSm) mribSmGoes_.attach(mribSm->departure());
  try {
    handleInitialize();
    zan_TrieInIs(uribStatus ? uribStatus->trie() : nullptr);
  } catch (...) {
    detach();  // a reactor that somebody still holds must not reach what never was
    throw;
  }
}

RouteResolverSm::~RouteResolverSm() {
  detach();
}

void RouteResolverSm::detach() {
  zanDoZombieReactors(true);
}

void RouteResolverSm::mribSmGoes(const MribSm&) {
  mribSm_ = nullptr;
  detach();
}

void RouteResolverSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  VFPtrInterface::hasNotificationActiveIs(active);
  if (uribStatus_) uribStatus_->hasNotificationActiveIs(active);
  if (mribStatus_) mribStatus_->hasNotificationActiveIs(active);
  if (zan_TrieIn_) zan_TrieIn_->hasNotificationActiveIs(active);
}

/// As a zombie the resolver is out of reach of its reactors and remembers nothing.
void RouteResolverSm::zanDoZombieReactors(bool zombie) {
  if (zombie == isZombie()) return;
  const auto pass = [&](auto& reactor) {
    if (!reactor) return;
    reactor->zanDoZombieReactors(zombie);
    reactor->routeResolverSmIs(zombie ? nullptr : this);
  };
  pass(uribStatus_);
  pass(mribStatus_);
  pass(zan_TrieIn_);
  if (zombie) {
    mribForPrefixDelAll();
    unread_.clear();
  }
  isMarkedForDeletionIs(zombie);
}

const Zan::ZanType* RouteResolverSm::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::RouteResolverSm", VFPtrInterface::fwkType());
  return &type;
}

void RouteResolverSm::keep() {
  newReference();
  if (mribSm_) mribSm_->newReference();
}

/// Neither may be there afterwards.
void RouteResolverSm::letGo() {
  const auto self = Ptr<RouteResolverSm>::adopt(this);
  if (mribSm_) mribSm_->deleteReference();
}

// ---- Attributes ----

/// The agent handed it in as mutable; the reactor base only knows the read-only view. Likewise below.
Ptr<Routing::Shadow::Status> RouteResolverSm::uribStatus() const {
  if (!uribStatus_) return nullptr;
  return Ptr<Routing::Shadow::Status>(const_cast<Routing::Shadow::Status*>(uribStatus_->notifier()));
}

void RouteResolverSm::uribStatusIs(const Ptr<Routing::Shadow::Status>& status) {
  if (uribStatus() == status) return;
  if (!status) {
    uribStatusDel();
    return;
  }
  Zan::retire(std::exchange(uribStatus_, nullptr), &ZanUribStatus::routeResolverSmIs);
  const auto reactor = Zan::create<ZanUribStatus>(nullptr, this);
  uribStatus_ = reactor;
  reactor->zanDoZombieReactors(isZombie());
  reactor->notifierIs(status);
}

Ptr<RouteResolverSm::ZanUribStatus> RouteResolverSm::uribStatusDel() {
  Ptr<ZanUribStatus> old = std::exchange(uribStatus_, nullptr);
  Zan::retire(old, &ZanUribStatus::routeResolverSmIs);
  zan_TrieInIs(nullptr);
  return old;
}

Ptr<Status> RouteResolverSm::mribStatus() const {
  return mribStatus_ ? Ptr<Status>(const_cast<Status*>(mribStatus_->notifier())) : nullptr;
}

void RouteResolverSm::mribStatusIs(const Ptr<Status>& status) {
  if (mribStatus() == status) return;
  mribStatusDel();
  if (!status) return;
  mribStatus_ = Zan::create<ZanMribStatus>(status, this);
  mribStatus_->zanDoZombieReactors(isZombie());
}

Ptr<RouteResolverSm::ZanMribStatus> RouteResolverSm::mribStatusDel() {
  Ptr<ZanMribStatus> old = std::exchange(mribStatus_, nullptr);
  Zan::retire(old, &ZanMribStatus::routeResolverSmIs);
  return old;
}

Ptr<TrieGen const> RouteResolverSm::zan_TrieIn() const {
  return zan_TrieIn_ ? zan_TrieIn_->notifierPtr() : nullptr;
}

void RouteResolverSm::zan_TrieInIs(const Ptr<TrieGen const>& trie) {
  if (zan_TrieIn() == trie) return;
  const Ptr<ZanZan_TrieIn> old = std::exchange(zan_TrieIn_, nullptr);
  Zan::retire(old, &ZanZan_TrieIn::routeResolverSmIs);
  if (!trie) return;
  const auto reactor = Zan::create<ZanZan_TrieIn>(this);
  zan_TrieIn_ = reactor;
  reactor->zanDoZombieReactors(isZombie());
  reactor->notifierIs(trie);
}

const Config& RouteResolverSm::config() const {
  const Config* mribConfig = engine().rawMribConfig();
  ZAN_ASSERT(mribConfig);
  return *mribConfig;
}

Status& RouteResolverSm::status() const {
  ZAN_ASSERT_TEXT(mribStatus_ && mribStatus_->notifier(), "mribStatus");
  return const_cast<Status&>(*mribStatus_->notifier());
}

Route* RouteResolverSm::routeOf(const Lumo::IpGenPrefix& prefix) const {
  return prefix.af() == Lumo::ipv4() ? status().route(prefix.v4Prefix()) : nullptr;
}

void RouteResolverSm::defaultPrefixIs(const Lumo::IpGenPrefix& v) {
  if (defaultPrefix_ != v) marks_.markAll();
  defaultPrefix_ = v;
}

// ---- Unicast changes ----

/// Copies every connected unicast route with a via into the MRIB status.
void RouteResolverSm::handleInitialize() {
  const Kept kept(*this);
  MRIB_TRACE(8, sigInitialize);
  if (initialized()) return;
  const Ptr<Routing::Shadow::Status> urib = uribStatus();
  if (const auto table = urib ? urib->routeStatus() : nullptr) {
    for (auto walk = table->iterator(); walk; ++walk) {
      const auto route = walk.getOrHandled();
      const auto fec = route ? connectedFec(*route) : std::nullopt;
      if (!fec) continue;
      copyConnectedRoute(*route, *fec, "handleInitialize");
      MRIB_TRACE(5, sigInitialize << "Added connected route " << route->prefix << "into Mrib status");
    }
  }
  defaultPrefixIs(Lumo::IpGenPrefix("0.0.0.0/0"));
}

/// The FEC of a route that the MRIB copies: connected and with at least one via.
std::optional<Quarn::Fib::Fec> RouteResolverSm::connectedFec(const Quarn::Fib::Route& route) {
  if (route.routeType != Fib::RouteType::connected) return std::nullopt;
  auto fec = readFec(route);
  if (fec && fec->viaCount == 0) fec.reset();
  return fec;
}

void RouteResolverSm::copyConnectedRoute(const Quarn::Fib::Route& route, const Quarn::Fib::Fec& fec,
                                         const char* handler) {
  const Ptr<Route> copy = status().routeIs(route.prefix);
  copy->preferenceIs(route.preference);
  copy->routeTypeIs(Fib::RouteType::connected);
  for (U32 i = 0; i < fec.viaCount; ++i) {
    const Quarn::Fib::FecVia& via = fec.via[Fib::ViaIndex(i).value()];
    const auto* intf = intfStatus_ ? intfStatus_->intfStatus(via.intf) : nullptr;
    copy->viaIs({via.hop, Ptr<Interface::IntfStatus const>(intf)}, true);
    MRIB_TRACE_OF(8, handler, "Added via " << via.hop);
  }
}

/// The FEC of a route. One that cannot be read goes to the table's corruption handler; without an answer from
/// it there is none, and the route is noted.
std::optional<Quarn::Fib::Fec> RouteResolverSm::readFec(const Quarn::Fib::Route& route) {
  const Ptr<Routing::Shadow::Status> urib = uribStatus();
  const Ptr<Quarn::Fib::ForwardingStatus> table = urib ? urib->forwardingStatus() : nullptr;
  if (!table) return std::nullopt;
  try {
    return table->fec(route.fecId);
  } catch (const Quarn::CorruptionException& e) {
    auto fec = table->corrupted(e.what());
    if (!fec) unread_.emplace_back(route.prefix);
    return fec;
  }
}

/// The unicast route of a prefix. A prefix whose route cannot be read is noted.
std::optional<Quarn::Fib::Route> RouteResolverSm::readRoute(const Lumo::IpGenPrefix& prefix) {
  const Ptr<Routing::Shadow::Status> urib = uribStatus();
  if (!urib || !urib->routeStatus()) return std::nullopt;
  try {
    return urib->routeStatus()->route(prefix.v4Prefix());
  } catch (const Quarn::CorruptionException&) {
    unread_.push_back(prefix);
    throw;
  }
}

/// Follows the unicast prefix that changed last, and then those that could not be read when they changed.
void RouteResolverSm::handleChangedRoute() {
  const Kept kept(*this);
  if (initialized()) return;
  MRIB_TRACE(8, sigChangedRoute);
  const Ptr<TrieGen const> trie = zan_TrieIn();
  if (!uribStatus_ || !uribStatus_->notifier() || !trie) return;
  const Lumo::IpGenPrefix changedRoute = trie->changedRoute();
  if (changedRoute.af() == Lumo::unknown()) return;
  ZAN_ASSERT(changedRoute.af() == Lumo::ipv4());
  std::erase(unread_, changedRoute);
  const std::size_t earlier = unread_.size();
  if (earlier == 0) return followChange(changedRoute);
  const Ptr<RouteResolverSm> pin(this);
  followChange(changedRoute);
  followUnread(earlier);
}

/// Follows the first `count` noted prefixes. It ends at one that still cannot be read and is noted again, at
/// the end: a table in which all is bad costs one look-up a change.
void RouteResolverSm::followUnread(std::size_t count) {
  for (; count > 0 && !unread_.empty() && uribStatus(); --count) {
    const Lumo::IpGenPrefix prefix = unread_.front();
    unread_.erase(unread_.begin());
    try {
      followChange(prefix);
    } catch (const Quarn::CorruptionException&) {  // its notifier was told when it changed
    }
    if (!unread_.empty() && unread_.back() == prefix) return;
  }
}

void RouteResolverSm::followChange(const Lumo::IpGenPrefix& changedRoute) {
  const auto route = readRoute(changedRoute);
  MRIB_TRACE_OF(
      5, opChangedRoute,
      sigChangedRoute << "Unicast route " << changedRoute << (route ? " Added/Updated" : " Deleted"));
  const Route* present = status().route(changedRoute.v4Prefix());
  if (!route) {
    if (!present || present->routeType() != Fib::RouteType::connected) return;
    doMaybeRefreshRoutes(changedRoute, false);
    return;
  }
  if (!present) {
    if (const auto fec = connectedFec(*route)) {
      copyConnectedRoute(*route, *fec, opChangedRoute);
      MRIB_TRACE_OF(5, opChangedRoute,
                    sigChangedRoute << "New connected route " << changedRoute << "added to Mrib");
    }
  }
  // *Intended*: an addition names no prefix, so that the refresh skips none; a deletion names its own.
  doMaybeRefreshRoutes(Lumo::IpGenPrefix(), true);
}

}  // namespace Routing::Multicast::Rib
