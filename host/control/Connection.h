#pragma once

#include "Clock.h"
#include "Queue.h"
#include "Service.h"

namespace host::control {

/// What one client may ask of a service. Times in nanoseconds.
struct Limits {
  std::size_t clients = 64;
  std::size_t rootClients = 1;       ///< more, for root
  std::size_t request = 64 << 10;    ///< bytes of one, without its NUL
  U32 nesting = 32;                  ///< of its JSON
  std::size_t queue = 8 << 20;       ///< bytes that wait for the client; with more it is dropped
  std::size_t room = 256 << 10;      ///< bytes that wait for it, beyond which it is served no further
  Nanos reading = 30'000'000'000;    ///< that it may go without taking any of them
  Nanos finishing = 10'000'000'000;  ///< from the first byte of a request to its last
  U32 batch = 32;                    ///< replies to one client before the next one is served
};

/// One client: its requests, which are answered one after the other, and the replies it has not yet taken.
class Connection {
 public:
  explicit Connection(const Peer& peer) : peer_(peer) {}

  void received(std::string_view bytes);
  void finished() { finished_ = true; }
  bool wantsInput(const Limits& limits) const;
  std::string_view output() const { return output_.bytes(); }
  void sent(std::size_t size, Nanos now);

  /// Answers at most a batch of what there is.
  void serve(Service& service, const Limits& limits, Nanos now);
  /// When there is something to do at the latest; `now` for at once, ~0 for never.
  Nanos deadline(const Limits& limits, Nanos now) const;
  /// Whether it is over, and whose fault that is: an empty text when it is none.
  std::optional<std::string> end(const Limits& limits, Nanos now) const;

 private:
  bool hasRoom(const Limits& limits) const { return output_.size() < limits.room; }
  bool step(Service& service, const Limits& limits);
  bool pull();
  void answer(Service& service, std::string_view message, const Limits& limits);
  void hangUp(const Reply& reply, std::string why);
  void reply(const Reply& reply) { append(output_.buffer(), reply); }
  void note(const Limits& limits, Nanos now);

  Peer peer_;
  Queue input_;
  Queue output_;
  std::unique_ptr<Stream> stream_;
  std::size_t searched_ = 0;         // bytes of the input that hold no NUL
  std::optional<Nanos> unfinished_;  // since when half a request is there
  std::optional<Nanos> unread_;      // since when the client has taken nothing
  bool finished_ = false;
  bool idle_ = true;                   // nothing can be done before the client or a stream does something
  std::optional<std::string> hangUp_;  // why, once the output is gone
};

}  // namespace host::control
