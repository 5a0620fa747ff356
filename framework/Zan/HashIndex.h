#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>

#include "Zan/Assert.h"
#include "Zan/Types.h"

namespace Zan {

/// Finds the members of a keyed collection by the hash of their keys (V answers `fwkKey()`, that `hash()`).
///
/// Extendible hashing (Fagin, Nievergelt, Pippenger, Strong, "Extendible Hashing - A Fast Access Method for
/// Dynamic Files", 1979): a directory leads to segments of up to 512 slots, each an open table with linear
/// probing; a segment that is three quarters full is split in two. So an insertion never costs more than the
/// rehash of one segment, and growing never holds two copies of the whole.
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
  void make(U32 count);
  void clear();
  /// Slots for each of `count` members, rounded down.
  U32 slotsPer(U32 count) const { return directorySize() * slotCount() / count; }

  /// The member with this hash for which `matches` holds, or null.
  template <class Matches>
  V* find(U64 h, Matches matches) const {
    const Slot* slots = segmentOf(h)->slots();
    for (U32 at = place(h); slots[at] != emptySlot; at = after(at)) {
      if (!mayBe(slots[at], h)) [[unlikely]]
        continue;
      if (V* v = memberOf(slots[at]); matches(*v)) return v;
    }
    return nullptr;
  }
  /// Inlined by force, here and in those who pass it on: g++ 12 takes a call of it for one without effect.
  [[gnu::always_inline]] void prefetch(U64 h) const { __builtin_prefetch(segmentOf(h)->slots() + place(h)); }
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

  /// Followed by its slots. Several neighbours in the directory may lead to one segment, all those whose
  /// first `depth` bits are the same.
  struct alignas(64) Segment {
    U32 depth;
    U32 room;  // empty slots that may still be used
    Slot* slots() { return reinterpret_cast<Slot*>(this + 1); }
  };

  U32 slotCount() const { return U32{lastSlot_} + 1; }
  static U32 roomIn(U32 slots) { return slots / 4 * 3; }
  U32 place(U64 h) const { return static_cast<U32>(h >> (64 - mostSlotBits)) & lastSlot_; }
  U32 after(U32 at) const { return (at + 1) & lastSlot_; }
  U32 before(U32 at) const { return (at - 1) & lastSlot_; }
  U32 depth() const { return 63u - directoryShift_; }  // bits of the hash that the directory goes by
  U32 directorySize() const { return U32{1} << depth(); }
  U32 directoryPlace(U64 h) const { return static_cast<U32>((h << mostSlotBits) >> 1 >> directoryShift_); }
  Segment* segmentOf(U64 h) const { return directory_[directoryPlace(h)]; }
  void slotBitsAre(U32 bits) { lastSlot_ = static_cast<U16>((1u << bits) - 1); }
  void depthIs(U32 depth) { directoryShift_ = static_cast<U8>(63 - depth); }

  Segment* newSegment(U32 depth);
  static void deleteSegment(Segment* segment);
  void makeRoom(U64 h);
  void doubleDirectory();
  void distribute(Segment& from);
  /// Fills the first slot that is free, and calls `check` with what is in those before it.
  template <class Check>
  void put(Slot slot, U64 h, Check check);
  void putBack(Slot slot) {
    put(slot, hashIn(slot), [](Slot) {});
  }
  /// The hash of the member in a slot, as far as its place needs it.
  U64 hashIn(Slot s) const {
    if (mostSlotBits + depth() > tagBits) return memberOf(s)->fwkKey().hash();
    return (s & 0xFFFF000000000000) | (s & 0xF) << 44;
  }

  std::unique_ptr<Segment*[]> directory_;
  U16 lastSlot_ = 0;  // all segments have the same size; there is one only while that is not the greatest
  U8 directoryShift_ = 0;
};

template <class V>
void HashIndex<V>::make(U32 count) {
  clear();
  const U32 slots = std::bit_ceil(count + count / 2 + 1);
  const auto bits = static_cast<U32>(std::countr_zero(slots));
  slotBitsAre(std::min(bits, mostSlotBits));
  depthIs(bits - std::min(bits, mostSlotBits));
  directory_.reset(new Segment*[directorySize()]);
  for (U32 i = 0; i < directorySize(); ++i) directory_[i] = newSegment(depth());
}

