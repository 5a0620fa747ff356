#pragma once

#include "Pim/MribSm/ConfigReactors.h"
#include "Routing/ValueTraits.h"
#include "Zan/CollectionIterator.h"

// How the members of collections are keyed from outside.

namespace Zan {

template <>
struct KeyValue<Routing::Multicast::Rib::PrefixSet::Ptr> {
  static Value of(const Routing::Multicast::Rib::PrefixSet::Ptr& set) { return Value::of(set->lPrefix()); }
};
template <>
struct KeyValue<Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::PrefKey> {
  static Value of(Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::PrefKey key) {
    return Value::of(key.preference);
  }
};

}  // namespace Zan
