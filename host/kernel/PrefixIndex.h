#pragma once

#include <vector>

#include "Zan/Types.h"

namespace host::kernel {

/// Finds numbered things by hash: an open table of their numbers, four bytes a slot, with linear probing. The
/// things themselves lie in an array of the caller, who says whether one is meant and how one hashes.
class PrefixIndex {
 public:
  static constexpr U32 nothing = ~U32{0};

  /// The number for which `matches(number)` holds, or `nothing`.
  template <class Matches>
  U32 find(U64 hash, Matches matches) const {
    if (slots_.empty()) return nothing;
    for (std::size_t at = place(hash); slots_[at] != empty; at = after(at)) {
      if (matches(slots_[at])) return slots_[at];
    }
    return nothing;
  }
  template <class HashOf>
  void enter(U32 number, U64 hash, HashOf hashOf) {
    if ((used_ + 1) * 2 > slots_.size()) grow(hashOf);
    put(number, hash);
    ++used_;
  }
  /// Moves those behind it up, so that no search ends at the gap (Knuth, TAOCP 3, 6.4, algorithm R).
  template <class HashOf>
  void leave(U32 number, U64 hash, HashOf hashOf) {
    std::size_t gap = place(hash);
    while (slots_[gap] != number) gap = after(gap);
    for (std::size_t at = after(gap); slots_[at] != empty; at = after(at)) {
      const std::size_t home = place(hashOf(slots_[at]));
      if (((at - home) & mask()) < ((at - gap) & mask())) continue;
      slots_[gap] = slots_[at];
      gap = at;
    }
    slots_[gap] = empty;
    --used_;
  }

 private:
  static constexpr U32 empty = nothing;
  static constexpr std::size_t firstSize = 64;

  std::size_t mask() const { return slots_.size() - 1; }
  std::size_t place(U64 hash) const { return hash & mask(); }
  std::size_t after(std::size_t at) const { return (at + 1) & mask(); }
  void put(U32 number, U64 hash) {
    std::size_t at = place(hash);
    while (slots_[at] != empty) at = after(at);
    slots_[at] = number;
  }
  template <class HashOf>
  void grow(HashOf hashOf) {
    std::vector<U32> had(slots_.empty() ? firstSize : slots_.size() * 2, empty);
    had.swap(slots_);
    for (const U32 number : had) {
      if (number != empty) put(number, hashOf(number));
    }
  }

  std::vector<U32> slots_;
  std::size_t used_ = 0;
};

}  // namespace host::kernel
