#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Mirror.h"
#include "PrefixHash.h"
#include "mrib/Transaction.h"

namespace host {

/// Tells an agent what a mirror of the kernel knows: links, IPv4 addresses, and the routes to what is on a
/// link. Other unicast routes never enter the MRIB and are asked of the mirror.
///
/// The engine resolves an RPF by interface name as if it were an RPF by that interface's address. Where that
/// does not lead back to the interface (it has no address, or a point-to-point one, or one that it shares
/// with another interface), the interface gets a stand-in: an address out of 0.0.0.0/8, where no host is, and
/// a connected route to it while the interface has any. So every interface with a route of its own can be
/// named, and one without never leads to another interface.
class KernelFeed {
 public:
  explicit KernelFeed(const kernel::Mirror& mirror) : mirror_(mirror) {}

  /// Adds to a transaction what the changes come to.
  void tell(const kernel::Mirror::Changes& changes, mrib::Transaction& t);

  /// Changes of the MRIB are told after the fact, and what was is told in the words of that time.
  enum class When : U8 { before, now };
  /// Whether an interface holds an address, or it stands in for it: a next hop of that address is the
  /// interface itself.
  bool isOwn(U32 link, Lumo::IpAddr address, When when = When::now) const;
  /// The name that the agent knew a link by before what was told since the last `forget`, empty when it did
  /// not know it; null when that is as it was.
  const std::string* formerName(U32 link) const;
  /// Whether this next hop had another name or meaning before.
  bool isOtherwise(const mrib::NextHop& hop) const;
  bool hasFormer() const { return !formerNames_.empty() || !formerAddresses_.empty(); }
  void forget();
  /// Has the mirror look first at what may have changed in the MRIB with the links that have.
  void hurry(kernel::Mirror& mirror) const;
  /// How many routes to stand-ins there are.
  std::size_t standIns() const { return routedStandIns_; }
  /// Whether a route is one to a stand-in, which concerns nobody else.
  static bool isStandIn(const Lumo::Prefix& prefix) {
    return prefix.length() == 32 && isStandIn(prefix.address());
  }
  static bool isStandIn(Lumo::IpAddr address) { return address.host() >> 24 == 0 && address.host() != 0; }
  /// The name under which the agent knows the link that has a name or an alternative name; otherwise the
  /// name itself.
  const std::string& agentName(const std::string& name) const;
  /// Counts changes of what `agentName` may say.
  U64 nameChanges() const { return nameChanges_; }

 private:
  using Addresses = std::map<Lumo::IpAddr, bool>;  // as told, and whether each is secondary
  struct Link {
    std::string name;
    std::string toldName;  // by which the agent knows it; empty: not at all
    Addresses addresses;
    std::set<Lumo::Prefix> attached;
    U32 standIn = 0;        // the address, or 0
    bool isRouted = false;  // and there is a route to it
  };

  void tellLinks(const std::set<U32>& indices, mrib::Transaction& t);
  void rename(U32 index, const std::string& name, std::set<U32>& concerned);
  void tellLink(U32 index, mrib::Transaction& t);
  void tellAddresses(U32 index, mrib::Transaction& t);
  void tellRoute(const Lumo::Prefix& prefix, mrib::Transaction& t);
  void attach(const Lumo::Prefix& prefix, const std::vector<U32>& links);
  void tellStandIn(U32 index, mrib::Transaction& t);
  void routeStandIn(Link& link, U32 index, bool isRouted, mrib::Transaction& t);
  bool needsStandIn(const Link& link, U32 index) const;
  void learnAlternativeNames();

  const kernel::Mirror& mirror_;
  std::map<U32, Link> links_;
  std::map<std::string, std::set<U32>> byName_;
  std::map<std::string, std::string> alternatives_;
  U64 nameChanges_ = 0;
  std::map<U32, std::string> formerNames_;
  std::map<U32, Addresses> formerAddresses_;
  std::unordered_map<Lumo::Prefix, std::vector<U32>, kernel::PrefixHash> attached_;
  std::set<std::pair<Lumo::IpAddr, U32>> rpfAddresses_;  // that interfaces resolve by
  std::set<U32> doubtful_;                               // links that may need a stand-in, or no longer
  std::set<U32> freeStandIns_;
  U32 lastStandIn_ = 0;
  std::size_t routedStandIns_ = 0;
};

/// All that a mirror knows, as if it had just changed.
kernel::Mirror::Changes everythingOf(const kernel::Mirror& mirror);

}  // namespace host
