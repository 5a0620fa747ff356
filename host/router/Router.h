#pragma once

#include <functional>
#include <utility>

#include "Configuration.h"
#include "KernelFeed.h"
#include "NextHopCheck.h"
#include "mrib/Agent.h"

namespace host {

/// The administrative distance that routers give to the routes of a protocol, by its kernel number.
U8 preferenceOf(U8 protocol);

/// What a router says about a source: which way its packets must come in.
struct RpfAnswer {
  enum class Status : U8 {
    found,
    unreachable,  ///< there is a route, and it leads nowhere
    noRoute
  };
  enum class Table : U8 { none, mrib, unicast };

  Status status = Status::noRoute;
  Table table = Table::none;
  const mrib::Route* route = nullptr;      ///< of the MRIB
  Lumo::IpGenPrefix prefix;                ///< of the unicast table
  const kernel::Answer* answer = nullptr;  ///< of the unicast table
};

/// The live MRIB: what the kernel knows and what is configured, brought together by an agent. Logic without a
/// loop; time comes as an argument, and the cost of a settling from a clock that the owner hands in.
class Router {
 public:
  using Clock = std::function<Nanos()>;

  /// Refers to the mirror, whose changes it takes.
  Router(kernel::Mirror& mirror, Clock clock);
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;

  /// Follows the mirror, some milliseconds' work at most, and settles when that is due. Returns when to be
  /// called again at the latest; `now` for at once.
  Nanos turn(Nanos now);
  /// Follows the mirror to the end and settles, however long that takes.
  void conclude(Nanos now);
  /// Whether a configuration has come since the last turn: the time that it returned no longer holds.
  bool isWoken() const { return woken_; }
  /// Whether the first whole state of the kernel is in.
  bool isReady() const { return ready_; }
  /// Whether the answers may be others than the kernel would give by now, or than settling will.
  bool isStale() const { return !ready_ || mirror_.isStale() || !isTaken_ || agent_.mayDiffer(); }
  /// Counts the states that clients can see.
  U64 generation() const { return generation_; }
  /// Counts whatever may change an answer, also while a state is not whole yet.
  U64 revision() const { return revision_; }
  /// Counts what may give next hops another meaning without a change of the MRIB: changes of links, addresses
  /// and the configuration.
  U64 contextChanges() const { return contextChanges_; }
  /// What each generation changes in the MRIB, and what led to it, in words without a full stop; the words
  /// are made when they are asked for.
  struct News {
    mrib::Update update;
    std::function<std::string()> cause;
  };
  using Listener = std::function<void(const News&)>;
  /// Who hears of it, until it unsubscribes by the number that this returns. Listeners do neither meanwhile.
  U64 subscribe(Listener listener);
  void unsubscribe(U64 subscription) { listeners_.erase(subscription); }

  /// Takes another configuration, or refuses it as a whole with the reasons. `cause` says where it is from.
  std::vector<std::string> configurationIs(Configuration configuration, Nanos now,
                                           const std::string& cause = "another configuration");
  const Configuration& configuration() const { return configuration_; }
  /// What would become of a configuration, found out with an agent of its own. Costs as much as a start.
  struct Trial {
    std::vector<std::string> refusals;
    std::vector<mrib::Unresolved> unresolved;
  };
  Trial tryConfiguration(const Configuration& configuration) const;
  /// What is odd about a configuration, though it is accepted.
  std::vector<std::string> warningsFor(const Configuration& configuration) const;

  /// Of IPv6 sources only the unicast table knows something.
  RpfAnswer lookUp(const Lumo::IpGenAddr& source) const;
  /// What either table says for itself, whatever the look-up mode.
  RpfAnswer inMrib(const Lumo::IpGenAddr& source) const;
  RpfAnswer inUnicast(const Lumo::IpGenAddr& source) const;
  /// The MRIB by prefix, without what nobody needs to know of (the routes to stand-ins).
  std::vector<mrib::Route> routes() const;
  /// How many these are.
  std::size_t routeCount() const { return agent_.routes().size() - feed_.standIns(); }
  const mrib::Agent& agent() const { return agent_; }
  mrib::Agent& agent() { return agent_; }
  const kernel::Mirror& mirror() const { return mirror_; }
  const KernelFeed& feed() const { return feed_; }
  /// Whether packets by this next hop come from the link itself.
  bool isAttached(const mrib::NextHop& hop, KernelFeed::When when = KernelFeed::When::now) const {
    return hop.address == Lumo::IpAddr() || feed_.isOwn(hop.link, hop.address, when);
  }
  /// The name of a next hop's link; null when there is no such link.
  const std::string* linkName(const mrib::NextHop& hop, KernelFeed::When when = KernelFeed::When::now) const;
  /// What the agent refused of the kernel's state since the last call: faults of this program.
  std::vector<std::string> takeFaults() { return std::exchange(faults_, {}); }

 private:
  void follow(Nanos now);
  void commit(Nanos now);
  using Cause = std::function<std::string()>;
  void committed(const mrib::CommitResult& result, Nanos now, const Cause& cause);
  void addOtherwise(std::vector<mrib::Change>& changes) const;
  void tell(std::span<const mrib::Change> changes, bool settled, const Cause& cause);
  void renameMroutes(mrib::Transaction& t);
  Nanos settle(Nanos now);

  kernel::Mirror& mirror_;
  Clock clock_;
  KernelFeed feed_;
  Configuration configuration_;
  const Configuration* naming_ = &configuration_;  // what origins refer to
  mrib::Agent agent_;
  mrib::Transaction pending_;
  bool unicastChanged_ = false;
  bool isTaken_ = false;  // all that the mirror has changed
  bool ready_ = false;
  bool woken_ = false;
  Nanos pendingSince_ = 0;
  U64 generation_ = 0;
  U64 revision_ = 0;
  U64 contextChanges_ = 0;
  std::map<U64, Listener> listeners_;
  U64 lastSubscription_ = 0;
  U64 nameChanges_ = 0;

  Nanos doubtSince_ = 0;
  Nanos changedAt_ = 0;
  Nanos earliestSettle_ = 0;
  std::vector<std::string> faults_;
};

/// The addresses of a mirror's links, for what can be no next hop; and one of them.
void addOwnSubnet(std::vector<OwnSubnet>& subnets, const kernel::Address& address, const kernel::Link& link);
std::vector<OwnSubnet> ownSubnetsOf(const kernel::Mirror& mirror);

}  // namespace host
