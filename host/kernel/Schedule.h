#pragma once

#include <array>
#include <optional>

#include "Values.h"

namespace host::kernel {

/// Why the kernel has to be read again.
enum class Reason : U8 {
  start,
  overrun,    ///< events were lost
  malformed,  ///< a message could not be read
  truncated,  ///< a message was larger than the buffer
  linkState,  ///< a link went up or down, gained or lost carrier, or has another master
  linkGone,
  addressGone,
  addressNew,  ///< the first of a link: what leads out by it may be usable again
  nextHopGone,
  setting,      ///< of an interface, and it may make next hops usable or not
  mismatch,     ///< an event did not fit what was known
  interrupted,  ///< a dump was, again and again
  refused,      ///< a dump was not answered, or with an error
  audit
};
inline constexpr std::size_t reasonCount = static_cast<std::size_t>(Reason::audit) + 1;
std::string_view nameOf(Reason reason);

/// When to read the kernel again.
///
/// Changes come in bursts, so a reading waits for 50 ms after the first. Readings of a small table may follow
/// each other at once; those of a large one must not take more than a fifth of the time, and never start
/// within a second of each other unless they are worth less than a twentieth of it. A kernel that is busy
/// with itself (it takes down ten thousand links) lets a reading take long that is little work, so there is
/// an end to the pause.
class Schedule {
 public:
  struct Settings {
    Nanos coalesce = milliseconds(50);
    Nanos interval = seconds(1);
    Nanos audit = seconds(60);
    Nanos rest = seconds(10);  ///< at most, after a reading that took long
  };

  explicit Schedule(const Settings& settings) : settings_(settings) {}

  void dirty(Reason reason, Nanos now);
  bool isDirty() const { return pending_.any; }
  /// When the next reading is to start.
  Nanos due() const;
  void started(Nanos now);
  /// A reading that failed is due again, with `reason`.
  void ended(Nanos now);
  void failed(Nanos now);

  /// Whether the reading that runs, if one does, has a cause other than the audit.
  bool isRunningForCause() const { return runningForCause_; }
  Nanos lastDuration() const { return lastDuration_; }
  const std::array<U64, reasonCount>& resyncs() const { return resyncs_; }

 private:
  struct Pending {
    bool any = false;
    std::array<bool, reasonCount> reasons{};
    Nanos since = 0;
  };

  Settings settings_;
  Pending pending_;
  Nanos startedAt_ = 0;
  Nanos earliest_ = 0;  // for any reading
  Nanos auditAt_ = ~Nanos{0};
  Nanos lastDuration_ = 0;
  bool runningForCause_ = false;
  std::array<U64, reasonCount> resyncs_{};
};

}  // namespace host::kernel
