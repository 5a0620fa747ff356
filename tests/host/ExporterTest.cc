#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "Exporter.h"

// What is exported against a table that is made up: others write to it too, links take routes along in
// silence, the kernel refuses some, and the exporter dies and begins anew.

using namespace host;
using namespace host::kernel;
using Lumo::Prefix;

namespace {

constexpr U32 links = 3, prefixes = 8, table = 250;

class ExporterTest : public testing::Test {
 protected:
  ExporterTest() { begin(); }

  U32 pick(U32 count) { return static_cast<U32>(random()) % count; }
  static Prefix prefix(U32 n) { return {Lumo::IpAddr::fromHost(0x14000000 | n << 16), 16}; }
  Hop hop(U32 link) { return {IpGenAddr(Lumo::IpAddr::fromHost(0x0A000000 | link << 8 | pick(3))), link, 0}; }
  static bool isSameWay(const Route& a, const std::vector<Hop>& hops) {
    return std::equal(a.hops.begin(), a.hops.end(), hops.begin(), hops.end(),
                      [](const Hop& x, const Hop& y) { return x.gateway == y.gateway && x.link == y.link; });
  }
  static bool isOurs(const Route& r) { return r.protocol == Exporter::protocol; }
  bool isRight(const Route& r) {
    return isOurs(r) && r.metric == Exporter::metric && isSameWay(r, wanted[r.prefix.v4Prefix()].hops);
  }
  Link link(U32 index) const {
    return {index, std::string("v").append(std::to_string(index)), {}, up[index], up[index], up[index], 0, 0,
            0};
  }

  // ---- The table ----

  void tell(const Route& route, bool gone, U16 flags = 0) {
    events.push_back({0, flags, RouteChange{route, gone}});
  }
  int add(const Route& route) {
    auto& there = routes[route.prefix.v4Prefix()];
    if (std::any_of(there.begin(), there.end(), [&](const Route& r) { return r.metric == route.metric; }))
      return EEXIST;
    for (const Hop& h : route.hops) {
      if (!up[h.link] || h.gateway == refused) return ENETUNREACH;
    }
    there.insert(
        std::find_if(there.begin(), there.end(), [&](const Route& r) { return r.metric > route.metric; }),
        route);
    tell(route, false, 0x600);
    return 0;
  }
  int remove(const Route& route) {
    auto& there = routes[route.prefix.v4Prefix()];
    const auto at = std::find_if(there.begin(), there.end(), [&](const Route& r) {
      return r.metric == route.metric && r.protocol == route.protocol && isSameWay(r, route.hops);
    });
    if (at == there.end()) return ESRCH;
    tell(*at, true);
    there.erase(at);
    return 0;
  }
  void linkIs(U32 index, bool isUp) {
    if (std::exchange(up[index], isUp) == isUp) return;
    for (auto& [p, there] : routes) {
      for (Route& r : there) {
        for (Hop& h : r.hops) h.flags = h.link == index && !isUp ? Hop::dead : h.link == index ? 0 : h.flags;
      }
      std::erase_if(there, [](const Route& r) {
        return std::all_of(r.hops.begin(), r.hops.end(), [](const Hop& h) { return h.flags == Hop::dead; });
      });
    }
    events.push_back({0, 0, LinkChange{link(index)}});
    for (auto& [p, w] : wanted) {  // as the MRIB would
      std::erase_if(w.hops, [&](const Hop& h) { return !up[h.link]; });
      if (w.hops.empty()) w.type = RouteType::unspecified;
    }
  }
  Route foreign() {
    Route r;
    r.prefix = prefix(pick(prefixes));
    r.table = table;
    r.protocol = pick(2) ? Exporter::protocol : 99;
    r.metric = pick(3) ? Exporter::metric : 5;
    r.hops = {hop(1 + pick(links))};
    return r;
  }

  // ---- The exporter and its driver ----

