#pragma once

#include "Pim/MribTrieBuilder/TrieBuilder.h"

namespace Routing::Multicast::Rib {

class MribTrieBuilderSm;

/// What `TrieBuilder` must know of the builder for IPv4.
struct ZAN_EXPORT MribTrieBuilderTypes {
  using Builder = MribTrieBuilderSm;
  using Family = Family4;
  class ZanStatus;
  class ZanRoute;
  static constexpr std::string_view name = "Routing::Multicast::Rib::MribTrieBuilderSm";
  static constexpr std::string_view routeName = "Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute";
};

/// Keeps the longest-match trie "mribTrie4" of the MRIB shadow status in step with the routes of the MRIB
/// status. A route enters the trie when its preference changes while it has vias, or when one of its vias
/// comes or goes; it leaves the trie when it leaves the status.
class ZAN_EXPORT MribTrieBuilderSm : public TrieBuilder<MribTrieBuilderTypes> {
 public:
  /// The value of `deletedPreference` that says that no removal is recorded.
  static constexpr U8 deletedPreferenceUnknown = 0;

  /// Both must exist.
  MribTrieBuilderSm(const Zan::Ptr<Status const>& status, const Zan::Ptr<ShadowStatus>& mribRouteStatus) {
    start(status, mribRouteStatus);
  }

  /// Preference of the route most recently removed from the trie, until something is inserted.
  U8 deletedPreference() const { return deletedPreference_; }
  void deletedPreferenceIs(U8 v) { deletedPreference_ = v; }
  void trieUpdatesInc(U32 n) { trieUpdatesIs(trieUpdates() + n); }

  /// Makes and publishes the trie.
  void handleInitialize();
  /// Loads every route of the status into the empty trie.
  void handleRoute();
  /// Called when the route that a reactor watches leaves the status.
  void zan_handleRoute(const Zan::Ptr<ZanRoute>& reactor);

 private:
  friend class MribTrieBuilderTypes::ZanRoute;

  U8 deletedPreference_ = deletedPreferenceUnknown;
};

/// Watches the route collection of the MRIB status.
class ZAN_EXPORT MribTrieBuilderTypes::ZanStatus : public MribTrieBuilderSm::StatusReactor {
 public:
  using StatusReactor::StatusReactor;
};

/// Watches one route of the MRIB status and keeps its prefix in the trie.
class ZAN_EXPORT MribTrieBuilderTypes::ZanRoute : public MribTrieBuilderSm::RouteReactor {
 public:
  ZanRoute(const Zan::Ptr<Route const>& route, MribTrieBuilderSm* owner);

  void onPreference() override { handlePreference(); }
  void onVia(const Fib::Via& via) override { handleVia(via); }
  void handleDefault(Zan::ActivityConfig* activity, Zan::AttributeId attribute, bool leaving) override;
  using RouteReactor::onVia;

  void handlePreference();
  void handleVia(const Fib::Via& via);
  void handleDel();

 private:
  void insertPrefix();
};

/// Creates the builder on an MRIB status and the shadow status that publishes the trie.
ZAN_EXPORT Zan::Ptr<MribTrieBuilderSm> mribTrieBuilderSmFactory(
    const Zan::Ptr<Status const>& status,
    const Zan::Ptr<Routing::Multicast::Shadow::Status>& mribRouteStatus);

}  // namespace Routing::Multicast::Rib

extern template class Routing::TrieBuilder<Routing::Multicast::Rib::MribTrieBuilderTypes>;
