#include "Routing/Multicast/Rib/Route.h"

#include "Routing/Multicast/Rib/Status.h"
#include "Zan/ZanType.h"

namespace Routing::Multicast {

template <class Family>
RouteOf<Family>::~RouteOf() = default;

/// What others resolve through has changed.
template <class Family>
void RouteOf<Family>::touched() const {
  if (isHeld()) static_cast<StatusOf<Family>*>(parent())->taps().tell(prefix_);
}

template <class Family>
void RouteOf<Family>::preferenceIs(U8 preference) {
  if (preference_ == preference) return;
  preference_ = preference;
  touched();
  tell<&NotifieeConst::onPreference>(preferenceId);
}

template <class Family>
void RouteOf<Family>::routeTypeIs(Fib::RouteType type) {
  if (routeType_ == type) return;
  routeType_ = type;
  touched();
  tell<&NotifieeConst::onRouteType>(routeTypeId);
}

template <class Family>
void RouteOf<Family>::creationTimeIs(const double& seconds) {
  if (creationTime_ == seconds) return;
  creationTime_ = seconds;
  tell<&NotifieeConst::onCreationTime>(creationTimeId);
}

template <class Family>
void RouteOf<Family>::metricIs(U32 metric) {
  if (metric_ == metric) return;
  metric_ = metric;
  tell<&NotifieeConst::onMetric>(metricId);
}

template <class Family>
bool RouteOf<Family>::via(const Via& via) const {
  return via_.find([&](const Via& v) { return v == via; }) != nullptr;
}

template <class Family>
void RouteOf<Family>::viaIs(const Via& via, bool present) {
  if (!present) return viaDel(via);
  if (this->via(via)) return;
  const Via added = via;  // NOLINT: the argument may be an element of a set that a handler changes
  via_.append(added);
  touched();
  tell<static_cast<void (NotifieeConst::*)(const Via&)>(&NotifieeConst::onVia)>(viaId, added);
}

template <class Family>
void RouteOf<Family>::viaDel(const Via& via) {
  const Via* place = via_.find([&](const Via& v) { return v == via; });
  if (!place) return;
  const Via removed = via_.remove(place);
  touched();
  tell<static_cast<void (NotifieeConst::*)(const Via&)>(&NotifieeConst::onVia)>(viaId, removed);
}

template <class Family>
void RouteOf<Family>::viaDelAll() {
  const Zan::Ptr<RouteOf> pin(this);
  for (const auto last = via_.lastIterator(); last.count() > 0;) viaDel(via_[0]);
}

template <class Family>
void RouteOf<Family>::viaNotifyAll() const {
  tellAll<&NotifieeConst::onViazanImmediate, static_cast<void (NotifieeConst::*)()>(&NotifieeConst::onVia)>(
      viaId);
}

template <class Family>
const Rib::PrefixSet::Ptr* RouteOf<Family>::findSet(const Lumo::IpGenPrefix& lPrefix) const {
  return prefixSet_.find([&](const PrefixSet::Ptr& s) { return s->lPrefix() == lPrefix; });
}

template <class Family>
Rib::PrefixSet::Ptr RouteOf<Family>::prefixSet(const Lumo::IpGenPrefix& lPrefix) const {
  const PrefixSet::Ptr* found = findSet(lPrefix);
  return found ? *found : nullptr;
}

template <class Family>
void RouteOf<Family>::prefixSetIs(const PrefixSet::Ptr& set) {
  if (!set) Zan::throwRangeException("null set parameter to Route::prefixSet not allowed");
  const PrefixSet::Ptr* found = findSet(set->lPrefix());
  if (found && *found == set) return;
  if (found) {
    prefixSet_.replace(found, set);
  } else {
    prefixSet_.append(set);
  }
  const Lumo::IpGenPrefix lPrefix = set->lPrefix();
  tell<static_cast<void (NotifieeConst::*)(const Lumo::IpGenPrefix&)>(&NotifieeConst::onPrefixSet)>(
      prefixSetId, lPrefix);
}

template <class Family>
void RouteOf<Family>::prefixSetDel(const Lumo::IpGenPrefix& lPrefix) {
  const PrefixSet::Ptr* found = findSet(lPrefix);
  if (!found) return;
  const PrefixSet::Ptr removed = prefixSet_.remove(found);
  tell<static_cast<void (NotifieeConst::*)(const Lumo::IpGenPrefix&)>(&NotifieeConst::onPrefixSet)>(
      prefixSetId, removed->lPrefix());
}

template <class Family>
void RouteOf<Family>::prefixSetNotifyAll() const {
  tellAll<&NotifieeConst::onPrefixSetzanImmediate,
          static_cast<void (NotifieeConst::*)()>(&NotifieeConst::onPrefixSet)>(prefixSetId);
}

template <class Family>
void RouteOf<Family>::isNondestructingIs(bool nondestructing) {
  if (isNondestructing() == nondestructing) return;
  Entity::isNondestructingIs(nondestructing);
  tell<&NotifieeConst::onIsNondestructing>(isNondestructingId);
}

template <class Family>
void RouteOf<Family>::zanLeft() {
  if (isHeld()) static_cast<StatusOf<Family>*>(parent())->routeLeft(*this);
}

template <class Family>
const Zan::ZanType* RouteOf<Family>::fwkType() const {
  static const Zan::ZanType type(Family::routeName, Entity::fwkType());
  return &type;
}

template <class Family>
std::string_view RouteOf<Family>::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case prefixId:
      return "prefix";
    case preferenceId:
      return "preference";
    case routeTypeId:
      return "routeType";
    case viaId:
      return "via";
    case creationTimeId:
      return "creationTime";
    case metricId:
      return "metric";
    case prefixSetId:
      return "prefixSet";
    default:
      return Entity::attributeName(attribute);
  }
}

template class RouteOf<Family4>;
template class RouteOf<Family6>;

}  // namespace Routing::Multicast
