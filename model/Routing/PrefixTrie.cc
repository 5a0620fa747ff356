#include "Routing/PrefixTrie.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace Routing {

namespace {

__extension__ using U128 = unsigned __int128;

constexpr U32 strideBits = 6;
/// Positions are counted from five imaginary bits before the first, so that node d begins at bit 6 d - 5.
constexpr U32 lead = 5;

/// For the next six bits c: the bits of `prefixes` of the six prefixes that c has.
constexpr auto covering = [] {
  std::array<U64, 64> masks{};
  for (U32 c = 0; c < 64; ++c) {
    for (U32 l = 0; l < strideBits; ++l) masks[c] |= U64{1} << ((1u << l) - 1 + (c >> (strideBits - l)));
  }
  return masks;
}();

/// The bits of `prefixes` that belong to prefixes of at most l bits.
constexpr std::array<U64, 6> upTo{0x1, 0x7, 0x7F, 0x7FFF, 0x7FFFFFFF, 0x7FFFFFFFFFFFFFFF};

/// The six bits that node `depth` stands for.
U32 chunk(TrieKey key, U32 depth) {
  const U128 bits = U128{key.high} << 64 | key.low;
  if (depth == 0) return static_cast<U32>(key.high >> 63);
  const U32 at = depth * strideBits - lead;
  return static_cast<U32>((bits << at) >> 122);
}

/// The bits of `count` strides from node `depth` on, right-aligned.
U64 chunks(TrieKey key, U32 depth, U32 count) {
  U64 bits = 0;
  for (U32 i = 0; i < count; ++i) bits = bits << strideBits | chunk(key, depth + i);
  return bits;
}

/// Where a prefix ends: in which node, and which bit of its `prefixes`.
struct Place {
  Place(TrieKey key, U32 length) : depth((length + lead) / strideBits) {
    const U32 l = (length + lead) % strideBits;
    bit = U64{1} << ((1u << l) - 1 + (chunk(key, depth) >> (strideBits - l)));
  }
  U32 depth;
  U64 bit;
};

/// Block sizes grow in steps of at most a quarter: few moves while a block grows, little slack.
U32 blockSize(U32 count) {
  if (count <= 8) return count;
  const U32 step = count <= 16 ? 2 : count <= 32 ? 4 : 8;
  return (count + step - 1) / step * step;
}

}  // namespace

PrefixTrie::~PrefixTrie() {
  std::free(nodes_);
}

// ---- Look-up ----

template <class Word>
int PrefixTrie::longestMatchIn(Word bits, int length) const {
  constexpr int width = sizeof(Word) * 8;
  U64 match = 0;
  int matchAt = 0;
  int at = -static_cast<int>(lead);  // the bit that `node` begins at
  U32 c = static_cast<U32>(bits >> (width - 1));
  bits <<= 1;
  for (const Node* node = nodes_;;) {
    if (node->isPath()) {
      const int span = static_cast<int>(node->strides() * stride);
      const Word expected = node->children;
      const Word found =
          Word{c} << (span - static_cast<int>(stride)) |
          (span == static_cast<int>(stride) ? Word{0} : bits >> (width - span + static_cast<int>(stride)));
      at += span;
      if (at > length || found != expected) break;
      bits <<= span - static_cast<int>(stride);
      node = nodes_ + node->block;
    } else {
      const int left = length - at;
      U64 here = node->prefixes & covering[c];
      if (left < static_cast<int>(stride)) here &= upTo[static_cast<U32>(left)];
      if (here != 0) {
        match = here;
        matchAt = at;
      }
      if (left < static_cast<int>(stride) || !node->hasChild(c)) break;
      node = nodes_ + node->block + node->rank(c);
      at += static_cast<int>(stride);
    }
    c = static_cast<U32>(bits >> (width - static_cast<int>(stride)));
    bits <<= stride;
  }
  if (match == 0) return noMatch;
  const int highest = 63 - __builtin_clzll(match);                     // 2^l - 1 + v
  return matchAt + 31 - __builtin_clz(static_cast<U32>(highest + 1));  // + l
}

int PrefixTrie::longestMatch(TrieKey key, U32 length) const {
  if (size_ == 0) return noMatch;
  if (length <= 32) return longestMatchIn<U64>(key.high, static_cast<int>(length));
  return longestMatchIn<U128>(U128{key.high} << 64 | key.low, static_cast<int>(length));
}

/// The node that a prefix ends in, or `capacity_` when there is none.
U32 PrefixTrie::find(TrieKey key, U32 target) const {
  U32 node = 0;
  for (U32 depth = 0; depth < target;) {
    const Node& n = nodes_[node];
    if (n.isPath()) {
      if (depth + n.strides() > target || chunks(key, depth, n.strides()) != n.children) return capacity_;
      depth += n.strides();
      node = n.block;
    } else {
      const U32 c = chunk(key, depth++);
      if (!n.hasChild(c)) return capacity_;
      node = n.block + n.rank(c);
    }
  }
  return nodes_[node].isPath() ? capacity_ : node;
}

