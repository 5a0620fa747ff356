#include "Access.h"

#include <cerrno>

#include "NetlinkSocket.h"
#include "RouteWriter.h"

namespace host::kernel {

const Access& thisKernel() {
  static const Access access{[] { return std::make_unique<NetlinkSocket>(); },
                             [] { return std::make_unique<RouteWriter>(); }};
  return access;
}

bool isPassing(int error) {
  return error == ENOBUFS || error == ENOMEM || error == EAGAIN || error == EINTR;
}

}  // namespace host::kernel
