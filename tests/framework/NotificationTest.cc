#include <gtest/gtest.h>

#include <functional>

#include "Pim/MribSm/InterfaceInfo.h"
#include "Routing/Multicast/Rib/Status.h"
#include "Routing6/Multicast/Rib/Status.h"
#include "Zan/Reactor.h"
#include "Zan/ZanType.h"

// Who hears what, in which order, and who must not.

namespace {

using Routing::Multicast::Rib::InterfaceInfo;
using Routing::Multicast::Rib::Route;
using Routing::Multicast::Rib::Status;
using Log = std::vector<std::string>;

class RouteWatcher : public Route::NotifieeConst {
 public:
  RouteWatcher(Log& log, std::string name, const Zan::Ptr<Route const>& route)
      : log_(log), name_(std::move(name)) {
    notifierIs(route);
    isRegisteredNotifieeIs(true);
  }
  void onPreference() override { note("preference"); }
  void onVia(const Routing::Fib::Via& via) override { note("via " + via.stringValue()); }
  void handleDefault(Zan::ActivityConfig*, Zan::AttributeId, bool leaving) override {
    if (leaving) note("leaving");
  }
  void onNotificationException(Zan::AttributeId id) override {
    log_.push_back(name_ + " threw in " + std::to_string(id));
  }
  Zan::ActivitySm* actsm() override { return activity.get(); }
  using Route::NotifieeConst::ignoresIs;
  using Route::NotifieeConst::onVia;

  std::function<void()> then;
  Zan::Ptr<Zan::ActivitySm> activity;

 private:
  void note(const std::string& what) {
    log_.push_back(name_ + " " + what);
    if (then) then();
  }
  Log& log_;
  std::string name_;
};

class NotificationTest : public testing::Test {
 protected:
  Zan::Ptr<RouteWatcher> watch(const char* name) { return Zan::create<RouteWatcher>(log, name, route); }

