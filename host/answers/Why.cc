#include "Why.h"

#include <fmt/format.h>

#include <set>

#include "Escape.h"

namespace host {

using Lumo::IpAddr;
using Lumo::Prefix;

const Why::Subnets& Why::subnets() const {
  if (subnets_) return *subnets_;
  subnets_.emplace();
  const kernel::Mirror& mirror = router_.mirror();
  mirror.topology().forEachOwn(mirror.settings().table, [&](const kernel::Address& a, const kernel::Link&) {
    if (a.peer.af() != Lumo::ipv4()) return;
    subnets_->links.try_emplace(Prefix(a.peer.v4Addr(), a.length), a.link);
    subnets_->lengths[a.length] = true;
  });
  return *subnets_;
}

std::string Why::of(const mrib::Unresolved& unresolved) const {
  if (unresolved.reason == mrib::Reason::waiting) return unresolved.text();
  if (!KernelFeed::isStandIn(unresolved.address)) {
    const bool isUnknown = unresolved.reason == mrib::Reason::noRoute;
    return isUnknown ? unresolved.text() + hintFor(unresolved.address) : unresolved.text();
  }
  const std::string why = "the interface has no connected route";
  return unresolved.linkIsDown ? why + "; it is down" : why;
}

std::string Why::hintFor(IpAddr address) const {
  const std::string text = address.stringValue();
  if (const U32 index = linkOf(address)) {
    const kernel::Link* link = router_.mirror().topology().link(index);
    const std::string_view state = !link || !link->up ? "is down"
                                   : !link->lowerUp   ? "has no carrier"
                                                      : "has no connected route";
    return fmt::format("; {} is on the subnet of {}, which {}", text, link ? escaped(link->name) : "?",
                       state);
  }
  const RpfAnswer unicast = router_.inUnicast(Lumo::IpGenAddr(address));
  if (unicast.status != RpfAnswer::Status::found) return "";
  return fmt::format("; the unicast route to {}, {}, does not count", text, unicast.prefix.stringValue());
}

U32 Why::linkOf(IpAddr address) const {
  for (U32 length = Prefix::maxLength + 1; length-- > 0;) {
    if (!subnets().lengths[length]) continue;
    const auto subnet = subnets().links.find(Prefix(address, length));
    if (subnet != subnets().links.end()) return subnet->second;
  }
  return 0;
}

namespace {

std::string keyOf(const mrib::Unresolved& u) {
  const auto* name = std::get_if<std::string>(&u.mroute.rpf);
  return u.mroute.prefix.stringValue() + ' ' +
         (name ? *name : std::get<Lumo::IpGenAddr>(u.mroute.rpf).stringValue()) + ' ' +
         std::to_string(u.mroute.preference);
}

}  // namespace

std::vector<mrib::Unresolved> newErrors(const std::vector<mrib::Unresolved>& before,
                                        std::vector<mrib::Unresolved> after) {
  std::set<std::string> known;
  for (const mrib::Unresolved& u : before) {
    if (u.isError()) known.insert(keyOf(u));
  }
  std::erase_if(after, [&](const auto& u) { return !u.isError() || known.contains(keyOf(u)); });
  return after;
}

}  // namespace host
