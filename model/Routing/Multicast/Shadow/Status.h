#pragma once

#include "Routing/Multicast/Rib/Status.h"
#include "Routing/TrieGen.h"
#include "Zan/Export.h"

namespace Routing::Multicast {

/// The MRIB shadow status: names the MRIB status that it mirrors and publishes the longest-match trie over
/// that status's routes.
template <class Family>
class ZAN_EXPORT ShadowStatusOf : public Zan::NamedEntity {
 public:
  using RibStatus = StatusOf<Family>;
  class NotifieeConst;
  static constexpr Zan::AttributeId routeId = 130;
  static constexpr Zan::AttributeId trieId = 131;

  explicit ShadowStatusOf(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~ShadowStatusOf() override;

  const Zan::Ptr<RibStatus const>& route() const { return route_; }
  void routeIs(const Zan::Ptr<RibStatus const>& status);
  const Zan::Ptr<TrieGen>& trie() const { return trie_; }
  /// Makes a new empty trie, publishes it in place of the old one and returns it. The watchers of the MRIB
  /// status hear of it too (`onTrie`).
  Zan::Ptr<TrieGen> trieIs(const Zan::Name& name, Lumo::AddressFamily af);

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  void tellTrieOfRoute() const;

  Zan::Ptr<RibStatus const> route_;
  Zan::Ptr<TrieGen> trie_;
};

template <class Family>
class ZAN_EXPORT ShadowStatusOf<Family>::NotifieeConst : public Zan::NotifieeOf<ShadowStatusOf<Family>> {
 public:
  virtual void onRoute() { this->onAttribute(routeId); }
  virtual void onTrie() { this->onAttribute(trieId); }
};

extern template class ZAN_EXPORT ShadowStatusOf<Family4>;
extern template class ZAN_EXPORT ShadowStatusOf<Family6>;

}  // namespace Routing::Multicast

namespace Routing::Multicast::Shadow {
using Status = ShadowStatusOf<Family4>;
}  // namespace Routing::Multicast::Shadow
