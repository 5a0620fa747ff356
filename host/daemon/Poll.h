#pragma once

#include <uv.h>

#include <functional>

namespace host::daemon {

/// Watches a descriptor by a loop; not after its destruction. The callback must not destroy it.
class Poll {
 public:
  /// With UV_READABLE and so on, or 0 when the descriptor is in error, which is watched on until its owner
  /// says otherwise.
  using Callback = std::function<void(int events)>;

  /// Throws Error.
  Poll(uv_loop_t& loop, int fd, Callback callback);
  ~Poll();
  Poll(const Poll&) = delete;
  Poll& operator=(const Poll&) = delete;

  /// Watches for these; 0 for nothing. A hang-up counts as all of them.
  void want(int events);

 private:
  void watch();

  uv_poll_t* handle_;  // of the loop, until that has closed it
  Callback callback_;
  int wanted_ = 0;
};

}  // namespace host::daemon
