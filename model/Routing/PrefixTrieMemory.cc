#include <cstdlib>
#include <new>
#include <tuple>

#include "Routing/PrefixTrieNode.h"

namespace Routing {

PrefixTrie::~PrefixTrie() {
  std::free(units_);
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

/// Without memory for it, all stays as it is until the next change.
void PrefixTrie::rebuild() {
  const std::tuple had(units_, capacity_, used_, free_, empty_, topBits_, freeBlocks_, haveFree_);
  U64* const old = std::exchange(units_, nullptr);
  try {
    copyLiving(old);
    std::free(old);
  } catch (const std::bad_alloc&) {
    std::free(units_);
    std::tie(units_, capacity_, used_, free_, empty_, topBits_, freeBlocks_, haveFree_) = had;
  }
}

/// Copies what lives into new memory, with a top that fits, without what is empty and with every stretch in
/// one node.
void PrefixTrie::copyLiving(const U64* old) {
  const U32 hadTop = topBits_;
  const U32 live = used_ - free_;
  capacity_ = used_ = free_ = empty_ = 0;
  freeBlocks_.fill(0);
  haveFree_.fill(0);
  if (size_ == 0) return;
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
