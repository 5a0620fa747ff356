#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Zan/Types.h"

// What all fuzz targets share. Each is one file that makes a `Target`; a fuzzer runs the only one that it is
// linked with, a test replays the corpora of all that it is.

namespace fuzz {

using Bytes = std::span<const U8>;

struct Target {
  const char* name;  ///< and the folder of its corpus
  void (*run)(Bytes);

  Target(const char* n, void (*r)(Bytes)) : name(n), run(r) { all().push_back(*this); }
  static std::vector<Target>& all() {
    static std::vector<Target> targets;
    return targets;
  }
};

/// What a target has found wrong.
inline void must(bool holds) {
  if (!holds) std::abort();
}

inline std::string_view textOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline std::vector<std::string> split(std::string_view text, char at) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    parts.emplace_back(text.substr(0, text.find(at)));
    text.remove_prefix(std::min(text.size(), parts.back().size() + 1));
  }
  return parts;
}

/// Random numbers for a world that random events change: from a seed, or one from each of a fuzzer's bytes,
/// and when these are used up as from a seed.
class Dice {
 public:
  using result_type = U64;
  static constexpr U64 min() { return 0; }
  static constexpr U64 max() { return std::numeric_limits<U64>::max(); }

  explicit Dice(U64 seed) : state_(seed) {}
  explicit Dice(Bytes bytes) : bytes_(bytes), isFuzzed_(true) {}

  /// SplitMix64 (Steele, Lea and Flood 2014).
  U64 operator()() {
    if (!bytes_.empty()) return byte();
    U64 z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
  }
  bool isOver() const { return isFuzzed_ && bytes_.empty(); }

 private:
  U64 byte() {
    const U8 first = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return first;
  }

  Bytes bytes_;
  U64 state_ = 0;
  bool isFuzzed_ = false;
};

}  // namespace fuzz
