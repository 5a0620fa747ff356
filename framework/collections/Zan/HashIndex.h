#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "Zan/Assert.h"
#include "Zan/Types.h"

namespace Zan {

/// Finds the members of a keyed collection by the hash of their keys (V answers `fwkKey()`, that `hash()`).
///
/// Extendible hashing (Fagin, Nievergelt, Pippenger, Strong, "Extendible Hashing - A Fast Access Method for
/// Dynamic Files", 1979): a directory leads to segments of up to 512 slots, each an open table with linear
/// probing; a segment that is three quarters full is split in two. So an insertion never costs more than the
/// rehash of one segment, and growing never holds two copies of the whole. Should so many hashes be alike
/// that the directory would outgrow the segments, the segment grows instead.
///
/// A slot is a pointer to a member with the first 20 bits of its hash: 16 in the bits that user space
/// pointers leave free at the top, 4 in those that the alignment of the members leaves at the bottom. The
/// first 9 bits are the place in the segment, those behind the place in the directory. So a search reads,
/// next to one line of a segment, only the member that it finds, and up to 700,000 members a segment is split
/// without a look at them.
template <class V>
class HashIndex {
 public:
  HashIndex() = default;
  HashIndex(const HashIndex&) = delete;
  HashIndex& operator=(const HashIndex&) = delete;
  ~HashIndex() { clear(); }

  /// Whether there is one: while it is absent, nothing can be found in it or entered.
  bool exists() const { return directory_ != nullptr; }
  /// Makes it anew and empty, with room for `count` members.
  void make(U64 count);
  void clear();
  /// Whether one that exists is larger than `count` members are worth.
  bool isSparseFor(U64 count) const { return depth() > 0 && directorySize() * 16 > count; }

  /// The member with this hash for which `matches` holds, or null.
  template <class Matches>
  V* find(U64 h, Matches matches) const {
    const Segment segment = segmentOf(h);
    const Slot* slots = segment.slots();
    for (U32 at = segment.place(h); slots[at] != emptySlot; at = segment.after(at)) {
      if (!mayBe(slots[at], h)) [[unlikely]]
        continue;
      if (V* v = memberOf(slots[at]); matches(*v)) return v;
    }
    return nullptr;
  }
  /// Inlined by force, here and in those who pass it on: g++ 12 takes a call of it for one without effect.
  [[gnu::always_inline]] void prefetch(U64 h) const {
    const Segment segment = segmentOf(h);
    __builtin_prefetch(segment.slots() + segment.place(h));
  }
  /// `h` is the hash of the member's key, here and below.
  void enter(V* member, U64 h);
  void leave(V* member, U64 h);

 private:
  using Slot = U64;
  static constexpr Slot emptySlot = 0;
  static constexpr Slot deletedSlot = 1;
  static constexpr Slot tagMask = 0xFFFF00000000000F;
  static constexpr U32 tagBits = 20;
  static constexpr U32 mostSlotBits = 9;
  static constexpr U32 mostSlots = U32{1} << mostSlotBits;
  static Slot tagOf(U64 h) { return (h & 0xFFFF000000000000) | (h >> 44 & 0xF); }
  static V* memberOf(Slot s) { return reinterpret_cast<V*>(static_cast<std::uintptr_t>(s & ~tagMask)); }
  static bool holds(Slot s) { return s > deletedSlot; }
  static bool mayBe(Slot s, U64 h) { return holds(s) && ((s ^ h) >> 48) == 0 && ((s ^ h >> 44) & 0xF) == 0; }

  /// Where a segment is, with 64 less the logarithm of its size, which is a shift, in the bits that its
  /// alignment leaves: all that a search needs to know of it. Several neighbours in the directory may lead to
  /// one segment, all those whose first `depth` bits are the same.
  class Segment {
   public:
    static constexpr std::size_t alignment = 64;
    struct Header {
      U32 depth;
      U32 room;  // empty slots that may still be used
    };

