#include "Quarn/Allocation.h"

#include <fcntl.h>
#include <sys/sysinfo.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <limits>
#include <string>

namespace Quarn {

namespace {

U64 freeMemory() {
  struct sysinfo machine {};
  return sysinfo(&machine) == 0 ? U64{machine.freeram} * machine.mem_unit : 0;
}

/// What can be had when caches and swap are used as well; 0 when the system does not say.
U64 reclaimableMemory() {
  std::ifstream meminfo("/proc/meminfo");
  U64 sum = 0;
  std::string name;
  for (U64 kib = 0; meminfo >> name >> kib;
       meminfo.ignore(std::numeric_limits<std::streamsize>::max(), '\n')) {
    if (name == "MemAvailable:" || name == "SwapFree:") sum += kib * 1024;
  }
  return sum;
}

/// Keeps all signals from this thread. A file beyond the limit on sizes is then an error number as any other,
/// and the signal that comes with it, which would end the process, is taken away again. And timers can't keep
/// interrupting an allocation that would have to begin anew each time.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGXFSZ) == 1;
  }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld() {
    const int kept = errno;
    if (!wasPending_) takeAway(SIGXFSZ);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = kept;
  }

 private:
  static void takeAway(int signal) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    constexpr timespec atOnce{};
    sigtimedwait(&one, nullptr, &atOnce);
  }

  sigset_t before_;
  bool wasPending_;
};

}  // namespace

bool isMemoryFor(U64 count, U64 bytesEach) {
  return count < freeMemory() / bytesEach || count < reclaimableMemory() / bytesEach;
}

bool allocate(int fd, std::size_t bytes) {
  const SignalsHeld held;
  while (fallocate(fd, 0, 0, static_cast<off_t>(bytes)) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace Quarn
