#pragma once

#include "Zan/Assert.h"
#include "Zan/Ptr.h"

namespace Routing {

/// A reactor that its owner keeps under the key of what it watches must not be bound to anything with another
/// key, or to nothing: it would not be found any more. What is no `Notifier` at all is refused by the
/// reactor.
template <class Notifier, class Key>
void assertKeepsKey(const Key& key, const Zan::Ptr<Zan::PtrInterface const>& notifier) {
  ZAN_ASSERT_TEXT(notifier, "notifier");
  const auto* typed = dynamic_cast<const Notifier*>(notifier.get());
  ZAN_ASSERT_TEXT(!typed || typed->fwkKey() == key, "notifier->fwkKey() == fwkKey()");
}

}  // namespace Routing
