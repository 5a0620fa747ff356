#pragma once

#include <set>
#include <utility>

#include "Event.h"
#include "News.h"
#include "RouteTable.h"
#include "Schedule.h"
#include "Topology.h"

namespace host::kernel {

enum class Dump : U8 { links, addresses, nextHops, routes4, routes6 };
inline constexpr std::size_t dumpCount = static_cast<std::size_t>(Dump::routes6) + 1;

/// The kernel's links, addresses, next-hop objects and the routes of one table, kept in step with it.
///
/// Pure logic: no socket and no clock. Whoever drives it does what `next` asks for, hands in what the kernel
/// says, and takes the changes. Events are hints, since Linux takes routes away without a word; a dump
/// decides. What an event makes doubtful (routes over a link that went down) is withdrawn at once and comes
/// back when a dump or another event confirms it.
class Mirror {
 public:
  struct Settings {
    U32 table = 254;
    bool ipv6 = true;
    bool needsCarrier = false;  ///< next hops over links without carrier are not used
    bool everyRoute = false;    ///< changes name a prefix whenever one of its routes may be another
    Schedule::Settings schedule;
    Nanos patience = seconds(10);  ///< for a dump that says nothing more
  };
  struct Action {
    enum class Kind : U8 {
      subscribe,  ///< open the events; nothing else comes before this
      dump,       ///< request `dump` under `sequence`, and hand what comes to `answered`
      proceed,    ///< ask again soon: there is work, cut small so that others get their turn
      wait        ///< nothing before `until`, unless the kernel says something
    };
    Kind kind = Kind::wait;
    Dump dump = Dump::links;
    U32 sequence = 0;
    Nanos until = 0;
  };
  struct Counters {
    U64 overruns = 0;
    U64 healed = 0;  ///< changes that a dump found and no event had told of
    std::array<U64, reasonCount> resyncs{};
    Nanos lastDuration = 0;  ///< of a resync
  };
  /// A route that an event told of: it may have come and gone, which leaves its prefix as it was.
  struct Told {
    IpGenPrefix prefix;
    U32 metric;
    U8 protocol;
  };
  /// What is another than before: ask the mirror how it is now.
  struct Changes {
    std::vector<IpGenPrefix> prefixes;  ///< whose answer changed
    std::set<U32> links;
    std::set<U32> addresses;  ///< indices of links with other addresses than before
    std::vector<Told> told;   ///< where every route is asked for
    bool complete = true;     ///< false: there is more to take
    bool named = false;       ///< all prefixes that events have named are among them, and there were some
  };

  Mirror(const Settings& settings, Nanos now);
  Mirror(const Mirror&) = delete;
  Mirror& operator=(const Mirror&) = delete;

  Action next(Nanos now);
  /// A message that came by itself.
  void event(Event event, Nanos now);
  /// A message that answers a request.
  void answered(Event event, Nanos now);
  /// Messages were lost, or one could not be read.
  void lost(Reason reason, Nanos now);

  /// Looks at up to `limit` prefixes. Cost: a look-up or two each.
  Changes takeChanges(std::size_t limit = ~std::size_t{0});

  /// What has been told since it was last taken, whether it changes an answer or not.
  News takeNews();
  /// The same, which stays for the next time.
  News news() const;

  /// The links that the next changes are about: whoever knows what depends on them can hurry it.
  const std::set<U32>& changedLinks() const { return changes_.links; }
  /// Takes a prefix before those that only may have changed.
  void hurry(const IpGenPrefix& prefix) { (prefix.af() == Lumo::ipv6() ? v6_ : v4_).hurry(prefix); }

  /// Whether everything has been read once.
  bool isSynced() const { return synced_; }
  /// Whether what the kernel knows may be something else: a cause to read it again is there and not yet dealt
  /// with. The audit is no such cause.
  bool isStale() const { return !synced_ || schedule_.isDirty() || schedule_.isRunningForCause(); }
  Counters counters() const;

  const Settings& settings() const { return settings_; }
  const Topology& topology() const { return topology_; }
  const RouteTable& routes(Lumo::AddressFamily family) const { return family == Lumo::ipv6() ? v6_ : v4_; }
  const Answer& answer(const IpGenPrefix& prefix) const { return routes(prefix.af()).answer(prefix); }
  /// The prefix whose answer holds for an address; empty when there is none.
  IpGenPrefix longestMatch(const IpGenAddr& address) const {
    return routes(address.af()).longestMatch(address);
  }

 private:
  enum class Phase : U8 { idle, ask, answering, sweeping };

  void dirty(Reason reason, Nanos now) { schedule_.dirty(reason, now); }
  void loss() { topology_.lastLoss = epoch_++; }
  void reconsiderAll();
  RouteTable& tableOf(const Route& route) { return route.prefix.af() == Lumo::ipv6() ? v6_ : v4_; }
  bool isOurs(const Route& route) const;
  void keepOwnPart(Route& route) const;

  bool put(Link link, Nanos now, bool dumped);
  bool put(const Address& address, bool dumped);
  bool put(const NextHop& nextHop, bool dumped);
  void linkGone(U32 index);
  void addressGone(U32 link);
  void confirmGroupsOf(U32 replaced);
  void nextHopGone();
  void tell(LinkChange& change, U16 flags, Nanos now);
  void tell(AddressChange& change, U16 flags, Nanos now);
  void tell(NextHopChange& change, U16 flags, Nanos now);
  void tell(RouteChange& change, U16 flags, Nanos now);
  void dumped(Event& event, Nanos now);
  void refreshOwn();

  Action startDump(Nanos now);
  void dumpEnded(S32 error, Nanos now);
  bool sweep(std::size_t budget);
  void turnToNext(Nanos now);
  void failed(Nanos now);

  Settings settings_;
  Topology topology_;
  RouteTable v4_{topology_};
  RouteTable v6_{topology_};
  Schedule schedule_;
  std::map<IpGenAddr, U32> own_;
  bool ownMayDiffer_ = false;
  bool knowsNextHops_ = true;
  Changes changes_;
  News news_;
  U64 healedTold_ = 0;

  Epoch epoch_ = 1;
  Phase phase_ = Phase::idle;
  Dump dump_ = Dump::links;
  U32 sequence_ = 0;
  Nanos heardAt_ = 0;
  bool interrupted_ = false;
  U32 attempts_ = 0;
  bool subscribed_ = false;
  bool synced_ = false;
  U64 overruns_ = 0;
  U64 healed_ = 0;         // links, addresses and next hops
  U64 healedAtStart_ = 0;  // what the first dumps brought
};

}  // namespace host::kernel