  Log log;
  Zan::Ptr<Status> status = Zan::create<Status>("mrib");
  Zan::Ptr<Route> route = status->routeIs(Lumo::Prefix("10.0.0.0/8"));
};

TEST_F(NotificationTest, AreInOrderOfRegistrationForChangesAloneAndNotWhereIgnored) {
  const auto a = watch("a"), b = watch("b"), c = watch("c");
  b->ignoresIs(Route::preferenceId);
  a->then = [] { throw std::runtime_error("x"); };
  route->preferenceIs(5);
  route->preferenceIs(5);
  EXPECT_EQ(log, (Log{"a preference", "a threw in 131", "c preference"}));
  a->then = nullptr;
  route->viaIs({Lumo::IpAddr("10.0.0.1"), nullptr}, true);
  EXPECT_EQ(log.size(), 6u) << "and what is not ignored comes";
}

TEST_F(NotificationTest, RemovedInactiveZombieAndDestroyedReactorsHearNothing) {
  auto a = watch("a"), b = watch("b"), c = watch("c"), d = watch("d"), e = watch("e");
  a->then = [&] {
    b->isRegisteredNotifieeIs(false);
    c->hasNotificationActiveIs(false);
    d->isMarkedForDeletionIs(true);
    e = nullptr;
  };
  route->preferenceIs(5);
  EXPECT_EQ(log, Log{"a preference"});
  c->hasNotificationActiveIs(true);
  a->then = nullptr;
  route->preferenceIs(6);
  EXPECT_EQ(log, (Log{"a preference", "a preference", "c preference"}));
}

TEST_F(NotificationTest, HandlerMayDropTheLastReferenceToTheNotifier) {
  const auto a = watch("a");
  a->then = [&] {
    status->routeDel(route->prefix());
    a->then = nullptr;
    a->notifierIs(nullptr);
    route = nullptr;
  };
  route->preferenceIs(5);
  EXPECT_EQ(log, (Log{"a preference", "a leaving"}));
}

TEST_F(NotificationTest, ViaDelAllTellsOfEachViaAfterItsRemoval) {
  for (const char* hop : {"1.0.0.1", "1.0.0.2", "1.0.0.3"}) route->viaIs({Lumo::IpAddr(hop), nullptr}, true);
  const auto a = watch("a");
  std::vector<U32> counts;
  a->then = [&] { counts.push_back(route->viaCount()); };
  route->viaDelAll();
  EXPECT_EQ(log, (Log{"a via 1.0.0.1", "a via 1.0.0.2", "a via 1.0.0.3"}));
  EXPECT_EQ(counts, (std::vector<U32>{2, 1, 0}));
}

TEST_F(NotificationTest, LeavingRouteTellsItsWatchersBeforeTheCollections) {
  class StatusWatcher : public Status::NotifieeConst {
   public:
    explicit StatusWatcher(Log& l) : log(l) {}
    void onRoute(const Lumo::Prefix& p) override { log.push_back("status " + p.stringValue()); }
    using Status::NotifieeConst::onRoute;
    Log& log;
  };
  const auto s = Zan::create<StatusWatcher>(log);
  s->notifierIs(status);
  s->isRegisteredNotifieeIs(true);
  const auto a = watch("a");
  status->routeDel(route->prefix());
  status->routeDel(route->prefix());
  EXPECT_EQ(log, (Log{"a leaving", "status 10.0.0.0/8"}));
  status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  EXPECT_EQ(log.size(), 3u);
}

TEST_F(NotificationTest, ActivityDeliversWhenItRunsAndOncePerKey) {
  const auto config = Zan::create<Zan::ActivityConfig>("loop");
  const auto a = watch("a");
  a->activity = Zan::zanActivitySmFor(config.get());
  EXPECT_EQ(Zan::zanActivitySmFor(config.get()), a->activity);
  EXPECT_FALSE(Zan::zanActivitySmFor(nullptr));
  const Routing::Fib::Via via{Lumo::IpAddr("1.0.0.1"), nullptr};
  route->viaIs(via, true);
  route->viaDel(via);
  route->viaIs({Lumo::IpAddr("1.0.0.2"), nullptr}, true);
  route->preferenceIs(1);
  route->preferenceIs(2);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(a->activity->run(), 3u);
  EXPECT_EQ(log, (Log{"a via 1.0.0.1", "a via 1.0.0.2", "a preference"}));
  route->preferenceIs(3);
  a->isRegisteredNotifieeIs(false);
  EXPECT_EQ(a->activity->run(), 0u);
}

TEST(InterfaceInfoNotification, ReportsTheAttributeThatThrew) {
  class Watcher : public InterfaceInfo::NotifieeConst {
   public:
    void onConfig() override { throw std::runtime_error("x"); }
    void onNotificationException(Zan::AttributeId id) override { failed = id; }
    void onZeroReferences() override { throw std::runtime_error("y"); }
    Zan::AttributeId failed = 0;
  };
  const auto info = Routing::Multicast::Rib::interfaceInfoFactory();
  const auto w = Zan::create<Watcher>();
  w->notifierIs(info);
  w->isRegisteredNotifieeIs(true);
  info->configIs(Zan::create<Interface::AllIntfConfigDir>("c"));
  EXPECT_EQ(w->failed, 131u);
  info->zeroReferencesIs(true);
  EXPECT_EQ(w->failed, 5u);
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
  try {
    const Zan::ValidPtr<Plain> valid{Zan::Ptr<Plain>()};
    FAIL();
  } catch (const Zan::RangeException& e) {
    EXPECT_STREQ(e.what(), "null ValidPtr");
  }
}

TEST(Entity, KnowsItsTypeAndItsPlaceInTheTree) {
  const auto status = Zan::create<Status>("mrib \"x\"");
  const auto route = status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  EXPECT_EQ(route->fullName(), "mrib \"x\"/10.0.0.0/8");
  EXPECT_EQ(route->uriPath(), "/mrib%20%22x%22/route/10.0.0.0%2F8");
  EXPECT_EQ(route->parentAttr().view(), "route");
  status->routeDel(route->prefix());
  EXPECT_EQ(route->parent(), nullptr);
  const auto status6 = Zan::create<Routing6::Multicast::Rib::Status>("mrib6");
  const auto route6 = status6->routeIs(Lumo::Ip6Prefix("2001:db8::/32"));
  EXPECT_EQ(route6->fwkType()->name(), "Routing6::Multicast::Rib::Route");
  EXPECT_EQ(status6->routeIs(Lumo::Ip6Prefix("2001:db8::/32")), route6);
}

}  // namespace
