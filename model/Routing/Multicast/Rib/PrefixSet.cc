#include "Routing/Multicast/Rib/PrefixSet.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

namespace {
constexpr auto onPrefix = static_cast<void (PrefixSet::NotifieeConst::*)(const Lumo::IpGenPrefix&)>(
    &PrefixSet::NotifieeConst::onPrefix);
constexpr auto onAnyPrefix =
    static_cast<void (PrefixSet::NotifieeConst::*)()>(&PrefixSet::NotifieeConst::onPrefix);
}  // namespace

PrefixSet::Ptr PrefixSet::PrefixSetIs(const Lumo::IpGenPrefix& lPrefix) {
  return Zan::ValidPtr<PrefixSet>(Zan::create<PrefixSet>(lPrefix)).ptr();
}

PrefixSet::~PrefixSet() = default;

void PrefixSet::prefixIs(const Lumo::IpGenPrefix& prefix, bool member) {
  if (!member) return prefixDel(prefix);
  prefixAdd(prefix);
}

bool PrefixSet::prefixAdd(const Lumo::IpGenPrefix& prefix) {
  const Lumo::IpGenPrefix added = prefix;  // NOLINT: the argument may be part of what a handler changes
  if (!prefix_.insert(added)) return false;
  taps_.tell(added);
  tell<onPrefix>(prefixId, added);
  return true;
}

void PrefixSet::prefixDel(const Lumo::IpGenPrefix& prefix) {
  const Lumo::IpGenPrefix removed = prefix;  // the argument may be the very element
  if (!prefix_.erase(removed)) return;
  taps_.tell(removed);
  tell<onPrefix>(prefixId, removed);
}

void PrefixSet::prefixNotifyAll() const {
  tellAll<&NotifieeConst::onPrefixzanImmediate, onAnyPrefix>(prefixId);
}

const Zan::ZanType* PrefixSet::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::PrefixSet", Entity::fwkType());
  return &type;
}

std::string_view PrefixSet::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case lPrefixId:
      return "lPrefix";
    case prefixId:
      return "prefix";
    default:
      return Entity::attributeName(attribute);
  }
}

}  // namespace Routing::Multicast::Rib
