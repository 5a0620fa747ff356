#include "Why.h"

#include <set>

#include "KernelFeed.h"

namespace host {

std::string whyOf(const mrib::Unresolved& unresolved) {
  const bool isStandIn = KernelFeed::isStandIn(unresolved.address);
  if (!isStandIn || unresolved.reason == mrib::Reason::waiting) return unresolved.text();
  const std::string why = "the interface has no connected route";
  return unresolved.linkIsDown ? why + "; it is down" : why;
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
