#include "Clients.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Error.h"
#include "Loop.h"

namespace host::daemon {

namespace {

constexpr std::size_t readSize = 64 << 10;
constexpr int acceptsATime = 16;
constexpr Nanos acceptPause = 100'000'000;

bool isTransient(int error) {
  return error == EAGAIN || error == EINTR || error == ECONNABORTED;
}

}  // namespace

Clients::Clients(uv_loop_t& loop, control::Server& server, const Listener& listener, Log& log)
    : loop_(loop),
      server_(server),
      listener_(listener),
      log_(log),
      buffer_(readSize),
      listening_(loop, listener.fd(), [this](int) { accept(); }) {
  listening_.want(UV_READABLE);
}

Nanos Clients::turn(Nanos now) {
  removeGone();
  const auto turn = server_.turn(now);
  removeDropped(turn, now);
  Nanos due = std::min(turn.deadline, acceptAt_);
  for (auto& [id, client] : clients_) {
    if (!client.blocked && flush(id, client)) due = now;  // then there is room for more
    if (client.gone) due = now;
    watch(id, client);
  }
  if (now >= acceptAt_) {
    acceptAt_ = ~Nanos{0};
    listening_.want(UV_READABLE);
  }
  return due;
}

void Clients::accept() {
  for (int i = 0; i < acceptsATime; ++i) {
    Descriptor socket = listener_.accept();
    if (socket.get() < 0) {
      if (!isTransient(errno)) pauseAccepting(std::strerror(errno));
      return;
    }
    admit(std::move(socket));
  }
}

void Clients::admit(Descriptor socket) {
  const control::Peer peer = listener_.peerOf(socket.get());
  const auto id = server_.connect(peer);
  if (!id) {
    log_.write(Level::warning, fmt::format("a client of user {} is one too many", peer.uid), monotonicNow());
    return;
  }
  try {
    Client& client = clients_[*id];
    client.uid = peer.uid;
    client.socket = std::move(socket);
    client.poll = std::make_unique<Poll>(loop_, client.socket.get(), [this, id](int e) { ready(*id, e); });
    watch(*id, client);
  } catch (const Error& e) {
    clients_.erase(*id);
    server_.closed(*id);
    pauseAccepting(e.what());
  }
}

void Clients::pauseAccepting(const char* why) {
  const Nanos now = monotonicNow();
  log_.write(Level::error, fmt::format("no client can be accepted: {}", why), now);
  listening_.want(0);
  acceptAt_ = now + acceptPause;
}

/// A client that has hung up is seen as ready for everything, and found out by reading or writing; when there
/// is nothing to read or write, by what no socket of this kind is ever ready for.
void Clients::ready(Id id, int events) {
  Client& client = clients_.at(id);
  if (events == 0 || events == UV_PRIORITIZED) client.gone = true;
  if ((events & UV_READABLE) != 0) read(id, client);
  if ((events & UV_WRITABLE) != 0) client.blocked = false;
  if (!client.blocked && !client.gone) flush(id, client);
}

void Clients::read(Id id, Client& client) {
  const ssize_t n = recv(client.socket.get(), buffer_.data(), buffer_.size(), 0);
  if (n > 0) server_.received(id, {buffer_.data(), static_cast<std::size_t>(n)}, monotonicNow());
  if (n == 0) server_.finished(id);
  if (n < 0 && !isTransient(errno)) client.gone = true;
}

/// True when something was sent.
bool Clients::flush(Id id, Client& client) {
  const std::string_view output = server_.output(id);
  if (output.empty()) return false;
  const ssize_t n = send(client.socket.get(), output.data(), output.size(), MSG_NOSIGNAL);
  if (n < 0 && !isTransient(errno)) client.gone = true;
  client.blocked = n < static_cast<ssize_t>(output.size());
  if (n > 0) server_.sent(id, static_cast<std::size_t>(n), monotonicNow());
  return n > 0;
}

void Clients::watch(Id id, Client& client) {
  client.poll->want(UV_PRIORITIZED | (server_.wantsInput(id) ? UV_READABLE : 0) |
                    (client.blocked ? UV_WRITABLE : 0));
}

void Clients::removeDropped(const control::Server::Turn& turn, Nanos now) {
  for (const auto& [id, why] : turn.dropped) {
    const auto it = clients_.find(id);
    if (!why.empty()) {
      log_.write(Level::warning, fmt::format("a client of user {} is dropped: {}", it->second.uid, why), now);
    }
    clients_.erase(it);
  }
}

void Clients::removeGone() {
  for (auto it = clients_.begin(); it != clients_.end();) {
    if (it->second.gone) server_.closed(it->first);
    it = it->second.gone ? clients_.erase(it) : std::next(it);
  }
}

}  // namespace host::daemon
