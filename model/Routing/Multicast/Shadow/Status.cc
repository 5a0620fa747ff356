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
  route_ = status;
  tell<&NotifieeConst::onRoute>(routeId);
}

template <class Family>
Zan::Ptr<TrieGen> ShadowStatusOf<Family>::trieIs(const Zan::Name& name, Lumo::AddressFamily af) {
  const Zan::Ptr<TrieGen> old = trie_;
  auto trie = Zan::create<TrieGen>(name, af);
  trie_ = trie;
  if (old) old->parentIs(nullptr);
  trie->parentIs(this, trieId);
  tell<&NotifieeConst::onTrie>(trieId);
  return trie;
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
