#include <gtest/gtest.h>

#include "Refusal.h"
#include "Routing/Multicast/Rib/Status.h"
#include "Watcher.h"

// Who hears what, in which order, and who must not.

namespace {

using Routing::Multicast::Rib::Route;
using Routing::Multicast::Rib::Status;
using Log = std::vector<std::string>;

/// A route in its status, and what was heard of it by whom, in order.
struct NotificationTest : testing::Test {
  Zan::Ptr<RouteWatcher> named(const char* name) {
    return watchRoute(route, [this, name] { log.emplace_back(name); });
  }

  Log log;
  Zan::Ptr<Status> status = Zan::create<Status>("mrib");
  Zan::Ptr<Route> route = status->routeIs(Lumo::Prefix("10.0.0.0/8"));
};

TEST_F(NotificationTest, AreInOrderOfRegistrationForChangesAloneAndNotWhereIgnored) {
  struct Ignorant : RouteWatcher {
    using RouteWatcher::ignoresIs;
    using RouteWatcher::Watcher;
  };
  const auto a = named("a"), c = named("c");
  const auto b = Zan::create<Ignorant>(route, [this] { log.emplace_back("b"); });
  a->then = [&] { throw std::runtime_error("x"); };
  b->ignoresIs(Route::preferenceId);
  route->preferenceIs(5);
  route->preferenceIs(5);
  EXPECT_EQ(a->heard, (Log{"131", "threw in 131"}));
  EXPECT_EQ(log, (Log{"c"}));
  a->then = nullptr;
  route->viaIs(via("10.0.0.1"), true);
  EXPECT_EQ(log, (Log{"c", "c", "b"})) << "and what is not ignored comes";
}

TEST_F(NotificationTest, WhoIsRemovedInactiveAZombieDestroyedReboundOrNewDuringDeliveryHearsNothing) {
  auto a = named("a"), b = named("b"), c = named("c"), d = named("d"), e = named("e"), f = named("f"),
       g = named("g");
  Zan::Ptr<RouteWatcher> h;
  b->then = [&] {
    log.emplace_back("b");
    a = nullptr;
    c->isRegisteredNotifieeIs(false);
    d->hasNotificationActiveIs(false);
    e->isMarkedForDeletionIs(true);
    f = nullptr;
    g->notifierIs(Zan::create<Route>(Lumo::Prefix("10.0.0.0/8")));
    h = named("h");
    b->then = nullptr;
  };
  route->preferenceIs(5);
  EXPECT_EQ(log, (Log{"a", "b"}));
  c->isRegisteredNotifieeIs(true);
  d->hasNotificationActiveIs(true);
  route->preferenceIs(6);
  EXPECT_EQ(log, (Log{"a", "b", "d", "h", "c"}));
}

TEST_F(NotificationTest, ViaDelAllTellsOfEachViaAfterItsRemovalAndKeepsWhatHandlersAdd) {
  addVias(*route);
  std::vector<U32> counts;
  const auto w = watchRoute(route, [&] {
    counts.push_back(route->viaCount());
    if (counts.size() != 1) return;
    route->viaDel(via("1.0.0.3"));
    route->viaIs(via("1.0.0.9"), true);
  });
  route->viaDelAll();
  EXPECT_EQ(counts, (std::vector<U32>{2, 1, 2, 1}));
  EXPECT_TRUE(route->via(via("1.0.0.9")));
}

TEST_F(NotificationTest, LeavingRouteTellsItsWatchersBeforeTheCollections) {
  const auto s = watch<Status::NotifieeConst>(status, [&] { log.emplace_back("status"); });
  const auto a = named("a");
  for (int i = 0; i < 2; ++i) status->routeDel(route->prefix());
  EXPECT_EQ(log, (Log{"a", "a", "status"}));
  EXPECT_EQ(a->heard, (Log{"leaving", "7"}));
  for (int i = 0; i < 2; ++i) status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  EXPECT_EQ(log.size(), 4u);
}

TEST_F(NotificationTest, ActivityDeliversWhenItRunsAndOncePerKey) {
  const auto config = Zan::create<Zan::ActivityConfig>("loop");
  const auto a = watchRoute(route);
  a->activity = Zan::zanActivitySmFor(config.get());
  EXPECT_EQ(Zan::zanActivitySmFor(config.get()), a->activity);
  EXPECT_FALSE(Zan::zanActivitySmFor(nullptr));
  route->viaIs(via("1.0.0.1"), true);
  route->viaDel(via("1.0.0.1"));
  route->viaIs(via("1.0.0.2"), true);
  route->preferenceIs(1);
  route->preferenceIs(2);
  EXPECT_TRUE(a->heard.empty());
  EXPECT_EQ(a->activity->run(), 3u);
  EXPECT_EQ(a->heard, (Log{"via", "via", "131"}));
  route->preferenceIs(3);
  a->isRegisteredNotifieeIs(false);
  EXPECT_EQ(a->activity->run(), 0u);
}

TEST_F(NotificationTest, NobodyNeedsToHearAnything) {
  const auto plain = Zan::create<Zan::PtrInterface::NotifieeConst>();
  for (int twice = 0; twice < 2; ++twice) plain->notifierIs(route);
  EXPECT_EQ(plain->name(), route->name());
  EXPECT_EQ(refusal([&] { plain->notifierIs(Zan::create<Zan::ActivityConfig>("no entity")); }),
            "notifier that is not an entity not allowed");
  const auto w = named("w");
  for (const bool zero : {false, true}) route->zeroReferencesIs(zero);
  EXPECT_EQ(w->heard, (Log{"no references", "no references"})) << "whatever it is told";
}

TEST(Reference, WordCountsMarksZombiesAndStaysWhereNeverCounted) {
  class Plain : public Zan::VFPtrInterface {};
  Plain fixed;
  fixed.isNeverCountedIs();
  const U32 word = fixed.countWord();
  EXPECT_EQ(word >> 24, 0x1Fu);
  { const Zan::Ptr<Plain> a(&fixed), b = a; }
  fixed.isMarkedForDeletionIs(true);
  EXPECT_EQ(fixed.countWord(), word);
  const auto p = Zan::create<Plain>();
  EXPECT_EQ(p->countWord(), 1u);
  p->isMarkedForDeletionIs(true);
  EXPECT_EQ(p->countWord(), 0x80000001u);
  EXPECT_EQ(refusal([] { const Zan::ValidPtr<Plain> valid{Zan::Ptr<Plain>()}; }), "null ValidPtr");
}

TEST(Entity, KnowsItsPlaceInTheTree) {
  const auto status = Zan::create<Status>("mrib \"Zz{[/9~:");
  const auto route = status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  EXPECT_EQ(route->fullName(), "mrib \"Zz{[/9~:/10.0.0.0/8");
  EXPECT_EQ(route->uriPath(), "/mrib%20%22Zz%7B%5B%2F9~%3A/route/10.0.0.0%2F8");
  EXPECT_EQ(route->parentAttr().view(), "route");
}

}  // namespace