  void begin() {
    Mirror::Settings settings;
    settings.table = table;
    settings.everyRoute = true;
    mirror = std::make_unique<Mirror>(settings, now);
    exporter = std::make_unique<Exporter>(*mirror, readers);
    events.clear();
    while (!mirror->isSynced()) readTable();
    turn(false);
    exporter->begin();
  }
  void beginAnew() {
    writtenAt.clear();
    others.clear();
    crossed.clear();
    begin();
  }
  void readTable() {
    for (auto action = mirror->next(now); action.kind == Mirror::Action::Kind::dump;
         action = mirror->next(now)) {
      const auto answer = [&](auto body) { mirror->answered({action.sequence, 0, std::move(body)}, now); };
      for (U32 i = 1; action.dump == Dump::links && i <= links; ++i) answer(LinkChange{link(i)});
      for (const auto& [p, there] : routes) {
        for (const Route& r : there) {
          if (action.dump == Dump::routes4) answer(RouteChange{r});
        }
      }
      answer(DumpEnd{});
    }
  }
  /// Who reads the table follows the last write to a prefix, and nothing when another route of it has gone.
  /// An exporter that begins can't know which it was.
  void crossOthers() {
    for (U32 n = 0; n < prefixes; ++n) {
      std::vector<Route> present;
      mirror->routes(Lumo::ipv4()).forEachOf(prefix(n), [&](Route r, bool) {
        for (Hop& h : r.hops) h.flags = 0;
        if (!isOurs(r)) present.push_back(r);
      });
      if (std::exchange(others[prefix(n)], present) == present) continue;
      crossed.insert(prefix(n));
      crossedAt[prefix(n)] = now;
    }
  }
  void turn(bool writes = true) {
    for (; !events.empty(); events.pop_front()) mirror->event(events.front(), now);
    readTable();
    crossOthers();
    const auto changes = mirror->takeChanges();
    for (const U32 link : changes.links) exporter->linkChanged(link, now);
    for (const auto& p : changes.prefixes) exporter->check(p.v4Prefix());
    for (const auto& [p, w] : wanted) {
      exporter->want(p, w);
      if (!changes.links.empty()) exporter->check(p);
    }
    for (auto batch = exporter->next(now, 3); writes && !batch.empty(); batch = exporter->next(now, 3))
      write(batch);
  }
  void write(const Exporter::Batch& batch) {
    std::vector<RouteFault> faults;
    std::set<Prefix> touched;
    const auto before = routes;
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const Route& r = batch[i].route;
      const Prefix p = r.prefix.v4Prefix();
      EXPECT_TRUE(isOurs(r));
      EXPECT_FALSE(!batch[i].add && isRight(r) && wasRight(before, p) && !mayBeCrossed(p))
          << p.stringValue() << " is missing for no reason";
      const int error = batch[i].add ? add(r) : remove(r);
      if (batch[i].add && error == 0) crossed.erase(p);
      if (exporter->entry(p)->why != Exporter::Why::repeated) repeats.erase(p);
      if (error != 0) {
        faults.push_back({i, error, "no"});
      } else if (touched.insert(p).second) {
        const bool same = std::exchange(written[p], wanted[p].hops) == wanted[p].hops;
        EXPECT_TRUE(!writtenAt.contains(p) || now >= writtenAt[p] + milliseconds(same ? 4 : 50))
            << p.stringValue();
        writtenAt[p] = now;
      }
    }
    exporter->written(batch, faults);
  }
  /// ... and has to be written again; so has what answers the change of a link, twice.
  bool mayBeCrossed(const Prefix& p) {
    return readers == Exporter::Readers::follow &&
           ((crossedAt.contains(p) && now < crossedAt[p] + milliseconds(100)) ||
            (exporter->entry(p)->why == Exporter::Why::repeated && ++repeats[p] <= 2));
  }
  bool wasRight(const std::map<Prefix, std::vector<Route>>& before, const Prefix& p) {
    const auto at = before.find(p);
    return at != before.end() && std::count_if(at->second.begin(), at->second.end(), isOurs) == 1 &&
           std::any_of(at->second.begin(), at->second.end(), [&](const Route& r) { return isRight(r); });
  }
  void change() {
    const U32 index = 1 + pick(links);
    switch (pick(8)) {
      case 0:
        return linkIs(index, !up[index]);
      case 1: {  // so quickly that the MRIB stays
        const auto before = wanted;
        const bool wasUp = up[index];
        linkIs(index, !wasUp);
        linkIs(index, wasUp);
        if (wasUp) wanted = before;
        return;
      }
      case 2:
        if (auto& there = routes[prefix(pick(prefixes))]; !there.empty())
          remove(Route(there[pick(static_cast<U32>(there.size()))]));
        return;
      case 3:
        add(foreign());
        return;
      case 4:
        refused = hop(index).gateway;
        return;
      case 5:
        if (pick(6) == 0) beginAnew();
        return;
      default:
        Wanted& w = wanted[prefix(pick(prefixes))];
        w = {};
        for (U32 i = 1; i <= links; ++i) {
          if (up[i] && pick(2)) w.hops.push_back(hop(i));
        }
        if (!w.hops.empty()) w.type = RouteType::unicast;
    }
  }
  /// After a rest, each prefix has what is wanted, unless it is refused, and that is known.
  void check(U32 seed) {
    for (int i = 0; i < 40; ++i, now += milliseconds(20)) turn();
    exporter->checkRefused();
    for (int i = 0; i < 20; ++i, now += milliseconds(20)) turn();
    std::size_t right = 0;
    for (auto& [p, w] : wanted) {
      bool isBlocked =
          std::any_of(w.hops.begin(), w.hops.end(), [&](const Hop& h) { return h.gateway == refused; });
      bool isThere = false;
      for (const Route& r : routes[p]) {
        isBlocked |= !isOurs(r) && r.metric == Exporter::metric;
        isThere |= isOurs(r);
        EXPECT_TRUE(!isOurs(r) || (w.isRoute() && isRight(r))) << seed << ' ' << p.stringValue();
      }
      EXPECT_EQ(exporter->faults().contains(p), w.isRoute() && !isThere) << seed << ' ' << p.stringValue();
      EXPECT_FALSE(isThere && crossed.contains(p) && readers == Exporter::Readers::follow)
          << seed << ' ' << p.stringValue();
      EXPECT_TRUE(isThere || isBlocked || !w.isRoute()) << seed << ' ' << p.stringValue();
      right += w.isRoute() && isThere;
    }
    EXPECT_EQ(exporter->routes(), right) << seed;
  }

