#include "Pim/MribSm/MribSm.h"
#include "Pim/MribSm/MribSmTrace.h"
#include "Zan/Now.h"

// One RPF of one configured prefix, in and out of the MRIB status. An RPF is turned into an address; the
// longest match of that address among the MRIB routes (lpm) is the route that it resolves through, and
// supplies the vias.

namespace Routing::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* opAdd = "doAddOrUpdateRoute";
constexpr const char* sigAdd =
    "S32 Routing::Multicast::Rib::RouteResolverSm::doAddOrUpdateRoute(const Routing::Multicast::Rib::Rpf&, "
    "const Lumo::IpGenPrefix&, U8)";
constexpr const char* sigDelRpf =
    "S32 Routing::Multicast::Rib::RouteResolverSm::doDelRpf(const Routing::Multicast::Rib::Rpf&, const "
    "Lumo::IpGenPrefix&)";
constexpr const char* sigDelRoute =
    "void Routing::Multicast::Rib::RouteResolverSm::doDelRoute(const Lumo::IpGenPrefix&)";

}  // namespace

std::optional<Lumo::IpAddr> RouteResolverSm::rpfAddress(const Rpf& rpf) const {
  if (rpf.rpfType == Rpf::addr()) return rpf.address.v4Addr();
  ZAN_ASSERT_TEXT(rpf.rpfType == Rpf::intf(), "0");
  const Ptr<Ip::Status const>& ipStatus = engine().ipStatus();
  const auto* entry = ipStatus ? ipStatus->intfAddr(rpf.intfId) : nullptr;
  return entry ? std::optional(entry->addr()) : std::nullopt;
}

Lumo::IpGenPrefix RouteResolverSm::longestMatch(Lumo::IpAddr address) const {
  return engine().mribTrie().longestMatch({address, 32});
}

/// Whether a prefix may resolve through its longest match.
RouteResolverSm::Verdict RouteResolverSm::verdictOn(const Lumo::IpGenPrefix& lpm,
                                                    const Lumo::IpGenPrefix& prefix) const {
  if (lpm.empty()) return Verdict::noMatch;
  if (lpm == prefix) return Verdict::itself;
  if (lpm == defaultPrefix()) return Verdict::onlyDefault;
  if (lpm.length() >= prefix.length()) return Verdict::usable;
  // *Intended*: the shift is taken modulo 32, so that length 0 compares whole addresses.
  const U32 shift = (32u - lpm.length()) % 32;
  const bool covers = prefix.v4Prefix().address().host() >> shift == lpm.v4Prefix().address().host() >> shift;
  return covers ? Verdict::coversIt : Verdict::usable;
}

RouteResolverSm::Probe RouteResolverSm::probe(const Rpf& rpf, const Lumo::IpGenPrefix& prefix) const {
  const auto hop = rpfAddress(rpf);
  if (!hop) return {Verdict::noAddress, {}, {}};
  const Lumo::IpGenPrefix lpm = longestMatch(*hop);
  return {verdictOn(lpm, prefix), *hop, lpm};
}

/// Walks the vias that an RPF contributes: one by its interface, or those of the route it resolves through,
/// with the RPF address as hop where that route is connected.
class RouteResolverSm::CandidateVias {
 public:
  CandidateVias(const RouteResolverSm& resolver, const Rpf& rpf, Lumo::IpAddr hop,
                const Lumo::IpGenPrefix& lpm)
      : via_{hop, nullptr} {
    if (rpf.rpfType == Rpf::intf()) {
      const auto& directory = resolver.engine().intfStatus();
      via_.intfStatus =
          Ptr<Interface::IntfStatus const>(directory ? directory->intfStatus(rpf.intfId) : nullptr);
      return;
    }
    lpmRoute_ = Ptr<Route const>(resolver.status().route(lpm.v4Prefix()));
    ZAN_ASSERT_TEXT(lpmRoute_, "lpmRoute");
    walk_.emplace(lpmRoute_->viaList());
    read();
  }

