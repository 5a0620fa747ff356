#include <gtest/gtest.h>

#include <random>

#include "History.h"

// The live MRIB without a loop: a kernel that is made up, against what its records come to.

using namespace host;
using namespace host::kernel;
using Lumo::IpAddr;
using Lumo::Prefix;

namespace {

class RouterTest : public testing::Test {
 protected:
  RouterTest() : mirror(settings(), 0), router(mirror, [this] { return now; }) {
    for (auto action = mirror.next(now); !mirror.isSynced(); action = mirror.next(now)) {
      if (action.kind == Mirror::Action::Kind::dump) mirror.answered({action.sequence, 0, DumpEnd{}}, now);
    }
  }
  static Mirror::Settings settings() {
    Mirror::Settings settings;
    settings.schedule.coalesce = settings.schedule.audit = seconds(1U << 20);
    return settings;
  }
  template <class Body>
  void tell(Body body) {
    mirror.event({0, 0x400, std::move(body)}, now);  // NLM_F_CREATE
  }
  U32 pick(U32 count) { return static_cast<U32>(random()) % count; }
  static IpAddr host(U32 subnet, U32 last) { return IpAddr::fromHost(0x0A000000 | subnet << 8 | last); }

  /// Lets a router do all that it has to do.
  void rest() {
    for (int i = 0; i < 5; ++i, now += seconds(2)) router.turn(now);
  }
  /// What the records come to: the MRIB by prefix, as text.
  std::map<Prefix, std::string> right() const;
  std::map<Prefix, std::string> actual() const;
  void change();

