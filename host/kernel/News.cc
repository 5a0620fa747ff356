#include "News.h"

#include <fmt/format.h>

#include <algorithm>

#include "Escape.h"
#include "Topology.h"

namespace host::kernel {

namespace {

std::string nameOf(U32 link, const Topology& topology) {
  const Link* known = topology.link(link);
  return known ? escaped(known->name) : std::to_string(link);
}

std::string textOf(const Link* before, const LinkChange& change) {
  const Link& link = change.link;
  const std::string text = "link " + escaped(link.name);
  if (change.gone) return text + " deleted";
  if (!before) return text + (link.up ? " new, up" : " new, down");
  if (before->name != link.name) return "link " + escaped(before->name) + " renamed " + escaped(link.name);
  if (before->up != link.up) return text + (link.up ? " up" : " down");
  if (before->lowerUp != link.lowerUp) return text + (link.lowerUp ? " has a carrier" : " without carrier");
  return text + (before->master == link.master ? " changed" : " has another master");
}

std::string textOf(const RouteChange& change, const Topology& topology) {
  const Route& route = change.route;
  std::string text = "route " + route.prefix.stringValue();
  if (route.nextHop != 0) text += fmt::format(" nhid {}", route.nextHop);
  for (const Hop& hop : route.hops) {
    if (hop.gateway != IpGenAddr()) text += " via " + hop.gateway.stringValue();
    text += " dev " + nameOf(hop.link, topology);
  }
  return text + (change.gone ? " deleted" : " added");
}

bool leadsToLink(const Route& route) {
  return route.nextHop != 0 || std::any_of(route.hops.begin(), route.hops.end(),
                                           [](const Hop& hop) { return hop.gateway == IpGenAddr(); });
}

}  // namespace

void News::link(const Link* before, const LinkChange& change) {
  count(links_, [&] { return textOf(before, change); });
}

void News::address(const AddressChange& change, const Topology& topology) {
  count(addresses_, [&] {
    const Address& address = change.address;
    return fmt::format("address {}/{} {} {}", address.local.stringValue(), address.length,
                       change.gone ? "deleted from" : "added to", nameOf(address.link, topology));
  });
}

void News::nextHop(const NextHopChange& change) {
  count(nextHops_, [&] {
    return fmt::format("next-hop object {} {}", change.nextHop.id, change.gone ? "deleted" : "changed");
  });
}

void News::route(const RouteChange& change, const Topology& topology) {
  const bool isBetter = !isAttached_ && leadsToLink(change.route);
  if (routes_.count++ == 0 || isBetter) routes_.first = textOf(change, topology);
  isAttached_ |= isBetter;
}

std::string News::text() const {
  std::string text;
  const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
  const auto addKind = [&](const Kind& kind, const char* name) {
    if (kind.count == 1) add(kind.first);
    if (kind.count > 1) add(fmt::format("{}, and {} more of {}", kind.first, kind.count - 1, name));
  };
  addKind(links_, "links");
  addKind(addresses_, "addresses");
  addKind(nextHops_, "next-hop objects");
  addKind(routes_, "routes");
  if (healed_ > 0) {
    add(fmt::format("the kernel was read again, and {} {} no event had told of", healed_,
                    healed_ == 1 ? "change was found that" : "changes were found that"));
  }
  if (text.empty()) text = "the kernel was read again, and what was in doubt is as it was";
  return text;
}

}  // namespace host::kernel