  explicit operator bool() const { return valid_; }
  const Fib::Via& operator*() const { return via_; }
  const Fib::Via* operator->() const { return &via_; }
  CandidateVias& operator++() {
    if (walk_) {
      ++*walk_;
      read();
    } else {
      valid_ = false;
    }
    return *this;
  }

 private:
  void read() {
    valid_ = static_cast<bool>(*walk_);
    if (!valid_) return;
    via_.intfStatus = (*walk_)->intfStatus;
    if (lpmRoute_->routeType() != Fib::RouteType::connected) via_.hop = (*walk_)->hop;
  }

  Ptr<Route const> lpmRoute_;
  std::optional<Route::ViaIterator> walk_;
  Fib::Via via_;
  bool valid_ = true;
};

void RouteResolverSm::viasOf(const Rpf& rpf, const Probe& probed, std::vector<Fib::Via>& vias) const {
  for (CandidateVias via(*this, rpf, probed.hop, probed.lpm); via; ++via) vias.push_back(*via);
}

S32 RouteResolverSm::doAddOrUpdateRoute(const Rpf& rpf, const Lumo::IpGenPrefix& prefix, U8 preference) {
  const Kept kept(*this);
  return offerRpf(rpf, prefix, preference, std::nullopt);
}

/// `known` is the present route of the prefix, or null for none, where it has been looked up already.
S32 RouteResolverSm::offerRpf(const Rpf& rpf, const Lumo::IpGenPrefix& prefix, U8 preference,
                              std::optional<Route*> known) {
  MRIB_TRACE_OF(8, opAdd, sigAdd << "( " << rpf << ", " << prefix << ", " << preference << " )");
  ZAN_ASSERT_TEXT(preference != 0, "pref");
  if (prefix.af() != Lumo::ipv4()) return unusable;
  const Probe probed = probe(rpf, prefix);
  if (probed.verdict == Verdict::noAddress) {
    MRIB_TRACE_OF(8, opAdd, sigAdd << "Could not find an IP address on  " << rpf.intfId);
    return unusable;
  }
  if (probed.verdict != Verdict::usable) {
    MRIB_TRACE_OF(8, opAdd, sigAdd << "Rejecting add/update for lpm " << probed.lpm);
    return unusable;
  }
  MRIB_TRACE_OF(8, opAdd, sigAdd << " Longest prefix match for " << probed.hop << " is " << probed.lpm);
  if (const Ptr<Route> route{known ? *known : status().route(prefix.v4Prefix())}) {
    return updateRoute(route, rpf, probed.hop, probed.lpm, prefix, preference);
  }
  addRoute(rpf, probed.hop, probed.lpm, prefix, preference);
  return changed;
}

/// At the start, where the first refresh has offered all prefixes, those that are not marked need no offer.
/// And most prefixes have one RPF: to offer it is to offer the whole prefix. Neither holds where the route is
/// left over from a lower preference that is gone: then a refresh passes over what is configured.
void RouteResolverSm::addRpf(const Rpf& rpf, const RouteKeyPrefix& entry, U8 preference) {
  const bool settled = isSettled(entry);
  if (settled && !marks_.bestWasPassedOver()) return;
  Route* route = routeOf(entry.prefix());
  const bool refreshOffersIt = !route || route->preference() >= preference;
  if (settled && refreshOffersIt) return;
  if (!refreshOffersIt || entry.prefCount() > 1 || entry.bestPref()->rpfCount() > 1) {
    offerRpf(rpf, entry.prefix(), preference, route);
    return;
  }
  RefreshMarks::Offer offer(marks_, entry);
  offerRpf(rpf, entry.prefix(), preference, route);
  offer.complete();
}

