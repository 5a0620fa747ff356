#include "inside/EngineRun.h"

#include <algorithm>

namespace mrib {

using namespace Routing::Multicast::Rib;

EngineRun::EngineRun(const Interfaces& interfaces, const Unicast& unicast)
    : config_(Zan::create<Config>("mribConfig")),
      status_(Zan::create<Status>("mribStatus")),
      mribSm_(mribSmFactory(interfaces.info(), unicast.shadow(), config_, status_, interfaces.directory())),
      trie_(mribSm_->mribShadow()->trie()) {}

void EngineRun::listenIs(bool listen) {
  if (listen) {
    tap_.attach(status_->taps());
  } else {
    tap_.detach();
  }
}

/// A connected route under a prefix that is configured now. A configured one takes its place by changing its
/// preference, which takes the connected next hops out. Where the two preferences are the same they would
/// mix; so the connected route waits with preference 0, which is never configured.
class EngineRun::Twin {
 public:
  Twin(const Status& status, const Lumo::Prefix& prefix, std::span<const Offer> offers)
      : status_(status), prefix_(prefix) {
    Routing::Multicast::Rib::Route* route = status.route(prefix);
    if (!route) return;
    const auto same = [&](const Offer& offer) { return offer.preference == route->preference(); };
    if (std::none_of(offers.begin(), offers.end(), same)) return;
    preference_ = route->preference();
    route->preferenceIs(0);
  }
  ~Twin() {
    Routing::Multicast::Rib::Route* route = preference_ != 0 ? status_.route(prefix_) : nullptr;
    if (route && route->preference() == 0) route->preferenceIs(preference_);
  }
  Twin(const Twin&) = delete;
  Twin& operator=(const Twin&) = delete;

 private:
  const Status& status_;
  Lumo::Prefix prefix_;
  U8 preference_ = 0;
};

void EngineRun::configure(const Lumo::Prefix& prefix, std::span<const Offer> offers) {
  if (offers.empty()) return;
  const Twin twin(*status_, prefix, offers);
  const Lumo::IpGenPrefix key = prefix;
  auto entry = Zan::create<RouteKeyPrefix>(key);
  // A finished entry is announced once. The first preference that it gets is in it when it is entered.
  bool entered = false;
  for (auto last = offers.end(); last != offers.begin();) {
    auto first = last;
    const U8 preference = (first - 1)->preference;
    while (first != offers.begin() && (first - 1)->preference == preference) --first;
    auto preferenceEntry = Zan::create<RouteKeyPreference>(preference);
    for (auto offer = first; offer != last; ++offer) preferenceEntry->rpfIs(offer->rpf);
    entry->prefIs(preferenceEntry);
    if (!entered) config_->routeIs(entry);
    entered = true;
    last = first;
  }
  refresh();
}

}  // namespace mrib
