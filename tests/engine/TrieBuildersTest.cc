#include <gtest/gtest.h>

#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Refusal.h"
#include "TraceRecorder.h"
#include "framework/Watcher.h"

// The same events through both builders, and what each makes of them: they share their bookkeeping and differ
// in how the trie follows.

namespace {

struct V4 {
  using Builder = Routing::Multicast::Rib::MribTrieBuilderSm;
  using Status = Routing::Multicast::Rib::Status;
  using Shadow = Routing::Multicast::Shadow::Status;
  using Prefix = Lumo::Prefix;
  using Via = Routing::Fib::Via;
  static constexpr const char* one = "10.1.0.0/16";
  static constexpr const char* two = "10.2.0.0/16";
  static Via via() { return {Lumo::IpAddr("192.0.2.1"), nullptr}; }
  static auto make(const Zan::Ptr<Status>& status, const Zan::Ptr<Shadow>& shadow) {
    return Routing::Multicast::Rib::mribTrieBuilderSmFactory(status, shadow);
  }
  static std::string deleted(const Builder& b) { return " deleted " + std::to_string(b.deletedPreference()); }
};

struct V6 {
  using Builder = Routing6::Multicast::Rib::MribTrieBuilderSm;
  using Status = Routing6::Multicast::Rib::Status;
  using Shadow = Routing6::Multicast::Shadow::Status;
  using Prefix = Lumo::Ip6Prefix;
  using Via = Routing6::Fib::Via;
  static constexpr const char* one = "2001:db8:1::/48";
  static constexpr const char* two = "2001:db8:2::/48";
  static Via via() { return {Lumo::Ip6Addr("fe80::1"), nullptr}; }
  static auto make(const Zan::Ptr<Status>& status, const Zan::Ptr<Shadow>& shadow) {
    return Routing6::Multicast::Rib::mribTrieBuilderSmFactory(status, shadow);
  }
  static std::string deleted(const Builder&) { return ""; }
};

template <class F>
struct World {
  World() {
    status->routeIs(one)->viaIs(F::via(), true);
    builder = F::make(status, shadow);
  }
  /// Which of the two prefixes are in the trie, how many updates were counted, how many routes are watched.
  std::string state() const {
    std::string s = builder->trie()->route(one) ? "one " : "";
    s += builder->trie()->route(two) ? "two " : "";
    return s + "updates " + std::to_string(builder->trieUpdates()) + F::deleted(*builder) + " watched " +
           std::to_string(builder->routeCount());
  }

