#include <vector>

#include "Pim/MribSm/MribSm.h"
#include "Pim/MribSm/MribSmTrace.h"

// What follows a change: configured routes are offered again, and the routes that resolve through one that
// goes are stripped of its vias and resolved anew. Dependants are followed to any depth on a stack of one's
// own. Nothing guards against a circle: the agent refuses configurations whose routes could resolve through
// each other.

namespace Routing::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* sigRefresh =
    "void Routing::Multicast::Rib::RouteResolverSm::doMaybeRefreshRoutes(const Lumo::IpGenPrefix&, bool)";
constexpr const char* opDelete = "doRecursiveDelete";
constexpr const char* sigDelete =
    "void Routing::Multicast::Rib::RouteResolverSm::doRecursiveDelete(const "
    "Routing::Multicast::Rib::Route::PtrConst&, const Routing::Multicast::Rib::PrefixSet::Ptr&)";
constexpr const char* opUpdate = "doRecursiveUpdate";
constexpr const char* sigUpdate =
    "void Routing::Multicast::Rib::RouteResolverSm::doRecursiveUpdate(const "
    "Routing::Multicast::Rib::PrefixSet::Ptr&)";

/// A walk through prefix sets within prefix sets. It stands in the deepest set that it has entered and not
/// left, on a member or behind the last one. Costs heap for each level and no stack.
class DependantsWalk {
 public:
  explicit operator bool() const { return !levels_.empty(); }
  void enter(const PrefixSet::Ptr& set) { levels_.push_back({set, set->prefixIterator()}); }
  /// Goes back to the set before, and to the member there below which this one was; false from the first.
  bool leave() {
    levels_.pop_back();
    return !levels_.empty();
  }
  bool isOnMember() const { return static_cast<bool>(levels_.back().at); }
  const Lumo::IpGenPrefix& member() const { return *levels_.back().at; }
  const Lumo::IpGenPrefix& lPrefix() const { return levels_.back().set->lPrefix(); }
  void goOn() { ++levels_.back().at; }

 private:
  struct Level {
    PrefixSet::Ptr set;
    decltype(std::declval<const PrefixSet&>().prefixIterator()) at;
  };
  std::vector<Level> levels_;
};

}  // namespace

void RouteResolverSm::doMaybeRefreshRoutes(const Lumo::IpGenPrefix& changedPrefix, bool add) {
  const Kept kept(*this);
  MRIB_TRACE(8, sigRefresh << "( " << changedPrefix << ", " << (add ? "True" : "False") << " )");
  if (add) {
    while (refreshPass(changedPrefix)) {
    }
    return;
  }
  const PrefixSet::Ptr dependants = mribForPrefix(changedPrefix);
  const Route::PtrConst route(routeOf(changedPrefix));
  doRecursiveDelete(route, dependants);
  doDelRoute(changedPrefix);
  doRecursiveUpdate(mribForPrefix(changedPrefix));
}

/// Offers every configured prefix once, or those for which the offer may have another outcome than before, in
/// the order of the configuration; true when that changed a route, so that others may resolve now.
bool RouteResolverSm::refreshPass(const Lumo::IpGenPrefix& changedPrefix) {
  followInputs();
  bool anyChanged = false;
  U64 met = 0;  // the order of the last one
  if (!wholePasses()) {
    while (const RouteKeyPrefix* rkPrefix = nextMarked(met)) {
      met = rkPrefix->order();
      anyChanged |= refreshPrefix(*rkPrefix, changedPrefix);
    }
    if (!marks_.allAreMarked()) return anyChanged;
  }
  RefreshMarks::WholePass wholePass(marks_);
  const Ptr<Config const> mribConfig(&config());
  for (MribSm::ConfigWalk<&MribSm::expectOffer> rkPrefix(engine(), *mribConfig); rkPrefix; ++rkPrefix) {
    if (rkPrefix->order() > met) {
      anyChanged |= refreshPrefix(*rkPrefix, changedPrefix);
    } else {
      marks_.mark(*rkPrefix);  // all were marked when the pass had met it already
    }
  }
  wholePass.complete();
  return anyChanged;
}

bool RouteResolverSm::wholePasses() const {
  return wholePasses_ || mribSmTrace.wants(8);
}

