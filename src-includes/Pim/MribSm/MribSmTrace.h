#pragma once

#include "Zan/Trace.h"

namespace Routing::Multicast::Rib {

/// The trace handle "MribSm" of the MRIB state machine and its resolver.
extern Zan::TraceHandle mribSmTrace;

}  // namespace Routing::Multicast::Rib

#define MRIB_TRACE(level, ...) ZAN_TRACE(::Routing::Multicast::Rib::mribSmTrace, this, level, __VA_ARGS__)
/// From a helper of `function`, the operation that the message belongs to.
#define MRIB_TRACE_OF(level, function, ...) \
  ZAN_TRACE_OF(::Routing::Multicast::Rib::mribSmTrace, this, level, __LINE__, function, __VA_ARGS__)
/// With a line number that is part of the interface.
#define MRIB_TRACE_AT(level, line, ...) MRIB_TRACE_AT_OF(level, line, __func__, __VA_ARGS__)
#define MRIB_TRACE_AT_OF(level, line, function, ...) \
  ZAN_TRACE_OF(::Routing::Multicast::Rib::mribSmTrace, this, level, line, function, __VA_ARGS__)
