#include "Routing/TrieGen.h"

#include "Zan/ZanType.h"

namespace Routing {

namespace {

TrieKey keyOf(const Lumo::IpGenPrefix& p) {
  return {p.high(), p.low()};
}

/// The covering prefix of `p` that has `length` bits.
Lumo::IpGenPrefix cut(const Lumo::IpGenPrefix& p, U32 length) {
  if (p.af() == Lumo::ipv4()) {
    return {Lumo::IpAddr::fromHost(static_cast<U32>(p.high() >> 32)), length};
  }
  return Lumo::Ip6Prefix(p.v6Prefix().address(), length);
}

}  // namespace

TrieGen::~TrieGen() = default;

const PrefixTrie* TrieGen::trieFor(const Lumo::IpGenPrefix& prefix) const {
  if (prefix.empty()) return nullptr;
  return prefix.af() == Lumo::ipv4() ? &trie4_ : &trie6_;
}

Lumo::IpGenPrefix TrieGen::longestMatch(const Lumo::IpGenPrefix& prefix) const {
  const PrefixTrie* trie = trieFor(prefix);
  if (!trie) return {};
  const int length = trie->longestMatch(keyOf(prefix), prefix.length());
  return length == PrefixTrie::noMatch ? Lumo::IpGenPrefix() : cut(prefix, static_cast<U32>(length));
}

bool TrieGen::route(const Lumo::IpGenPrefix& prefix) const {
  const PrefixTrie* trie = trieFor(prefix);
  return trie && trie->contains(keyOf(prefix), prefix.length());
}

void TrieGen::routeIs(const Lumo::IpGenPrefix& prefix, bool present) {
  if (!present) return routeDel(prefix);
  if (insert(prefix)) changed(prefix);
}

bool TrieGen::insert(const Lumo::IpGenPrefix& prefix) {
  PrefixTrie* trie = trieFor(prefix);
  return trie && trie->insert(keyOf(prefix), prefix.length());
}

void TrieGen::routeDel(const Lumo::IpGenPrefix& prefix) {
  PrefixTrie* trie = trieFor(prefix);
  if (trie && trie->remove(keyOf(prefix), prefix.length())) changed(prefix);
}

void TrieGen::changed(const Lumo::IpGenPrefix& prefix) {
  taps_.tell(prefix);
  changedRouteIs(prefix);
}

void TrieGen::changedRouteIs(const Lumo::IpGenPrefix& prefix) {
  changedRoute_ = prefix;
  tell<&NotifieeConst::onChangedRoute>(changedRouteId);
}

const Zan::ZanType* TrieGen::fwkType() const {
  static const Zan::ZanType type("Routing::TrieGen", Entity::fwkType());
  return &type;
}

std::string_view TrieGen::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case changedRouteId:
      return "changedRoute";
    case afId:
      return "af";
    default:
      return Entity::attributeName(attribute);
  }
}

}  // namespace Routing
