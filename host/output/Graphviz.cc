#include "Graphviz.h"

#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "Escape.h"

namespace host::output {

namespace {

constexpr int patience = 30000;  // milliseconds
constexpr std::size_t mostOfAnError = 300;

[[noreturn]] void fail(const std::string& step, int error) {
  throw Error(fmt::format("dot: {}: {}", step, std::generic_category().message(error)));
}

/// A file in memory: what a child reads and writes, without anybody having to wait for the other meanwhile.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& text = {}) : fd_(memfd_create("mrib", MFD_CLOEXEC)) {
    if (fd_ < 0) fail("memory for it", errno);
    for (std::size_t at = 0; at < text.size();) {
      const ssize_t n = pwrite(fd_, text.data() + at, text.size() - at, static_cast<off_t>(at));
      if (n < 0 && errno != EINTR) fail("memory for it", errno);
      if (n > 0) at += static_cast<std::size_t>(n);
    }
  }
  ~MemoryFile() {
    if (fd_ >= 0) close(fd_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int fd() const { return fd_; }
  std::string read() const {
    std::string text;
    char buffer[65536];
    for (;;) {
      const ssize_t n = pread(fd_, buffer, sizeof buffer, static_cast<off_t>(text.size()));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail("read what it wrote", errno);
      if (n == 0) return text;
      text.append(buffer, static_cast<std::size_t>(n));
    }
  }

 private:
  int fd_;
};

/// What a child is started with: its standard descriptors, and signals as they are by default.
class Start {
 public:
  Start(const MemoryFile& in, const MemoryFile& out, const MemoryFile& errors) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, in.fd(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, out.fd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, errors.fd(), STDERR_FILENO);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  ~Start() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

  pid_t run() {
    char program[] = "dot";
    char format[] = "-Tsvg";
    char* arguments[] = {program, format, nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, program, &actions_, &attributes_, arguments, environ);
    if (error == ENOENT) {
      throw NoGraphviz(
          "a picture needs Graphviz' dot, which is not installed (apt install graphviz); the formats tree, "
          "dot and "
          "mermaid do without");
    }
    if (error != 0) fail("start it", error);
    return child;
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

/// Waits for a child, for some time; returns its status.
int statusOf(pid_t child) {
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  pollfd end{fd, POLLIN, 0};
  int ready = -1;
  do {
    ready = fd < 0 ? 1 : poll(&end, 1, patience);
  } while (ready < 0 && errno == EINTR);
  if (fd >= 0) close(fd);
  if (ready <= 0) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (ready <= 0) throw Error("dot: it takes longer than half a minute");
  return status;
}

}  // namespace

std::string svgOf(const std::string& dot) {
  const MemoryFile in(dot);
  const MemoryFile out;
  const MemoryFile errors;
  const int status = statusOf(Start(in, out, errors).run());
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return out.read();
  const std::string how = WIFEXITED(status) ? fmt::format("it failed with {}", WEXITSTATUS(status))
                                            : fmt::format("it was ended by signal {}", WTERMSIG(status));
  throw Error(fmt::format("dot: {}: {}", how, escaped(errors.read().substr(0, mostOfAnError))));
}

}  // namespace host::output