  std::minstd_rand random;
  Nanos now = seconds(100);
  Mirror mirror;
  Router router;
  std::map<U32, host::kernel::Link> links;
  std::vector<host::kernel::Address> addresses;
  std::map<Prefix, std::vector<Hop>> attached;
};

std::string hopsText(std::vector<std::string> hops) {
  std::sort(hops.begin(), hops.end());
  hops.erase(std::unique(hops.begin(), hops.end()), hops.end());
  std::string text;
  for (const std::string& hop : hops) text += hop + ' ';
  return text;
}

std::map<Prefix, std::string> RouterTest::right() const {
  std::map<Prefix, std::string> mrib;
  std::set<U32> used;
  std::map<Prefix, std::vector<U32>> usable;
  for (const auto& [prefix, hops] : attached) {
    std::vector<std::string> texts;
    for (const Hop& hop : hops) {
      if (!links.contains(hop.link) || !links.at(hop.link).up) continue;
      usable[prefix].push_back(hop.link);
      used.insert(hop.link);
      texts.push_back("on " + std::to_string(hop.link));
    }
    if (!texts.empty()) mrib[prefix] = "0 " + hopsText(texts);
  }
  std::map<std::pair<Prefix, U32>, std::vector<std::string>> lines;
  for (const MrouteLine& line : router.configuration().mroutes) {
    std::vector<std::string>& hops = lines[{line.prefix, line.preference}];
    if (const auto* name = std::get_if<std::string>(&line.rpf)) {
      for (const auto& [index, link] : links) {
        const bool isIt = link.name == *name ||
                          std::count(link.alternativeNames.begin(), link.alternativeNames.end(), *name);
        if (isIt && used.contains(index)) hops.push_back("on " + std::to_string(index));
      }
      continue;
    }
    const IpAddr next = std::get<IpAddr>(line.rpf);
    for (U32 length = 32; length > 0; --length) {
      const auto covering = usable.find(Prefix(next, length));
      if (covering == usable.end()) continue;
      for (const U32 link : covering->second)
        hops.push_back(next.stringValue() + " on " + std::to_string(link));
      break;
    }
  }
  for (const auto& [key, hops] : lines) {
    if (!hops.empty()) mrib.try_emplace(key.first, std::to_string(key.second) + ' ' + hopsText(hops));
  }
  return mrib;
}

std::map<Prefix, std::string> RouterTest::actual() const {
  std::map<Prefix, std::string> mrib;
  for (const mrib::Route& route : router.agent().routes()) {
    if (KernelFeed::isStandIn(route.prefix)) continue;
    std::vector<std::string> hops;
    for (const mrib::NextHop& hop : route.nextHops) {
      const std::string neighbour = router.isAttached(hop) ? "" : hop.address.stringValue() + ' ';
      hops.push_back(neighbour + "on " + std::to_string(hop.link));
    }
    mrib[route.prefix] = std::to_string(route.preference) + ' ' + hopsText(hops);
  }
  return mrib;
}

void RouterTest::change() {
  const U32 index = 1 + pick(4);
  switch (pick(6)) {
    case 0: {  // comes, changes its name (free ones only), goes up or down
      std::string name = "eth" + std::to_string(1 + pick(5));
      for (const auto& [other, link] : links) {
        if (other != index && link.name == name) return;
      }
      host::kernel::Link& link = links[index];
      link.index = index;
      link.name = name;
      link.alternativeNames.clear();
      if (pick(2) == 0) link.alternativeNames = {"other" + std::to_string(index)};
      const bool wasUp = link.up;
      link.up = link.lowerUp = link.running = pick(4) != 0;
      if (wasUp && !link.up) {
        for (auto& [prefix, hops] : attached)
          std::erase_if(hops, [&](const Hop& h) { return h.link == index; });
      }
      return tell(LinkChange{link});
    }
    case 1: {
      if (pick(3) != 0 || links.erase(index) == 0) return;
      std::erase_if(addresses, [&](const auto& a) { return a.link == index; });
      for (auto& [prefix, hops] : attached)
        std::erase_if(hops, [&](const Hop& h) { return h.link == index; });
      host::kernel::Link gone;
      gone.index = index;
      return tell(LinkChange{gone, true});
    }
    case 2: {  // an address: of a subnet, borrowed by several, or with a peer
      if (!links.contains(index)) return;
      host::kernel::Address a;
      a.link = index;
      a.local = Lumo::IpGenAddr(host(pick(3), 1 + pick(2)));
      a.peer = pick(3) == 0 ? Lumo::IpGenAddr(host(9, pick(3))) : a.local;
      a.length = a.peer == a.local ? 24 : 32;
      a.secondary = pick(4) == 0;
      const auto same = [&](const auto& b) { return Topology::keyOf(b) == Topology::keyOf(a); };
      const bool had = std::erase_if(addresses, same) > 0;
      if (!had) addresses.push_back(a);
      return tell(AddressChange{a, had});
    }
    case 3:
    case 4: {
      if (!links.contains(index) || !links.at(index).up) return;
      const Prefix prefix =
          pick(2) == 0 ? Prefix(host(pick(3), 0), 24 + pick(2)) : Prefix(host(9, pick(3)), 32);
      Route route;
      route.prefix = prefix;
      route.table = 254;
      route.hops = attached[prefix];
      if (!route.hops.empty()) tell(RouteChange{route, true});
      if (route.hops.empty() || pick(2) == 0) {
        route.hops = {{{}, index, 0}};
      } else {
        route.hops.clear();
      }
      attached[prefix] = route.hops;
      if (!route.hops.empty()) tell(RouteChange{route});
      return;
    }
    default: {
      Configuration next = router.configuration();
      const Prefix prefix(IpAddr::fromHost((20 + pick(3)) << 24), 8);
      MrouteLine line{prefix, host(pick(3), 200), static_cast<U8>(1 + pick(2)), 0};
      if (pick(3) != 0) line.rpf = (pick(3) == 0 ? "other" : "eth") + std::to_string(1 + pick(5));
      const auto same = [&](const auto& l) {
        return l.prefix == line.prefix && l.rpf == line.rpf && l.preference == line.preference;
      };
      if (std::erase_if(next.mroutes, same) == 0) next.mroutes.push_back(line);
      EXPECT_TRUE(router.configurationIs(std::move(next), now).empty());
    }
  }
}

/// An interface that is named leads to itself, whatever addresses it has, has not or shares.
TEST_F(RouterTest, MribIsWhatTheRecordsComeTo) {
  for (U32 seed = 1; seed <= 200; ++seed) {
    random.seed(seed);
    for (int round = 0; round < 60; ++round) {
      for (U32 n = 1 + pick(3); n > 0; --n) change();
      rest();
      ASSERT_EQ(router.takeFaults(), std::vector<std::string>()) << "seed " << seed << " round " << round;
      ASSERT_EQ(actual(), right()) << "seed " << seed << " round " << round;
    }
  }
}

// ---- What was ----

using State = std::map<Prefix, std::string>;

std::string wordsOf(const PastRoute& route) {
  if (route.type == mrib::RouteType::unknown) return "";
  std::string words = std::to_string(static_cast<int>(route.type)) + ' ' + std::to_string(route.preference);
  for (const auto& via : route.vias) words += ' ' + via.neighbor.stringValue() + '@' + via.interface;
  return words;
}

State stateOf(const Router& router) {
  State state;
  for (const mrib::Route& route : router.agent().routes()) {
    if (KernelFeed::isStandIn(route.prefix)) continue;
    PastRoute past{route.type, route.preference, {}};
    for (const mrib::NextHop& hop : route.nextHops) {
      const std::string* name = router.linkName(hop);
      past.vias.push_back({router.isAttached(hop) ? IpAddr() : hop.address, name ? *name : ""});
    }
    state[route.prefix] = wordsOf(past);
  }
  return state;
}

std::string answerOf(const State& state, IpAddr source) {
  for (U32 length = 33; length-- > 0;) {
    const auto at = state.find(Prefix(source, length));
    if (at != state.end()) return at->first.stringValue() + ' ' + at->second;
  }
  return "";
}

TEST_F(RouterTest, HistoryLeadsBackToEachEarlierMrib) {
  constexpr std::size_t kept = 50;
  U64 forgotten = 0;
  for (U32 seed = 1; seed <= 50; ++seed) {
    random.seed(seed);
    const History history(router, {[&] { return now + seconds(1000); }, [&] { return now; }}, kept);
    std::map<U64, State> states{{router.generation(), stateOf(router)}};
    const U64 subscription =
        router.subscribe([&](const Router::News& news) { states[news.update.generation] = stateOf(router); });
    for (int round = 0; round < 100; ++round) {
      for (U32 n = 1 + pick(3); n > 0; --n) change();
      rest();
    }
    router.unsubscribe(subscription);
    const U64 begin = history.begin().generation;
    states.erase(states.begin(), states.lower_bound(begin));
    ASSERT_LE(history.size(), kept);
    forgotten += history.forgotten();

    State state = stateOf(router);
    std::size_t left = history.size();
    for (auto at = states.rbegin(); at != states.rend() && at->first > begin; ++at) {
      ASSERT_EQ(state, at->second) << "seed " << seed << " generation " << at->first;
      for (; left > 0 && history[left - 1].moment.generation == at->first; --left) {
        const auto& change = history[left - 1];
        ASSERT_EQ(state[change.prefix], wordsOf(change.after));
        ASSERT_NE(wordsOf(change.before), wordsOf(change.after));
        ASSERT_NE(change.moment.cause, "");
        state[change.prefix] = wordsOf(change.before);
        if (state[change.prefix].empty()) state.erase(change.prefix);
      }
    }

    for (const IpAddr source : {host(0, 5), host(9, 1), IpAddr::fromHost(20U << 24 | 1)}) {
      std::set<U64> right;
      for (auto at = states.begin(); std::next(at) != states.end(); ++at) {
        const auto next = std::next(at);
        if (answerOf(at->second, source) != answerOf(next->second, source)) right.insert(next->first);
        const auto matches = history.matchesBefore(source, history.firstAfterGeneration(at->first));
        const std::string past =
            matches.empty() ? "" : matches[0].prefix.stringValue() + ' ' + wordsOf(matches[0].route);
        if (at->first <= begin) continue;
        ASSERT_EQ(past, answerOf(at->second, source));
      }
      right.erase(begin);
      std::set<U64> told;
      for (const std::size_t i : history.changesFor(source)) told.insert(history[i].moment.generation);
      ASSERT_EQ(told, right) << "seed " << seed << ' ' << source.stringValue();
    }
  }
  EXPECT_GT(forgotten, 0U);
}

}  // namespace
