#pragma once

#include <functional>
#include <memory>

#include "Attributes.h"
#include "Mirror.h"
#include "RouteOp.h"

namespace host::kernel {

/// A conversation with a kernel about what it knows, in the bytes of RTNETLINK. Nothing waits.
class Channel {
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

  virtual ~Channel() = default;
  virtual int fd() const = 0;
  /// Joins the groups of all that a mirror knows, with room for a burst of changes.
  virtual void subscribe() = 0;
  /// Asks for a dump; of routes those of `table` only, where the kernel can tell them apart. False: the
  /// kernel has no room for that now.
  virtual bool request(Dump dump, U32 sequence, U32 table) = 0;
  /// One datagram, into `buffer`.
  virtual Received receive(std::span<U8> buffer) = 0;
};

/// A policy rule: what processes of a user ask for is answered by a table first. Forwarded packets, also
/// those that count as root's, are not diverted.
struct UserRule {
  U32 user = 0;
  U32 table = 0;
  U8 protocol = 0;
  friend bool operator==(const UserRule&, const UserRule&) = default;
};

/// What changes a kernel's routes.
class Writer {
 public:
  virtual ~Writer() = default;
  /// Does them in order, and returns what was refused, in order.
  virtual std::vector<RouteFault> write(std::span<const RouteOp> ops) = 0;
  /// Adds or deletes a rule. What is so already is no fault; otherwise its text.
  virtual std::string rule(const UserRule& rule, bool add) = 0;
  /// Those that there are, by whoever adds rules of this protocol.
  virtual std::vector<UserRule> rules(U8 protocol) = 0;
};

/// How a kernel is reached.
struct Access {
  std::function<std::unique_ptr<Channel>()> channel;
  std::function<std::unique_ptr<Writer>()> writer;
};

/// The kernel that this process runs on, its network namespace. What throws, throws Error with what the
/// system says.
const Access& thisKernel();

/// Whether an errno says that the system has no room now, and may have by and by.
bool isPassing(int error);

}  // namespace host::kernel
