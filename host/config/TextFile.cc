#include "TextFile.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "Error.h"

namespace host {

namespace {

[[noreturn]] void failRead() {
  throw Error("can't read it: " + std::generic_category().message(errno));
}

void checkKind(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return;
  if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)) return;
  const char* kind = S_ISDIR(status.st_mode)    ? "a directory"
                     : S_ISFIFO(status.st_mode) ? "a FIFO"
                     : S_ISSOCK(status.st_mode) ? "a socket"
                                                : "a device";
  throw Error(std::string("can't read it: it is ") + kind + ", not a file");
}

}  // namespace

TextFile::TextFile(const std::string& path) {
  if (stat(path.c_str(), &status_) != 0) failRead();
  checkKind(status_);
  fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd_ < 0 || fstat(fd_, &status_) != 0) failRead();
  checkKind(status_);  // of what was opened: it may be another one by now
}

TextFile::~TextFile() {
  if (fd_ >= 0) close(fd_);
}

bool TextFile::isSameAs(const struct stat& other) const {
  return status_.st_dev == other.st_dev && status_.st_ino == other.st_ino;
}

std::string TextFile::read(std::size_t most) {
  constexpr std::size_t piece = 65536;
  const auto expected = static_cast<std::size_t>(std::max<off_t>(status_.st_size, 0));
  std::string text;
  for (std::size_t size = 0; size <= most && expected <= most;) {
    // One byte more than is expected, so that the end is seen at once.
    if (size == text.size()) text.resize(std::max(expected + 1, size + piece));
    const ssize_t n = ::read(fd_, text.data() + size, text.size() - size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failRead();
    size += static_cast<std::size_t>(n);
    if (n == 0) {
      text.resize(size);
      return text;
    }
  }
  throw Error("too long: a configuration has at most 64 MiB, all of its files together");
}

}  // namespace host
