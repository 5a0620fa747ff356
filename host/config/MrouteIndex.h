#pragma once

#include <vector>

#include "Configuration.h"

namespace host {

/// Whether two lines configure the same route; where they were written makes no difference.
bool isSame(const MrouteLine& a, const MrouteLine& b);

/// Finds routes by what they say among lines that somebody else holds. Open addresses with linear probing: a
/// word for each line, half of it from the hash.
class MrouteIndex {
 public:
  static constexpr U32 none = ~U32{0};

  /// The lines may be added to, but not moved, and must outlive this. Those that are there are entered.
  explicit MrouteIndex(const std::vector<MrouteLine>& lines);
  /// Makes room for so many lines.
  void reserve(std::size_t count) {
    if (count * 2 > slots_.size()) grow(count);
  }
  /// The place of the same route, or `none`.
  U32 find(const MrouteLine& line) const;
  /// Enters the line at `place`, unless the same is there: its place.
  U32 enter(U32 place);
  /// Does not find the line any more that `find` has found for this one.
  void remove(const MrouteLine& line);

 private:
  std::size_t slotOf(const MrouteLine& line, U64 hash) const;
  std::size_t home(U64 hash) const { return static_cast<std::size_t>(hash >> shift_); }
  std::size_t next(std::size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  void grow(std::size_t count);

  const std::vector<MrouteLine>& lines_;
  std::vector<U64> slots_;  // half the hash and the place, counted from 1; 0: free
  std::size_t used_ = 0;    // with those that were removed
  int shift_ = 0;
};

}  // namespace host
