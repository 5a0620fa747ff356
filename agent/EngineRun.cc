#include "inside/EngineRun.h"

#include <algorithm>

namespace mrib {

using namespace Routing::Multicast::Rib;

EngineRun::EngineRun(U32 prefixes)
    : config_(Zan::create<Config>("mribConfig")), status_(Zan::create<Status>("mribStatus")) {
  config_->routeReserve(prefixes);
  status_->routeReserve(prefixes);
}

void EngineRun::start(const Interfaces& interfaces, const Unicast& unicast) {
  mribSm_ = mribSmFactory(interfaces.info(), unicast.shadow(), config_, status_, interfaces.directory());
  trie_ = mribSm_->mribShadow()->trie();
  refresh();  // an engine may leave out the prefix with which it begins
}

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
    EngineRoute* route = status.routeCount() > 0 ? status.route(prefix) : nullptr;  // before a start: none
    exists_ = route != nullptr;
    const auto same = [&](const Offer& offer) { return offer.preference == route->preference(); };
    if (!exists_ || std::none_of(offers.begin(), offers.end(), same)) return;
    preference_ = route->preference();
    route->preferenceIs(0);
  }
  ~Twin() {
    EngineRoute* route = preference_ != 0 ? status_.route(prefix_) : nullptr;
    if (route && route->preference() == 0) route->preferenceIs(preference_);
  }
  Twin(const Twin&) = delete;
  Twin& operator=(const Twin&) = delete;
  explicit operator bool() const { return exists_; }

 private:
  const Status& status_;
  Lumo::Prefix prefix_;
  bool exists_;
  U8 preference_ = 0;
};

/// An engine that adds a prefix offers its best preference, and a refresh goes on to the worse ones until one
/// resolves; so what a dependant takes over is final. But a refresh stops at the preference of the route that
/// is there, and that of a connected one may be better than all. So on such a one the worst preference is put
/// first, and each is offered when it is added.
void EngineRun::configure(const Lumo::Prefix& prefix, std::span<const Offer> offers) {
  if (offers.empty()) return;
  const Twin twin(*status_, prefix, offers);
  auto entry = Zan::create<RouteKeyPrefix>(prefix);
  if (twin) config_->routeIs(entry);
  for (auto last = offers.end(); last != offers.begin();) {
    const U8 preference = (last - 1)->preference;
    auto first = last - 1;
    while (first != offers.begin() && (first - 1)->preference == preference) --first;
    auto rpfs = Zan::create<RouteKeyPreference>(preference);
    for (auto offer = first; offer != last; ++offer) rpfs->rpfIs(offer->rpf);
    entry->prefIs(rpfs);
    last = first;
  }
  if (!twin) config_->routeIs(entry);  // as a whole, which is announced once
  if (mribSm_ && offers.size() > 1) refresh();
}

}  // namespace mrib
