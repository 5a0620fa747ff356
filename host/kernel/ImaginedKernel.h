#pragma once

#include <memory>

#include "LinkSwitch.h"
#include "Lumo/Prefix.h"
#include "Mirror.h"

namespace host::kernel {

/// What is asked of a route, as `ip route` asks it.
struct RouteRequest {
  enum class Verb : U8 { add, append, prepend, replace, change, del };
  struct Leg {
    IpGenAddr gateway;  ///< empty: none
    std::string link;   ///< empty: the one that leads to the gateway
    bool onlink = false;
  };

  Verb verb = Verb::add;
  Lumo::Prefix prefix{};
  RouteType type = RouteType::unspecified;  ///< unspecified: unicast; of one that goes: any
  std::optional<U8> protocol{};
  std::optional<U8> scope{};
  U32 metric = 0;  ///< of one that goes: 0 for any
  U8 tos = 0;
  std::optional<U32> table{};
  U32 nextHop = 0;
  IpGenAddr source{};
  std::vector<Leg> legs{};
  bool isMultipath = false;  ///< the legs are written as such
};

/// A kernel as it would be: a copy of what a mirror knows, on which changes have the effect that they have on
/// Linux, also what Linux does in silence. Of the unicast routes it knows those to what is on a link, all
/// that can become one by losing legs, and those that were taken over. IPv4 only.
///
/// Changes throw Error with what Linux would refuse; then none of that change is done.
class ImaginedKernel {
 public:
  ImaginedKernel(const Mirror& mirror, LinkSwitch isOn);
  ImaginedKernel(const ImaginedKernel&) = delete;
  ImaginedKernel& operator=(const ImaginedKernel&) = delete;

  /// Takes over the routes of a prefix, once. Before any change that concerns them, as below.
  void take(const Lumo::Prefix& prefix);
  /// Takes over the routes over some links, of at most so many prefixes. Returns of how many it did not.
  std::size_t takeOver(const std::set<U32>& links, std::size_t most);

  /// By its name or an alternative name.
  U32 linkNamed(const std::string& name) const;
  /// The link and all whose state may go with it.
  std::set<U32> withFollowers(U32 link) const;

  void linkIs(U32 link, bool up);
  void addAddress(U32 link, Lumo::IpAddr local, U8 length);
  /// Without a length, the first one of this value.
  void deleteAddress(U32 link, Lumo::IpAddr local, std::optional<U8> length);
  void changeRoute(const RouteRequest& request);

  /// Of the routes that this knows.
  std::unique_ptr<Mirror> mirrored() const;
  /// Calls `each(address, link)` for the router's own addresses as far as the table goes.
  template <class F>
  void forEachAddress(F each) const {
    for (const Address& address : addresses_) {
      if (isHeld(address)) each(address, links_.at(address.link));
    }
  }
  /// The prefixes whose routes it knows.
  std::vector<Lumo::Prefix> prefixes() const;

 private:
  using List = std::vector<Route>;  // in the order in which the kernel tries them

  bool hasCarrier(const Link& link) const;
  void goDown(Link& link);
  void comeUp(Link& link);
  void loseCarrier(Link& link);
  void gainCarrier(Link& link);
  template <class F>
  void forDependents(const Link& link, F each);
  U8 flagsOver(const Link& link) const;
  bool isDead(const Hop& hop) const;
  void killHops(U32 link, bool alsoOwn);
  void flagHops(U32 link, U8 had);
  void eraseNextHopsOver(U32 link);
  void eraseNextHop(U32 id);
  void eraseRoutesIf(const std::function<bool(Route&)>& matches);

  U32 tableOf(const Link& link) const;
  bool isHeld(const Address& address) const;
  bool isConnecting(const Address& address) const;
  Route connectedBy(const Address& address) const;
  void connect(const Address& address);
  void disconnect(const Address& address);
  void drop(const Address& address);
  bool isOwn(const IpGenAddr& address) const;
  bool isBroadcast(Lumo::IpAddr address) const;
  std::vector<Address*> addressesOf(U32 link);
  void erase(const Address& address);

  Route routeOf(const RouteRequest& request) const;
  std::vector<Hop> hopsOf(const RouteRequest& request, U8 scope) const;
  std::vector<Hop> hopsBy(U32 id) const;
  Hop hopOf(const RouteRequest::Leg& leg, U8 scope) const;
  std::optional<Hop> wayTo(Lumo::IpAddr gateway, U32 link, U8 scope) const;
  void put(const Route& route, RouteRequest::Verb verb);
  void deleteRoute(const RouteRequest& request);
  bool matches(const Route& route, const RouteRequest& request) const;
  bool matchesHops(const Route& route, const RouteRequest& request) const;

  const Mirror& known_;
  LinkSwitch isOn_;
  const U32 vrf_;  // whose table it is, or 0
  std::map<U32, Link> links_;
  std::vector<Address> addresses_;
  std::map<U32, NextHop> nextHops_;
  std::map<Lumo::Prefix, List> routes_;  // of all that was taken, also where none is left
};

}  // namespace host::kernel
