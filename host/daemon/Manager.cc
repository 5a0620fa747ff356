#include "Manager.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "Escape.h"

namespace host::daemon {

namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT: there is one thread
  return value ? value : "";
}

/// 0 when there is no such number.
U64 environmentNumber(const char* name) {
  const std::string_view text = environment(name);
  U64 number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() ? number : 0;
}

/// Half of the time after which the manager takes this process for dead; 0 when it does not care.
Nanos watchdogInterval() {
  const U64 pid = environmentNumber("WATCHDOG_PID");
  const bool ours = pid == 0 || pid == static_cast<U64>(getpid());
  return ours ? environmentNumber("WATCHDOG_USEC") * 1000 / 2 : 0;
}

}  // namespace

Manager::Manager() : address_(environment("NOTIFY_SOCKET")) {
  const bool known = !address_.empty() && (address_[0] == '/' || address_[0] == '@');
  if (!known || address_.size() >= sizeof(sockaddr_un::sun_path)) return;
  if (address_[0] == '@') address_[0] = '\0';
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  interval_ = watchdogInterval();
}

Manager::~Manager() {
  if (fd_ >= 0) close(fd_);
}

void Manager::ready(const std::string& status) {
  status_ = escaped(status);
  tell("READY=1\nSTATUS=" + status_);
}

void Manager::reloading(Nanos now) {
  tell(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now / 1000));
}

void Manager::stopping() {
  tell("STOPPING=1");
}

void Manager::status(const std::string& text) {
  if (!isThere() || escaped(text) == status_) return;
  status_ = escaped(text);
  tell("STATUS=" + status_);
}

Nanos Manager::alive(Nanos now) {
  if (!isThere() || interval_ == 0) return ~Nanos{0};
  if (now >= due_) {
    tell("WATCHDOG=1");
    due_ = now + interval_;
  }
  return due_;
}

void Manager::tell(const std::string& message) const {
  if (!isThere()) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  address_.copy(address.sun_path, address_.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
  sendto(fd_, message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
         size);
}

}  // namespace host::daemon
