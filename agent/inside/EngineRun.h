#pragma once

#include "Pim/MribSm/MribSm.h"
#include "inside/Interfaces.h"
#include "inside/Unicast.h"

namespace mrib {

/// One engine on the agent's interfaces and unicast routes, with a configuration and an MRIB of its own.
class EngineRun {
 public:
  using Rpf = Routing::Multicast::Rib::Rpf;
  using Resolver = Routing::Multicast::Rib::RouteResolverSm;
  using EngineRoute = Routing::Multicast::Rib::Route;
  /// An RPF to configure for a prefix.
  struct Offer {
    Rpf rpf;
    U8 preference;
  };

  /// `prefixes` is the number that will be configured, roughly.
  explicit EngineRun(U32 prefixes);
  EngineRun(const EngineRun&) = delete;
  EngineRun& operator=(const EngineRun&) = delete;

  /// Starts the engine on what is configured by then. That is right for prefixes that could resolve through
  /// no other configured one and are not connected, in whatever order; and costs less than to tell it of
  /// each.
  void start(const Interfaces& interfaces, const Unicast& unicast);
  /// Configures a prefix that is not configured. `offers` are in order of preference.
  void expect(const Lumo::Prefix& prefix) const { config_->routePrefetch(prefix); }
  void configure(const Lumo::Prefix& prefix, std::span<const Offer> offers);
  void unconfigure(const Lumo::Prefix& prefix) { config_->routeDel(prefix); }
  /// Offers everything again for which something has changed.
  void refresh() { resolver().doMaybeRefreshRoutes({}, true); }

  const Zan::Ptr<Routing::Multicast::Rib::MribSm>& mribSm() const { return mribSm_; }
  Resolver& resolver() const { return *mribSm_->routeResolver(); }
  const Routing::Multicast::Rib::Status& status() const { return *status_; }
  const Routing::TrieGen& trie() const { return *trie_; }
  Lumo::IpGenPrefix longestMatch(Lumo::IpAddr address) const { return trie_->longestMatch({address, 32}); }

  /// Every prefix of the MRIB that something was written to since `forgetTouched`, once or more often.
  const std::vector<Lumo::Prefix>& touched() const { return touched_; }
  void forgetTouched() { touched_.clear(); }
  /// Whether there was memory for all of them.
  bool allHeard() const { return allHeard_; }
  /// Whether touched prefixes are collected.
  void listenIs(bool listen);

 private:
  /// Throws nothing: the one who writes does not reckon with it.
  void hear(const Lumo::Prefix& prefix) noexcept {
    try {
      if (touched_.empty() || touched_.back() != prefix) touched_.push_back(prefix);
    } catch (const std::bad_alloc&) {
      allHeard_ = false;
    }
  }
  class Twin;

  Zan::Ptr<Routing::Multicast::Rib::Config> config_;
  Zan::Ptr<Routing::Multicast::Rib::Status> status_;
  Zan::Ptr<Routing::Multicast::Rib::MribSm> mribSm_;
  Zan::Ptr<Routing::TrieGen const> trie_;
  std::vector<Lumo::Prefix> touched_;
  bool allHeard_ = true;
  Zan::Tap<Lumo::Prefix> tap_ = Zan::Tap<Lumo::Prefix>::to<&EngineRun::hear>(this);
};

}  // namespace mrib