void RouteResolverSm::followInputs() {
  const MribSm& mribSm = engine();
  const auto& shadow = mribSm.mribShadow();
  marks_.inputsAre({&config(), &status(), shadow ? shadow->trie().get() : nullptr, mribSm.ipStatus().get(),
                    mribSm.intfStatus().get()});
}

/// The next prefix for which something has changed since it was offered; null also when that may be all.
const RouteKeyPrefix* RouteResolverSm::nextMarked(U64 order) {
  followInputs();
  return marks_.next(order, defaultPrefix());
}

bool RouteResolverSm::isMarked(const RouteKeyPrefix& rkPrefix) {
  followInputs();
  marks_.settle(defaultPrefix());
  return marks_.isMarked(rkPrefix);
}

/// Whether it is known, without a look at what was noted, that to offer a prefix would write nothing.
bool RouteResolverSm::isSettled(const RouteKeyPrefix& rkPrefix) {
  if (wholePasses() || marks_.isMarked(rkPrefix)) return false;
  followInputs();
  return !marks_.allAreMarked();
}

/// Offers one prefix; true when that changed its route.
bool RouteResolverSm::refreshPrefix(const RouteKeyPrefix& rkPrefix, const Lumo::IpGenPrefix& changedPrefix) {
  const Ptr<RouteKeyPrefix const> pin(&rkPrefix);
  const Lumo::IpGenPrefix& prefix = rkPrefix.prefix();
  const bool skip = prefix == changedPrefix;
  if (skip) MRIB_TRACE_OF(8, "doMaybeRefreshRoutes", sigRefresh << "Skipped " << prefix);
  if (!rkPrefix.isResolvable()) {
    marks_.unmark(rkPrefix);
    return false;
  }
  if (skip) {
    marks_.mark(rkPrefix);
    return false;
  }
  const Ptr<Route const> route(status().route(prefix.v4Prefix()));
  RefreshMarks::Offer offer(marks_, rkPrefix);
  const bool changedHere = offerPreferences(rkPrefix, route.get());
  offer.complete();
  return changedHere;
}

/// Offers the preferences lowest first, up to that of the route, which was there before or not, or to the
/// first that resolves.
bool RouteResolverSm::offerPreferences(const RouteKeyPrefix& rkPrefix, const Route* route) {
  for (auto entry = rkPrefix.prefIterator(); entry; ++entry) {
    const Ptr<RouteKeyPreference const> pinEntry(entry.get());
    const U8 preference = pinEntry->preference();
    if (route && route->preference() < preference) {
      if (pinEntry.get() == rkPrefix.bestPref()) marks_.passOverBest();
      continue;
    }
    bool changedHere = false;
    bool installed = false;
    for (auto rpf = pinEntry->rpfIterator(); rpf; ++rpf) {
      const S32 result = doAddOrUpdateRoute(*rpf, rkPrefix.prefix(), preference);
      changedHere |= result == changed;
      installed |= isInstalled(result);
    }
    if (installed) return changedHere;
  }
  return false;
}

/// Takes the vias that came from `delRoute` out of every route that depends on it, the deepest first.
void RouteResolverSm::doRecursiveDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset) {
  const Kept kept(*this);
  DependantsWalk walk;
  if (!traceDelete(delRoute, pset)) return;
  for (walk.enter(pset); walk;) {
    if (walk.isOnMember()) {
      const PrefixSet::Ptr deeper = mribForPrefix(walk.member());
      if (traceDelete(delRoute, deeper)) {
        walk.enter(deeper);
        continue;
      }
    } else if (!walk.leave()) {
      return;
    }
    MRIB_TRACE_OF(8, opDelete, sigDelete << "Processing " << walk.member());
    stripVias(*delRoute, walk.member());
    walk.goOn();
  }
}

