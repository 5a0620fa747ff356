#include "mrib/Transaction.h"

#include <algorithm>

#include "Quarn/Fib/ForwardingStatus.h"

namespace mrib {

namespace {

constexpr U32 mostHops = Quarn::Fib::Fec::maxVias;
constexpr Lumo::Prefix groups(Lumo::IpAddr::fromHost(0xE0000000), 4);
constexpr Lumo::IpAddr broadcast = Lumo::IpAddr::fromHost(~U32{0});

Lumo::Prefix v4(const Net& net) {
  return {net.address.v4Addr(), net.length};
}

/// What is wrong with an address of a host, or null.
const char* faultOf(const Lumo::IpGenAddr& address) {
  if (address.af() != Lumo::ipv4()) return " is not an IPv4 address";
  const Lumo::IpAddr a = address.v4Addr();
  if (groups.contains(a)) return " is a group address";
  if (a == Lumo::IpAddr() || a == broadcast) return " is not the address of a host";
  return nullptr;
}

}  // namespace

Net::Net(const Lumo::IpGenPrefix& p) : length(p.length()) {
  if (p.af() == Lumo::ipv4()) address = Lumo::IpGenAddr(p.v4Prefix().address());
  if (p.af() == Lumo::AddressFamily::ipv6) address = Lumo::IpGenAddr(p.v6Prefix().address());
}

std::string Net::stringValue() const {
  return address.stringValue() + '/' + std::to_string(length);
}

// ---- What is refused ----

void Transaction::refuse(std::string text, U64 origin) {
  ++refusalCount_;
  if (refusals_.size() == mostTexts) return;
  refusals_.push_back({std::move(text), origin == 0 ? std::vector<U64>{} : std::vector{origin}});
}

bool Transaction::isLink(U32 index, const char* what) {
  if (index == 0) refuse(std::string(what) + ": 0 is no interface index");
  return index != 0;
}

bool Transaction::isAddress(const Lumo::IpGenAddr& address, const std::string& what, U64 origin) {
  const char* fault = faultOf(address);
  if (fault) refuse(what + " \"" + address.stringValue() + '"' + fault, origin);
  return !fault;
}

bool Transaction::isPrefix(const Net& net, const char* what, U64 origin) {
  const auto bad = [&](const std::string& why) {
    refuse(std::string(what) + ' ' + net.stringValue() + why, origin);
    return false;
  };
  if (net.address.af() != Lumo::ipv4()) return bad(" is not an IPv4 prefix");
  if (net.length > Lumo::Prefix::maxLength) return bad(" has a length over 32");
  const Lumo::Prefix prefix = v4(net);
  if (prefix.address() != net.address.v4Addr()) {
    return bad(" has host bits set, the network is " + prefix.stringValue());
  }
  if (prefix.length() >= groups.length() && groups.contains(prefix.address())) {
    return bad(" is a range of group addresses");
  }
  return true;
}

bool Transaction::isConfigurable(const Net& prefix, U32 preference, U64 origin) {
  if (!isPrefix(prefix, "multicast route", origin)) return false;
  if (preference >= 1 && preference <= 255) return true;
  refuse("multicast route " + prefix.stringValue() + ": the preference " + std::to_string(preference) +
             " is not 1 to 255",
         origin);
  return false;
}

// ---- Links and addresses ----

void Transaction::link(const Link& link) {
  if (!isLink(link.index, "link")) return;
  if (link.name.empty()) return refuse("link " + std::to_string(link.index) + " has no name");
  links_.push_back({LinkOp::Kind::linkIs, link});
}

void Transaction::linkDel(U32 index) {
  if (isLink(index, "link")) links_.push_back({LinkOp::Kind::linkDel, {index, {}}});
}

void Transaction::address(const Address& address) {
  const std::string what = "the address of link " + std::to_string(address.link);
  if (!isLink(address.link, "address") || !isAddress(address.address, what)) return;
  links_.push_back(
      {LinkOp::Kind::addressIs, {address.link, {}}, address.address.v4Addr(), address.secondary});
}

void Transaction::addressDel(U32 link, const Lumo::IpGenAddr& address) {
  const std::string what = "the address of link " + std::to_string(link);
  if (!isLink(link, "address") || !isAddress(address, what)) return;
  links_.push_back({LinkOp::Kind::addressDel, {link, {}}, address.v4Addr()});
}

// ---- Unicast routes ----

void Transaction::route(const Net& prefix, RouteType type, U8 preference, std::span<const Gateway> nextHops) {
  if (!isPrefix(prefix, "route")) return;
  const auto kept = static_cast<U32>(std::min<std::size_t>(nextHops.size(), mostHops));
  if (kept < nextHops.size() && notes_.size() < mostTexts) {
    notes_.push_back("route " + prefix.stringValue() + " has " + std::to_string(nextHops.size()) +
                     " next hops: the first " + std::to_string(mostHops) + " are kept");
  }
  const auto first = static_cast<U32>(hops_.size());
  for (const Gateway& hop : nextHops.first(kept)) {
    const bool onLink = hop.gateway == Lumo::IpGenAddr() || hop.gateway == Lumo::IpGenAddr(Lumo::IpAddr());
    if (!isLink(hop.link, "next hop")) return;
    if (!onLink && !isAddress(hop.gateway, "next hop of " + prefix.stringValue())) return;
    hops_.push_back({hop.gateway.v4Addr(), hop.link});
  }
  routes_.push_back({v4(prefix), type, preference, true, first, kept});
}

void Transaction::routeAgain(const Lumo::Prefix& prefix, RouteType type, U8 preference,
                             std::span<const NextHop> hops) {
  routes_.push_back(
      {prefix, type, preference, true, static_cast<U32>(hops_.size()), static_cast<U32>(hops.size())});
  hops_.insert(hops_.end(), hops.begin(), hops.end());
}

void Transaction::routeDel(const Net& prefix) {
  if (isPrefix(prefix, "route")) routes_.push_back({v4(prefix), RouteType::unknown, 0, false, 0, 0});
}

// ---- Configured multicast routes ----

U32 Transaction::nameIs(std::string_view name) {
  const auto found = nameIds_.find(name);
  if (found != nameIds_.end()) return found->second;
  const auto id = static_cast<U32>(names_.size());
  names_.emplace_back(name);
  nameIds_.emplace(name, id);
  return id;
}

void Transaction::mrouteOp(MrouteOp::Kind kind, const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference,
                           U64 origin) {
  if (!isConfigurable(prefix, preference, origin)) return;
  if (faultOf(rpf)) {
    isAddress(rpf, "multicast route " + prefix.stringValue() + ": the RPF", origin);
    return;
  }
  mroutes_.push_back({v4(prefix), kind, static_cast<U8>(preference), false, rpf.v4Addr().host(), origin});
}

void Transaction::mrouteOp(MrouteOp::Kind kind, const Net& prefix, std::string_view rpf, U32 preference,
                           U64 origin) {
  if (!isConfigurable(prefix, preference, origin)) return;
  if (rpf.empty()) {
    return refuse("multicast route " + prefix.stringValue() + ": the RPF is an empty name", origin);
  }
  mroutes_.push_back({v4(prefix), kind, static_cast<U8>(preference), true, nameIs(rpf), origin});
}

void Transaction::mroute(const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference, U64 origin) {
  mrouteOp(MrouteOp::add, prefix, rpf, preference, origin);
}

void Transaction::mroute(const Net& prefix, std::string_view interface, U32 preference, U64 origin) {
  mrouteOp(MrouteOp::add, prefix, interface, preference, origin);
}

void Transaction::mroute(const Mroute& m) {
  std::visit([&](const auto& rpf) { mrouteOp(MrouteOp::add, m.prefix, rpf, m.preference, m.origin); }, m.rpf);
}

void Transaction::mrouteDel(const Net& prefix, const Lumo::IpGenAddr& rpf, U32 preference) {
  mrouteOp(MrouteOp::del, prefix, rpf, preference, 0);
}

void Transaction::mrouteDel(const Net& prefix, std::string_view interface, U32 preference) {
  mrouteOp(MrouteOp::del, prefix, interface, preference, 0);
}

void Transaction::mrouteDel(const Mroute& m) {
  std::visit([&](const auto& rpf) { mrouteOp(MrouteOp::del, m.prefix, rpf, m.preference, m.origin); }, m.rpf);
}

void Transaction::mrouteDelAll() {
  mroutes_.clear();  // what was said before has no effect any more
  mroutes_.push_back({{}, MrouteOp::delAll, 0, false, 0, 0});
}

bool Transaction::empty() const {
  return links_.empty() && routes_.empty() && mroutes_.empty() && refusalCount_ == 0;
}

void Transaction::clear() {
  links_.clear();
  routes_.clear();
  hops_.clear();
  mroutes_.clear();
  names_.clear();
  nameIds_.clear();
  refusals_.clear();
  notes_.clear();
  refusalCount_ = 0;
}

}  // namespace mrib
