#pragma once

#include <sys/stat.h>

#include <string>

namespace host {

/// A file on its way into memory. Takes regular files, and the null device for an empty one: others may have
/// no end, and to open them may have effects or wait for somebody.
class TextFile {
 public:
  /// Opens it. Throws Error, as below with what is wrong and not with the path.
  explicit TextFile(const std::string& path);
  ~TextFile();
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  /// Whether two paths lead to one file.
  bool isSameAs(const struct stat& other) const;
  const struct stat& status() const { return status_; }
  /// All of it, at most `most` bytes. Throws Error, when it is longer too.
  std::string read(std::size_t most);

 private:
  int fd_ = -1;
  struct stat status_ {};
};

}  // namespace host