void RouteResolverSm::addRoute(const Rpf& rpf, Lumo::IpAddr hop, const Lumo::IpGenPrefix& lpm,
                               const Lumo::IpGenPrefix& prefix, U8 preference) {
  const Lumo::Prefix key = prefix.v4Prefix();
  const auto own = [&](auto write) {
    const RefreshMarks::OwnWrite expected(marks_, key);
    return write();
  };
  const Ptr<Route> route = own([&] { return status().routeIs(key); });
  own([&] { route->preferenceIs(preference); });
  own([&] { route->routeTypeIs(Fib::RouteType::multicastStatic); });
  route->creationTimeIs(Zan::now());
  for (CandidateVias via(*this, rpf, hop, lpm); via; ++via) {
    own([&] { route->viaIs(*via, true); });
    MRIB_TRACE_OF(8, opAdd, "Added via " << via->hop);
  }
  MRIB_TRACE_OF(5, opAdd, "Added route " << prefix << " with preference " << preference);
  addWatch(lpm, prefix, present(route));
}

/// *Intended*: with an unchanged preference an update only adds vias; and a preference change that adds no
/// via counts as nothing done.
S32 RouteResolverSm::updateRoute(const Ptr<Route>& route, const Rpf& rpf, Lumo::IpAddr hop,
                                 const Lumo::IpGenPrefix& lpm, const Lumo::IpGenPrefix& prefix,
                                 U8 preference) {
  if (route->preference() != preference) {
    MRIB_TRACE_OF(8, opAdd,
                  sigAdd << " Preference changed from " << route->preference() << " to " << preference);
    route->preferenceIs(preference);
    route->viaDelAll();
    doDelWatchPrefix(prefix, nullptr);
  }
  bool added = false;
  for (CandidateVias via(*this, rpf, hop, lpm); via; ++via) {
    if (route->via(*via)) continue;
    {
      const RefreshMarks::OwnWrite expected(marks_, route->prefix());
      route->viaIs(*via, true);
    }
    MRIB_TRACE_OF(8, opAdd, "Added via " << via->hop);
    added = true;
  }
  addWatch(lpm, prefix, present(route));
  if (!added) return nothingToDo;
  MRIB_TRACE_OF(5, opAdd, "Updated route " << prefix << " with preference " << preference);
  return changed;
}

S32 RouteResolverSm::doDelRpf(const Rpf& rpf, const Lumo::IpGenPrefix& prefix) {
  const Kept kept(*this);
  MRIB_TRACE(8, sigDelRpf << "( " << rpf << ", " << prefix << " )");
  const Ptr<Route> route(routeOf(prefix));
  if (!route) {
    MRIB_TRACE(5, sigDelRpf << "Nothing to do. Route already deleted");
    return 0;
  }
  const U8 preference = route->preference();
  const RouteKeyPrefix* rkPrefix = config().route(prefix);
  ZAN_ASSERT(rkPrefix);
  const RouteKeyPreference* rkPreference = rkPrefix->pref(preference);
  ZAN_ASSERT(rkPreference);
  if (rkPreference->rpfCount() == 0) {
    MRIB_TRACE(5, sigDelRpf << " Deleted route " << prefix << " with preference " << preference);
    doDelRoute(prefix);
    return 0;
  }
  const auto hop = rpfAddress(rpf);
  ZAN_ASSERT_TEXT(hop, "ipStatus->intfAddr(rpf.intfId)");
  const Lumo::IpGenPrefix lpm = longestMatch(*hop);
  if (lpm.empty()) {
    MRIB_TRACE(8, "LPM is absent for hop " << *hop);
    return 0;
  }
  for (CandidateVias via(*this, rpf, *hop, lpm); via; ++via) {
    if (!route->via(*via)) continue;
    route->viaDel(*via);
    MRIB_TRACE(8, "Deleted via " << via->hop);
  }
  MRIB_TRACE(5, sigDelRpf << " Deleted route" << prefix << "'s vias"
                          << " with preference " << preference);
  doDelWatchPrefix(prefix, nullptr);
  return 0;
}

void RouteResolverSm::doDelRoute(const Lumo::IpGenPrefix& prefix) {
  const Kept kept(*this);
  MRIB_TRACE(8, sigDelRoute << "( " << prefix << " )");
  doDelWatchPrefix(prefix, nullptr);
  if (prefix.af() == Lumo::ipv4()) status().routeDel(prefix.v4Prefix());
  MRIB_TRACE(5, sigDelRoute << " Deleted route " << prefix);
}

}  // namespace Routing::Multicast::Rib
