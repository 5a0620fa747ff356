#pragma once

#include <memory>

#include "Attributes.h"
#include "Lumo/IpAddr.h"

namespace host::kernel {

class Mirror;

/// An entry of the kernel's multicast forwarding cache.
struct MulticastRoute {
  U32 table = 0;
  Lumo::IpAddr source;    ///< 0.0.0.0: any
  Lumo::IpAddr group;     ///< 0.0.0.0: any
  bool resolved = false;  ///< false: packets wait for a routing daemon to say what becomes of them
  U32 in = 0;             ///< index of the link that packets are taken from; 0: none, or it is no more
  std::vector<U32> out;   ///< likewise of those that they go to
  U64 packets = 0;        ///< that met the entry, those that came in elsewhere included
  U64 bytes = 0;
  U64 wrong = 0;  ///< that came in elsewhere, and were dropped
  friend bool operator==(const MulticastRoute&, const MulticastRoute&) = default;
};

/// A link that a routing daemon has made an interface of multicast forwarding.
struct MulticastInterface {
  U32 table = 0;
  U32 link = 0;
  bool registers = false;  ///< packets come in by it that PIM registers carry; a link for appearance only
  U64 packetsIn = 0;
  U64 bytesIn = 0;
  U64 packetsOut = 0;
  U64 bytesOut = 0;
  friend bool operator==(const MulticastInterface&, const MulticastInterface&) = default;
};

struct MulticastState {
  std::vector<MulticastInterface> interfaces;
  std::vector<MulticastRoute> routes;
};

/// The table that a kernel forwards multicast by where nobody named another one.
inline constexpr U32 defaultMulticastTable = 253;

/// A reading in steps, since a cache may be large.
class MulticastReading {
 public:
  virtual ~MulticastReading() = default;
  /// Adds to the state, a millisecond's work at most; the interfaces come first. False when there is no more.
  /// Throws Error.
  virtual bool step() = 0;
  const MulticastState& state() const { return state_; }

 protected:
  MulticastState state_;
};

/// The multicast forwarding cache of a kernel, in all tables.
class MulticastCache {
 public:
  virtual ~MulticastCache() = default;
  virtual std::unique_ptr<MulticastReading> read() const = 0;
  /// Whether another reading may say something else.
  virtual bool isLive() const = 0;
};

/// Of the kernel that this process runs on (of its network namespace). Netlink says all that
/// /proc/net/ip_mr_cache does, the entries that wait included, with indices for names and for all tables.
class LiveMulticastCache : public MulticastCache {
 public:
  std::unique_ptr<MulticastReading> read() const override;
  bool isLive() const override { return true; }
};

/// Of a machine whose cache was saved in a folder: mroute.json, by `ip -s -j mroute show table all`.
class SavedMulticastCache : public MulticastCache {
 public:
  /// The mirror, which knows the links, outlives this.
  SavedMulticastCache(std::string folder, const Mirror& mirror)
      : folder_(std::move(folder)), mirror_(mirror) {}

  std::unique_ptr<MulticastReading> read() const override;
  bool isLive() const override { return false; }

 private:
  std::string folder_;
  const Mirror& mirror_;
};

/// Adds to a state what one datagram of a dump says. True at the end of the dump. Throws MalformedBytes; any
/// bytes whatever are safe.
bool parseMulticast(Bytes datagram, MulticastState& state);

}  // namespace host::kernel
