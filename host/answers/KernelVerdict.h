#pragma once

#include <string>

#include "ReversePath.h"
#include "Router.h"

namespace host {

/// What Linux itself does with multicast packets of a source that come in by a link, before it asks for a
/// multicast route: what it drops here shows in no multicast counter.
struct KernelVerdict {
  enum class Cause : U8 {
    none,           ///< they pass
    unknown,        ///< the kernel's settings are not known
    loopback,       ///< 127.0.0.0/8
    ownAddress,     ///< the router itself has the address
    localRoute,     ///< a route of type local covers it
    broadcast,      ///< rp_filter is on, and it is a broadcast address
    otherWay,       ///< rp_filter is strict, and the unicast route leaves by other links
    noRoute,        ///< rp_filter is on, and there is no unicast route
    unusableRoute,  ///< rp_filter is on, and the unicast route is a blackhole or the like
    unnumbered      ///< rp_filter is on, the link has no IPv4 address, and the unicast route leaves by others
  };

  U32 link = 0;
  std::string interface;  ///< as it is, not escaped
  Cause cause = Cause::unknown;
  std::optional<kernel::PacketSettings> settings;
  std::optional<kernel::SourceRoute> route;
  std::string why;     ///< a clause: why they are dropped or why that is not known; empty when they pass
  std::string change;  ///< a command that would let them pass; empty where none does

  bool drops() const { return cause != Cause::none && cause != Cause::unknown; }
  /// Whether the kernel forwards what comes in by the link at all.
  bool mayForward() const { return !settings || settings->forwardsMulticast(); }
};

KernelVerdict kernelVerdict(const Router& router, const kernel::ReversePath& kernel, Lumo::IpAddr source,
                            U32 link);

/// "eth0", of several "eth0 or eth1"; escaped.
std::string namesOf(const Router& router, const std::vector<kernel::Hop>& hops);

}  // namespace host
