#pragma once

#include <deque>
#include <map>
#include <random>

#include "Access.h"

/// Chance, the same at each replay.
class Dice {
 public:
  void seedIs(U64 seed) { random_.seed(static_cast<U32>(seed % 2147483646 + 1)); }
  U32 operator()(U32 count) { return static_cast<U32>(random_()) % count; }

 private:
  std::minstd_rand random_;
};

/// A kernel in miniature, with Linux's manners as they were measured: routes to one prefix in an order that
/// flags decide; links, addresses and next-hop objects that take routes along in silence; names and indices
/// that are used again; dumps that are not one moment, are interrupted or refused; messages that arrive late,
/// twice or not at all; writes that fail. It speaks RTNETLINK.
class VirtualKernel {
 public:
  using Route = host::kernel::Route;
  using Link = host::kernel::Link;
  using Address = host::kernel::Address;
  using Table = std::map<host::kernel::IpGenPrefix, std::vector<Route>>;
  static constexpr U32 mainTable = 254;
  static constexpr U32 vrfTable = 100;
  static constexpr U32 exportTable = 250;

  VirtualKernel(Dice& dice, const host::Nanos& now);
  VirtualKernel(const VirtualKernel&) = delete;
  VirtualKernel& operator=(const VirtualKernel&) = delete;

  host::kernel::Access access();
  /// Changes something at random; returns what, in a word.
  const char* change();
  /// Makes it what it was at the start; all messages of that are lost.
  void reset();
  /// Whether requests and messages fail, and others change it while somebody reads.
  void faultyIs(bool faulty);

  /// When somebody has something to read: at once, later or never.
  host::Nanos readableAt() const;
  /// Whether all that it tells of has been read.
  bool isHeard() const;
  /// Whether it did what it tells nobody of, who does not ask.
  bool isHiding() const { return hiding_; }
  void lookedAt() { hiding_ = false; }
  /// When it last refused to answer or to write.
  host::Nanos refusedAt() const { return refusedAt_; }

  /// An errno, or 0 when the route would be taken.
  int faultOf(const Route& route);
  Route shown(Route route) const;
  const std::map<U32, Link>& links() const { return links_; }
  const std::vector<Address>& addresses() const { return addresses_; }
  Table& table(U32 number) { return tables_[number]; }
  /// Whether somebody who follows what is written to the exported table has another route to a prefix than
  /// the daemon's, or none; not where the daemon cannot know.
  bool hasLost(const host::kernel::IpGenPrefix& prefix) const {
    return followed_.contains(prefix) && !followed_.at(prefix);
  }
  void forgetFollowed() { followed_.clear(); }

  /// Called with each batch before it is written.
  std::function<void(std::span<const host::kernel::RouteOp>)> onWrite;
  bool isLoud = false;  ///< says on standard error what it tells

 private:
  using Hop = host::kernel::Hop;
  class Socket;
  class Writer;

  using Body = decltype(host::kernel::Event::body);
  void tell(Body body, U16 flags = 0);
  void deliver();
  void loseEvents();

  Hop hop();
  Route route();
  void addRoute();
  void changeExported();
  std::vector<Route> routesOf(U32 table);
  void deleteRoute(U32 table);
  bool insert(Route route, U32 verb);
  void erase(const Route& route);
  void lose(const host::kernel::IpGenPrefix& prefix);
  int write(const host::kernel::RouteOp& op);
  Link* someLink();
  void linkIs(Link& link, bool up);
  void carrierIs(Link& link, bool carrier);
  void legsAre(U32 link, U8 flag, bool set);
  void dropDeadRoutes();
  template <class F>
  void dropRoutesIf(F matches);
  void rename();
  void makeLink();
  void masterIs(Link& link, U32 master);
  U32 vrfTableOf(const Link& link) const;
  U32 tableOf(U32 link) const { return vrfTableOf(links_.at(link)) ? vrfTable : mainTable; }
  void deleteLink();
  void connect(const Address& address);
  void addAddress();
  void deleteAddress(Address address);
  void changeNextHop();
  void eraseNextHop(U32 id, bool isAsked);
  void eraseNextHopsOn(U32 link);

  Dice& dice_;
  const host::Nanos& now_;
  std::map<U32, Link> links_;
  std::vector<Address> addresses_;
  std::map<U32, host::kernel::NextHop> nextHops_;
  std::map<U32, Table> tables_;
  std::map<host::kernel::IpGenPrefix, bool> followed_;  // true: the daemon's
  std::deque<std::vector<U8>> inFlight_;
  std::vector<Socket*> sockets_;
  U64 changes_ = 0;
  bool faulty_ = false;
  bool ignoresLinkdown_ = false;
  bool hiding_ = false;
  bool inChange_ = false;
  host::Nanos refusedAt_ = 0;
};
