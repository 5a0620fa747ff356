#pragma once

#include <string>

#include "Connection.h"

namespace host::daemon {

/// The service manager that started this process, if one did and wants to hear of it (NOTIFY_SOCKET,
/// WATCHDOG_USEC). Without one everything here does nothing.
class Manager {
 public:
  /// Reads the environment.
  Manager();
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  bool isThere() const { return fd_ >= 0; }
  void ready(const std::string& status);
  void reloading(Nanos now);
  void stopping();
  void status(const std::string& text);
  /// Tells it that the loop runs, when that is due. Returns when it next is, ~0 for never.
  Nanos alive(Nanos now);

 private:
  void tell(const std::string& message) const;

  std::string address_;  // as the kernel takes it: an abstract one begins with NUL
  int fd_ = -1;
  Nanos interval_ = 0;
  Nanos due_ = 0;
  std::string status_;
};

}  // namespace host::daemon
