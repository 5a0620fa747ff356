#include "LiveMirror.h"

#include <net/if.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "Error.h"
#include "Escape.h"
#include "Message.h"
#include "Names.h"

namespace host::kernel {

namespace {

constexpr std::size_t bufferSize = 128 << 10;  // the kernel fills 32 KiB with a part of a dump
constexpr int eventsATurn = 500;
constexpr U32 mostPostponed = 20;  // turns that an answer waits behind events
constexpr U64 mostRefusals = 3;    // before a one-shot reading gives up

}  // namespace

LiveMirror::LiveMirror(const Mirror::Settings& settings, Nanos now)
    : mirror_(settings, now), eventBuffer_(bufferSize), answerBuffer_(bufferSize) {}

/// An answer is handled when all events that came before it have been: then what it says beyond them is what
/// no event told. But it does not wait for ever.
Nanos LiveMirror::turn(Nanos now) {
  if (answer_.outcome == NetlinkSocket::Outcome::nothing) readAnswer();
  current_ = readEvents(now);
  if (!current_ && ++postponed_ < mostPostponed) return now;
  postponed_ = 0;
  const bool answered = answer_.outcome != NetlinkSocket::Outcome::nothing;
  if (answered) handleAnswer(now);
  const auto until = act(now);
  return answered ? now : until.value_or(now);
}

/// True when none is left.
bool LiveMirror::readEvents(Nanos now) {
  using Outcome = NetlinkSocket::Outcome;
  for (int i = 0; i < eventsATurn; ++i) {
    const auto received = events_.receive(eventBuffer_);
    if (received.outcome == Outcome::nothing) return true;
    if (received.outcome == Outcome::lost) mirror_.lost(Reason::overrun, now);
    if (received.outcome == Outcome::truncated) mirror_.lost(Reason::truncated, now);
    foreign_ += received.outcome == Outcome::foreign;
    parseMessages(received.bytes, [&](Event&& event) { mirror_.event(std::move(event), now); });
  }
  return false;
}

void LiveMirror::readAnswer() {
  answer_ = answers_.receive(answerBuffer_);
}

void LiveMirror::handleAnswer(Nanos now) {
  using Outcome = NetlinkSocket::Outcome;
  const auto received = std::exchange(answer_, {});
  foreign_ += received.outcome == Outcome::foreign;
  if (received.outcome == Outcome::lost || received.outcome == Outcome::truncated) {
    mirror_.answered({0, 0, Malformed{"a part of a dump is missing"}}, now);
  }
  parseMessages(received.bytes, [&](Event&& event) { mirror_.answered(std::move(event), now); });
}

/// Does what the mirror asks for. Nothing: call again at once.
std::optional<Nanos> LiveMirror::act(Nanos now) {
  for (;;) {
    const Mirror::Action action = mirror_.next(now);
    switch (action.kind) {
      case Mirror::Action::Kind::subscribe:
        events_.subscribe();
        break;
      case Mirror::Action::Kind::dump:
        answers_.request(action.dump, action.sequence, mirror_.settings().table);
        break;
      case Mirror::Action::Kind::proceed:
        return std::nullopt;
      case Mirror::Action::Kind::wait:
        return action.until;
    }
  }
}

void readAll(LiveMirror& live) {
  constexpr Nanos million = milliseconds(1);
  for (;;) {
    const Nanos now = monotonicNow();
    const Nanos until = live.turn(now);
    if (live.mirror().isSynced()) return;
    if (live.mirror().counters().resyncs[static_cast<std::size_t>(Reason::refused)] >= mostRefusals) {
      throw Error("kernel: it does not answer requests for its tables");
    }
    if (until <= now) continue;
    pollfd fds[] = {{live.eventFd(), POLLIN, 0}, {live.answerFd(), POLLIN, 0}};
    const auto wait = static_cast<int>(std::min<Nanos>((until - now) / million + 1, 1000));
    if (poll(fds, 2, wait) < 0 && errno != EINTR) throw Error("kernel: poll failed");
  }
}

U32 tableOf(const std::string& table, const std::string& vrf) {
  if (vrf.empty()) {
    const auto number = tableNumber(table.empty() ? "main" : table);
    if (!number) throw Error("there is no table \"" + escaped(table) + '"');
    return *number;
  }
  LiveMirror live({}, monotonicNow());
  readAll(live);
  const Link* link = live.mirror().topology().link(if_nametoindex(vrf.c_str()));
  if (!link || link->vrfTable == 0) throw Error("there is no VRF \"" + escaped(vrf) + '"');
  return link->vrfTable;
}

}  // namespace host::kernel
