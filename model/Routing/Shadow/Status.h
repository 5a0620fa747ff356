#pragma once

#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Routing/TrieGen.h"
#include "Zan/Export.h"

namespace Routing::Shadow {

/// The unicast shadow status: the shared-memory route and forwarding tables of the unicast RIB, and the trie
/// whose `changedRoute` names the prefix that changed last.
class ZAN_EXPORT Status : public Zan::NamedEntity {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId routeStatusId = 130;
  static constexpr Zan::AttributeId forwardingStatusId = 131;
  static constexpr Zan::AttributeId trieId = 132;

  explicit Status(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~Status() override;

  const Zan::Ptr<Quarn::Fib::RouteStatus>& routeStatus() const { return routeStatus_; }
  void routeStatusIs(const Zan::Ptr<Quarn::Fib::RouteStatus>& table);
  const Zan::Ptr<Quarn::Fib::ForwardingStatus>& forwardingStatus() const { return forwardingStatus_; }
  void forwardingStatusIs(const Zan::Ptr<Quarn::Fib::ForwardingStatus>& table);
  const Zan::Ptr<TrieGen>& trie() const { return trie_; }
  /// Publishes a trie, or none (null). A trie without a parent gets this one.
  void trieIs(const Zan::Ptr<TrieGen>& trie);

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  bool holdsTrie() const { return trie_ && trie_->isHeld() && trie_->parent() == this; }

  Zan::Ptr<Quarn::Fib::RouteStatus> routeStatus_;
  Zan::Ptr<Quarn::Fib::ForwardingStatus> forwardingStatus_;
  Zan::Ptr<TrieGen> trie_;
};

class ZAN_EXPORT Status::NotifieeConst : public Zan::NotifieeOf<Status> {
 public:
  virtual void onRouteStatus() { onAttribute(routeStatusId); }
  virtual void onForwardingStatus() { onAttribute(forwardingStatusId); }
  virtual void onTrie() { onAttribute(trieId); }
};

}  // namespace Routing::Shadow
