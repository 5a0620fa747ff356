#pragma once

#include "Pim/MribTrieBuilder/TrieBuilder.h"
#include "Routing6/Fib/Via.h"
#include "Routing6/Multicast/Rib/Route.h"
#include "Routing6/Multicast/Rib/Status.h"
#include "Routing6/Multicast/Shadow/Status.h"

namespace Routing6::Multicast::Rib {

class MribTrieBuilderSm;

/// What `TrieBuilder` must know of the builder for IPv6.
struct ZAN_EXPORT MribTrieBuilderTypes {
  using Builder = MribTrieBuilderSm;
  using Family = Routing::Family6;
  class ZanStatus;
  class ZanRoute;
  static constexpr std::string_view name = "Routing6::Multicast::Rib::MribTrieBuilderSm";
  static constexpr std::string_view routeName = "Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute";
};

/// Keeps the longest-match trie "mribTrie6" of the IPv6 MRIB shadow status in step with the routes of the
/// IPv6 MRIB status. Unlike its IPv4 twin it follows the route collection itself: a prefix is in the trie
/// when the status has a route for it, and every look at one counts as an update.
class ZAN_EXPORT MribTrieBuilderSm : public Routing::TrieBuilder<MribTrieBuilderTypes> {
 public:
  /// Both must exist.
  MribTrieBuilderSm(const Zan::Ptr<Status const>& status, const Zan::Ptr<ShadowStatus>& mribRouteStatus) {
    start(status, mribRouteStatus);
  }

  /// Makes and publishes the trie.
  void handleInitialize();
  /// Loads every route of the status into the empty trie, without counting.
  void handleRoute();
  /// Takes a prefix into the trie or out of it, as the status has a route for it or not.
  void handleRoute(const Lumo::Ip6Prefix& prefix);
};

/// Watches the route collection of the MRIB status and has the trie follow it.
class ZAN_EXPORT MribTrieBuilderTypes::ZanStatus : public MribTrieBuilderSm::StatusReactor {
 public:
  using StatusReactor::StatusReactor;
  void onRoute(const Lumo::Ip6Prefix& prefix) override;
  using StatusReactor::onRoute;
};

/// Watches one route of the MRIB status and keeps its prefix in the trie.
class ZAN_EXPORT MribTrieBuilderTypes::ZanRoute : public MribTrieBuilderSm::RouteReactor {
 public:
  using RouteReactor::RouteReactor;

  void onVia(const Fib::Via& via) override { handleVia(via); }
  using RouteReactor::onVia;

  void handleVia(const Fib::Via& via);
};

/// Creates the builder on an MRIB status and the shadow status that publishes the trie.
ZAN_EXPORT Zan::Ptr<MribTrieBuilderSm> mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status,
    const Zan::Ptr<Routing6::Multicast::Shadow::Status>& mribRouteStatus);

}  // namespace Routing6::Multicast::Rib

extern template class Routing::TrieBuilder<Routing6::Multicast::Rib::MribTrieBuilderTypes>;
