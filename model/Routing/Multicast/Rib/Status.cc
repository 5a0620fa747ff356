#include "Routing/Multicast/Rib/Status.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast {

template <class Family>
StatusOf<Family>::~StatusOf() = default;

template <class Family>
Zan::Ptr<RouteOf<Family>> StatusOf<Family>::routeIs(const Prefix& prefix) {
  if (Route* existing = route_.lookup(prefix)) return Zan::Ptr<Route>(existing);
  auto added = Zan::create<Route>(prefix);
  added->zanHeldBy(this, routeId);
  route_.insert(added);
  taps_.tell(prefix);
  tell<static_cast<void (NotifieeConst::*)(const Prefix&)>(&NotifieeConst::onRoute)>(routeId,
                                                                                     added->prefix());
  return added;
}

template <class Family>
void StatusOf<Family>::routeLeft(Route& route) {
  const Zan::Ptr<StatusOf> pin(this);
  taps_.tell(route.prefix());
  route.tellLeaving();
  route.zanOrphaned();
  route.tellParent();
  tell<static_cast<void (NotifieeConst::*)(const Prefix&)>(&NotifieeConst::onRoute)>(routeId, route.prefix());
}

template <class Family>
void StatusOf<Family>::routeNotifyAll() const {
  tellAll<&NotifieeConst::onRoutezanImmediate,
          static_cast<void (NotifieeConst::*)()>(&NotifieeConst::onRoute)>(routeId);
}

template <class Family>
void StatusOf<Family>::isNondestructingIs(bool nondestructing) {
  if (isNondestructing() == nondestructing) return;
  Entity::isNondestructingIs(nondestructing);
  tell<&NotifieeConst::onIsNondestructing>(isNondestructingId);
}

template <class Family>
const Zan::ZanType* StatusOf<Family>::fwkType() const {
  static const Zan::ZanType type(Family::statusName, Entity::fwkType());
  return &type;
}

template <class Family>
std::string_view StatusOf<Family>::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case routeId:
      return "route";
    case trieId:
      return "trie";
    default:
      return Entity::attributeName(attribute);
  }
}

template class StatusOf<Family4>;
template class StatusOf<Family6>;

}  // namespace Routing::Multicast
