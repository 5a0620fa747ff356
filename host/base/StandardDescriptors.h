#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace host {

/// A standard descriptor that is closed would be the next socket, and what is printed or logged would go
/// there. Writing to what takes its place fails.
inline void holdStandardDescriptors() {
  for (int fd = open("/dev/null", O_RDONLY); fd >= 0; fd = open("/dev/null", O_RDONLY)) {
    if (fd <= STDERR_FILENO) continue;
    close(fd);
    return;
  }
}

}  // namespace host
