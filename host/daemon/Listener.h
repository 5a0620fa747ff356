#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Call.h"
#include "Descriptor.h"

namespace host::daemon {

using control::defaultSocket;

/// The socket that clients connect to: of mode 0660, and of the group "mrib" where there is one.
///
/// A lock beside it (PATH.lock) keeps a second daemon away, and makes it safe to take over the socket of one
/// that was killed. Both files are gone when this is.
class Listener {
 public:
  /// Throws Error: another one serves here, the path is no socket, or what the system says. The folder of
  /// the default path is made where it is missing.
  explicit Listener(const std::string& path);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int fd() const { return socket_.get(); }
  const std::string& path() const { return path_; }
  /// A client, not blocking; none (-1 and EAGAIN) when there is none, or with another errno.
  Descriptor accept() const;
  /// Who a client is. Root, the user of this process and members of the group may change things.
  control::Peer peerOf(int client) const;
  /// What is to be known of the socket and its group, or an empty text.
  const std::string& note() const { return note_; }

 private:
  void lock();
  void removeStale() const;
  void bind();
  void giveToGroup();
  bool isMember(int client, gid_t primary) const;

  std::string path_;
  std::string lockPath_;
  std::string note_;
  std::optional<gid_t> group_;
  Descriptor lock_;
  Descriptor socket_;
};

}  // namespace host::daemon
