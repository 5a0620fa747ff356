#include "KernelFeed.h"

#include <algorithm>
#include <utility>

#include "Groups.h"

namespace host {

using kernel::Answer;
using Lumo::IpAddr;
using Lumo::Prefix;

namespace {

/// Kernels have addresses of groups on interfaces, and routes for groups among the unicast ones; no packet
/// comes from there.
bool canSend(IpAddr a) {
  return !groups.contains(a) && a != IpAddr() && a != IpAddr::fromHost(~U32{0}) && !KernelFeed::isStandIn(a);
}
bool isOfGroups(const Prefix& prefix) {
  return prefix.length() >= groups.length() && groups.contains(prefix.address());
}

/// The one that an interface RPF resolves by: the lowest that is not secondary; 0.0.0.0 when there is none.
IpAddr rpfAddressOf(const std::map<IpAddr, bool>& addresses) {
  const auto at = std::find_if(addresses.begin(), addresses.end(), [](const auto& a) { return !a.second; });
  return at == addresses.end() ? IpAddr() : at->first;
}

}  // namespace

void KernelFeed::tell(const kernel::Mirror::Changes& changes, mrib::Transaction& t) {
  tellLinks(changes.links, t);
  for (const U32 index : changes.addresses) tellAddresses(index, t);
  for (const auto& prefix : changes.prefixes) {
    if (prefix.af() == Lumo::ipv4()) tellRoute(prefix.v4Prefix(), t);
  }
  for (const U32 index : std::exchange(doubtful_, {})) tellStandIn(index, t);
}

void KernelFeed::hurry(kernel::Mirror& mirror) const {
  for (const U32 index : mirror.changedLinks()) {
    const auto at = links_.find(index);
    if (at == links_.end()) continue;
    for (const Prefix& prefix : at->second.attached) mirror.hurry(prefix);
  }
}

// ---- Links ----

/// Between two messages two links may seem to have one name: then the younger one has it.
void KernelFeed::tellLinks(const std::set<U32>& indices, mrib::Transaction& t) {
  if (indices.empty()) return;
  std::set<U32> concerned = indices;
  for (const U32 index : indices) {
    const kernel::Link* link = mirror_.topology().link(index);
    rename(index, link ? link->name : std::string(), concerned);
  }
  for (const U32 index : concerned) tellLink(index, t);
  learnAlternativeNames();
}

void KernelFeed::rename(U32 index, const std::string& name, std::set<U32>& concerned) {
  Link& link = links_[index];
  if (link.name == name) return;
  if (!link.name.empty()) {
    std::set<U32>& holders = byName_[link.name];
    holders.erase(index);
    concerned.insert(holders.begin(), holders.end());
    if (holders.empty()) byName_.erase(link.name);
  }
  link.name = name;
  if (name.empty()) return;
  std::set<U32>& holders = byName_[name];
  concerned.insert(holders.begin(), holders.end());
  holders.insert(index);
}

void KernelFeed::tellLink(U32 index, mrib::Transaction& t) {
  Link& link = links_[index];
  const kernel::Link* known = mirror_.topology().link(index);
  const bool isTold = known && !link.name.empty() && *byName_.at(link.name).rbegin() == index;
  const std::string had = std::exchange(link.toldName, isTold ? link.name : std::string());
  if (had != link.toldName) formerNames_.try_emplace(index, had);
  if (isTold) {
    t.link({index, link.name, known->up, known->lowerUp});
    if (had.empty()) tellAddresses(index, t);
    return;
  }
  if (!had.empty()) t.linkDel(index);
  routeStandIn(link, index, false, t);
  if (link.standIn != 0) freeStandIns_.insert(std::exchange(link.standIn, 0));
  rpfAddresses_.erase({rpfAddressOf(link.addresses), index});
  formerAddresses_.try_emplace(index, std::move(link.addresses));
  link.addresses.clear();
  if (link.name.empty() && link.attached.empty()) links_.erase(index);
}

void KernelFeed::learnAlternativeNames() {
  std::map<std::string, std::string> alternatives;
  for (const auto& [index, entry] : mirror_.topology().links.all()) {
    const kernel::Link& link = entry.value.link;
    for (const std::string& name : link.alternativeNames) alternatives.emplace(name, link.name);
  }
  if (alternatives == alternatives_) return;
  alternatives_ = std::move(alternatives);
  ++nameChanges_;
}

const std::string& KernelFeed::agentName(const std::string& name) const {
  const auto at = alternatives_.find(name);
  return at == alternatives_.end() ? name : at->second;
}

// ---- Addresses ----

void KernelFeed::tellAddresses(U32 index, mrib::Transaction& t) {
  const auto at = links_.find(index);
  if (at == links_.end() || at->second.toldName.empty()) return;
  Link& link = at->second;
  Addresses now;
  mirror_.topology().forEachIpv4Of(index, [&](const kernel::Address& a) {
    if (!canSend(a.local.v4Addr())) return;
    bool& secondary = now.try_emplace(a.local.v4Addr(), true).first->second;
    secondary = secondary && a.secondary;
  });
  for (const auto& [address, secondary] : link.addresses) {
    if (!now.contains(address)) t.addressDel(index, Lumo::IpGenAddr(address));
  }
  for (const auto& [address, secondary] : now) {
    const auto had = link.addresses.find(address);
    if (had != link.addresses.end() && had->second == secondary) continue;
    t.address({index, Lumo::IpGenAddr(address), secondary});
  }
  rpfAddresses_.erase({rpfAddressOf(link.addresses), index});
  if (now != link.addresses) formerAddresses_.try_emplace(index, std::move(link.addresses));
  link.addresses = std::move(now);
  if (const IpAddr address = rpfAddressOf(link.addresses); address != IpAddr()) {
    rpfAddresses_.insert({address, index});
  }
  doubtful_.insert(index);
}

bool KernelFeed::isOwn(U32 link, IpAddr address, When when) const {
  if (isStandIn(address)) return true;
  const auto former = formerAddresses_.find(link);
  if (when == When::before && former != formerAddresses_.end()) return former->second.contains(address);
  const auto at = links_.find(link);
  return at != links_.end() && at->second.addresses.contains(address);
}

// ---- What was ----

const std::string* KernelFeed::formerName(U32 link) const {
  const auto at = formerNames_.find(link);
  return at == formerNames_.end() ? nullptr : &at->second;
}

bool KernelFeed::isOtherwise(const mrib::NextHop& hop) const {
  return formerNames_.contains(hop.link) ||
         (hop.address != IpAddr() && formerAddresses_.contains(hop.link) &&
          isOwn(hop.link, hop.address, When::before) != isOwn(hop.link, hop.address, When::now));
}

void KernelFeed::forget() {
  formerNames_.clear();
  formerAddresses_.clear();
}

// ---- Routes ----

void KernelFeed::tellRoute(const Prefix& prefix, mrib::Transaction& t) {
  if (isOfGroups(prefix) || (isStandIn(prefix))) return;
  const Answer& answer = mirror_.answer(prefix);
  std::vector<U32> links;
  if (answer.kind == Answer::Kind::attached) {
    links.reserve(answer.hops.size());
    for (const kernel::Hop& hop : answer.hops) links.push_back(hop.link);
  }
  if (!links.empty()) {
    std::vector<mrib::Gateway> hops;
    hops.reserve(links.size());
    for (const U32 link : links) hops.push_back({{}, link});
    t.route(prefix, mrib::RouteType::connected, 0, hops);
  } else if (attached_.contains(prefix)) {
    t.routeDel(prefix);
  }
  attach(prefix, links);
}

void KernelFeed::attach(const Prefix& prefix, const std::vector<U32>& links) {
  const auto had = attached_.find(prefix);
  if (had == attached_.end() && links.empty()) return;
  if (had != attached_.end()) {
    for (const U32 link : had->second) links_[link].attached.erase(prefix);
    doubtful_.insert(had->second.begin(), had->second.end());
    attached_.erase(had);
  }
  for (const U32 link : links) links_[link].attached.insert(prefix);
  doubtful_.insert(links.begin(), links.end());
  if (!links.empty()) attached_.emplace(prefix, links);
  // Interfaces whose address it covers resolve by it, or no longer.
  const IpAddr last = IpAddr::fromHost(prefix.address().host() | ~Prefix::mask(prefix.length()));
  for (auto at = rpfAddresses_.lower_bound({prefix.address(), 0});
       at != rpfAddresses_.end() && at->first <= last; ++at) {
    doubtful_.insert(at->second);
  }
}

// ---- Stand-ins ----

bool KernelFeed::needsStandIn(const Link& link, U32 index) const {
  const IpAddr address = rpfAddressOf(link.addresses);
  if (link.toldName.empty() || (link.attached.empty() && address == IpAddr())) return false;
  if (address == IpAddr()) return true;
  for (U32 length = Prefix::maxLength; length > 0; --length) {
    const auto covering = attached_.find(Prefix(address, length));
    if (covering != attached_.end()) return covering->second != std::vector{index};
  }
  return true;
}

void KernelFeed::tellStandIn(U32 index, mrib::Transaction& t) {
  const auto at = links_.find(index);
  if (at == links_.end()) return;
  Link& link = at->second;
  const bool needs = needsStandIn(link, index);
  if (needs && link.standIn == 0) {
    const auto reused = freeStandIns_.begin();
    link.standIn = reused == freeStandIns_.end() ? ++lastStandIn_ : *reused;
    if (reused != freeStandIns_.end()) freeStandIns_.erase(reused);
    t.address({index, Lumo::IpGenAddr(IpAddr::fromHost(link.standIn))});
  }
  routeStandIn(link, index, needs && !link.attached.empty(), t);
  if (!needs && link.standIn != 0) {
    t.addressDel(index, Lumo::IpGenAddr(IpAddr::fromHost(link.standIn)));
    freeStandIns_.insert(std::exchange(link.standIn, 0));
  }
  if (link.name.empty() && link.attached.empty()) links_.erase(at);  // it went before its routes
}

void KernelFeed::routeStandIn(Link& link, U32 index, bool isRouted, mrib::Transaction& t) {
  if (std::exchange(link.isRouted, isRouted) == isRouted) return;
  const Prefix route(IpAddr::fromHost(link.standIn), Prefix::maxLength);
  const mrib::Gateway self{{}, index};
  if (isRouted) {
    t.route(route, mrib::RouteType::connected, 0, std::span(&self, 1));
    ++routedStandIns_;
  } else {
    t.routeDel(route);
    --routedStandIns_;
  }
}

kernel::Mirror::Changes everythingOf(const kernel::Mirror& mirror) {
  kernel::Mirror::Changes all;
  for (const auto& [index, entry] : mirror.topology().links.all()) all.links.insert(index);
  for (const auto& [key, entry] : mirror.topology().addresses.all()) all.addresses.insert(entry.value.link);
  for (const auto family : {Lumo::ipv4(), Lumo::ipv6()}) {
    mirror.routes(family).forEachAnswer(
        [&](const auto& prefix, const Answer&) { all.prefixes.push_back(prefix); });
  }
  return all;
}

}  // namespace host
