#pragma once

#include <memory>
#include <span>
#include <vector>

#include "Attributes.h"
#include "RouteOp.h"

struct mnl_socket;

namespace host::kernel {

/// A policy rule: what processes of a user ask for is answered by a table first. Forwarded packets, also
/// those that count as root's, are not diverted.
struct UserRule {
  U32 user = 0;
  U32 table = 0;
  U8 protocol = 0;
  friend bool operator==(const UserRule&, const UserRule&) = default;
};

/// Writes IPv4 routes over RTNETLINK. Linux does what it is asked before the call that asks returns, so
/// nothing waits: one message in many is acknowledged, and of the others only refusals come back.
class RouteWriter {
 public:
  RouteWriter();

  /// Whether this process may write; costs a request that changes nothing.
  bool mayWrite(U32 table);
  /// Does them in order, some system calls in all. Returns what was refused, in order. Throws Error when the
  /// system gives no room for requests.
  std::vector<RouteFault> write(std::span<const RouteOp> ops);
  /// Adds or deletes a rule. What is so already is no fault; otherwise its text.
  std::string rule(const UserRule& rule, bool add);
  /// Those that there are, by whoever adds rules of this protocol.
  std::vector<UserRule> rules(U8 protocol);

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  void send(std::size_t count);
  template <class F>
  void forAnswers(F each);
  void readAnswers(std::size_t first, std::vector<RouteFault>& faults);

  std::unique_ptr<mnl_socket, Close> socket_;
  std::vector<U8> requests_;
  std::vector<U8> answers_;
  U32 sequence_ = 0;  // of the first of a batch
};

}  // namespace host::kernel