    static Segment make(U32 bits, U32 depth);
    void destroy() { ::operator delete(&header(), std::align_val_t(alignment)); }
    explicit operator bool() const { return word_ != 0; }

    U32 bits() const { return static_cast<U32>(alignment - word_ % alignment); }
    U32 size() const { return last() + 1; }
    U32 place(U64 h) const { return static_cast<U32>(h >> word_ % alignment); }
    U32 last() const { return place(~U64{0}); }
    U32 after(U32 at) const { return (at + 1) & last(); }
    U32 before(U32 at) const { return (at - 1) & last(); }
    Header& header() const { return *reinterpret_cast<Header*>(word_ & ~(alignment - 1)); }
    Slot* slots() const { return reinterpret_cast<Slot*>((word_ & ~(alignment - 1)) + alignment); }
    Slot* end() const { return slots() + size(); }
    void clear() {
      std::fill(slots(), end(), emptySlot);
      header().room = size() / 4 * 3;
    }

   private:
    std::uintptr_t word_ = 0;
  };

  U32 depth() const { return 63u - directoryShift_; }  // bits of the hash that the directory goes by
  void depthIs(U32 depth) { directoryShift_ = static_cast<U8>(63 - depth); }
  U32 directorySize() const { return U32{1} << depth(); }
  U32 directoryPlace(U64 h) const { return static_cast<U32>((h << mostSlotBits) >> 1 >> directoryShift_); }
  Segment segmentOf(U64 h) const { return directory_[directoryPlace(h)]; }
  /// How many entries of the directory lead to a segment of this depth.
  U32 entriesFor(U32 segmentDepth) const { return U32{1} << (depth() - segmentDepth); }
  void directoryLeadsTo(Segment segment, U64 h);

  void makeRoom(U64 h);
  bool mayDouble() const;
  void doubleDirectory();
  void putAll(const Slot* first, const Slot* end);
  /// Fills the first slot that is free, and calls `check` with what is in those before it.
  template <class Check>
  void put(Slot slot, U64 h, Check check);
  /// The hash of the member in a slot, as far as its place needs it.
  U64 hashIn(Slot s) const {
    const U64 first = (s & 0xFFFF000000000000) | (s & 0xF) << 44;
    if (mostSlotBits + depth() <= tagBits && segmentOf(first).bits() <= mostSlotBits) return first;
    return memberOf(s)->fwkKey().hash();
  }

