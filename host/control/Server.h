#pragma once

#include <map>

#include "Connection.h"

namespace host::control {

/// The connections of a service. Pure logic: no socket and no clock. Whoever drives it hands in what clients
/// send and takes what they are sent; all times are monotonic nanoseconds.
///
/// The order of business: `received` answers at once, but only a bounded number of requests; `turn` goes on
/// with the rest, and asks streams for what is new. So it is to be called after everything that may have
/// something new for a stream, and when its deadline is there.
class Server {
 public:
  /// Never used twice.
  using Id = U64;
  static constexpr Nanos never = ~Nanos{0};

  /// A connection that is to be closed. The server has forgotten it.
  struct Dropped {
    Id id = 0;
    std::string why;  ///< the client's fault; empty when it is none
  };
  struct Turn {
    Nanos deadline = never;  ///< when to call again at the latest, `now` for at once
    std::vector<Dropped> dropped;
  };

  /// `handler` outlives this, and the streams that it hands out do not outlive this.
  Server(Handler& handler, Info info, const Limits& limits = {});

  /// A new client; nothing when there is no room for it.
  std::optional<Id> connect(const Peer& peer);
  /// What a client sent, in pieces of any size.
  void received(Id id, std::string_view bytes, Nanos now);
  /// The client sends no more, but may read.
  void finished(Id id);
  /// The client is gone.
  void closed(Id id);

  /// Whether to read from the client. False while it has to take or await answers first.
  bool wantsInput(Id id) const;
  /// What is to be sent; valid until the next call of anything else for this connection, or of `turn`.
  std::string_view output(Id id) const;
  /// The first `size` bytes of it were.
  void sent(Id id, std::size_t size, Nanos now);

  Turn turn(Nanos now);

  std::size_t clients() const { return connections_.size(); }
  const Limits& limits() const { return limits_; }

 private:
  Service service_;
  Limits limits_;
  std::map<Id, Connection> connections_;
  Id lastId_ = 0;
};

}  // namespace host::control
