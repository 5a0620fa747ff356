#pragma once

#include <map>

#include "mrib/Values.h"

namespace mrib {

/// Why something is not taken, in a sentence, with the origins of the configured routes that it names.
struct Refusal {
  std::string text;
  std::vector<U64> origins;
};

/// Changes of an agent's inputs that belong together. They are collected here, in any order and for any
/// number of commits, and have no effect before `Agent::commit`. What is said of one thing later counts.
///
/// Each call checks its values at once; what is wrong is kept, and the commit refuses the transaction with
/// all of it. To delete what is not there is fine.
class ZAN_EXPORT Transaction {
 public:
  /// So many refusals are kept, and so many notes; of other refusals only the number is known.
  static constexpr std::size_t mostTexts = 100;

  /// Adds an interface or changes it. One that gets another name is a new interface.
  void link(const Link& link);
  /// Deletes an interface with its addresses.
  void linkDel(U32 index);
  /// Adds an address to an interface, or changes it. The interface may come later.
  void address(const Address& address);
  void addressDel(U32 link, const Lumo::IpGenAddr& address);

  /// Adds a unicast route or replaces the one of its prefix.
  void route(const Net& prefix, RouteType type, U8 preference, std::span<const Gateway> nextHops);
  void route(const UnicastRoute& r) { route(r.prefix, r.type, r.preference, r.nextHops); }
  void routeDel(const Net& prefix);

  /// Adds a configured multicast route, or gives the one that has the same prefix, RPF and preference another
  /// origin.
  void mroute(const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference, U64 origin = 0);
  void mroute(const Net& prefix, std::string_view interface, U32 preference, U64 origin = 0);
  void mroute(const Mroute& m);
  void mrouteDel(const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference);
  void mrouteDel(const Net& prefix, std::string_view interface, U32 preference);
  void mrouteDel(const Mroute& m);
  /// Deletes all configured multicast routes: a configuration that is given anew begins with this. Those that
  /// come back in the same transaction are not touched.
  void mrouteDelAll();

  bool empty() const;
  /// Forgets everything; memory is kept for the next one.
  void clear();
  /// Their texts do not name the origin, as those of the commit do: its words for that are the agent's.
  const std::vector<Refusal>& refusals() const { return refusals_; }
  std::size_t refusalCount() const { return refusalCount_; }
  /// What was taken in part, in sentences.
  const std::vector<std::string>& notes() const { return notes_; }

  // What was collected, for the agent.
  struct LinkOp {
    enum class Kind : U8 { linkIs, linkDel, addressIs, addressDel } kind;
    Link value;  ///< the index is that of the link in question
    Lumo::IpAddr address{};
    bool secondary = false;
  };
  struct RouteOp {
    Lumo::Prefix prefix;
    RouteType type;
    U8 preference;
    bool present;
    U32 firstHop;
    U32 hopCount;
  };
  struct MrouteOp {
    enum Kind : U8 { add, del, delAll };
    Lumo::Prefix prefix;
    Kind kind;
    U8 preference;
    bool byName;
    U32 rpf;  ///< the address, or the place of the name among `names`
    U64 origin;
  };
  const std::vector<LinkOp>& linkOps() const { return links_; }
  const std::vector<RouteOp>& routeOps() const { return routes_; }
  std::span<const NextHop> hopsOf(const RouteOp& op) const {
    return std::span(hops_).subspan(op.firstHop, op.hopCount);
  }
  const std::vector<MrouteOp>& mrouteOps() const { return mroutes_; }
  const std::vector<std::string>& names() const { return names_; }

 private:
  friend class Unicast;

  /// Adds a route that was taken before: it needs no check.
  void routeAgain(const Lumo::Prefix& prefix, RouteType type, U8 preference, std::span<const NextHop> hops);
  void refuse(std::string text, U64 origin = 0);
  bool isLink(U32 index, const char* what);
  bool isAddress(const Lumo::IpGenAddr& address, const std::string& what, U64 origin = 0);
  bool isPrefix(const Net& net, const char* what, U64 origin = 0);
  bool isConfigurable(const Net& prefix, U32 preference, U64 origin);
  U32 nameIs(std::string_view name);
  void mrouteOp(MrouteOp::Kind kind, const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference,
                U64 origin);
  void mrouteOp(MrouteOp::Kind kind, const Net& prefix, std::string_view rpf, U32 preference, U64 origin);

  std::vector<LinkOp> links_;
  std::vector<RouteOp> routes_;
  std::vector<NextHop> hops_;
  std::vector<MrouteOp> mroutes_;
  std::vector<std::string> names_;
  std::map<std::string, U32, std::less<>> nameIds_;
  std::vector<Refusal> refusals_;
  std::vector<std::string> notes_;
  std::size_t refusalCount_ = 0;
};

}  // namespace mrib
