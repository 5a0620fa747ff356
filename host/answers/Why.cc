#include "Why.h"

#include "KernelFeed.h"

namespace host {

std::string whyOf(const mrib::Unresolved& unresolved) {
  const bool isStandIn = KernelFeed::isStandIn(unresolved.address);
  if (!isStandIn || unresolved.reason == mrib::Reason::waiting) return unresolved.text();
  const std::string why = "the interface has no connected route";
  return unresolved.linkIsDown ? why + "; it is down" : why;
}

}  // namespace host
