#include "Routing/Shadow/Status.h"

#include "Zan/ZanType.h"

namespace Routing::Shadow {

Status::~Status() {
  if (holdsTrie()) trie_->zanOrphaned();
}

void Status::routeStatusIs(const Zan::Ptr<Quarn::Fib::RouteStatus>& table) {
  if (table == routeStatus_) return;
  routeStatus_ = table;
  tell<&NotifieeConst::onRouteStatus>(routeStatusId);
}

void Status::forwardingStatusIs(const Zan::Ptr<Quarn::Fib::ForwardingStatus>& table) {
  if (table == forwardingStatus_) return;
  forwardingStatus_ = table;
  tell<&NotifieeConst::onForwardingStatus>(forwardingStatusId);
}

void Status::trieIs(const Zan::Ptr<TrieGen>& trie) {
  if (trie == trie_) return;
  const Zan::Ptr<Status> pin(this);
  const bool held = holdsTrie();
  const Zan::Ptr<TrieGen> old = std::exchange(trie_, trie);
  const Zan::Ptr<TrieGen> taken = trie && !trie->parent() ? trie : nullptr;
  if (held) old->zanOrphaned();
  if (taken) taken->zanHeldBy(this, trieId);
  if (held) old->tellParent();
  if (taken) taken->tellParent();
  tell<&NotifieeConst::onTrie>(trieId);
}

const Zan::ZanType* Status::fwkType() const {
  static const Zan::ZanType type("Routing::Shadow::Status", Entity::fwkType());
  return &type;
}

std::string_view Status::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case routeStatusId:
      return "routeStatus";
    case forwardingStatusId:
      return "forwardingStatus";
    case trieId:
      return "trie";
    default:
      return Entity::attributeName(attribute);
  }
}

}  // namespace Routing::Shadow
