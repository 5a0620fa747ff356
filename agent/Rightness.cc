#include <algorithm>

#include "inside/AgentImpl.h"

// Whether the MRIB is the right answer where something has changed. Since there are no circles, it is the
// right answer everywhere if each configured prefix has just what its lines come to when they are resolved
// through the MRIB as it stands; so it is enough to look at those for which something that they read has
// changed.

namespace mrib {

using Routing::Fib::Via;
using Verdict = EngineRun::Resolver::Verdict;

namespace {

U32 lastOf(const Lumo::Prefix& prefix) {
  return prefix.address().host() | ~Lumo::Prefix::mask(prefix.length());
}

/// Whether a route has these vias, each of which may be named more than once, and no others.
bool hasJust(const EngineRun::EngineRoute& route, const std::vector<Via>& vias) {
  U32 distinct = 0;
  for (auto via = vias.begin(); via != vias.end(); ++via) {
    if (!route.via(*via)) return false;
    distinct += std::find(vias.begin(), via, *via) == via;
  }
  return distinct == route.viaCount();
}

}  // namespace

bool Agent::Impl::isRight(const std::vector<Lumo::Prefix>& changed) {
  ++round_;
  judged_.resize(std::max<std::size_t>(judged_.size(), config.size()));
  const auto rightWithUsers = [&](const Lumo::Prefix& prefix) { return isRightWithUsers(prefix); };
  const bool right =
      std::all_of(changed.begin(), changed.end(), [&](const auto& p) { return isRightOnce(p); }) &&
      std::all_of(run->touched().begin(), run->touched().end(), rightWithUsers);
  vias_.clear();  // they hold interfaces, which may go
  return right;
}

/// A prefix that something was written to, and those with an RPF address that it may be the longest match of.
bool Agent::Impl::isRightWithUsers(const Lumo::Prefix& prefix) {
  if (!isRightOnce(prefix)) return false;
  if (prefix.length() == 0) return true;  // nothing resolves through it
  bool right = true;
  config.forEachUser(prefix, [&](U32 address, const Lumo::Prefix& user) -> U64 {
    const Lumo::IpGenPrefix match = run->longestMatch(Lumo::IpAddr::fromHost(address));
    if (!match.empty() && match.length() > prefix.length()) return U64{lastOf(match.v4Prefix())} + 1;
    right = isRightOnce(user);
    return right ? address : U64{lastOf(prefix)} + 1;
  });
  return right;
}

bool Agent::Impl::isRightOnce(const Lumo::Prefix& prefix) {
  if (const Mroutes::Node* node = config.find(prefix)) {
    U32& judged = judged_[config.placeOf(*node)];
    if (std::exchange(judged, round_) == round_) return true;
  }
  return isRight(prefix);
}

bool Agent::Impl::isRight(const Lumo::Prefix& prefix) {
  const Mroutes::Node* node = config.find(prefix);
  const auto copy = unicast.copied(prefix);
  const EngineRun::EngineRoute* route = run->status().route(prefix);
  const RouteType configuredType = copy ? RouteType::connected : RouteType::multicastStatic;
  vias_.clear();
  for (const Line *line = node ? node->lines.begin() : nullptr, *end = node ? node->lines.end() : nullptr;
       line != end; ++line) {
    const bool isLast = line + 1 == end || line[1].preference != line->preference;
    const auto rpf = rpfOf(config, *line);
    const auto probed = rpf ? run->resolver().probe(*rpf, prefix) : EngineRun::Resolver::Probe{};
    if (rpf && probed.verdict == Verdict::usable) run->resolver().viasOf(*rpf, probed, vias_);
    if (!isLast || vias_.empty()) continue;
    return route && route->routeType() == configuredType && route->preference() == line->preference &&
           hasJust(*route, vias_);
  }
  if (!copy) return !route;
  for (const NextHop& hop : copy->hops) {
    const auto* intf = interfaces.directory()->intfStatus(Lumo::IntfId(hop.link));
    vias_.push_back({hop.address, Zan::Ptr<Interface::IntfStatus const>(intf)});
  }
  return route && route->routeType() == RouteType::connected && route->preference() == copy->preference &&
         hasJust(*route, vias_);
}

}  // namespace mrib
