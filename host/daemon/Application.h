#pragma once

#include <string>
#include <vector>

#include "Connection.h"

namespace host::daemon {

/// What a daemon does besides serving clients. It has no loop: this is what the loop calls.
class Application {
 public:
  virtual ~Application() = default;

  /// To be polled for reading; the same ones as long as this lives.
  virtual std::vector<int> descriptors() const = 0;
  /// Does a bounded part (a millisecond or two) of what is due, after a descriptor became readable or the
  /// time has come. Returns when to be called again at the latest: `now` for at once, after clients had their
  /// turn. An exception ends the daemon.
  virtual Nanos turn(Nanos now) = 0;
  /// Whether a client has changed something since the last turn, so that another is due at once.
  virtual bool isWoken() const { return false; }
  /// Whether it can answer; the service manager is told when it first can.
  virtual bool isReady() const { return true; }
  /// The configuration is to be read again. Throws Error, which is logged, when it stays as it was.
  virtual void reload(Nanos now) { static_cast<void>(now); }
  /// One line on how it is, for the service manager.
  virtual std::string status() const { return {}; }
};

}  // namespace host::daemon
