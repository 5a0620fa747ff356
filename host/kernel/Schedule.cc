#include "Schedule.h"

#include <algorithm>
#include <utility>

namespace host::kernel {

namespace {

constexpr U64 largeShare = 5;   // a reading takes a fifth of the time at most,
constexpr U64 smallShare = 20;  // and where it is a twentieth or less, it need not wait for the interval

}  // namespace

std::string_view nameOf(Reason reason) {
  static constexpr std::array<std::string_view, reasonCount> names{
      "start",       "overrun",      "malformed", "truncated", "link-state",  "link-gone", "address-gone",
      "address-new", "nexthop-gone", "setting",   "mismatch",  "interrupted", "refused",   "audit"};
  return names[static_cast<std::size_t>(reason)];
}

void Schedule::dirty(Reason reason, Nanos now) {
  if (!std::exchange(pending_.any, true)) pending_.since = now;
  pending_.reasons[static_cast<std::size_t>(reason)] = true;
}

Nanos Schedule::due() const {
  if (!pending_.any) return std::max(auditAt_, earliest_);
  const bool first = pending_.reasons[static_cast<std::size_t>(Reason::start)];
  return std::max(pending_.since + (first ? 0 : settings_.coalesce), earliest_);
}

void Schedule::started(Nanos now) {
  runningForCause_ = pending_.any;
  if (!pending_.any) pending_.reasons[static_cast<std::size_t>(Reason::audit)] = true;
  for (std::size_t i = 0; i < reasonCount; ++i) resyncs_[i] += pending_.reasons[i];
  pending_ = {};
  startedAt_ = now;
}

void Schedule::ended(Nanos now) {
  runningForCause_ = false;
  lastDuration_ = now - startedAt_;
  const Nanos least = std::min(settings_.interval, lastDuration_ * smallShare);
  earliest_ = std::min(startedAt_ + std::max(lastDuration_ * largeShare, least), now + settings_.rest);
  auditAt_ = now + settings_.audit;
}

void Schedule::failed(Nanos now) {
  ended(now);
  earliest_ = now + settings_.interval;
  dirty(Reason::refused, now);
}

}  // namespace host::kernel
