#pragma once

#include <memory>

#include "Attributes.h"
#include "Mirror.h"

struct mnl_socket;

namespace host::kernel {

/// A non-blocking RTNETLINK socket. All throw Error with what the system says.
class NetlinkSocket {
 public:
  enum class Outcome : U8 {
    datagram,
    nothing,    ///< for now
    lost,       ///< the kernel had no room for some messages
    truncated,  ///< one was larger than the buffer
    foreign     ///< its sender is not the kernel: not to be looked at
  };
  struct Received {
    Outcome outcome = Outcome::nothing;
    Bytes bytes;  ///< in the buffer, of a datagram
  };

  NetlinkSocket();

  int fd() const;
  /// Joins the groups of all that a mirror knows, with room for a burst of changes.
  void subscribe();
  /// Asks for a dump; of routes those of `table` only, where the kernel can tell them apart.
  void request(Dump dump, U32 sequence, U32 table);
  /// Likewise: all that a type of request and a header without attributes mean.
  void request(U16 type, Bytes header, U32 sequence);
  /// One datagram, into `buffer`.
  Received receive(std::span<U8> buffer);

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  template <class AddBody>
  void send(U16 type, U32 sequence, AddBody addBody);

  std::unique_ptr<mnl_socket, Close> socket_;
};

}  // namespace host::kernel
