#include "Client.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Escape.h"
#include "Message.h"

namespace host::control {

using json = nlohmann::ordered_json;

namespace {

constexpr std::size_t longestReply = 64 << 20;
constexpr U32 deepestReply = 64;

[[noreturn]] void notAnswering(const std::string& path, const char* why) {
  throw NotAnswering(fmt::format("no mribd answers at {}: {}", escaped(path), why));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty()) notAnswering(path, "the path is empty");
  if (path.size() >= sizeof address.sun_path) notAnswering(path, "the path is too long");
  if (path.find('\0') != std::string::npos) notAnswering(path, "the path has a NUL");
  path.copy(address.sun_path, path.size());
  return address;
}

const char* reasonOf(int error) {
  switch (error) {
    case ENOENT:
      return "there is no such socket";
    case ECONNREFUSED:
      return "nobody listens";
    case EAGAIN:
      return "it is too busy";
    default:
      return std::strerror(error);
  }
}

/// Of sending, and of a connection that its backlog has no room for.
void limitSending(int fd, Client::Time patience) {
  timeval limit{};
  limit.tv_sec = patience.count() / 1000;
  limit.tv_usec = patience.count() % 1000 * 1000;
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void sendAll(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Error(fmt::format("{}: sending: {}", escaped(path), std::strerror(errno)));
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
}

/// A reply as an object, or a clear error.
json parseReply(std::string_view text, const std::string& path) {
  json reply = nestsDeeper(text, deepestReply) ? json() : json::parse(text, nullptr, false);
  const bool good = reply.is_object() && reply.value("parameters", json::object()).is_object();
  if (!good) throw Error(fmt::format("{}: what it sent is no reply", escaped(path)));
  return reply;
}

}  // namespace

RemoteError::RemoteError(std::string name, json parameters)
    : Error(fmt::format("{} {}", escaped(name), parameters.dump())),
      name_(std::move(name)),
      parameters_(std::move(parameters)) {}

Client::Client(const std::string& path, Time patience) : path_(path), patience_(patience) {
  const sockaddr_un address = addressOf(path);
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) notAnswering(path, std::strerror(errno));
  limitSending(fd_, patience);
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
  const int error = errno;
  close(fd_);
  notAnswering(path, reasonOf(error));
}

Client::~Client() {
  close(fd_);
}

json Client::call(std::string_view method, const json& parameters) {
  send(method, parameters);
  return next(patience_).parameters;
}

void Client::send(std::string_view method, const json& parameters, bool more) {
  json request{{"method", method}, {"parameters", parameters}};
  if (more) request["more"] = true;
  std::string bytes = request.dump(-1, ' ', false, json::error_handler_t::replace);
  bytes += '\0';
  sendAll(fd_, bytes, path_);
}

Client::Message Client::next(Time patience) {
  json reply = parseReply(message(patience), path_);
  json parameters = reply.value("parameters", json::object());
  if (const auto error = reply.find("error"); error != reply.end() && error->is_string()) {
    throw RemoteError(error->get<std::string>(), std::move(parameters));
  }
  const auto continues = reply.find("continues");
  return {std::move(parameters), continues != reply.end() && *continues == true};
}

/// The next message without its NUL; valid until the next call.
std::string_view Client::message(Time patience) {
  input_.pop(std::exchange(taken_, 0));
  std::size_t end = input_.bytes().find('\0');
  while (end == std::string_view::npos) {
    const std::size_t searched = input_.size();
    receive(patience);
    end = input_.bytes().find('\0', searched);
  }
  taken_ = end + 1;
  return input_.bytes().substr(0, end);
}

void Client::receive(Time patience) {
  pollfd readable{fd_, POLLIN, 0};
  const int wait = patience == forever ? -1 : static_cast<int>(patience.count());
  const int ready = poll(&readable, 1, wait);
  if (ready == 0) throw Error(fmt::format("{}: no answer within {} ms", escaped(path_), patience.count()));
  std::array<char, 64 << 10> buffer;  // NOLINT: filled by recv
  const ssize_t n = ready < 0 ? -1 : recv(fd_, buffer.data(), buffer.size(), 0);
  if (n < 0 && errno == EINTR) return;
  if (n < 0) throw Error(fmt::format("{}: {}", escaped(path_), std::strerror(errno)));
  if (n == 0)
    throw Error(escaped(path_) + ": mribd closed the connection (it ended, or has too many clients)");
  input_.buffer().append(buffer.data(), static_cast<std::size_t>(n));
  if (input_.size() > longestReply) throw Error(escaped(path_) + ": its reply is too long");
}

}  // namespace host::control
