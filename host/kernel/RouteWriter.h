#pragma once

#include "Access.h"

struct mnl_socket;

namespace host::kernel {

/// Writes IPv4 routes over RTNETLINK. Linux does what it is asked before the call that asks returns, so
/// nothing waits: one message in many is acknowledged, and of the others only refusals come back.
class RouteWriter : public Writer {
 public:
  RouteWriter();

  /// Whether this process may write; costs a request that changes nothing.
  bool mayWrite(U32 table);
  /// Some system calls in all.
  std::vector<RouteFault> write(std::span<const RouteOp> ops) override;
  std::string rule(const UserRule& rule, bool add) override;
  std::vector<UserRule> rules(U8 protocol) override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  int send(std::size_t count);
  template <class F>
  void forAnswers(F each);
  void readAnswers(std::size_t first, std::vector<RouteFault>& faults);

  std::unique_ptr<mnl_socket, Close> socket_;
  std::vector<U8> requests_;
  std::vector<U8> answers_;
  U32 sequence_ = 0;  // of the first of a batch
};

}  // namespace host::kernel
