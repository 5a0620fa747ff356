#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"

#include "Pim/MribTrieBuilder/MribTrieBuilderTrace.h"
#include "Zan/ZanType.h"

#define TRACE(context, level, ...) ZAN_TRACE(mribTrieBuilderTrace, context, level, __VA_ARGS__)

namespace Routing::Multicast::Rib {

Zan::TraceHandle mribTrieBuilderTrace("MribTrieBuilder");

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing::Multicast::Rib::MribTrieBuilderSm::handleInitialize()";
constexpr const char* sigRoute = "void Routing::Multicast::Rib::MribTrieBuilderSm::handleRoute()";
constexpr const char* sigPreference =
    "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handlePreference()";
constexpr const char* sigVia =
    "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleVia(const Routing::Fib::Via&)";
constexpr const char* sigDel = "void Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleDel()";

}  // namespace

// ---- The builder ----

void MribTrieBuilderSm::handleInitialize() {
  TRACE(this, 8, sigInitialize);
  ZAN_ASSERT(status() && mribRouteStatus());
  publishTrie("mribTrie4", Lumo::ipv4());
}

void MribTrieBuilderSm::handleRoute() {
  TRACE(this, 8, sigRoute);
  if (!initialize()) return;
  ZAN_ASSERT_TEXT(presentTrie().nodes() == 0, "trie()->nodes() == 0");
  const Ptr<MribTrieBuilderSm> pin(this);
  loadTrie(1);
  deletedPreferenceIs(deletedPreferenceUnknown);
}

void MribTrieBuilderSm::zan_handleRoute(const Ptr<ZanRoute>& reactor) {
  reactor->handleDel();
}

// ---- ZanRoute ----

MribTrieBuilderSm::ZanRoute::ZanRoute(const Ptr<Route const>& route, MribTrieBuilderSm* owner)
    : RouteReactor(route, owner) {
  ignoresIs(Route::routeTypeId);
  ignoresIs(Route::creationTimeId);
  ignoresIs(Route::metricId);
  ignoresIs(Route::prefixSetId);
}

void MribTrieBuilderSm::ZanRoute::handleDefault(Zan::ActivityConfig*, Zan::AttributeId, bool leaving) {
  if (leaving && owner()) owner()->zan_handleRoute(Ptr<ZanRoute>(this));
}

void MribTrieBuilderSm::ZanRoute::handlePreference() {
  TRACE(this, 8, sigPreference);
  if (!owner() || notifier()->viaCount() == 0) return;
  insertPrefix();
}

/// *Intended*: a via that goes inserts the prefix like one that comes; only `handleDel` removes it.
void MribTrieBuilderSm::ZanRoute::handleVia(const Fib::Via& via) {
  ZAN_ASSERT(notifier());
  TRACE(this, 8, sigVia << "( " << via << " ) " << (notifier()->via(via) ? "Addition" : "Deletion"));
  if (owner()) insertPrefix();
}

void MribTrieBuilderSm::ZanRoute::insertPrefix() {
  owner()->presentTrie().routeAdd(notifier()->prefix(), [this] { owner()->trieUpdatesInc(1); });
  // Handlers of the trie may have released the builder.
  if (owner()) owner()->deletedPreferenceIs(MribTrieBuilderSm::deletedPreferenceUnknown);
}

void MribTrieBuilderSm::ZanRoute::handleDel() {
  ZAN_ASSERT(notifier());
  const U8 preference = notifier()->preference();
  // *Intended*: the preference is one raw byte of the text.
  TRACE(this, 8,
        sigDel << "Route with prefix " << notifier()->prefix() << " and preference "
               << Zan::Text::RawByte{preference} << " about to be deleted ");
  const Ptr<MribTrieBuilderSm> builder(owner());
  if (!builder) return;
  builder->deletedPreferenceIs(preference);
  builder->presentTrie().routeDel(notifier()->prefix());
  builder->trieUpdatesInc(1);
}

}  // namespace Routing::Multicast::Rib
