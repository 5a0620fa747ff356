#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Routing/Fib/RouteType.h"
#include "Zan/Export.h"
#include "mrib/Few.h"

/// What goes into an `Agent` and what comes out of it: plain values, owned by whoever holds them.
namespace mrib {

using RouteType = Routing::Fib::RouteType;

/// A prefix as somebody gave it, of either family, with whatever host bits and length it has: a transaction
/// refuses what is no canonical IPv4 prefix.
struct ZAN_EXPORT Net {
  Lumo::IpGenAddr address;
  U32 length = 0;

  Net(const Lumo::IpGenAddr& a, U32 bits) : address(a), length(bits) {}
  Net(Lumo::Prefix p) : address(p.address()), length(p.length()) {}  // NOLINT: the same value
  Net(const Lumo::IpGenPrefix& p);                                   // NOLINT: likewise
  /// Reads text as IpGenPrefix does, and throws as that does.
  explicit Net(std::string_view text) : Net(Lumo::IpGenPrefix(text)) {}
  std::string stringValue() const;
};

// ---- In ----

/// An interface. The index is the host's (the kernel's on Linux) and not 0; the name is its own.
/// `up` and `carrier` are kept and named in reasons, but filter nothing: the routes that the host announces
/// decide what resolves.
struct Link {
  U32 index = 0;
  std::string name;
  bool up = true;
  bool carrier = true;
  friend bool operator==(const Link&, const Link&) = default;
};

/// An address of an interface. The lowest that is not secondary is the one that interface RPFs resolve by.
struct Address {
  U32 link = 0;
  Lumo::IpGenAddr address;
  bool secondary = false;
};

/// One way of a unicast route: by a gateway, or on the link itself (0.0.0.0 or the empty address).
struct Gateway {
  Lumo::IpGenAddr gateway;
  U32 link = 0;
};

/// A route of the unicast table. Those of type `connected` with a next hop go into the MRIB. Of more than 128
/// next hops the first 128 are kept.
struct UnicastRoute {
  Net prefix;
  RouteType type = RouteType::connected;
  U8 preference = 0;
  std::vector<Gateway> nextHops;
};

/// A configured multicast route: packets from sources in `prefix` come in by the way to `rpf`, an address or
/// an interface by name. `preference` is 1 to 255; the lowest with an RPF that resolves wins. `origin` is the
/// host's own number for it, such as its line; texts name it as line when it is not 0.
struct Mroute {
  Net prefix;
  std::variant<Lumo::IpGenAddr, std::string> rpf;
  U32 preference = 1;
  U64 origin = 0;
};

// ---- Out ----

/// A resolved way: the neighbour (0.0.0.0: the source is on the link itself), and the link, 0 when the
/// unicast route names one that does not exist.
struct NextHop {
  Lumo::IpAddr address;
  U32 link = 0;
  friend bool operator==(const NextHop&, const NextHop&) = default;
  friend bool operator<(const NextHop& a, const NextHop& b) {
    return a.link != b.link ? a.link < b.link : a.address < b.address;
  }
};
using NextHops = Few<NextHop>;

/// A route of the MRIB: a copied connected one or a configured one with its resolved next hops, in order of
/// link and address. A configured route that has taken the place of a connected one keeps that one's type.
struct Route {
  Lumo::Prefix prefix{};
  RouteType type = RouteType::unknown;
  U8 preference = 0;
  NextHops nextHops{};

  const Lumo::Prefix& key() const { return prefix; }
  friend bool operator==(const Route&, const Route&) = default;
};

/// Some routes in memory, in no order.
class Routes {
 public:
  class Iterator {
   public:
    Iterator(const Route* first, const U32* at) : first_(first), at_(at) {}
    const Route& operator*() const { return first_[*at_]; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    friend bool operator==(const Iterator&, const Iterator&) = default;

   private:
    const Route* first_;
    const U32* at_;
  };

  /// Those of `places` behind `first`.
  Routes(const Route* first, std::span<const U32> places) : first_(first), places_(places) {}
  std::size_t size() const { return places_.size(); }
  const Route& operator[](std::size_t i) const { return first_[places_[i]]; }
  Iterator begin() const { return {first_, places_.data()}; }
  Iterator end() const { return {first_, places_.data() + places_.size()}; }

 private:
  const Route* first_;
  std::span<const U32> places_;
};

/// What a prefix of the MRIB was and is. A side that is not there has type `unknown`.
struct Change {
  Route before;
  Route after;

  bool added() const { return before.type == RouteType::unknown; }
  bool removed() const { return after.type == RouteType::unknown; }
  const Lumo::Prefix& prefix() const { return after.prefix; }
};

}  // namespace mrib
