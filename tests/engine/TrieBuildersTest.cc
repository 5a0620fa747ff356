#include <gtest/gtest.h>

#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "TraceRecorder.h"
#include "framework/Watcher.h"

// The builder of IPv6, which is in no engine. That of IPv4 shares its bookkeeping, and is in the random
// events.

namespace {

using Routing6::Multicast::Rib::mribTrieBuilderSmFactory;
using Routing6::Multicast::Rib::Status;
using Shadow = Routing6::Multicast::Shadow::Status;
const Routing6::Fib::Via via6{Lumo::Ip6Addr("fe80::1"), nullptr};

struct World {
  World() {
    status->routeIs(one)->viaIs(via6, true);
    builder = mribTrieBuilderSmFactory(status, shadow);
  }
  /// Which of the two prefixes are in the trie, how many updates were counted, how many routes are watched.
  std::string state() const {
    return (builder->trie()->route(one) ? "one " : "") +
           std::string(builder->trie()->route(two) ? "two " : "") + std::to_string(builder->trieUpdates()) +
           ", " + std::to_string(builder->routeCount());
  }

  Lumo::Ip6Prefix one{"2001:db8:1::/48"}, two{"2001:db8:2::/48"};
  Zan::Ptr<Status> status = Zan::create<Status>("status");
  Zan::Ptr<Shadow> shadow = Zan::create<Shadow>("shadow");
  Zan::Ptr<Routing6::Multicast::Rib::MribTrieBuilderSm> builder;
};

const struct {
  const char* name;
  void (*happen)(World&);
  const char* state;
} events[] = {
    {"start with one", [](World&) {}, "one 0, 1"},
    {"two comes, without via", [](World& w) { w.status->routeIs(w.two); }, "one two 1, 2"},
    {"two gets a preference", [](World& w) { w.status->route(w.two)->preferenceIs(7); }, "one two 1, 2"},
    {"two gets a via", [](World& w) { w.status->route(w.two)->viaIs(via6, true); }, "one two 2, 2"},
    {"two loses its via", [](World& w) { w.status->route(w.two)->viaDel(via6); }, "one two 3, 2"},
    {"two goes", [](World& w) { w.status->routeDel(w.two); }, "one 4, 1"},
    {"all may have changed", [](World& w) { w.status->routeNotifyAll(); }, "one 4, 1"},
    {"absent prefix is named",
     [](World& w) {
       w.builder->trie()->routeIs(Lumo::IpGenPrefix(w.two), true);
       w.status->routeIs(w.two);
       w.status->routeDel(w.two);
     },
     "one 6, 1"},
};

TEST(TrieBuilder6, FollowsTheRoutes) {
  World w;
  for (const auto& event : events) {
    event.happen(w);
    EXPECT_EQ(w.state(), event.state) << event.name;
  }
}

TEST(TrieBuilder6, SaysWhatItDoesInItsOwnWords) {
  World w;
  const TraceRecorder recorder;
  const auto again = mribTrieBuilderSmFactory(w.status, w.shadow);
  for (const bool present : {false, true}) w.status->route(w.one)->viaIs(via6, present);
  w.status->routeDel(w.one);
  std::string text;
  for (const auto& m : recorder.messages)
    text += m.handle + std::to_string(m.level) + ' ' + m.function + ": " + m.text + '\n';
  const std::string ns6 = "void Routing6::Multicast::Rib::MribTrieBuilderSm::";
  for (const std::string& part :
       {"8 handleInitialize: " + ns6 + "handleInitialize()\n", "8 handleRoute: " + ns6 + "handleRoute()\n",
        std::string("0 handleRoute: Trie built with 1 nodes  and 1 routes\n"),
        "8 handleVia: " + ns6 + "ZanRoute::handleVia(const Routing6::Fib::Via&)( fe80::1 ) Deletion\n",
        "8 handleVia: " + ns6 + "ZanRoute::handleVia(const Routing6::Fib::Via&)( fe80::1 ) Addition\n",
        "8 handleRoute: " + ns6 + "handleRoute(const Lumo::Ip6Prefix&)( 2001:db8:1::/48 )\n"}) {
    EXPECT_NE(text.find("MribTrieBuilder" + part), text.npos) << part << "in\n" << text;
  }
  EXPECT_EQ(text.find("handleDel"), text.npos);
}

/// The builder goes in a handler of the trie that it writes: what was under way is done, the next is not.
TEST(TrieBuilder6, MayBeReleasedInAHandler) {
  for (std::size_t last = 1; last <= 5; ++last) {
    World w;
    for (std::size_t n = 1; n < last; ++n) events[n].happen(w);
    const auto trie = w.builder->trie();
    const auto watcher = watch<Routing::TrieGen::NotifieeConst>(trie, [&] { w.builder = nullptr; });
    events[last].happen(w);
    if (w.builder) continue;
    EXPECT_EQ(trie->route(w.two), w.status->route(w.two) != nullptr) << events[last].name;
    EXPECT_FALSE(w.status->hasNotifiees());
    w.status->routeDel(w.one);
    EXPECT_TRUE(trie->route(w.one));
  }
}

}  // namespace
