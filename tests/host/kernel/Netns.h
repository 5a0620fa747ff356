#pragma once

#include <string>

#include "LiveMirror.h"
#include "host/Folder.h"

/// A network namespace of this process alone, which goes with it.
class Netns {
 public:
  Netns();
  Netns(const Netns&) = delete;
  Netns& operator=(const Netns&) = delete;

  /// Why there is none; empty when there is.
  const std::string& missing() const { return missing_; }

  /// Runs `ip ARGUMENTS`. True when it succeeds.
  bool ip(const std::string& arguments) const;
  /// Standard output and errors of `ip ARGUMENTS`.
  std::string output(const std::string& arguments) const;
  void batch(const std::string& lines) const;
  void set(const std::string& sysctl, int value) const;

  /// Saves what `ip -j` says, and reads it into a mirror.
  void save(host::kernel::Mirror& mirror, const char* options = "") const;

 private:
  std::string missing_;
  Folder folder_;
};
