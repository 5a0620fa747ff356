#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "CommandLine.h"
#include "Error.h"

namespace {

/// A standard descriptor that is closed would be the next socket, and what is printed would go there. Writing
/// to what takes its place fails.
void holdStandardDescriptors() {
  for (int fd = open("/dev/null", O_RDONLY); fd >= 0; fd = open("/dev/null", O_RDONLY)) {
    if (fd <= STDERR_FILENO) continue;
    close(fd);
    return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  holdStandardDescriptors();
  host::Request request;
  std::string help;
  try {
    help = host::readCommandLine({argv + 1, argv + argc}, request);
  } catch (const host::Error& e) {
    return host::report(request, host::usageError, e.what());
  }
  return host::execute(request, help);
}
