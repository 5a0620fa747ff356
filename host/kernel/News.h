#pragma once

#include <string>

#include "Event.h"

namespace host::kernel {

class Topology;

/// What events have told since it was last asked, in short: of each kind the first, in words, and how many
/// there were. A route to what is on a link comes before others, since those concern fewer.
class News {
 public:
  /// `before` is null for a link that is new.
  void link(const Link* before, const LinkChange& change);
  void address(const AddressChange& change, const Topology& topology);
  void nextHop(const NextHopChange& change);
  void route(const RouteChange& change, const Topology& topology);
  /// So many links, addresses, next-hop objects and routes that a dump found to be others.
  void healed(U64 count) { healed_ += count; }

  /// "link eth1 down; route 10.0.0.0/8 via 192.0.2.9 dev eth2 added, and 9 more routes". Where nothing was
  /// told, a dump has confirmed what a loss had put in doubt. Escaped, without a full stop.
  std::string text() const;

 private:
  struct Kind {
    std::size_t count = 0;
    std::string first;
  };
  /// Calls `describe` for the first of its kind.
  template <class F>
  static void count(Kind& kind, F describe) {
    if (kind.count++ == 0) kind.first = describe();
  }

  Kind links_;
  Kind addresses_;
  Kind nextHops_;
  Kind routes_;
  bool isAttached_ = false;  // the first route leads to what is on a link
  U64 healed_ = 0;
};

}  // namespace host::kernel
