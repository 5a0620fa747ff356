#include "Pim/MribSm/MribSmTrace.h"
#include "Pim/MribSm/RouteResolverSm.h"
#include "Zan/ZanType.h"

// Who depends on whom. For every resolving prefix there is a prefix set with the multicast prefixes that
// resolve through it; mribForPrefix finds it by the resolving prefix, and each member's route links to it.

namespace Routing::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* opAddWatch = "doAddWatchPrefix";
constexpr const char* sigAddWatch =
    "void Routing::Multicast::Rib::RouteResolverSm::doAddWatchPrefix(const Lumo::IpGenPrefix&, const "
    "Lumo::IpGenPrefix&)";
constexpr const char* sigDelWatch =
    "void Routing::Multicast::Rib::RouteResolverSm::doDelWatchPrefix(const Lumo::IpGenPrefix&, const "
    "Routing::Multicast::Rib::PrefixSet::Ptr&)";

}  // namespace

const Zan::ZanType* RouteResolverSm::ZanMribForPrefix::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::RouteResolverSm::ZanMribForPrefix",
                                 VFPtrInterface::fwkType());
  return &type;
}

PrefixSet::Ptr RouteResolverSm::mribForPrefix(const Lumo::IpGenPrefix& lPrefix) const {
  const ZanMribForPrefix* entry = mribForPrefix_.lookup(lPrefix);
  return entry ? entry->mribForPrefix() : nullptr;
}

void RouteResolverSm::mribForPrefixIs(const PrefixSet::Ptr& set) {
  if (!set) {
    Zan::throwRangeException(
        "null _mribForPrefix parameter to mutator for "
        "Routing::Multicast::Rib::RouteResolverSm::mribForPrefix not allowed\"");
  }
  marks_.markAll();
  enterSet(set);
}

void RouteResolverSm::enterSet(const PrefixSet::Ptr& set) {
  ZanMribForPrefix* entry = mribForPrefix_.lookup(set->lPrefix());
  if (!entry) {
    newMribForPrefix(set);
  } else if (entry->mribForPrefix() != set) {
    entry->mribForPrefixIs(set);
  }
}

PrefixSet::Ptr RouteResolverSm::mribForPrefixDel(const Lumo::IpGenPrefix& lPrefix) {
  const Ptr<ZanMribForPrefix> entry = mribForPrefix_.erase(lPrefix);
  if (!entry) return nullptr;
  mribForPrefixNotify(entry->fwkKey(), entry);
  return entry->mribForPrefix();
}

void RouteResolverSm::mribForPrefixDelAll() {
  for (auto entry = mribForPrefixIterator(); entry; ++entry) entry.erase();
}

Ptr<RouteResolverSm::ZanMribForPrefix> RouteResolverSm::MribForPrefixIterator::erase() {
  Ptr<ZanMribForPrefix> entry = BasicIterator::erase();
  if (entry) resolver_.mribForPrefixNotify(entry->fwkKey(), entry);
  return entry;
}

/// The next refresh registers the members again.
void RouteResolverSm::mribForPrefixNotify(const Lumo::IpGenPrefix&, const Ptr<ZanMribForPrefix>&) {
  marks_.markAll();
}

Ptr<RouteResolverSm::ZanMribForPrefix> RouteResolverSm::newMribForPrefix(const PrefixSet::Ptr& set) {
  auto entry = Zan::create<ZanMribForPrefix>(set, marks_);
  mribForPrefix_.insert(entry);
  return entry;
}

void RouteResolverSm::doAddWatchPrefix(const Lumo::IpGenPrefix& lPrefix, const Lumo::IpGenPrefix& p) {
  const Kept kept(*this);
  addWatch(lPrefix, p, routeOf(p));
}

/// `present` is the route of `p`.
void RouteResolverSm::addWatch(const Lumo::IpGenPrefix& lPrefix, const Lumo::IpGenPrefix& p, Route* present) {
  MRIB_TRACE_OF(8, opAddWatch, sigAddWatch << "( " << lPrefix << ", " << p << " )");
  const Ptr<Route> route(present);
  ZAN_ASSERT(route);
  PrefixSet::Ptr set = mribForPrefix(lPrefix);
  if (!set) {
    set = PrefixSet::PrefixSetIs(lPrefix);
    MRIB_TRACE_OF(8, opAddWatch, sigAddWatch << "Added prefix set " << lPrefix);
  }
  if (!addMember(*set, p)) return;
  route->prefixSetIs(set);
  enterSet(set);
  MRIB_TRACE_OF(5, opAddWatch, sigAddWatch << "Added prefix " << p << " into prefix set " << lPrefix);
}

bool RouteResolverSm::addMember(PrefixSet& set, const Lumo::IpGenPrefix& p) {
  const RefreshMarks::OwnWrite own(marks_, p.v4Prefix());
  return set.prefixAdd(p);
}

/// The route of a prefix that was looked up before handlers ran: the same, if they have not taken it out.
Route* RouteResolverSm::present(const Ptr<Route>& known) const {
  return known->parent() == &status() ? known.get() : status().route(known->prefix());
}

void RouteResolverSm::doDelWatchPrefix(const Lumo::IpGenPrefix& prefix, const PrefixSet::Ptr& paddr) {
  const Kept kept(*this);
  MRIB_TRACE(8, sigDelWatch << "( " << prefix << " )");
  const Ptr<Route> route(routeOf(prefix));
  if (!route) return;
  if (paddr) {
    delWatch(*route, prefix, *paddr);
    return;
  }
  for (auto entry = route->prefixSetIterator(); entry; ++entry) {
    const PrefixSet::Ptr set(entry->get());
    delWatch(*route, prefix, *set);
  }
}

/// Should another set be registered under the prefix than the one that was emptied, a refresh registers those
/// of its members anew.
void RouteResolverSm::dropSet(const Lumo::IpGenPrefix& lPrefix) {
  const Ptr<ZanMribForPrefix> entry = mribForPrefix_.erase(lPrefix);
  if (!entry) return;
  for (auto member = entry->mribForPrefix()->prefixIterator(); member; ++member) {
    marks_.touch(member->v4Prefix());
  }
}

void RouteResolverSm::delWatch(Route& route, const Lumo::IpGenPrefix& prefix, PrefixSet& set) {
  const Lumo::IpGenPrefix lPrefix = set.lPrefix();
  set.prefixDel(prefix);
  route.prefixSetDel(lPrefix);
  if (set.prefixCount() == 0) dropSet(lPrefix);
  MRIB_TRACE_OF(5, "doDelWatchPrefix",
                sigDelWatch << "Deleted prefix " << prefix << " from prefix set " << lPrefix);
}

}  // namespace Routing::Multicast::Rib
