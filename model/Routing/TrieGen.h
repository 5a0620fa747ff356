#pragma once

#include "Lumo/IpGenPrefix.h"
#include "Routing/PrefixTrie.h"
#include "Zan/Entity.h"
#include "Zan/Export.h"
#include "Zan/Tap.h"

namespace Routing {

/// A longest-prefix-match trie over prefixes of both families, and the prefix that changed last.
class ZAN_EXPORT TrieGen : public Zan::NamedEntity {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId changedRouteId = 130;
  static constexpr Zan::AttributeId afId = 131;

  TrieGen(Zan::Name name, Lumo::AddressFamily af) : NamedEntity(std::move(name)), af_(af) {}
  ~TrieGen() override;

  Lumo::AddressFamily af() const { return af_; }
  /// The longest stored prefix that covers `prefix` (itself included), or the empty prefix.
  Lumo::IpGenPrefix longestMatch(const Lumo::IpGenPrefix& prefix) const;
  /// The length of the longest stored prefix that covers an IPv4 address, or `PrefixTrie::noMatch`.
  int matchLength(Lumo::IpAddr address) const {
    return trie4_.longestMatch({U64{address.host()} << 32, 0}, Lumo::Prefix::maxLength);
  }
  /// Whether `prefix` is stored.
  bool route(const Lumo::IpGenPrefix& prefix) const;
  /// Inserts a prefix; one that is stored already changes nothing and tells nobody. The empty prefix is
  /// never stored.
  void routeIs(const Lumo::IpGenPrefix& prefix, bool present);
  /// Inserts a prefix; one that is new calls `before` ahead of all who hear of it.
  template <class Before>
  void routeAdd(const Lumo::IpGenPrefix& prefix, Before before) {
    if (!insert(prefix)) return;
    before();
    changed(prefix);
  }
  void routeDel(const Lumo::IpGenPrefix& prefix);
  /// Stored prefixes: each counts as one node, whatever blocks hold it.
  S32 nodes() const { return static_cast<S32>(trie4_.size() + trie6_.size()); }
  /// Heap bytes held by the trie.
  U64 bytes() const { return trie4_.bytes() + trie6_.bytes(); }

  const Lumo::IpGenPrefix& changedRoute() const { return changedRoute_; }
  /// Names the prefix that changed; watchers are told each time, also when it is the same prefix again.
  void changedRouteIs(const Lumo::IpGenPrefix& prefix);

  /// Every insertion and removal, by its prefix.
  const Zan::Taps<Lumo::IpGenPrefix>& taps() const { return taps_; }

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  PrefixTrie* trieFor(const Lumo::IpGenPrefix& prefix) {
    return const_cast<PrefixTrie*>(static_cast<const TrieGen*>(this)->trieFor(prefix));
  }
  const PrefixTrie* trieFor(const Lumo::IpGenPrefix& prefix) const;
  bool insert(const Lumo::IpGenPrefix& prefix);
  void changed(const Lumo::IpGenPrefix& prefix);

  Lumo::AddressFamily af_;
  PrefixTrie trie4_;
  PrefixTrie trie6_;
  Lumo::IpGenPrefix changedRoute_;
  Zan::Taps<Lumo::IpGenPrefix> taps_;
};

class ZAN_EXPORT TrieGen::NotifieeConst : public Zan::NotifieeOf<TrieGen> {
 public:
  virtual void onChangedRoute() { onAttribute(changedRouteId); }
};

}  // namespace Routing
