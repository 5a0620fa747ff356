#include "ConfigSave.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "Error.h"
#include "Escape.h"

namespace host {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const fs::path& path, const char* step) {
  const std::string why = std::generic_category().message(errno);
  throw Error(escaped(path.string()) + ": can't save it: " + step + ": " + why);
}

/// What a path leads to, though it may not exist.
fs::path followed(fs::path path) {
  constexpr int mostLinks = 40;
  std::error_code error;
  for (int i = 0; i < mostLinks && fs::is_symlink(fs::symlink_status(path, error)); ++i) {
    path = path.parent_path() / fs::read_symlink(path, error);
  }
  return path;
}

/// A file descriptor that is closed.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

/// A new file beside `target`, which is gone again unless it has taken its place.
class Replacement {
 public:
  explicit Replacement(const fs::path& target)
      : target_(target),
        name_((target.parent_path() / fmt::format(".{}.XXXXXX", target.filename().string())).string()),
        file_(mkostemp(name_.data(), O_CLOEXEC)) {
    if (file_.fd() < 0) fail(target_, "make a file beside it");
  }
  ~Replacement() {
    if (!done_ && file_.fd() >= 0) unlink(name_.c_str());
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  /// The owner comes first: a change of it may take rights away.
  void take(const struct stat* before) {
    if (before && fchown(file_.fd(), before->st_uid, before->st_gid) != 0 &&
        fchown(file_.fd(), static_cast<uid_t>(-1), before->st_gid) != 0) {
      // Neither: it belongs to this process's user then.
    }
    if (fchmod(file_.fd(), before ? before->st_mode & 0777 : 0644) != 0) fail(target_, "set its mode");
  }
  void write(std::string_view text) {
    while (!text.empty()) {
      const ssize_t n = ::write(file_.fd(), text.data(), text.size());
      if (n < 0 && errno != EINTR) fail(target_, "write");
      if (n > 0) text.remove_prefix(static_cast<std::size_t>(n));
    }
    if (fsync(file_.fd()) != 0) fail(target_, "write it to the disk");
  }
  void replace() {
    if (rename(name_.c_str(), target_.c_str()) != 0) fail(target_, "replace the old one");
    done_ = true;
  }

 private:
  fs::path target_;
  std::string name_;
  Descriptor file_;
  bool done_ = false;
};

fs::path folderOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : ".";
}

}  // namespace

void save(const std::string& path, const std::string& text) {
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;  // not its target: /dev/stdout leads to no path
  if (!exists && errno != ENOENT) fail(path, "look at the old one");
  if (exists && !S_ISREG(status.st_mode))
    throw Error(escaped(path) + ": can't save it: it is not a regular file");
  const fs::path target = followed(path);
  const Descriptor folder(open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.fd() < 0) fail(target, "open its folder");
  Replacement replacement(target);
  replacement.take(exists ? &status : nullptr);
  replacement.write(text);
  replacement.replace();
  fsync(folder.fd());  // the new file is in place, whatever becomes of this
}

}  // namespace host
