#pragma once

#include <sys/types.h>

#include <string>

#include "LiveMirror.h"
#include "host/Folder.h"

/// A network namespace of this process alone, with a second one beside it to move links to. Both go with the
/// process.
class Netns {
 public:
  Netns();
  ~Netns();
  Netns(const Netns&) = delete;
  Netns& operator=(const Netns&) = delete;

  /// Why there is none; empty when there is.
  const std::string& missing() const { return missing_; }

  /// Runs `ip ARGUMENTS`. True when it succeeds.
  bool ip(const std::string& arguments) const;
  /// The same in the namespace beside.
  bool ipBeside(const std::string& arguments) const;
  /// Standard output and errors of `ip ARGUMENTS`.
  std::string output(const std::string& arguments) const;
  void batch(const std::string& lines) const;
  void set(const std::string& sysctl, int value) const;
  pid_t beside() const { return beside_; }

  /// Saves what `ip -j` says, and reads it into a mirror.
  void save(host::kernel::Mirror& mirror, const char* options = "") const;

 private:
  std::string missing_;
  pid_t beside_ = -1;
  int leash_ = -1;  // the namespace beside ends when this is closed
  Folder folder_;
};
