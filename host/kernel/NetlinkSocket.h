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
  Received receive(std::span<U8> buffer) override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  std::unique_ptr<mnl_socket, Close> socket_;
};

}  // namespace host::kernel
