#pragma once

#include <functional>
#include <string>
#include <variant>

#include "Values.h"

namespace host::kernel {

struct LinkChange {
  Link link;
  bool gone = false;
};
struct AddressChange {
  Address address;
  bool gone = false;
};
struct NextHopChange {
  NextHop nextHop;
  bool gone = false;
};
struct RouteChange {
  Route route;
  bool gone = false;
};
/// A setting of an interface changed (netconf): flags of next hops may mean something else now.
struct SettingChange {};
/// The end of a dump; a negative errno when the kernel gave up.
struct DumpEnd {
  S32 error = 0;
};
/// The kernel refused a request, with a negative errno; 0 acknowledges it.
struct Refused {
  S32 error = 0;
};
/// The kernel says that messages were lost.
struct Lost {};
/// What does not follow the format, and why. The rest of its datagram is not read.
struct Malformed {
  std::string why;
};

/// One message of the kernel.
struct Event {
  U32 sequence = 0;
  U16 flags = 0;  ///< NLM_F_*: how a route goes among its equals, whether a dump was interrupted
  std::variant<LinkChange, AddressChange, NextHopChange, RouteChange, SettingChange, DumpEnd, Refused, Lost,
               Malformed>
      body;
};

using EventSink = std::function<void(Event&&)>;

}  // namespace host::kernel
