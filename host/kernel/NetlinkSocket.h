#pragma once

#include "Access.h"

struct mnl_socket;

namespace host::kernel {

/// A non-blocking RTNETLINK socket. All throw Error with what the system says.
class NetlinkSocket : public Channel {
 public:
  NetlinkSocket();

  int fd() const override;
  void subscribe() override;
  bool request(Dump dump, U32 sequence, U32 table) override;
  /// Likewise: all that a type of request and a header without attributes mean.
  bool request(U16 type, Bytes header, U32 sequence);
  Received receive(std::span<U8> buffer) override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  template <class AddBody>
  bool send(U16 type, U32 sequence, AddBody addBody);

  std::unique_ptr<mnl_socket, Close> socket_;
};

}  // namespace host::kernel
