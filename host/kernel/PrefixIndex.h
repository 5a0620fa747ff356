#pragma once

#include <utility>
#include <vector>

#include "Zan/Types.h"

namespace host::kernel {

/// Finds numbered things by hash: an open table of their numbers, four bytes a slot, with linear probing. The
/// things themselves lie in an array of the caller, who says whether one is meant and how one hashes.
///
/// A table that is half full gets a successor of twice the size, into which each later change moves a few: no
/// change costs more than another, but for the memory of the successor.
class PrefixIndex {
 public:
  static constexpr U32 nothing = ~U32{0};

  /// The number for which `matches(number)` holds, or `nothing`.
  template <class Matches>
  U32 find(U64 hash, Matches matches) const {
    const U32 found = findIn(slots_, hash, matches);
    return found == nothing && !former_.empty() ? findIn(former_, hash, matches) : found;
  }
  template <class HashOf>
  void enter(U32 number, U64 hash, HashOf hashOf) {
    if ((used_ + 1) * 2 > slots_.size()) grow(hashOf);
    move(stepsAChange, hashOf);
    put(number, hash);
    ++used_;
  }
  template <class HashOf>
  void leave(U32 number, U64 hash, HashOf hashOf) {
    move(stepsAChange, hashOf);
    --used_;
    std::size_t gap = place(slots_, hash);
    while (slots_[gap] != number && slots_[gap] != empty) gap = after(slots_, gap);
    if (slots_[gap] == number) return closeGap(gap, hashOf);
    std::size_t at = place(former_, hash);
    while (former_[at] != number) at = after(former_, at);
    former_[at] = moved;
  }

 private:
  using Slots = std::vector<U32>;

  static constexpr U32 empty = nothing;
  static constexpr U32 moved = nothing - 1;
  static constexpr std::size_t firstSize = 64;
  static constexpr std::size_t stepsAChange = 16;  // 2 would do

  static std::size_t place(const Slots& slots, U64 hash) { return hash & (slots.size() - 1); }
  static std::size_t after(const Slots& slots, std::size_t at) { return (at + 1) & (slots.size() - 1); }

  template <class Matches>
  static U32 findIn(const Slots& slots, U64 hash, Matches matches) {
    if (slots.empty()) return nothing;
    for (std::size_t at = place(slots, hash); slots[at] != empty; at = after(slots, at)) {
      if (slots[at] != moved && matches(slots[at])) return slots[at];
    }
    return nothing;
  }
  /// Moves those behind it up, so that no search ends at the gap (Knuth, TAOCP 3, 6.4, algorithm R).
  template <class HashOf>
  void closeGap(std::size_t gap, HashOf hashOf) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = after(slots_, gap); slots_[at] != empty; at = after(slots_, at)) {
      const std::size_t home = place(slots_, hashOf(slots_[at]));
      if (((at - home) & mask) < ((at - gap) & mask)) continue;
      slots_[gap] = slots_[at];
      gap = at;
    }
    slots_[gap] = empty;
  }
  void put(U32 number, U64 hash) {
    std::size_t at = place(slots_, hash);
    while (slots_[at] != empty) at = after(slots_, at);
    slots_[at] = number;
  }
  template <class HashOf>
  void grow(HashOf hashOf) {
    move(former_.size(), hashOf);
    former_ = std::exchange(slots_, Slots(slots_.empty() ? firstSize : slots_.size() * 2, empty));
    moveAt_ = 0;
  }
  /// Looks at so many slots of the former table, and moves what is in them.
  template <class HashOf>
  void move(std::size_t steps, HashOf hashOf) {
    for (; steps > 0 && moveAt_ < former_.size(); --steps, ++moveAt_) {
      U32& slot = former_[moveAt_];
      if (slot == empty) continue;
      if (slot != moved) put(slot, hashOf(slot));
      slot = moved;
    }
    if (moveAt_ == former_.size()) Slots().swap(former_);
  }

  Slots slots_;
  Slots former_;
  std::size_t moveAt_ = 0;  // those before are moved
  std::size_t used_ = 0;    // in both
};

}  // namespace host::kernel