  std::minstd_rand random;
  Nanos now = seconds(100);
  Exporter::Readers readers = Exporter::Readers::follow;
  bool up[links + 1] = {true, true, true, true};
  IpGenAddr refused;
  std::map<Prefix, Wanted> wanted;
  std::map<Prefix, std::vector<Route>> routes;
  std::map<Prefix, std::vector<Route>> others;
  std::set<Prefix> crossed;
  std::map<Prefix, Nanos> crossedAt;
  std::deque<Event> events;
  std::map<Prefix, Nanos> writtenAt;
  std::map<Prefix, std::vector<Hop>> written;
  std::map<Prefix, int> repeats;
  std::unique_ptr<Mirror> mirror;
  std::unique_ptr<Exporter> exporter;
};

TEST_F(ExporterTest, TableBecomesWhatIsWantedWhateverHappens) {
  for (U32 seed = 1; seed <= 300 && !HasFailure(); ++seed) {
    random.seed(seed);
    readers = Exporter::Readers{seed % 2 == 0};
    beginAnew();
    for (int step = 0; step < 60; ++step) {
      for (U32 n = 1 + pick(3); n > 0; --n) change();
      turn();
      now += milliseconds(pick(3) ? pick(8) : 60);
    }
    check(seed);
  }
  EXPECT_GT(exporter->counters().written, 10u);
}

}  // namespace
