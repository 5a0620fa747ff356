#pragma once

#include "Attributes.h"
#include "Event.h"

namespace host::kernel {

/// Reads one datagram of RTNETLINK and hands on an event for every message in it that matters. A pure
/// function: any bytes whatever are safe, and a fault in them becomes a `Malformed` event.
void parseMessages(Bytes datagram, const EventSink& sink);

}  // namespace host::kernel
