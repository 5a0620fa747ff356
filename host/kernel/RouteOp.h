#pragma once

#include "Values.h"

namespace host::kernel {

/// A route to add to its table, or to delete from it.
struct RouteOp {
  bool add = false;
  Route route;
};

/// What the kernel refused of some of them.
struct RouteFault {
  std::size_t op = 0;  ///< its place among them
  S32 error = 0;       ///< an errno
  std::string text;    ///< in the kernel's words, where it has any, or the system's
};

}  // namespace host::kernel
