#include "Routing/PrefixTrie.h"

#include "Routing/PrefixTrieNode.h"

namespace Routing {

// ---- Look-up ----

template <class Word>
int PrefixTrie::longestMatchIn(Word bits, U32 length) const {
  const Node* node = &topNode(top(bits));
  U32 left = length;  // bits of the query that are still in `bits`
  U64 match = 0;
  U32 matchLeft = 0;
  const auto consider = [&](U64 word) {
    const U64 here = word & covering[nextStride(bits)] & upTo[std::min(left, stride - 1)];
    matchLeft = here != 0 ? left : matchLeft;
    match = here != 0 ? here : match;
  };
  const U64 first = firstWords_[top(bits) >> 63];
  const U64 second = topBits_ == wideTop ? topWord(top(bits)) : 0;
  bits <<= narrowTop;
  left -= narrowTop;
  consider(first);
  if (topBits_ == wideTop && left >= stride) {
    bits <<= stride;
    left -= stride;
    consider(second);
  }
  while (left >= stride) {
    if (node->isSparse()) {
      if (node->span() > left || !node->leads(top(bits))) break;
      left -= node->span();
      if (node->isTail()) return static_cast<int>(length - left);
      bits <<= node->span();
      node = &at(node->block());
      continue;
    }
    const U32 c = nextStride(bits);
    bits <<= stride;
    left -= stride;
    // Without a branch, which would often be mispredicted: without a word, unit 0 is read and masked out.
    const U64 present = U64{0} - (node->words >> c & 1);
    consider(units_[node->wordAt(c) & present] & present);
    if (!has(node->children, c)) break;
    node = &at(node->childAt(c));
  }
  if (match == 0) return contains({0, 0}, 0) ? 0 : noMatch;
  const U32 highest = 63 - static_cast<U32>(__builtin_clzll(match));  // 2^l - 1 + value
  return static_cast<int>(length - matchLeft + 31 - static_cast<U32>(__builtin_clz(highest + 1)));
}

int PrefixTrie::longestMatch(TrieKey key, U32 length) const {
  if (!units_ || length == 0) return contains({0, 0}, 0) ? 0 : noMatch;
  return withBits(key, length, [&](auto bits) { return longestMatchIn(bits, length); });
}

U64& PrefixTrie::shortPrefix(U64 bits, U32 length, U64& bit) {
  if (length == 0) {
    bit = U64{1} << 63;
    return firstWords_[0];
  }
  const U32 begin = length <= narrowTop + stride - 1 ? narrowTop : wideTop;
  bit = prefixBit(static_cast<U32>(bits << begin >> (64 - stride)), length - begin);
  return begin == narrowTop ? firstWords_[bits >> 63] : topWord(bits);
}

PrefixTrie::Place PrefixTrie::find(TrieKey key, U32 length) {
  if (!units_) return {};
  if (isShort(length)) {
    U64 bit;
    U64& word = shortPrefix(key.high, length, bit);
    return Place::inWord(word, bit);
  }
  return withBits(key, length, [&](auto bits) { return findIn(bits, length); });
}

template <class Word>
PrefixTrie::Place PrefixTrie::findIn(Word bits, U32 length) {
  Node* node = &topNode(top(bits));
  U32 left = length - topBits_;
  bits <<= topBits_;
  for (;;) {
    if (node->isSparse()) {
      if (node->span() > left || !node->leads(top(bits))) return {};
      left -= node->span();
      if (node->isTail()) return left == 0 ? Place{nullptr, 0, node} : Place{};
      bits <<= node->span();
      node = &at(node->block());
      if (left < stride) return {};
      continue;
    }
    const U32 c = nextStride(bits);
    bits <<= stride;
    left -= stride;
    if (left < stride) {
      if (!has(node->words, c)) return {};
      return Place::inWord(units_[node->wordAt(c)], prefixBit(nextStride(bits), left));
    }
    if (!has(node->children, c)) return {};
    node = &at(node->childAt(c));
  }
}

bool PrefixTrie::contains(TrieKey key, U32 length) const {
  auto& self = const_cast<PrefixTrie&>(*this);  // find() serves removal too; here it is only read
  return self.find(key, length).found();
}

// ---- Update ----

bool PrefixTrie::insert(TrieKey key, U32 length) {
  if (!units_) makeTop(narrowTop);
  bool added;
  if (isShort(length)) {
    U64 bit;
    U64& word = shortPrefix(key.high, length, bit);
    added = setBit(word, bit);
  } else {
    added = withBits(key, length, [&](auto bits) { return insertIn(bits, length); });
  }
  size_ += added;
  rebuildIfUnfit();
  return added;
}

template <class Word>
bool PrefixTrie::insertIn(Word bits, U32 length) {
  U32 node = nodeUnits * static_cast<U32>(top(bits) >> (64 - topBits_));
  U32 left = length - topBits_;
  bits <<= topBits_;
  for (;;) {
    const Node n = at(node);
    if (n.isEmpty()) {
      const Node lone = lonePrefix(bits, left);
      at(node) = lone;
      if (!isTop(at(node))) --empty_;
      return true;
    }
    if (n.isSparse()) {
      const U32 differ = static_cast<U32>(std::countl_zero(top(bits) ^ n.children));
      const U32 same = std::min({n.span(), left, differ});
      if (same == n.span() && n.isTail() && same == left) return false;
      if (same == n.span() && !n.isTail() && left - same >= stride) {
        node = n.block();
        bits <<= same;
        left -= same;
      } else {
        // The branch lies a stride before either prefix ends, so that its words can hold them.
        splitSparse(node, std::min({same, n.span() - stride, left - stride}) / stride * stride);
      }
      continue;
    }
    const U32 c = nextStride(bits);
    bits <<= stride;
    left -= stride;
    if (left < stride) {
      const U64 bit = prefixBit(nextStride(bits), left);
      if (has(n.words, c)) {
        U64& word = units_[n.wordAt(c)];
        if (word == 0) --empty_;
        return setBit(word, bit);
      }
      const U32 gap = openGap(node, n.wordAt(c), wordUnits);
      units_[gap] = bit;
      at(node).words |= U64{1} << c;
      return true;
    }
    if (!has(n.children, c)) {
      const Node lone = lonePrefix(bits, left);
      at(openGap(node, n.childAt(c), nodeUnits)) = lone;
      at(node).children |= U64{1} << c;
      return true;
    }
    node = n.childAt(c);
  }
}

bool PrefixTrie::remove(TrieKey key, U32 length) {
  const Place place = find(key, length);
  if (!place.found()) return false;
  if (place.tail) {
    *place.tail = Node{};
    empty_ += !isTop(*place.tail);
  } else {
    *place.word &= ~place.bit;
    empty_ += !isShort(length) && *place.word == 0;
  }
  --size_;
  rebuildIfUnfit();
  return true;
}

/// The node for the one prefix of `length` bits (6 or more) that is below it.
template <class Word>
PrefixTrie::Node PrefixTrie::lonePrefix(Word bits, U32 length) {
  if (length <= longestTail) return Node::sparse(length, top(bits), 0);
  const U32 path = std::min(longestPath, (length - stride) / stride * stride);
  return Node::sparse(path, top(bits), store(lonePrefix(bits << path, length - path)));
}

/// Makes the stride at bit `behind` of a sparse node a branch that leads to the rest.
void PrefixTrie::splitSparse(U32 node, U32 behind) {
  const Node whole = at(node);
  const U64 bits = whole.children << behind;
  const U32 left = whole.span() - behind - stride;
  const U64 c = U64{1} << nextStride(bits);
  const U64 rest = bits << stride;
  Node split = Node::branch(c, 0, whole.block());
  if (whole.isTail() && left < stride) {
    split = Node::branch(0, c, allocate(wordUnits));
    units_[split.block()] = prefixBit(nextStride(rest), left);
  } else if (left > 0) {
    split = Node::branch(c, 0, store(Node::sparse(left, rest, whole.block())));
  }
  if (behind > 0) split = Node::sparse(behind, whole.children, store(split));
  at(node) = split;
}

/// Makes room for `units` at `place` in a node's block, which may move, and returns where the room is.
U32 PrefixTrie::openGap(U32 node, U32 place, U32 units) {
  const Node n = at(node);
  const U32 had = n.blockUnits();
  if (had > 0 && roomFor(had) == roomFor(had + units)) {
    std::copy_backward(units_ + place, units_ + n.block() + had, units_ + n.block() + had + units);
    return place;
  }
  const U32 block = allocate(roomFor(had + units));
  const U32 gap = block + place - n.block();
  std::copy(units_ + n.block(), units_ + place, units_ + block);
  std::copy(units_ + place, units_ + n.block() + had, units_ + gap + units);
  if (had > 0) release(n.block(), roomFor(had));
  at(node).blockAndSpan = block;
  return gap;
}

}  // namespace Routing
