#include "Server.h"

#include <algorithm>

namespace host::control {

Server::Server(Handler& handler, Info info, const Limits& limits)
    : service_(handler, std::move(info)), limits_(limits) {}

std::optional<Server::Id> Server::connect(const Peer& peer) {
  const std::size_t most = limits_.clients + (peer.uid == 0 ? limits_.rootClients : 0);
  if (connections_.size() >= most) return std::nullopt;
  connections_.emplace(++lastId_, Connection(peer));
  return lastId_;
}

void Server::received(Id id, std::string_view bytes, Nanos now) {
  const auto it = connections_.find(id);
  if (it == connections_.end()) return;
  it->second.received(bytes);
  it->second.serve(service_, limits_, now);
}

void Server::finished(Id id) {
  if (const auto it = connections_.find(id); it != connections_.end()) it->second.finished();
}

void Server::closed(Id id) {
  connections_.erase(id);
}

bool Server::wantsInput(Id id) const {
  const auto it = connections_.find(id);
  return it != connections_.end() && it->second.wantsInput(limits_);
}

std::string_view Server::output(Id id) const {
  const auto it = connections_.find(id);
  return it == connections_.end() ? std::string_view() : it->second.output();
}

void Server::sent(Id id, std::size_t size, Nanos now) {
  if (const auto it = connections_.find(id); it != connections_.end()) it->second.sent(size, now);
}

Server::Turn Server::turn(Nanos now) {
  Turn turn;
  for (auto it = connections_.begin(); it != connections_.end();) {
    Connection& connection = it->second;
    connection.serve(service_, limits_, now);
    if (auto why = connection.end(limits_, now)) {
      turn.dropped.push_back({it->first, std::move(*why)});
      it = connections_.erase(it);
    } else {
      turn.deadline = std::min(turn.deadline, connection.deadline(limits_, now));
      ++it;
    }
  }
  return turn;
}

}  // namespace host::control
