#include "Routing/PrefixTrie.h"

namespace Routing {

namespace {

TrieKey cut(TrieKey key, U32 length) {
  if (length == 0) return {0, 0};
  if (length < 64) return {key.high & ~U64{0} << (64 - length), 0};
  if (length == 64) return {key.high, 0};
  return {key.high, length == 128 ? key.low : key.low & ~U64{0} << (128 - length)};
}

}  // namespace

bool PrefixTrie::insert(TrieKey key, U32 length) {
  const bool added = byLength_[length].insert(cut(key, length)).second;
  size_ += added;
  return added;
}

bool PrefixTrie::remove(TrieKey key, U32 length) {
  const bool removed = byLength_[length].erase(cut(key, length)) != 0;
  size_ -= removed;
  return removed;
}

bool PrefixTrie::contains(TrieKey key, U32 length) const {
  return byLength_[length].contains(cut(key, length));
}

int PrefixTrie::longestMatch(TrieKey key, U32 length) const {
  for (int l = static_cast<int>(length); l >= 0; --l) {
    const auto& set = byLength_[static_cast<U32>(l)];
    if (!set.empty() && set.contains(cut(key, static_cast<U32>(l)))) return l;
  }
  return noMatch;
}

U64 PrefixTrie::bytes() const {
  U64 total = 0;
  for (const auto& set : byLength_) total += set.size() * 40 + set.bucket_count() * 8;
  return total;
}

}  // namespace Routing
