#include "Poll.h"

#include <string>
#include <utility>

#include "Error.h"

namespace host::daemon {

Poll::Poll(uv_loop_t& loop, int fd, Callback callback)
    : handle_(new uv_poll_t), callback_(std::move(callback)) {
  if (const int error = uv_poll_init(&loop, handle_, fd); error < 0) {
    delete handle_;
    throw Error(std::string("poll: ") + uv_strerror(error));
  }
  handle_->data = this;
}

Poll::~Poll() {
  uv_poll_stop(handle_);
  uv_close(reinterpret_cast<uv_handle_t*>(handle_),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_poll_t*>(handle); });
}

void Poll::want(int events) {
  if (std::exchange(wanted_, events) != events) watch();
}

/// The loop stops watching a descriptor in error, but an error need not be the end: that of a netlink socket
/// says that messages were lost, and more will come.
void Poll::watch() {
  if (wanted_ == 0) {
    uv_poll_stop(handle_);
    return;
  }
  uv_poll_start(handle_, wanted_, [](uv_poll_t* handle, int status, int ready) {
    Poll& self = *static_cast<Poll*>(handle->data);
    if (status < 0) self.watch();
    self.callback_(status < 0 ? 0 : ready);
  });
}

}  // namespace host::daemon