bool PrefixTrie::contains(TrieKey key, U32 length) const {
  if (size_ == 0) return false;
  const Place place(key, length);
  const U32 node = find(key, place.depth);
  return node != capacity_ && (nodes_[node].prefixes & place.bit) != 0;
}

// ---- Update ----

bool PrefixTrie::insert(TrieKey key, U32 length) {
  compactIfSparse();
  if (!nodes_) {
    allocate(1);  // the root
    nodes_[0] = Node{0, 0, 0};
  }
  const Place place(key, length);
  U32 node = 0;
  for (U32 depth = 0;;) {
    if (nodes_[node].isPath()) {
      const Node path = nodes_[node];
      U32 same = 0;
      while (same < path.strides() && depth + same < place.depth &&
             (path.children >> (path.strides() - 1 - same) * stride & (fanout - 1)) ==
                 chunk(key, depth + same)) {
        ++same;
      }
      if (same < path.strides()) {
        splitPath(node, same);
        if (same == 0) continue;  // the node is an ordinary one now
      }
      node = nodes_[node].block;
      depth += same;
      continue;
    }
    if (depth == place.depth) break;
    const U32 c = chunk(key, depth++);
    if (!nodes_[node].hasChild(c)) {
      const Node child = chain(key, depth, place.depth, place.bit);
      addChild(node, c, child);
      ++size_;
      return true;
    }
    node = nodes_[node].block + nodes_[node].rank(c);
  }
  if ((nodes_[node].prefixes & place.bit) != 0) return false;
  nodes_[node].prefixes |= place.bit;
  ++size_;
  return true;
}

bool PrefixTrie::remove(TrieKey key, U32 length) {
  if (size_ == 0) return false;
  compactIfSparse();
  const Place place(key, length);
  std::array<U32, maxDepth> visited;  // the nodes on the way
  std::array<U32, maxDepth> via;      // and the six bits by which each was left
  U32 count = 0;
  U32 node = 0;
  for (U32 depth = 0; depth < place.depth;) {
    const Node& n = nodes_[node];
    visited[count] = node;
    if (n.isPath()) {
      if (depth + n.strides() > place.depth || chunks(key, depth, n.strides()) != n.children) return false;
      depth += n.strides();
      node = n.block;
    } else {
      const U32 c = chunk(key, depth++);
      if (!n.hasChild(c)) return false;
      via[count] = c;
      node = n.block + n.rank(c);
    }
    ++count;
  }
  if (nodes_[node].isPath() || (nodes_[node].prefixes & place.bit) == 0) return false;
  nodes_[node].prefixes &= ~place.bit;
  --size_;
  visited[count] = node;
  prune(visited.data(), via.data(), count);
  return true;
}

/// Takes out what a removal in node `visited[depth]` has emptied, from the bottom up, and makes a path of
/// what it has left without branch.
void PrefixTrie::prune(const U32* visited, const U32* via, U32 depth) {
  for (;; --depth) {
    const Node n = nodes_[visited[depth]];
    const bool empty = !n.isPath() && n.prefixes == 0 && n.children == 0;
    if (!empty || depth == 0) break;
    const U32 parent = visited[depth - 1];
    if (nodes_[parent].isPath()) {
      release(nodes_[parent].block, 1);
      nodes_[parent] = Node{0, 0, 0};
    } else {
      removeChild(parent, via[depth - 1]);
    }
  }
  if (depth > 0) compress(visited[depth]);
  if (depth > 1 && nodes_[visited[depth - 1]].isPath()) compress(visited[depth - 1]);
}

/// Turns a node with one child and no prefix into a path, and joins a path with the path that follows it.
void PrefixTrie::compress(U32 node) {
  Node n = nodes_[node];
  if (!n.isPath()) {
    if (n.prefixes != 0 || n.childCount() != 1) return;
    n = Node::path(static_cast<U64>(__builtin_ctzll(n.children)), 1, n.block);
  }
  const Node next = nodes_[n.block];
  if (next.isPath() && n.strides() + next.strides() <= maxPath) {
    release(n.block, 1);
    n = Node::path(n.children << next.strides() * stride | next.children, n.strides() + next.strides(),
                   next.block);
  }
  nodes_[node] = n;
}

/// A node that leads to one prefix: the path from node `from` to node `to`, and the node that it ends in.
PrefixTrie::Node PrefixTrie::chain(TrieKey key, U32 from, U32 to, U64 prefixBit) {
  Node node{prefixBit, 0, 0};
  while (to > from) {
    const U32 strides = to - from < maxPath ? to - from : maxPath;
    const U32 block = allocate(1);
    nodes_[block] = node;
    to -= strides;
    node = Node::path(chunks(key, to, strides), strides, block);
  }
  return node;
}