template <class V>
void HashIndex<V>::clear() {
  for (U32 i = 0; exists() && i < directorySize();) {
    Segment* segment = directory_[i];
    i += U32{1} << (depth() - segment->depth);
    deleteSegment(segment);
  }
  directory_.reset();
}

template <class V>
typename HashIndex<V>::Segment* HashIndex<V>::newSegment(U32 depth) {
  const std::size_t bytes = sizeof(Segment) + slotCount() * sizeof(Slot);
  auto* segment =
      new (::operator new(bytes, std::align_val_t(alignof(Segment)))) Segment{depth, roomIn(slotCount())};
  std::fill_n(segment->slots(), slotCount(), emptySlot);
  return segment;
}

template <class V>
void HashIndex<V>::deleteSegment(Segment* segment) {
  ::operator delete(segment, std::align_val_t(alignof(Segment)));
}

template <class V>
void HashIndex<V>::enter(V* member, U64 h) {
  const auto bits = static_cast<Slot>(reinterpret_cast<std::uintptr_t>(member));
  ZAN_ASSERT((bits & tagMask) == 0);
  while (segmentOf(h)->room == 0) makeRoom(h);
  put(bits | tagOf(h), h, [&](Slot other) {
    ZAN_ASSERT_TEXT(!mayBe(other, h) || !(memberOf(other)->fwkKey() == member->fwkKey()),
                    "!lookup(member->fwkKey())");
  });
}

template <class V>
template <class Check>
void HashIndex<V>::put(Slot slot, U64 h, Check check) {
  Segment* segment = segmentOf(h);
  Slot* slots = segment->slots();
  U32 at = place(h);
  for (; holds(slots[at]); at = after(at)) check(slots[at]);
  segment->room -= slots[at] == emptySlot;
  slots[at] = slot;
}

/// A search must not end at the freed slot unless it would at the next one.
template <class V>
void HashIndex<V>::leave(V* member, U64 h) {
  Segment* segment = segmentOf(h);
  Slot* slots = segment->slots();
  U32 at = place(h);
  while (memberOf(slots[at]) != member) at = after(at);
  if (slots[after(at)] != emptySlot) {
    slots[at] = deletedSlot;
    return;
  }
  do {
    slots[at] = emptySlot;
    ++segment->room;
    at = before(at);
  } while (slots[at] == deletedSlot);
}

/// Gives the segment of `h` room: by clearing what removals left, by doubling the only one, or by a split.
template <class V>
void HashIndex<V>::makeRoom(U64 h) {
  Segment* full = segmentOf(h);
  if (std::count(full->slots(), full->slots() + slotCount(), deletedSlot) > slotCount() / 4) {
    return distribute(*full);
  }
  if (slotCount() < mostSlots) {
    const U32 hadSlots = slotCount();
    slotBitsAre(static_cast<U32>(std::bit_width(hadSlots)));
    directory_[0] = newSegment(0);
    for (U32 i = 0; i < hadSlots; ++i) {
      if (holds(full->slots()[i])) putBack(full->slots()[i]);
    }
    return deleteSegment(full);
  }
  if (full->depth == depth()) doubleDirectory();
  Segment* upper = newSegment(full->depth + 1);
  ++full->depth;
  const U32 leading = U32{1} << (depth() - full->depth);  // to each of the two
  const U32 first = directoryPlace(h) & ~(2 * leading - 1);
  std::fill_n(&directory_[first + leading], leading, upper);
  distribute(*full);
}

template <class V>
void HashIndex<V>::doubleDirectory() {
  std::unique_ptr<Segment*[]> larger(new Segment*[directorySize() * 2]);
  for (U32 i = 0; i < directorySize(); ++i) larger[2 * i] = larger[2 * i + 1] = directory_[i];
  directory_ = std::move(larger);
  depthIs(depth() + 1);
}

/// Enters the members of a segment again, where the directory now wants them.
template <class V>
void HashIndex<V>::distribute(Segment& from) {
  std::array<Slot, mostSlots> had;
  std::copy_n(from.slots(), slotCount(), had.begin());
  std::fill_n(from.slots(), slotCount(), emptySlot);
  from.room = roomIn(slotCount());
  for (U32 i = 0; i < slotCount(); ++i) {
    if (holds(had[i])) putBack(had[i]);
  }
}

}  // namespace Zan
