#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "Target.h"

namespace fuzz {

/// A folder in memory, for this process. What a file holds already is not written again.
class MemoryFolder {
 public:
  explicit MemoryFolder(const char* target)
      : path_("/dev/shm/mrib-" + std::string(target) + '-' + std::to_string(getpid())) {
    must(std::filesystem::create_directories(path_));
  }
  ~MemoryFolder() { std::filesystem::remove_all(path_); }
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;

  const std::string& path() const { return path_; }
  void write(const std::string& name, std::string_view text) {
    const auto [file, isNew] = files_.try_emplace(name);
    if (!isNew && file->second == text) return;
    file->second = text;
    const int fd = open((path_ + '/' + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    must(fd >= 0 && ::write(fd, text.data(), text.size()) == std::ssize(text));
    close(fd);
  }

 private:
  std::string path_;
  std::map<std::string, std::string> files_;
};

}  // namespace fuzz
