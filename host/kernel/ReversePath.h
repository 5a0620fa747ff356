#pragma once

#include <algorithm>
#include <optional>

#include "Lumo/IpAddr.h"
#include "Values.h"

namespace host::kernel {

/// Settings of an interface (net.ipv4.conf.NAME) that multicast packets have to pass, and the same of `all`.
struct PacketSettings {
  struct One {
    U8 rpFilter = 0;  ///< 0: off, 1: strict, 2: loose
    bool multicastForwarding = false;
    bool acceptLocal = false;
    friend bool operator==(const One&, const One&) = default;
  };
  One own;
  One all;

  // What counts is the greater one, both, and any of them.
  U8 rpFilter() const { return std::max(own.rpFilter, all.rpFilter); }
  bool forwardsMulticast() const { return own.multicastForwarding && all.multicastForwarding; }
  bool acceptsLocal() const { return own.acceptLocal || all.acceptLocal; }
};

/// The unicast route by which the kernel itself would send to a source, of all tables and by all policy rules
/// that its reverse-path check asks.
struct SourceRoute {
  RouteType type =
      RouteType::unspecified;  ///< unspecified: there is none; of blackholes nothing else is known
  IpGenPrefix prefix;
  U32 table = 0;
  std::vector<Hop> hops;  ///< all ways, also dead ones

  bool uses(U32 link) const {
    return std::any_of(hops.begin(), hops.end(), [link](const Hop& hop) { return hop.link == link; });
  }
};

/// What a kernel goes by when it takes or drops multicast packets by their source, before any multicast route
/// is asked. Nothing where it is not known.
class ReversePath {
 public:
  virtual ~ReversePath() = default;
  virtual std::optional<PacketSettings> settings(const Link& link) const = 0;
  /// For packets that come in by `link`.
  virtual std::optional<SourceRoute> routeTo(Lumo::IpAddr source, const Link& link) const = 0;
};

}  // namespace host::kernel