  std::unique_ptr<Segment[]> directory_;
  U8 directoryShift_ = 63;
};

template <class V>
typename HashIndex<V>::Segment HashIndex<V>::Segment::make(U32 bits, U32 depth) {
  const std::size_t bytes = alignment + (std::size_t{1} << bits) * sizeof(Slot);
  auto* header = new (::operator new(bytes, std::align_val_t(alignment))) Header{depth, 0};
  Segment segment;
  segment.word_ = reinterpret_cast<std::uintptr_t>(header) | (alignment - bits);
  segment.clear();
  return segment;
}

template <class V>
void HashIndex<V>::make(U64 count) {
  clear();
  const auto bits = static_cast<U32>(std::bit_width(count + count / 2));
  const U32 segmentBits = std::min(bits, mostSlotBits);
  depthIs(bits - segmentBits);
  directory_.reset(new Segment[directorySize()]);
  for (U32 i = 0; i < directorySize(); ++i) directory_[i] = Segment::make(segmentBits, depth());
}

template <class V>
void HashIndex<V>::clear() {
  for (U32 i = 0; exists() && i < directorySize() && directory_[i];) {  // memory may have run out in `make`
    Segment segment = directory_[i];
    i += entriesFor(segment.header().depth);
    segment.destroy();
  }
  directory_.reset();
}

template <class V>
void HashIndex<V>::enter(V* member, U64 h) {
  const auto bits = static_cast<Slot>(reinterpret_cast<std::uintptr_t>(member));
  ZAN_ASSERT((bits & tagMask) == 0);
  while (segmentOf(h).header().room == 0) makeRoom(h);
  put(bits | tagOf(h), h, [&](Slot other) {
    ZAN_ASSERT_TEXT(!mayBe(other, h) || !(memberOf(other)->fwkKey() == member->fwkKey()),
                    "!lookup(member->fwkKey())");
  });
}

template <class V>
template <class Check>
void HashIndex<V>::put(Slot slot, U64 h, Check check) {
  const Segment segment = segmentOf(h);
  Slot* slots = segment.slots();
  U32 at = segment.place(h);
  for (; holds(slots[at]); at = segment.after(at)) check(slots[at]);
  segment.header().room -= slots[at] == emptySlot;
  slots[at] = slot;
}

/// Enters the members of what was a segment again, where the directory now wants them.
template <class V>
void HashIndex<V>::putAll(const Slot* first, const Slot* end) {
  for (; first != end; ++first) {
    if (holds(*first)) put(*first, hashIn(*first), [](Slot) {});
  }
}

/// A search must not end at the freed slot unless it would at the next one.
template <class V>
void HashIndex<V>::leave(V* member, U64 h) {
  const Segment segment = segmentOf(h);
  Slot* slots = segment.slots();
  U32 at = segment.place(h);
  for (; memberOf(slots[at]) != member; at = segment.after(at)) {
    ZAN_ASSERT_TEXT(slots[at] != emptySlot, "lookup(member->fwkKey()) == member");
  }
  if (slots[segment.after(at)] != emptySlot) {
    slots[at] = deletedSlot;
    return;
  }
  do {
    slots[at] = emptySlot;
    ++segment.header().room;
    at = segment.before(at);
  } while (slots[at] == deletedSlot);
}

/// Gives the segment of `h` room: by clearing what removals left, by growth, or by a split.
template <class V>
void HashIndex<V>::makeRoom(U64 h) {
  Segment full = segmentOf(h);
  if (std::count(full.slots(), full.end(), deletedSlot) > full.size() / 4) {
    const std::vector<Slot> had(full.slots(), full.end());
    full.clear();
    return putAll(had.data(), had.data() + had.size());
  }
  const U32 depth = full.header().depth;
  if (full.bits() < mostSlotBits || (depth == this->depth() && !mayDouble())) {
    directoryLeadsTo(Segment::make(full.bits() + 1, depth), h);
  } else {
    if (depth == this->depth()) doubleDirectory();
    const U64 deciding = U64{1} << (63 - mostSlotBits - depth);
    Segment halves[2];
    try {
      for (Segment& half : halves) half = Segment::make(full.bits(), depth + 1);
    } catch (...) {
      if (halves[0]) halves[0].destroy();
      throw;
    }
    directoryLeadsTo(halves[0], h & ~deciding);
    directoryLeadsTo(halves[1], h | deciding);
  }
  putAll(full.slots(), full.end());
  full.destroy();
}

/// Enters a segment in all places of the directory that are its own by its depth and a hash in it.
template <class V>
void HashIndex<V>::directoryLeadsTo(Segment segment, U64 h) {
  const U32 entries = entriesFor(segment.header().depth);
  std::fill_n(&directory_[directoryPlace(h) & ~(entries - 1)], entries, segment);
}

/// A directory is not to have many more entries than there are segments.
template <class V>
bool HashIndex<V>::mayDouble() const {
  U32 segments = 0;
  for (U32 i = 0; i < directorySize(); i += entriesFor(directory_[i].header().depth)) ++segments;
  return segments >= directorySize() / 4;
}

template <class V>
void HashIndex<V>::doubleDirectory() {
  std::unique_ptr<Segment[]> larger(new Segment[directorySize() * 2]);
  for (U32 i = 0; i < directorySize(); ++i) larger[2 * i] = larger[2 * i + 1] = directory_[i];
  directory_ = std::move(larger);
  depthIs(depth() + 1);
}

}  // namespace Zan
