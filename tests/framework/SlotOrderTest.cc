#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "Pim/MribSm/MribSm.h"

// The order of the virtual operations is part of the interface. A pointer to a virtual member function holds
// the offset of its slot, and but on ARM one more (Itanium C++ ABI, 2.3), so the order can be read off.

namespace {

using Zan::PtrInterface;

template <class F>
std::ptrdiff_t slot(F function) {
  std::ptrdiff_t word;
  std::memcpy(&word, &function, sizeof word);
  return word / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// Stands for a destructor, which has two slots.
struct Destructor {};

/// Expects each function in the slot behind the one before.
template <class... Functions>
void expectOrder(std::ptrdiff_t next, Functions... functions) {
  int n = 0;
  const auto look = [&](auto function) {
    ++n;
    if constexpr (std::is_same_v<decltype(function), Destructor>) {
      next += 2;
    } else {
      EXPECT_EQ(slot(function), next++) << "number " << n;
    }
  };
  (look(functions), ...);
}
template <class Class, class... Arguments>
using Operation = void (Class::*)(Arguments...);

TEST(SlotOrder, OfANotifieeIsTheStatedOne) {
  using N = PtrInterface::NotifieeConst;
  struct E : Zan::Entity::NotifieeConst {};
  using Scheduler = Zan::ActivityConfig;
  using OfAttribute = Operation<N, Zan::AttributeId>;
  expectOrder(0, &N::hasNotificationActiveIs, &N::zanAuditErrors, &N::auditErrors, &N::isNondestructingIs,
              &N::zeroReferencesIs, &N::fwkType, Destructor(), &N::zanReactor, &N::zanRawReactor,
              &N::isStreamAdapter, &N::isRegisteredNotifieeIs, &N::zan_bitSetIs, &N::name, &N::notifierIs,
              &N::handleNotification, &N::handleDefault, &N::onAttribute, &N::onNotification,
              &N::onCollectionNotification, Operation<N>(&N::onNotificationException),
              OfAttribute(&N::onNotificationException), OfAttribute(&N::handleNotificationException),
              Operation<N>(&N::handleNotificationException), &N::onZeroReferences, &N::activityPtr,
              static_cast<const Scheduler* (N::*)() const>(&N::zanFwkActivity),
              static_cast<Scheduler* (N::*)()>(&N::zanFwkActivity), &N::actsm, &E::onParent, &E::onVersion);
}

}  // namespace
