#pragma once

#include <map>
#include <vector>

#include "Listener.h"
#include "Log.h"
#include "Poll.h"
#include "Server.h"

namespace host::daemon {

/// Carries bytes between the sockets of clients and the server.
class Clients {
 public:
  Clients(uv_loop_t& loop, control::Server& server, const Listener& listener, Log& log);

  /// What is due, after everything that may have something new for a client. Returns when to be called again
  /// at the latest.
  Nanos turn(Nanos now);

 private:
  using Id = control::Server::Id;
  struct Client {
    Descriptor socket;
    U32 uid = 0;
    std::unique_ptr<Poll> poll;  // closed before the socket
    bool blocked = false;        // its socket takes no more for now
    bool gone = false;
  };

  void accept();
  void admit(Descriptor socket);
  void pauseAccepting(const char* why);
  void ready(Id id, int events);
  void read(Id id, Client& client);
  bool flush(Id id, Client& client);
  void watch(Id id, Client& client);
  void removeDropped(const control::Server::Turn& turn, Nanos now);
  void removeGone();

  uv_loop_t& loop_;
  control::Server& server_;
  const Listener& listener_;
  Log& log_;
  std::vector<char> buffer_;
  std::map<Id, Client> clients_;
  Poll listening_;
  Nanos acceptAt_ = ~Nanos{0};  // again, after the system had no descriptor for a client
};

}  // namespace host::daemon
