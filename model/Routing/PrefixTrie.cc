#include "Routing/PrefixTrie.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace Routing {

namespace {

__extension__ using U128 = unsigned __int128;

constexpr U32 stride = 6;
constexpr U32 longestPath = 60;  // bits of a sparse node that leads on: whole strides
constexpr U32 longestTail = 63;  // bits of one that ends in a prefix
constexpr U32 nodeUnits = 3;
constexpr U32 wordUnits = 1;
constexpr U32 fanout = 64;

/// The size of a block that holds so much: an eighth of slack at most, so that not each addition moves it.
U32 roomFor(U32 units) {
  const U32 step = std::max(1u, std::bit_floor(units) / 8);
  return (units + step - 1) / step * step;
}

// A set of some size is entered by the first 7 bits at once, which costs it 4 bytes a prefix at most.
constexpr U32 narrowTop = 1;
constexpr U32 wideTop = narrowTop + stride;
constexpr U64 wideFrom = 1000;

/// For the next six bits c: the bits of a word of the six prefixes that c has.
constexpr auto covering = [] {
  std::array<U64, 64> masks{};
  for (U32 c = 0; c < 64; ++c) {
    for (U32 l = 0; l < stride; ++l) masks[c] |= U64{1} << ((1u << l) - 1 + (c >> (stride - l)));
  }
  return masks;
}();

/// The bits of a word that belong to prefixes of at most l bits.
constexpr std::array<U64, stride> upTo{0x1, 0x7, 0x7F, 0x7FFF, 0x7FFFFFFF, 0x7FFFFFFFFFFFFFFF};

/// The bit of a word of the prefix that the first `l` (0 to 5) of the six bits `c` make: 2^l - 1 + value.
U64 prefixBit(U32 c, U32 l) {
  return U64{1} << ((1u << l) - 1 + (c >> (stride - l)));
}

/// What is left of a key, left-aligned: a 64-bit word for keys of up to 63 bits, else 128 bits.
U64 top(U64 bits) {
  return bits;
}
U64 top(U128 bits) {
  return static_cast<U64>(bits >> 64);
}
template <class Word>
U32 nextStride(Word bits) {
  return static_cast<U32>(top(bits) >> (64 - stride));
}

/// Runs `f` with the key as the narrowest word that holds `length` bits.
template <class F>
auto withBits(TrieKey key, U32 length, F f) {
  if (length < 64) return f(key.high);
  return f(U128{key.high} << 64 | key.low);
}

U32 rank(U64 map, U32 c) {
  return static_cast<U32>(std::popcount(map & ((U64{1} << c) - 1)));
}
bool has(U64 map, U32 c) {
  return (map >> c & 1) != 0;
}
/// False when it was set already.
bool setBit(U64& word, U64 bit) {
  return (std::exchange(word, word | bit) & bit) == 0;
}

}  // namespace

/// All of U64, as the memory is that it lies in.
struct PrefixTrie::Node {
  U64 children;
  U64 words;
  U64 blockAndSpan;

  static Node branch(U64 children, U64 words, U32 block) { return {children, words, block}; }
  static Node sparse(U32 span, U64 bits, U32 block) {
    return {bits & ~(~U64{0} >> span), 0, U64{span} << 32 | block};
  }
  U32 block() const { return static_cast<U32>(blockAndSpan); }
  U32 span() const { return static_cast<U32>(blockAndSpan >> 32); }
  bool isSparse() const { return span() != 0; }
  /// Of a sparse node: a prefix ends behind its bits.
  bool isTail() const { return block() == 0; }
  bool isEmpty() const { return (children | words) == 0 && !isSparse(); }
  /// Whether `bits` begins with this sparse node's.
  bool leads(U64 bits) const { return (bits ^ children) >> (64 - span()) == 0; }

  U32 childCount() const { return static_cast<U32>(std::popcount(children)); }
  U32 wordCount() const { return static_cast<U32>(std::popcount(words)); }
  U32 blockUnits() const { return nodeUnits * childCount() + wordUnits * wordCount(); }
  /// Index of the child or word for c; of what is not there, where it would be.
  U32 childAt(U32 c) const { return block() + nodeUnits * rank(children, c); }
  U32 wordAt(U32 c) const { return block() + nodeUnits * childCount() + wordUnits * rank(words, c); }
};

