#pragma once

#include <optional>

#include "NetlinkSocket.h"

namespace host::kernel {

/// A mirror of the kernel that this process runs on (of its network namespace). It has no loop: its owner
/// polls two descriptors for reading and calls `turn` when one is ready or a time has come. No privilege is
/// needed; with CAP_NET_ADMIN larger bursts of changes are taken without loss.
class LiveMirror {
 public:
  LiveMirror(const Mirror::Settings& settings, Nanos now);

  /// Reads a bounded amount of what there is, and does what is due. Returns when to be called again at the
  /// latest, `now` for at once. About a millisecond at most. Throws Error when a socket fails.
  Nanos turn(Nanos now);

  /// Of notifications, and of answers to requests; the same ones as long as this lives.
  int eventFd() const { return events_.fd(); }
  int answerFd() const { return answers_.fd(); }

  /// Whether the last turn came to the end of all events that there were.
  bool isCurrent() const { return current_; }

  Mirror& mirror() { return mirror_; }
  const Mirror& mirror() const { return mirror_; }
  /// Datagrams that another process sent.
  U64 foreign() const { return foreign_; }

 private:
  bool readEvents(Nanos now);
  void readAnswer();
  void handleAnswer(Nanos now);
  std::optional<Nanos> act(Nanos now);

  Mirror mirror_;
  NetlinkSocket events_;
  NetlinkSocket answers_;
  std::vector<U8> eventBuffer_;
  std::vector<U8> answerBuffer_;
  NetlinkSocket::Received answer_;  // received and not yet handled
  U32 postponed_ = 0;
  bool current_ = false;
  U64 foreign_ = 0;
};

/// Waits until a mirror has read everything once. Throws Error when the kernel does not answer.
void readAll(LiveMirror& live);

/// The number of a table by its name or number, or of the table of a VRF device; the main one when both are
/// empty. Throws Error when there is none.
U32 tableOf(const std::string& table, const std::string& vrf);

}  // namespace host::kernel