/// Whether there is something to follow.
bool RouteResolverSm::traceDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset) const {
  if (!pset && !delRoute) {
    MRIB_TRACE_OF(8, opDelete, sigDelete << "( NULL, NULL )");
  } else if (!pset) {
    MRIB_TRACE_OF(8, opDelete, sigDelete << "( " << delRoute->prefix() << ", NULL )");
  } else if (!delRoute) {
    MRIB_TRACE_OF(8, opDelete, sigDelete << "( NULL , " << pset->lPrefix() << " )");
  } else {
    MRIB_TRACE_OF(8, opDelete, sigDelete << "( " << delRoute->prefix() << ", " << pset->lPrefix() << " )");
  }
  return pset && delRoute;
}

/// Vias resolved through a connected route carry the RPF address as hop, so they are told by their interface.
void RouteResolverSm::stripVias(const Route& delRoute, const Lumo::IpGenPrefix& member) {
  const Ptr<Route> route(routeOf(member));
  ZAN_ASSERT(route);
  const bool connected = delRoute.routeType() == Fib::RouteType::connected;
  for (auto via = delRoute.viaIterator(); via; ++via) {
    const auto gone = Fib::Via(*via);
    MRIB_TRACE_OF(8, opDelete,
                  sigDelete << (connected ? "Connected route " : "Non-connected route ") << delRoute.prefix()
                            << " being deleted");
    if (!connected) {
      route->viaDel(gone);
      MRIB_TRACE_OF(8, opDelete, sigDelete << "Deleted via " << gone.hop << " from " << member);
      continue;
    }
    for (auto held = route->viaIterator(); held; ++held) {
      const auto candidate = Fib::Via(*held);
      if (candidate.intfStatus != gone.intfStatus) continue;
      route->viaDel(candidate);
      MRIB_TRACE_OF(8, opDelete, sigDelete << "Deleted via " << candidate.hop << " from " << member);
    }
  }
}

/// Resolves every member of the set from its configuration, and then those that depend on it.
void RouteResolverSm::doRecursiveUpdate(const PrefixSet::Ptr& pset) {
  const Kept kept(*this);
  DependantsWalk walk;
  if (!traceUpdate(pset)) return;
  for (walk.enter(pset); walk;) {
    if (!walk.isOnMember()) {
      if (walk.leave()) walk.goOn();
      continue;
    }
    const Lumo::IpGenPrefix member = walk.member();
    MRIB_TRACE_OF(8, opUpdate, sigUpdate << "Processing " << member);
    updateMember(member, walk.lPrefix());
    const PrefixSet::Ptr deeper = mribForPrefix(member);
    traceUpdate(deeper) ? walk.enter(deeper) : walk.goOn();
  }
}

/// Whether there is something to follow.
bool RouteResolverSm::traceUpdate(const PrefixSet::Ptr& pset) const {
  if (pset) {
    MRIB_TRACE_OF(8, opUpdate, sigUpdate << "( " << pset->lPrefix() << " )");
  } else {
    MRIB_TRACE_OF(8, opUpdate, sigUpdate << "( NULL )");
  }
  return static_cast<bool>(pset);
}

void RouteResolverSm::updateMember(const Lumo::IpGenPrefix& member, const Lumo::IpGenPrefix& lPrefix) {
  const Ptr<Route> route(routeOf(member));
  ZAN_ASSERT(route);
  const Ptr<RouteKeyPrefix const> rkPrefix(config().route(member));
  ZAN_ASSERT(rkPrefix);
  const bool resolved = resolveMember(*rkPrefix);
  const bool hasVia = route->viaCount() > 0;
  if (!resolved && !hasVia) doDelRoute(member);
  if (resolved && hasVia && !routeOf(lPrefix)) {
    doDelWatchPrefix(member, mribForPrefix(lPrefix));  // it resolves elsewhere now
  }
}

/// *Intended*: unlike the refresh, this does not compare with the preference of the present route.
bool RouteResolverSm::resolveMember(const RouteKeyPrefix& rkPrefix) {
  for (auto entry = rkPrefix.prefIterator(); entry; ++entry) {
    const Ptr<RouteKeyPreference const> pinEntry(entry.get());
    bool installed = false;
    for (auto rpf = pinEntry->rpfIterator(); rpf; ++rpf) {
      installed |= isInstalled(doAddOrUpdateRoute(*rpf, rkPrefix.prefix(), pinEntry->preference()));
    }
    if (installed) return true;
  }
  return false;
}

}  // namespace Routing::Multicast::Rib
