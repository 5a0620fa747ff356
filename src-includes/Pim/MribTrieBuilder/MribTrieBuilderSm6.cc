#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"

#include "Pim/MribTrieBuilder/MribTrieBuilderTrace.h"
#include "Zan/ZanType.h"

#define TRACE(context, level, ...) \
  ZAN_TRACE(Routing::Multicast::Rib::mribTrieBuilderTrace, context, level, __VA_ARGS__)

namespace Routing6::Multicast::Rib {

namespace {

using Zan::Ptr;

constexpr const char* sigInitialize = "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleInitialize()";
constexpr const char* sigRoute = "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleRoute()";
constexpr const char* sigRouteOf =
    "void Routing6::Multicast::Rib::MribTrieBuilderSm::handleRoute(const Lumo::Ip6Prefix&)";
constexpr const char* sigVia =
    "void Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute::handleVia(const Routing6::Fib::Via&)";

}  // namespace

// ---- The builder ----

void MribTrieBuilderSm::handleInitialize() {
  TRACE(this, 8, sigInitialize);
  ZAN_ASSERT(status() && mribRouteStatus());
  publishTrie("mribTrie6", Lumo::ipv6());
}

/// *Intended*: counts whether or not the trie changes.
void MribTrieBuilderSm::handleRoute(const Lumo::Ip6Prefix& prefix) {
  TRACE(this, 8, sigRouteOf << "( " << prefix << " )");
  ZAN_ASSERT(status() && trie());
  const Ptr<MribTrieBuilderSm> pin(this);
  if (status()->route(prefix)) {
    trie()->routeIs(prefix, true);
  } else {
    trie()->routeDel(prefix);
  }
  trieUpdatesIs(trieUpdates() + 1);
}

void MribTrieBuilderSm::handleRoute() {
  TRACE(this, 8, sigRoute);
  if (!initialize()) return;
  ZAN_ASSERT_TEXT(presentTrie().nodes() == 0, "trie()->nodes() == 0");
  loadTrie(0);
}

// ---- The reactors ----

void MribTrieBuilderSm::ZanStatus::onRoute(const Lumo::Ip6Prefix& prefix) {
  if (!notifier() || !owner()) return;
  const Ptr<MribTrieBuilderSm> pin(owner());
  pin->handleRoute(prefix);
  StatusReactor::onRoute(prefix);
}

void MribTrieBuilderSm::ZanRoute::handleVia(const Fib::Via& via) {
  ZAN_ASSERT(notifier());
  TRACE(this, 8, sigVia << "( " << via << " ) " << (notifier()->via(via) ? "Addition" : "Deletion"));
  if (owner()) owner()->handleRoute(notifier()->prefix());
}

}  // namespace Routing6::Multicast::Rib
