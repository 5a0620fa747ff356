#pragma once

#include <tuple>

#include "Stamped.h"
#include "Values.h"

namespace host::kernel {

/// The links, addresses and next-hop objects, and what they make of a route's next hops.
class Topology {
 public:
  /// Two addresses of a link may differ in nothing but their peer or the length of their subnet.
  using AddressKey = std::tuple<U32, IpGenAddr, U8, IpGenAddr>;
  static AddressKey keyOf(const Address& a) { return {a.link, a.local, a.length, a.peer}; }

  /// A link, and when routes over it were last taken away without a message: what was confirmed no later is
  /// gone, or may be.
  struct LinkState {
    Link link;
    Epoch down = 0;
    friend bool operator==(const LinkState&, const LinkState&) = default;
  };

  Stamped<U32, LinkState> links;
  Stamped<AddressKey, Address> addresses;
  Stamped<U32, NextHop> nextHops;

  /// What was confirmed later stands as it is; of what was not, something may have been taken away since.
  Epoch lastLoss = 0;

  const Link* link(U32 index) const;
  /// Calls `f` with each IPv4 address of a link, in order.
  template <class F>
  void forEachIpv4Of(U32 link, F f) const {
    for (auto at = addresses.all().lower_bound({link, {}, 0, {}}); at != addresses.all().end(); ++at) {
      const Address& address = at->second.value;
      if (address.link != link) return;
      if (address.local.af() == Lumo::ipv4()) f(address);
    }
  }
  /// Whether a link has an IPv4 address.
  bool hasIpv4(U32 link) const;
  /// Calls `f(address, link)` with each address that is the router's own as far as `table` goes: a link in a
  /// VRF holds its addresses for the table of that VRF only.
  template <class F>
  void forEachOwn(U32 table, F f) const {
    const U32 vrf = vrfOf(table);
    for (const auto& [key, entry] : addresses.all()) {
      const Link* holder = link(entry.value.link);
      if (holder && vrfTableOf(*holder) == vrf) f(entry.value, *holder);
    }
  }
  /// These with the links that hold them, but for tentative ones; of several links the one with the lowest
  /// index.
  std::map<IpGenAddr, U32> ownAddresses(U32 table) const;

  /// `table` if it is that of a VRF, or 0.
  U32 vrfOf(U32 table) const;

  /// Whether a link without carrier counts as down.
  bool needsCarrier = false;

  /// Whether nothing has taken a record with this next hop, confirmed at `epoch`, away without a message.
  bool isConfirmed(const Hop& hop, Epoch epoch) const;
  /// Whether packets can go by this next hop of a record confirmed at `epoch`. Carrier loss alone does not
  /// hinder them, unless it shall here: otherwise, where it shall, the kernel says dead.
  bool isUsable(const Hop& hop, Epoch epoch) const;
  /// Whether a next-hop object became known after what leads to it was last confirmed, which counts again
  /// when it is confirmed once more.
  bool isYounger(U32 nextHop, Epoch epoch) const {
    const auto* entry = nextHops.find(nextHop);
    return entry && entry->born > epoch;
  }
  /// Adds to `hops` those of a next-hop object that can be used by a route confirmed at `epoch`. False when
  /// the object is a blackhole.
  bool addUsable(U32 nextHop, Epoch epoch, std::vector<Hop>& hops) const;

 private:
  /// Of the VRF that a link is in, or 0.
  U32 vrfTableOf(const Link& link) const;
};

}  // namespace host::kernel
