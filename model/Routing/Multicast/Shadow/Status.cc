#include "Routing/Multicast/Shadow/Status.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast {

template <class Family>
ShadowStatusOf<Family>::~ShadowStatusOf() {
  if (trie_) trie_->zanOrphaned();
}

template <class Family>
void ShadowStatusOf<Family>::routeIs(const Zan::Ptr<RibStatus const>& status) {
  if (status == route_) return;
  const Zan::Ptr<ShadowStatusOf> pin(this);
  route_ = status;
  tell<&NotifieeConst::onRoute>(routeId);
  if (trie_) tellTrieOfRoute();
}

template <class Family>
Zan::Ptr<TrieGen> ShadowStatusOf<Family>::trieIs(const Zan::Name& name, Lumo::AddressFamily af) {
  const Zan::Ptr<ShadowStatusOf> pin(this);
  const Zan::Ptr<TrieGen> old = std::exchange(trie_, Zan::create<TrieGen>(name, af));
  auto trie = trie_;
  trie->zanHeldBy(this, trieId);
  if (old) {
    old->zanOrphaned();
    old->tellParent();
  }
  tell<&NotifieeConst::onTrie>(trieId);
  tellTrieOfRoute();
  return trie;
}

template <class Family>
void ShadowStatusOf<Family>::tellTrieOfRoute() const {
  if (const Zan::Ptr<RibStatus const> mirrored = route_)
    mirrored->zanTellTrie();  // NOLINT: a handler may replace it
}

template <class Family>
const Zan::ZanType* ShadowStatusOf<Family>::fwkType() const {
  static const Zan::ZanType type(Family::shadowName, Entity::fwkType());
  return &type;
}

template <class Family>
std::string_view ShadowStatusOf<Family>::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case routeId:
      return "route";
    case trieId:
      return "trie";
    default:
      return Entity::attributeName(attribute);
  }
}

template class ShadowStatusOf<Family4>;
template class ShadowStatusOf<Family6>;

}  // namespace Routing::Multicast