/// Makes the stride `at` of a path an ordinary node with one child: path before, node, path behind.
void PrefixTrie::splitPath(U32 node, U32 at) {
  const Node whole = nodes_[node];
  const U32 behind = whole.strides() - at - 1;
  U32 block = whole.block;
  if (behind > 0) {
    block = allocate(1);
    nodes_[block] = Node::path(whole.children & ((U64{1} << behind * stride) - 1), behind, whole.block);
  }
  const U64 c = whole.children >> behind * stride & (fanout - 1);
  const Node middle{0, U64{1} << c, block};
  if (at == 0) {
    nodes_[node] = middle;
    return;
  }
  const U32 before = allocate(1);
  nodes_[before] = middle;
  nodes_[node] = Node::path(whole.children >> (behind + 1) * stride, at, before);
}

/// Returns the index of the new child.
U32 PrefixTrie::addChild(U32 node, U32 c, Node child) {
  const U32 count = nodes_[node].childCount();
  const U32 rank = nodes_[node].rank(c);
  U32 block = nodes_[node].block;
  if (count == 0 || blockSize(count) == count) {
    const U32 old = block;
    block = allocate(count + 1);
    if (count > 0) {
      std::memcpy(nodes_ + block, nodes_ + old, rank * sizeof(Node));
      std::memcpy(nodes_ + block + rank + 1, nodes_ + old + rank, (count - rank) * sizeof(Node));
      release(old, count);
    }
  } else {
    std::memmove(nodes_ + block + rank + 1, nodes_ + block + rank, (count - rank) * sizeof(Node));
  }
  nodes_[block + rank] = child;
  nodes_[node].block = block;
  nodes_[node].children |= U64{1} << c;
  return block + rank;
}

void PrefixTrie::removeChild(U32 node, U32 c) {
  const U32 count = nodes_[node].childCount();
  const U32 rank = nodes_[node].rank(c);
  const U32 block = nodes_[node].block;
  nodes_[node].children &= ~(U64{1} << c);
  if (count > 1 && blockSize(count - 1) == blockSize(count)) {
    std::memmove(nodes_ + block + rank, nodes_ + block + rank + 1, (count - rank - 1) * sizeof(Node));
    return;
  }
  U32 smaller = 0;
  if (count > 1) {
    smaller = allocate(count - 1);
    std::memcpy(nodes_ + smaller, nodes_ + block, rank * sizeof(Node));
    std::memcpy(nodes_ + smaller + rank, nodes_ + block + rank + 1, (count - rank - 1) * sizeof(Node));
  }
  release(block, count);
  nodes_[node].block = smaller;
}

// ---- Memory ----

U32 PrefixTrie::allocate(U32 count) {
  const U32 size = blockSize(count);
  if (const U32 block = freeBlocks_[size]) {
    freeBlocks_[size] = nodes_[block].block;
    free_ -= size;
    return block;
  }
  if (used_ + size > capacity_) {
    const U32 grown = used_ + size + used_ / 16;
    void* moved = std::realloc(static_cast<void*>(nodes_), U64{grown} * sizeof(Node));
    if (!moved) throw std::bad_alloc();
    nodes_ = static_cast<Node*>(moved);
    capacity_ = grown;
  }
  used_ += size;
  return used_ - size;
}

void PrefixTrie::release(U32 block, U32 count) {
  const U32 size = blockSize(count);
  nodes_[block].block = freeBlocks_[size];
  freeBlocks_[size] = block;
  free_ += size;
}

/// Moves everything into new memory when much of it is free blocks of sizes that nobody wants. The work is
/// proportional to what was released since the last time.
void PrefixTrie::compactIfSparse() {
  if (free_ <= (used_ - free_) / 8 + 16 && (size_ > 0 || used_ <= 1)) return;
  Node* old = nodes_;
  nodes_ = nullptr;
  const U32 live = used_ - free_;
  capacity_ = used_ = free_ = 0;
  freeBlocks_.fill(0);
  if (size_ > 0) {
    nodes_ = static_cast<Node*>(std::malloc(U64{live} * sizeof(Node)));
    if (!nodes_) throw std::bad_alloc();
    capacity_ = live;
    copyBlock(old, 0, 1);
  }
  std::free(old);
}

U32 PrefixTrie::copyBlock(const Node* from, U32 block, U32 count) {
  const U32 copy = used_;
  used_ += blockSize(count);
  std::memcpy(nodes_ + copy, from + block, count * sizeof(Node));
  for (U32 i = copy; i < copy + count; ++i) {
    if (const U32 children = nodes_[i].childCount(); children > 0) {
      const U32 moved = copyBlock(from, nodes_[i].block, children);
      nodes_[i].block = moved;
    }
  }
  return copy;
}

}  // namespace Routing