  typename F::Prefix one{F::one};
  typename F::Prefix two{F::two};
  Zan::Ptr<typename F::Status> status = Zan::create<typename F::Status>("status");
  Zan::Ptr<typename F::Shadow> shadow = Zan::create<typename F::Shadow>("shadow");
  Zan::Ptr<typename F::Builder> builder;
};

template <class F>
struct Event {
  const char* name;
  void (*happen)(World<F>&);
};
template <class F>
constexpr Event<F> events[] = {
    {"start with one", [](World<F>&) {}},
    {"two comes, without via", [](World<F>& w) { w.status->routeIs(w.two); }},
    {"two gets a preference", [](World<F>& w) { w.status->route(w.two)->preferenceIs(7); }},
    {"two gets a via", [](World<F>& w) { w.status->route(w.two)->viaIs(F::via(), true); }},
    {"two gets another preference", [](World<F>& w) { w.status->route(w.two)->preferenceIs(9); }},
    {"two loses its via", [](World<F>& w) { w.status->route(w.two)->viaDel(F::via()); }},
    {"two goes", [](World<F>& w) { w.status->routeDel(w.two); }},
    {"all may have changed", [](World<F>& w) { w.status->routeNotifyAll(); }},
    {"absent prefix is named",
     [](World<F>& w) {
       w.builder->trie()->routeIs(Lumo::IpGenPrefix(w.two), true);
       w.status->routeIs(w.two);
       w.status->routeDel(w.two);
     }},
};

TEST(TrieBuilders, DifferExactlyInHowTheTrieFollows) {
  const char* expected[][2] = {
      {"one updates 1 deleted 0 watched 1", "one updates 0 watched 1"},
      {"one updates 1 deleted 0 watched 2", "one two updates 1 watched 2"},
      {"one updates 1 deleted 0 watched 2", "one two updates 1 watched 2"},
      {"one two updates 2 deleted 0 watched 2", "one two updates 2 watched 2"},
      {"one two updates 2 deleted 0 watched 2", "one two updates 2 watched 2"},
      {"one two updates 2 deleted 0 watched 2", "one two updates 3 watched 2"},
      {"one updates 3 deleted 9 watched 1", "one updates 4 watched 1"},
      {"one updates 3 deleted 9 watched 1", "one updates 4 watched 1"},
      {"one updates 4 deleted 0 watched 1", "one updates 6 watched 1"},
  };
  World<V4> w4;
  World<V6> w6;
  for (std::size_t n = 0; n < std::size(expected); ++n) {
    events<V4>[n].happen(w4);
    events<V6>[n].happen(w6);
    EXPECT_EQ(w4.state(), expected[n][0]) << "IPv4: " << events<V4>[n].name;
    EXPECT_EQ(w6.state(), expected[n][1]) << "IPv6: " << events<V6>[n].name;
  }
}

template <class F>
std::string traced() {
  World<F> w;
  const TraceRecorder recorder;
  const auto again = F::make(w.status, w.shadow);
  w.status->route(w.one)->viaDel(F::via());
  w.status->routeDel(w.one);
  std::string text;
  for (const auto& m : recorder.messages) {
    // The first builder hears the same; what it says is left out.
    text += m.handle + std::to_string(m.level) + ' ' + m.function + ": " + m.text + '\n';
  }
  return text;
}

TEST(TrieBuilders, SayWhatTheyDoInTheirOwnWords) {
  const std::string ns6 = "void Routing6::Multicast::Rib::MribTrieBuilderSm::";
  const std::string text = traced<V6>();
  for (const std::string& part :
       {"8 handleInitialize: " + ns6 + "handleInitialize()\n", "8 handleRoute: " + ns6 + "handleRoute()\n",
        std::string("0 handleRoute: Trie built with 1 nodes  and 1 routes\n"),
        "8 handleVia: " + ns6 + "ZanRoute::handleVia(const Routing6::Fib::Via&)( fe80::1 ) Deletion\n",
        "8 handleRoute: " + ns6 + "handleRoute(const Lumo::Ip6Prefix&)( 2001:db8:1::/48 )\n"}) {
    EXPECT_NE(text.find("MribTrieBuilder" + part), text.npos) << part << "in\n" << text;
  }
  EXPECT_EQ(text.find("handleDel"), text.npos);
  EXPECT_NE(traced<V4>().find("ZanRoute::handleDel()Route with prefix 10.1.0.0/16 and preference "),
            text.npos);
}

TEST(TrieBuilders, Ipv6RefusesWhatIpv4Refuses) {
  World<V6> w;
  EXPECT_EQ(refusal([&] { w.builder->routeIs(nullptr); }),
            "null _route parameter to mutator for Routing6::Multicast::Rib::MribTrieBuilderSm::route not "
            "allowed\"");
  EXPECT_DEATH(V6::make(nullptr, w.shadow), "status\\(\\) && mribRouteStatus\\(\\)");
  EXPECT_DEATH(w.builder->handleRoute(), "trie\\(\\)->nodes\\(\\) == 0");
  EXPECT_EQ(w.shadow->trie()->name().stringValue(), "mribTrie6");
  // A removed reactor hears nothing more, and neither does anybody after the builder is gone.
  const auto reactor = w.builder->routeDel(w.one);
  EXPECT_TRUE(reactor->isZombie());
  EXPECT_EQ(reactor->mribTrieBuilderSm(), nullptr);
  w.builder = nullptr;
  w.status->routeDel(w.one);
  EXPECT_TRUE(w.shadow->trie()->route(w.one));
}

/// The builder goes in a handler of the trie that it writes: what was under way is done, the next is not.
template <class F>
void releaseInAHandler() {
  for (std::size_t last = 1; last <= 6; ++last) {
    World<F> w;
    for (std::size_t n = 1; n < last; ++n) events<F>[n].happen(w);
    const auto trie = w.builder->trie();
    const auto watcher = watch<Routing::TrieGen::NotifieeConst>(trie, [&] { w.builder = nullptr; });
    events<F>[last].happen(w);
    if (w.builder) continue;
    EXPECT_EQ(trie->route(w.two), w.status->route(w.two) != nullptr) << events<F>[last].name;
    EXPECT_FALSE(w.status->hasNotifiees());
    w.status->routeDel(w.one);
    EXPECT_TRUE(trie->route(w.one));
  }
}

template <class F>
void bindWrongly() {
  World<F> w;
  const auto reactor = w.builder->route(w.one);
  EXPECT_DEATH(reactor->notifierIs(nullptr), "assertion `notifier' failed");
  EXPECT_DEATH(reactor->notifierIs(w.status->routeIs(w.two)), "notifier->fwkKey\\(\\) == fwkKey\\(\\)");
  EXPECT_THROW(reactor->notifierIs(w.status), Zan::RangeException);
  w.builder->trieIs(nullptr);
  EXPECT_DEATH(w.status->route(w.one)->viaDel(F::via()), "assertion `.*trie.*' failed");
  EXPECT_DEATH(w.builder->handleRoute(), "assertion `trie' failed");
  w.builder->routeDelAll();
  reactor->notifierIs(nullptr);
  EXPECT_DEATH(reactor->handleVia(F::via()), "assertion `notifier\\(\\)' failed");
}

template <class F>
void sleep() {
  World<F> w;
  EXPECT_TRUE(w.builder->hasNotificationActive());
  w.builder->hasNotificationActiveIs(false);
  w.status->routeDel(w.one);
  EXPECT_EQ(w.builder->routeCount(), 1u);
  EXPECT_TRUE(w.builder->trie()->route(w.one));
}

TEST(TrieBuilders, StandCarelessHosts) {
  for (const auto test :
       {releaseInAHandler<V4>, releaseInAHandler<V6>, bindWrongly<V4>, bindWrongly<V6>, sleep<V4>, sleep<V6>})
    test();
}

}  // namespace
