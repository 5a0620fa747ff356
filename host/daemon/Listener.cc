#include "Listener.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "Error.h"
#include "Escape.h"

namespace host::daemon {

namespace {

constexpr const char* groupName = "mrib";
constexpr int backlog = 128;

[[noreturn]] void failed(const std::string& path, const std::string& what) {
  throw Error(fmt::format("{}: {}", escaped(path), what));
}
[[noreturn]] void failedBySystem(const std::string& path, const char* what) {
  failed(path, fmt::format("{}: {}", what, std::strerror(errno)));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty()) throw Error("the path of the socket is empty");
  if (path.size() >= sizeof address.sun_path) {
    failed(path, fmt::format("too long for a socket: at most {} bytes", sizeof address.sun_path - 1));
  }
  path.copy(address.sun_path, path.size());
  return address;
}

std::optional<gid_t> groupId() {
  const group* entry = getgrnam(groupName);  // NOLINT: there is one thread
  return entry ? std::optional(entry->gr_gid) : std::nullopt;
}

/// Whether the file that was opened is still the one of that name.
bool isCurrent(int fd, const std::string& path) {
  struct stat open {};
  struct stat named {};
  return fstat(fd, &open) == 0 && lstat(path.c_str(), &named) == 0 && open.st_ino == named.st_ino &&
         open.st_dev == named.st_dev;
}

}  // namespace

Listener::Listener(const std::string& path) : path_(path), lockPath_(path + ".lock"), group_(groupId()) {
  addressOf(path);
  if (path == defaultSocket) mkdir("/run/mrib", 0755);  // if it cannot, the lock says why
  lock();
  try {
    removeStale();
    bind();
  } catch (...) {
    unlink(lockPath_.c_str());
    throw;
  }
}

Listener::~Listener() {
  unlink(path_.c_str());
  unlink(lockPath_.c_str());
}

/// Who unlinks the file holds the lock, so a lock on a file that has the name is the lock.
void Listener::lock() {
  do {
    lock_ = Descriptor(open(lockPath_.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lock_.get() < 0) failedBySystem(lockPath_, "cannot open it");
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) continue;
    if (errno == EWOULDBLOCK) failed(path_, "another mribd serves here");
    failedBySystem(lockPath_, "cannot lock it");
  } while (!isCurrent(lock_.get(), lockPath_));
}

/// Only what is a socket, and nobody answers at.
void Listener::removeStale() const {
  struct stat found {};
  if (lstat(path_.c_str(), &found) < 0) return;
  if (!S_ISSOCK(found.st_mode)) failed(path_, "this is no socket; it is left alone");
  const sockaddr_un address = addressOf(path_);
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int result = connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result == 0 || errno == EAGAIN) failed(path_, "another program serves here");
  if (errno != ECONNREFUSED) failedBySystem(path_, "cannot tell whether it is in use");
  if (unlink(path_.c_str()) < 0) failedBySystem(path_, "cannot remove the stale socket");
}

/// The socket is nobody else's until it has its group.
void Listener::bind() {
  const sockaddr_un address = addressOf(path_);
  socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket_.get() < 0) failedBySystem(path_, "socket");
  const mode_t old = umask(0177);
  const int result = ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  umask(old);
  if (result < 0) failedBySystem(path_, "cannot make the socket");
  giveToGroup();
  if (chmod(path_.c_str(), 0660) < 0 || listen(socket_.get(), backlog) < 0) {
    const int error = errno;
    unlink(path_.c_str());
    failed(path_, std::strerror(error));
  }
}

/// Needs no privilege when this process is in the group, and no system call when that is its first one.
void Listener::giveToGroup() {
  struct stat made {};
  if (group_ && lstat(path_.c_str(), &made) == 0 && made.st_gid == *group_) return;
  if (!group_) {
    note_ = fmt::format("there is no group {}: only root and this user may change things", groupName);
  } else if (lchown(path_.c_str(), static_cast<uid_t>(-1), *group_) < 0) {
    note_ = fmt::format("the socket cannot be given to group {}: {}", groupName, std::strerror(errno));
  }
}

Descriptor Listener::accept() const {
  return Descriptor(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

control::Peer Listener::peerOf(int client) const {
  ucred who{};
  socklen_t size = sizeof who;
  if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &who, &size) < 0) return {~U32{0}, false};
  return {who.uid, who.uid == 0 || who.uid == geteuid() || isMember(client, who.gid)};
}

/// By the groups that it had when it connected; kernels before 4.13 know only the first of them.
bool Listener::isMember(int client, gid_t primary) const {
  if (!group_) return false;
  if (primary == *group_) return true;
  std::vector<gid_t> groups(64);
  socklen_t size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
  int result = getsockopt(client, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
  if (result < 0 && errno == ERANGE) {
    groups.resize(size / sizeof(gid_t));
    result = getsockopt(client, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
  }
  if (result < 0) return false;
  groups.resize(size / sizeof(gid_t));
  return std::find(groups.begin(), groups.end(), *group_) != groups.end();
}

}  // namespace host::daemon