struct PrefixTrie::Step {
  U64 word;
  Node node;
};

struct PrefixTrie::Place {
  U64* word;
  U64 bit;
  Node* tail;

  static Place inWord(U64& word, U64 bit) { return (word & bit) != 0 ? Place{&word, bit, nullptr} : Place{}; }
  bool found() const { return word != nullptr || tail != nullptr; }
};

PrefixTrie::~PrefixTrie() {
  std::free(units_);
}

PrefixTrie::Node& PrefixTrie::at(U32 unit) const {
  static_assert(sizeof(Node) == nodeUnits * sizeof(U64));
  return *reinterpret_cast<Node*>(units_ + unit);
}

const PrefixTrie::Node& PrefixTrie::nodeIn(const U64* units, U32 unit) {
  return *reinterpret_cast<const Node*>(units + unit);
}

PrefixTrie::Node& PrefixTrie::topNode(U64 bits) const {
  return at(nodeUnits * static_cast<U32>(bits >> (64 - topBits_)));
}

U64& PrefixTrie::topWord(U64 bits) const {
  return units_[(nodeUnits << topBits_) + static_cast<U32>(bits >> (64 - topBits_))];
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

// ---- Memory ----

U32 PrefixTrie::allocate(U32 units) {
  U32 size = units;
  U64 fitting = haveFree_[size / 64] >> size % 64 << size % 64;
  for (U32 i = size / 64; fitting == 0 && ++i < haveFree_.size();) {
    fitting = haveFree_[i];
    size = i * 64;
  }
  if (fitting == 0) {
    if (used_ + units > capacity_) reserve(used_ + units + used_ / 32);
    used_ += units;
    return used_ - units;
  }
  size = size / 64 * 64 + static_cast<U32>(std::countr_zero(fitting));
  const U32 block = freeBlocks_[size];
  freeBlocks_[size] = static_cast<U32>(units_[block]);
  if (freeBlocks_[size] == 0) haveFree_[size / 64] &= ~(U64{1} << size % 64);
  free_ -= size;
  if (size > units) release(block + units, size - units);
  return block;
}

U32 PrefixTrie::store(const Node& node) {
  const U32 block = allocate(nodeUnits);
  at(block) = node;
  return block;
}

void PrefixTrie::release(U32 block, U32 units) {
  units_[block] = freeBlocks_[units];
  freeBlocks_[units] = block;
  haveFree_[units / 64] |= U64{1} << units % 64;
  free_ += units;
}

void PrefixTrie::reserve(U32 capacity) {
  void* moved = std::realloc(units_, U64{capacity} * sizeof(U64));
  if (!moved) throw std::bad_alloc();
  units_ = static_cast<U64*>(moved);
  capacity_ = capacity;
}

/// The nodes that are found by the first bits of a key alone, and the words of a wide top.
void PrefixTrie::makeTop(U32 bits) {
  topBits_ = bits;
  used_ = nodeUnits << bits;
  if (bits == wideTop) used_ += wordUnits << bits;
  reserve(std::max(used_, capacity_));
  std::fill_n(units_, used_, U64{0});
}

bool PrefixTrie::isTop(const Node& node) const {
  return &node < &at(nodeUnits << topBits_);
}

/// Whether a prefix is above the nodes of the top.
bool PrefixTrie::isShort(U32 length) const {
  return length < topBits_ + stride;
}

// ---- Rebuilding ----

void PrefixTrie::rebuildIfUnfit() {
  const bool sparse = free_ > (used_ - free_) / 8 + 64 || empty_ > size_ / 8 + 2;
  const bool outgrown = topBits_ == narrowTop ? size_ >= wideFrom : size_ < wideFrom / 4;
  if (sparse || outgrown || size_ == 0) rebuild();
}

/// Copies what lives into new memory, with a top that fits, without what is empty and with every stretch in
/// one node.
void PrefixTrie::rebuild() {
  U64* const old = std::exchange(units_, nullptr);
  const U32 hadTop = topBits_;
  const U32 live = used_ - free_;
  capacity_ = used_ = free_ = empty_ = 0;
  freeBlocks_.fill(0);
  haveFree_.fill(0);
  if (size_ == 0) {
    std::free(old);
    return;
  }
  capacity_ = live;  // makeTop reserves it
  makeTop(size_ >= wideFrom ? wideTop : narrowTop);
  const auto oldWord = [&](U32 i) { return old[(nodeUnits << wideTop) + i]; };
  for (U32 i = 0; i < 1u << topBits_; ++i) {
    Node node;
    if (hadTop == topBits_) {
      node = pruned(old, nodeIn(old, i * nodeUnits));
      if (topBits_ == wideTop) units_[(nodeUnits << wideTop) + i] = oldWord(i);
    } else if (topBits_ == wideTop) {
      const Step below = step(old, nodeIn(old, (i >> stride) * nodeUnits), i % fanout);
      node = pruned(old, below.node);
      units_[(nodeUnits << wideTop) + i] = below.word;
    } else {
      node = assembled(~U64{0}, [&](U32 c) {
        const U32 was = i << stride | c;
        return Step{oldWord(was), pruned(old, nodeIn(old, was * nodeUnits))};
      });
    }
    at(i * nodeUnits) = node;
  }
  std::free(old);
}

/// What a node has for the six bits c: a word (0 if none) and a node (empty if none).
PrefixTrie::Step PrefixTrie::step(const U64* from, const Node& node, U32 c) {
  if (!node.isSparse()) {
    return {has(node.words, c) ? from[node.wordAt(c)] : 0,
            has(node.children, c) ? nodeIn(from, node.childAt(c)) : Node{}};
  }
  if (nextStride(node.children) != c) return {0, Node{}};
  const U32 left = node.span() - stride;
  const U64 rest = node.children << stride;
  if (node.isTail() && left < stride) return {prefixBit(nextStride(rest), left), Node{}};
  if (left == 0) return {0, nodeIn(from, node.block())};
  return {0, Node::sparse(left, rest, node.block())};
}

PrefixTrie::Node PrefixTrie::pruned(const U64* from, const Node& node) {
  if (node.isEmpty()) return node;
  if (!node.isSparse()) {
    return assembled(node.children | node.words, [&](U32 c) {
      const Step below = step(from, node, c);
      return Step{below.word, pruned(from, below.node)};
    });
  }
  return node.isTail() ? node : joined(node.span(), node.children, pruned(from, nodeIn(from, node.block())));
}

/// A node that has for each c of `present` what `below(c)` says.
template <class Below>
PrefixTrie::Node PrefixTrie::assembled(U64 present, Below below) {
  Node node{};
  std::array<Node, fanout> children;
  std::array<U64, fanout> words;
  for (; present != 0; present &= present - 1) {
    const Step found = below(static_cast<U32>(std::countr_zero(present)));
    if (found.word != 0) {
      words[node.wordCount()] = found.word;
      node.words |= present & -present;
    }
    if (!found.node.isEmpty()) {
      children[node.childCount()] = found.node;
      node.children |= present & -present;
    }
  }
  if (node.words == 0 && node.childCount() == 1) {
    return joined(stride, static_cast<U64>(std::countr_zero(node.children)) << (64 - stride), children[0]);
  }
  if (node.isEmpty()) return node;
  node.blockAndSpan = allocate(roomFor(node.blockUnits()));
  U32 to = node.block();
  for (U32 i = 0; i < node.childCount(); ++i, to += nodeUnits) at(to) = children[i];
  std::copy_n(words.begin(), node.wordCount(), units_ + to);
  return node;
}

/// The node for `span` bits followed by `next`: one node for both where that holds them.
PrefixTrie::Node PrefixTrie::joined(U32 span, U64 bits, const Node& next) {
  if (next.isEmpty()) return next;
  if (next.isSparse() && span + next.span() <= (next.isTail() ? longestTail : longestPath)) {
    return Node::sparse(span + next.span(), bits | next.children >> span, next.block());
  }
  return Node::sparse(span, bits, store(next));
}

}  // namespace Routing
