#include <gtest/gtest.h>

#include "Pim/MribSm/InterfaceInfo.h"
#include "Refusal.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/Multicast/Shadow/Status.h"
#include "Routing/Shadow/Status.h"
#include "Watcher.h"

// What a host does that nobody should do: objects that go while they are at work, that are in two places at
// once, that are kept for too long. It works, or it stops and says what the host did.

namespace {

using Routing::Multicast::Rib::Config;
using Routing::Multicast::Rib::PrefixSet;
using Routing::Multicast::Rib::Route;
using Routing::Multicast::Rib::RouteKeyPreference;
using Routing::Multicast::Rib::RouteKeyPrefix;
using Routing::Multicast::Rib::Rpf;
using Routing::Multicast::Rib::Status;
using Shadow = Routing::Multicast::Shadow::Status;
using Zan::Ptr;
using Log = std::vector<std::string>;

const Lumo::Prefix p10("10.0.0.0/8");
const Lumo::IpGenPrefix g10("10.0.0.0/8");
const Lumo::IpGenPrefix g20("20.0.0.0/8");

Rpf rpf(const char* address) {
  return Rpf::ofAddr(Lumo::IpGenAddr(address));
}

[[noreturn]] void fail() {
  throw std::runtime_error("x");
}

// ---- Objects that go ----

TEST(CarelessHost, TakesAReferenceToAnObjectThatIsBeingDestroyed) {
  static Ptr<Zan::PtrInterface> kept;
  struct Plain : Zan::VFPtrInterface {
    explicit Plain(bool k) : keep(k) {}
    ~Plain() override {
      const Ptr<Plain> self(this), again = self;
      if (keep) kept = self;
    }
    const bool keep;
  };
  Zan::create<Plain>(false);
  EXPECT_DEATH(Zan::create<Plain>(true), "`no reference outlives its object' failed");
}

/// The handler lets everything go that refers to the record; the watcher itself as well.
template <class Record>
void goesWhileItTells(void (*act)(Record&), void (*prepare)(Record&) = nullptr) {
  for (const bool many : {false, true}) {
    auto record = Zan::create<Record>([] {
      if constexpr (std::is_same_v<Record, Route>) return p10;
      if constexpr (std::is_same_v<Record, PrefixSet> || std::is_same_v<Record, RouteKeyPrefix>) return g10;
      if constexpr (std::is_same_v<Record, RouteKeyPreference>) return U8{1};
      if constexpr (std::is_base_of_v<Zan::NamedEntity, Record>) return Zan::Name("x");
    }());
    if (prepare) prepare(*record);
    Record* const raw = record.get();
    using Base = typename Record::NotifieeConst;
    auto first = watch<Base>(record), second = many ? watch<Base>(record) : nullptr;
    first->then = [&] {
      if (!first) return;
      first->notifierIs(nullptr);
      if (second) second->notifierIs(nullptr);
      first = second = nullptr;
      record = nullptr;
    };
    act(*raw);
    EXPECT_FALSE(record);
  }
}

TEST(CarelessHost, DropsTheLastReferenceToWhatTells) {
  goesWhileItTells<Route>([](Route& r) { r.viaDelAll(); }, addVias);
  goesWhileItTells<Route>([](Route& r) { r.preferenceIs(2); });
  goesWhileItTells<PrefixSet>([](PrefixSet& s) { s.prefixNotifyAll(); });
  goesWhileItTells<RouteKeyPreference>([](auto& e) { e.rpfIs(rpf("1.1.1.1")); });
  goesWhileItTells<Status>([](Status& s) { s.routeDelAll(); },
                           [](Status& s) { s.routeIs(p10), s.routeIs(Lumo::Prefix("2.0.0.0/8")); });
  goesWhileItTells<Config>([](Config& c) { c.routeIs(Zan::create<RouteKeyPrefix>(g10)); });
  goesWhileItTells<Ip::Status>([](auto& s) { s.intfAddrIs(Lumo::IntfId(1), Lumo::IpAddr("1.1.1.1")); });
}

// ---- Entries and iterators ----

TEST(CarelessHost, KeepsIteratorsLongerThanTheRecord) {
  auto route = Zan::create<Route>(p10);
  addVias(*route);
  route->prefixSetIs(PrefixSet::PrefixSetIs(g10));
  auto set = PrefixSet::PrefixSetIs(g10);
  for (const auto& prefix : {g10, g20}) set->prefixIs(prefix, true);
  auto config = Zan::create<Config>("c");
  auto pref = config->routeIs(g10)->prefIs(1);
  for (const char* address : {"1.1.1.1", "2.2.2.2"}) pref->rpfIs(rpf(address));
  auto vias = route->viaIterator();
  const auto copy = vias;
  auto sets = route->prefixSetIterator();
  auto prefixes = set->prefixIterator();
  auto rpfs = pref->rpfIterator();
  auto routes = config->routeIterator();
  auto prefs = config->route(g10)->prefIterator();
  route = nullptr, set = nullptr, config = nullptr, pref = nullptr;
  const auto late = vias;
  const auto latePrefs = prefs;
  EXPECT_FALSE(vias || copy || late || ++vias || late.count() || ++sets || routes || latePrefs || ++prefs);
  EXPECT_EQ(*prefixes, g10);
  EXPECT_EQ(*++prefixes, g20);
  EXPECT_EQ(*++rpfs, rpf("2.2.2.2"));
  EXPECT_FALSE(++rpfs);
  EXPECT_DEATH(*copy, "`the iterator stands on a value' failed");
  EXPECT_DEATH(*rpfs, "`the iterator stands on a value' failed");
}

TEST(CarelessHost, EntersAnEntryIntoTwoRecords) {
  const auto a = Zan::create<Config>("a"), b = Zan::create<Config>("b");
  const auto entry = a->routeIs(g10);
  const auto other = b->routeIs(g10), third = b->routeIs(g20);
  const auto pref = entry->prefIs(1);
  EXPECT_EQ(refusal([&] { b->routeIs(entry); }),
            "entry parameter to Routing::Multicast::Rib::Config::route that is held already not allowed");
  EXPECT_EQ(
      refusal([&] { other->prefIs(pref); }),
      "entry parameter to Routing::Multicast::Rib::RouteKeyPrefix::pref that is held already not allowed");
  EXPECT_EQ(b->route(g10), other.get());
  EXPECT_EQ(other->prefCount(), 0u);
  a->routeIs(entry);  // is there already
  a->routeDel(g10);
  b->routeIs(entry);
  EXPECT_EQ(entry->parent(), b.get());
  EXPECT_FALSE(other->parent());

  const auto w = watch<RouteKeyPrefix::NotifieeConst>(entry);
  w->then = [&] {
    w->then = nullptr;
    b->routeIs(entry);
  };
  b->routeDel(g10);
  EXPECT_EQ(w->heard, (Log{"leaving", "threw in 130", "7"})) << "not before it has left";
  EXPECT_EQ(b->routeCount(), 1u);
}

// ---- The tree ----

TEST(CarelessHost, GivesEntitiesParentsThatTheyCantHave) {
  const auto status = Zan::create<Status>("mrib");
  const auto route = status->routeIs(p10);
  const auto shadow = Zan::create<Shadow>("shadow");
  const char* held = "other parent of an entity that its parent holds not allowed";
  EXPECT_EQ(refusal([&] { route->parentIs(nullptr); }), held);
  EXPECT_EQ(refusal([&] { route->parentIs(shadow.get(), 130); }), held);
  const char* cycle = "parent that is the entity itself or below it not allowed";
  EXPECT_EQ(refusal([&] { status->parentIs(route.get(), 130); }), cycle);
  EXPECT_EQ(refusal([&] { status->parentIs(status.get(), 130); }), cycle);
  EXPECT_EQ(refusal([&] { status->parentIs(shadow.get(), 4096); }),
            "Zan::Entity::parentAttrId > 4095 not allowed");
  EXPECT_EQ(status->parent(), nullptr);

  const auto free = Zan::create<Route>(p10);
  free->parentIs(shadow.get(), 130);
  free->viaIs(via("1.0.0.1"), true);  // the parent is no status, and is not taken for one
  free->parentIs(status.get(), 130);
  free->preferenceIs(1);
  free->parentIs(nullptr);
}

TEST(CarelessHost, DestroysAParentOrANotifierTooEarly) {
  auto route = Zan::create<Route>(p10);
  auto status = Zan::create<Status>("mrib");
  route->parentIs(status.get(), 130);
  EXPECT_DEATH(status = nullptr, "`no child outlives its parent' failed");
  route = nullptr;
  status = nullptr;

  const auto watchOnStack = [] {
    Status onStack("mrib");
    const auto w = watch<Status::NotifieeConst>(Ptr<Status>(&onStack));
    onStack.~Status();
  };
  EXPECT_DEATH(watchOnStack(), "`no notifiee outlives its notifier' failed");
}

// ---- Notification ----

TEST(CarelessHost, ThrowsOutOfEverythingThatIsCalled) {
  const auto status = Zan::create<Status>("mrib");
  const auto route = status->routeIs(p10);
  const auto config = Zan::create<Zan::ActivityConfig>("loop");
  const auto sm = Zan::zanActivitySmFor(config.get());
  for (const bool queued : {false, true}) {
    const auto a = watchRoute(route), b = watchRoute(route);
    a->then = a->afterwards = a->answer = a->queued = fail;
    if (queued) a->activity = b->activity = sm;
    route->preferenceIs(static_cast<U8>(route->preference() + 1));
    route->metricIs(route->metric() + 1);
    sm->run();
    EXPECT_EQ(b->heard, (Log{"131", "135"}));
    EXPECT_EQ(a->heard, queued ? (Log{"threw in 131", "threw in 135", "131", "threw in 131",
                                      "threw afterwards", "135", "threw in 135", "threw afterwards"})
                               : (Log{"131", "threw in 131", "135", "threw in 135"}));
  }
  const auto a = watchRoute(route), b = watchRoute(route);
  a->then = fail;
  a->answer = [] { throw 1; };
  status->routeDel(p10);
  EXPECT_EQ(b->heard, (Log{"leaving", "7"}));
  EXPECT_EQ(a->heard, (Log{"leaving", "threw in 130", "7", "threw in 7"}));
}

TEST(CarelessHost, DropsReactorsActivitiesAndConfigurationsWithWorkQueued) {
  auto config = Zan::create<Zan::ActivityConfig>("loop");
  auto sm = Zan::zanActivitySmFor(config.get());
  const auto route = Zan::create<Route>(p10);
  auto a = watchRoute(route, fail), b = watchRoute(route);
  a->activity = b->activity = sm;
  route->preferenceIs(1);
  route->metricIs(1);
  EXPECT_EQ(sm->pending(), 4u);
  a = nullptr;
  EXPECT_EQ(sm->run(), 2u) << "the queue keeps nobody alive";
  route->preferenceIs(2);
  b->activity = nullptr;
  sm = nullptr;
  config = nullptr;
  EXPECT_EQ(b->heard, (Log{"131", "135"})) << "what waits goes with its queue";
}

/// Of each type of notifiee that a host may derive from: one that is bound to something else.
template <class... Bases>
void refuseOtherTypes() {
  const Ptr<Zan::Entity> wrong = Zan::create<Interface::AllIntfConfigDir>("x");
  const auto refused = [&](auto notifiee) {
    EXPECT_EQ(refusal([&] { notifiee->notifierIs(wrong); }), "notifier of the wrong type not allowed");
    EXPECT_EQ(notifiee->rawNotifier(), nullptr);
    notifiee->notifierIs(nullptr);
  };
  (refused(Zan::create<Bases>()), ...);
}

TEST(CarelessHost, BindsANotifieeToANotifierOfAnotherType) {
  refuseOtherTypes<
      Route::NotifieeConst, Status::NotifieeConst, PrefixSet::NotifieeConst, Config::NotifieeConst,
      RouteKeyPrefix::NotifieeConst, RouteKeyPreference::NotifieeConst, Shadow::NotifieeConst,
      Routing::Shadow::Status::NotifieeConst, Routing::TrieGen::NotifieeConst, Ip::Status::NotifieeConst,
      Interface::AllIntfStatusDir::NotifieeConst, Routing::Multicast::Rib::InterfaceInfo::NotifieeConst,
      Routing::Multicast::RouteOf<Routing::Family6>::NotifieeConst,
      Routing::Multicast::StatusOf<Routing::Family6>::NotifieeConst>();
  struct OwnRoute : Route {
    using Route::Route;
  };
  const auto w = watchRoute(Zan::create<OwnRoute>(p10));
  EXPECT_EQ(w->notifier()->prefix(), p10) << "a derived type is one of its own";
  EXPECT_FALSE(refusal([&] { w->notifierIs(Zan::create<Zan::ActivityConfig>("no entity")); }).empty());
}

}  // namespace
