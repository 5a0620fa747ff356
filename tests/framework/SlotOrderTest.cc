#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Pim/MribSm/MribSm.h"

// The order of the virtual operations is part of the interface. A pointer to a virtual member function holds
// one more than the offset of its slot (Itanium C++ ABI, 2.3), so the order can be read off.

namespace {

using Zan::PtrInterface;

template <class F>
std::ptrdiff_t slot(F function) {
  std::ptrdiff_t word;
  std::memcpy(&word, &function, sizeof word);
  return (word - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// Where an order is broken; -1 when the slots follow each other. Two slots belong to a destructor (0 here).
std::ptrdiff_t firstOutOfOrder(const std::vector<std::ptrdiff_t>& slots, std::ptrdiff_t first) {
  for (const std::ptrdiff_t s : slots) {
    if (s == 0) {
      first += 2;
    } else if (s != first++) {
      return first - 1;
    }
  }
  return -1;
}
constexpr std::ptrdiff_t destructor = 0;

TEST(SlotOrder, OfANotifieeIsTheStatedOne) {
  using N = PtrInterface::NotifieeConst;
  struct E : Zan::Entity::NotifieeConst {};
  std::vector<std::ptrdiff_t> slots;
  // The first slot has offset 0, which reads as 0 here: it is checked apart.
  EXPECT_EQ(slot(&N::hasNotificationActiveIs), 0);
  slots = {slot(&N::zanAuditErrors),
           slot(&N::auditErrors),
           slot(&N::isNondestructingIs),
           slot(&N::zeroReferencesIs),
           slot(&N::fwkType),
           destructor,
           slot(&N::zanReactor),
           slot(&N::zanRawReactor),
           slot(&N::isStreamAdapter),
           slot(&N::isRegisteredNotifieeIs),
           slot(&N::zan_bitSetIs),
           slot(&N::name),
           slot(&N::notifierIs),
           slot(&N::handleNotification),
           slot(&N::handleDefault),
           slot(&N::onAttribute),
           slot(&N::onNotification),
           slot(&N::onCollectionNotification),
           slot(static_cast<void (N::*)()>(&N::onNotificationException)),
           slot(static_cast<void (N::*)(Zan::AttributeId)>(&N::onNotificationException)),
           slot(static_cast<void (N::*)(Zan::AttributeId)>(&N::handleNotificationException)),
           slot(static_cast<void (N::*)()>(&N::handleNotificationException)),
           slot(&N::onZeroReferences),
           slot(&N::activityPtr),
           slot(static_cast<const Zan::ActivityConfig* (N::*)() const>(&N::zanFwkActivity)),
           slot(static_cast<Zan::ActivityConfig* (N::*)()>(&N::zanFwkActivity)),
           slot(&N::actsm),
           slot(&E::onParent),
           slot(&E::onVersion)};
  EXPECT_EQ(firstOutOfOrder(slots, 1), -1);
}

TEST(SlotOrder, OfEachRecordsNotifieeIsTheStatedOne) {
  using Routing::Multicast::Rib::Route;
  using N = Route::NotifieeConst;
  const std::ptrdiff_t first = slot(&Zan::Entity::NotifieeConst::onVersion) + 1;
  EXPECT_EQ(firstOutOfOrder(
                {slot(&N::onIsNondestructing), slot(&N::onPreference), slot(&N::onRouteType),
                 slot(static_cast<void (N::*)(const Route::Via&)>(&N::onVia)), slot(&N::onViazanImmediate),
                 slot(static_cast<void (N::*)()>(&N::onVia)), slot(&N::onCreationTime), slot(&N::onMetric),
                 slot(static_cast<void (N::*)(const Lumo::IpGenPrefix&)>(&N::onPrefixSet)),
                 slot(&N::onPrefixSetzanImmediate), slot(static_cast<void (N::*)()>(&N::onPrefixSet))},
                first),
            -1);
  using I = Routing::Multicast::Rib::InterfaceInfo::NotifieeConst;
  EXPECT_EQ(firstOutOfOrder({slot(&I::onIpStatus), slot(&I::onConfig), slot(&I::onStatus)}, first), -1);
}

TEST(SlotOrder, OfTheStateMachineEndsWithItsZombieOperation) {
  using M = Routing::Multicast::Rib::MribSm;
  EXPECT_EQ(slot(&M::hasNotificationActiveIs), 0);
  EXPECT_EQ(firstOutOfOrder(
                {slot(&M::zanAuditErrors), slot(&M::auditErrors), slot(&M::isNondestructingIs),
                 slot(&M::zeroReferencesIs), slot(&M::fwkType), destructor, slot(&M::zanDoZombieReactors)},
                1),
            -1);
}

}  // namespace
