#include <gtest/gtest.h>

#include <random>

#include "../agent/RightAnswer.h"
#include "Explanation.h"
#include "kernel/PlainKernel.h"

// Explanations of random routers, step by step against a plain recursion over what the router was made of;
// what they say of the kernel is judged by the kernel itself, in e2e/broken.py.

using namespace host;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using Kind = Explanation::Kind;
using State = Explanation::LineState;

namespace {

const std::vector<const char*> mroutePool{"203.0.113.0/24",    "203.0.0.0/16", "192.0.2.0/24", "10.0.1.0/24",
                                          "10.0.0.0/16",       "10.0.2.0/24",  "10.0.3.0/24",  "10.0.0.0/22",
                                          "198.51.100.128/25", "0.0.0.0/0"};
const std::vector<const char*> addressPool{"10.0.1.7",    "10.0.2.7",    "10.0.3.9",       "192.0.2.9",
                                           "203.0.113.7", "203.0.200.1", "198.51.100.200", "172.16.0.1"};
const std::vector<const char*> attachedPool{"10.0.1.0/24", "10.0.2.0/24", "10.0.3.0/24", "198.51.100.0/24",
                                            "0.0.0.0/0"};
constexpr U32 linkCount = 4;

/// A router out of random records, and the same as what judges it.
class World {
 public:
  explicit World(U64 seed) : random_(seed), mirror(settings(), 0) {
    makeLinks();
    makeRoutes();
    makeLines();
    for (auto action = mirror.next(0); !mirror.isSynced(); action = mirror.next(0)) {
      if (action.kind == kernel::Mirror::Action::Kind::dump) kernel.answer(mirror, action, 0);
    }
    for (int i = 0; i < 3; ++i) router.turn(0);
    makeStandIns();
    isRefused = !router.configurationIs(configuration, 0).empty();
    router.agent().settle();
    mrib = isRefused ? RightAnswer::Mrib() : judge.mrib();
  }

  template <class T>
  const T& pick(const std::vector<T>& pool) {
    return pool[below(static_cast<U32>(pool.size()))];
  }
  U32 below(U32 count) { return static_cast<U32>(random_()) % count; }
  bool chance(U32 percent) { return below(100) < percent; }

  /// The longest match of an address in the right MRIB.
  const mrib::Route* longest(IpAddr address) const {
    for (int length = 32; length >= 0; --length) {
      const auto at = mrib.find({address, static_cast<U32>(length)});
      if (at != mrib.end()) return &at->second;
    }
    return nullptr;
  }

 private:
  static kernel::Mirror::Settings settings() {
    kernel::Mirror::Settings settings;
    settings.schedule.coalesce = settings.schedule.audit = seconds(1U << 20);
    return settings;
  }
  void makeLinks() {
    for (U32 i = 1; i <= linkCount; ++i) {
      kernel::Link link;
      link.index = i;
      link.name = 'e' + std::to_string(i);
      link.up = chance(85);
      link.lowerUp = link.running = link.up && chance(85);
      kernel.links.push_back(link);
      judge.links[i] = {i, link.name, link.up, link.lowerUp};
      for (U32 n = below(3); n > 0; --n) {
        kernel::Address a;
        a.link = i;
        a.local = a.peer =
            IpGenAddr(IpAddr::fromHost(0x0A000000 | (chance(60) ? i : 1 + below(3)) << 8 | (1 + below(3))));
        a.length = 24;
        a.secondary = chance(20);
        if (judge.addresses.emplace(std::pair{i, a.local.v4Addr()}, a.secondary).second)
          kernel.addresses.push_back(a);
      }
    }
  }
  void makeRoutes() {
    for (const char* prefix : attachedPool) {
      if (chance(40)) continue;
      kernel::Route route;
      route.prefix = Lumo::IpGenPrefix(Prefix(prefix));
      route.table = 254;
      const bool byGateway = chance(20);
      std::set<U32> used;
      for (U32 n = chance(25) ? 2 : 1; n > 0; --n) used.insert(1 + below(linkCount));
      for (const U32 link : used) {
        if (kernel.links[link - 1].up)
          route.hops.push_back({byGateway ? IpGenAddr(IpAddr("10.0.1.250")) : IpGenAddr(), link, 0});
      }
      if (route.hops.empty()) continue;
      kernel.routes.push_back(route);
      if (byGateway) continue;
      mrib::UnicastRoute connected{Prefix(prefix), mrib::RouteType::connected, 0, {}};
      for (const kernel::Hop& hop : route.hops) connected.nextHops.push_back({{}, hop.link});
      judge.routes.insert_or_assign(Prefix(prefix), connected);
    }
  }
  void makeLines() {
    configuration.lookupMode = static_cast<LookupMode>(below(5));
    for (U64 n = 1 + below(9); n > 0; --n) {
      MrouteLine line{
          Prefix(pick(mroutePool)), IpAddr(pick(addressPool)), static_cast<U8>(1 + below(3)), n, {}};
      RightAnswer::Line same{line.preference, "", std::get<IpAddr>(line.rpf)};
      if (chance(40)) {
        line.rpf = same.name = 'e' + std::to_string(1 + below(linkCount + 1));
        same.address = {};
      }
      if (judge.mroutes[line.prefix].insert(same).second) configuration.mroutes.push_back(line);
    }
  }
  /// An interface whose own address does not lead back to it alone resolves by an address that nobody has, as
  /// long as it has a connected route.
  void makeStandIns() {
    const auto connected = judge.routes;
    for (const auto& [index, link] : judge.links) {
      const auto isOn = [i = index](const auto& hop) { return hop.link == i; };
      const bool isAttached = std::any_of(connected.begin(), connected.end(), [&](const auto& r) {
        return std::any_of(r.second.nextHops.begin(), r.second.nextHops.end(), isOn);
      });
      const auto own = judge.addressOf({1, link.name, {}});
      if (!isAttached && !own) continue;
      const mrib::UnicastRoute* back = nullptr;
      for (U32 length = 32; own && !back && length > 0; --length) {
        const auto at = connected.find(Prefix(*own, length));
        if (at != connected.end()) back = &at->second;
      }
      if (back && back->nextHops.size() == 1 && isOn(back->nextHops.front())) continue;
      const IpAddr standIn = IpAddr::fromHost(index);
      judge.addresses[{index, standIn}] = false;
      if (isAttached) {
        judge.routes.insert_or_assign(
            Prefix(standIn, 32),
            mrib::UnicastRoute{Prefix(standIn, 32), mrib::RouteType::connected, 0, {{{}, index}}});
      }
    }
  }

  std::minstd_rand random_;

 public:
  kernel::Mirror mirror;
  Router router{mirror, [] { return Nanos{0}; }};
  Configuration configuration;
  PlainKernel kernel;
  RightAnswer judge;
  RightAnswer::Mrib mrib;
  bool isRefused = false;
};

RightAnswer::Line lineOf(const mrib::Mroute& m) {
  const auto* name = std::get_if<std::string>(&m.rpf);
  return {m.preference, name ? *name : "", name ? IpAddr() : std::get<IpGenAddr>(m.rpf).v4Addr()};
}

Prefix prefixOf(const mrib::Mroute& m) {
  return {m.prefix.address.v4Addr(), m.prefix.length};
}

std::set<std::pair<U32, IpAddr>> hopsOf(const mrib::NextHops& hops) {
  std::set<std::pair<U32, IpAddr>> set;
  for (const mrib::NextHop& hop : hops) {
    set.emplace(hop.link, KernelFeed::isStandIn(hop.address) ? IpAddr() : hop.address);
  }
  return set;
}

bool namesStandIn(const std::string& text) {
  const auto at = text.find(" 0.0.0.");
  return at != std::string::npos && text[at + 7] != '0';
}

/// Judges all steps of one explanation.
class Judge {
 public:
  Judge(const World& world, const Explanation& e) : w_(world), e_(e), source_(e.decision.source.v4Addr()) {}

  void judge() {
    judgeAnswer();
    for (std::size_t i = 0; i < e_.steps.size(); ++i) {
      const Explanation::Step& step = e_.steps[i];
      SCOPED_TRACE("step " + std::to_string(i + 1) + ": " + step.text);
      EXPECT_FALSE(namesStandIn(step.text));
      if (step.kind == Kind::line) judgeLine(step);
      if (step.kind == Kind::onCircle) judgeCircle(i);
      if (step.kind == Kind::through) judgeThrough(step);
      if (step.kind == Kind::interface) judgeInterface(*step.interface);
      if (step.seen != 0) {
        EXPECT_EQ(e_.steps[step.seen - 1].prefix, step.prefix);
      }
    }
  }

 private:
  void judgeAnswer() {
    const RpfAnswer rpf = w_.router.lookUp(e_.decision.source);
    EXPECT_EQ(e_.decision.status, rpf.status);
    EXPECT_EQ(e_.decision.table, rpf.table);
    EXPECT_EQ(e_.decision.prefix, rpf.prefix);
    EXPECT_EQ(e_.decision.route.has_value(), rpf.route != nullptr);
    EXPECT_TRUE(!rpf.route || *e_.decision.route == *rpf.route);
    EXPECT_TRUE(!rpf.answer || *e_.decision.unicast == *rpf.answer);
    if (w_.configuration.lookupMode == LookupMode::uribOnly) return;
    std::vector<Prefix> matches;
    std::vector<Prefix> waiting;
    for (int length = 32; length >= 0; --length) {
      const Prefix prefix(source_, static_cast<U32>(length));
      if (w_.mrib.contains(prefix)) {
        matches.push_back(prefix);
      } else if (w_.judge.mroutes.contains(prefix) && matches.empty()) {
        waiting.push_back(prefix);
      }
    }
    std::vector<Prefix> said;
    std::vector<Prefix> saidWaiting;
    for (const auto& step : e_.steps) {
      if ((step.kind == Kind::match || step.kind == Kind::shorter) && step.route)
        said.push_back(step.prefix.v4Prefix());
      if (step.kind == Kind::wouldMatch && step.depth == 1) saidWaiting.push_back(step.prefix.v4Prefix());
    }
    EXPECT_EQ(said, matches);
    EXPECT_EQ(saidWaiting, waiting);
    judgeTrouble(matches, waiting);
  }
  /// The conclusion names a line that does not resolve when there is one that could decide.
  void judgeTrouble(const std::vector<Prefix>& matches, std::vector<Prefix> could) {
    if (!matches.empty()) could.push_back(matches.front());
    bool expected = false;
    for (const Prefix& prefix : could) {
      const auto lines = w_.judge.mroutes.find(prefix);
      const auto route = w_.mrib.find(prefix);
      const U32 winning =
          route == w_.mrib.end() || route->second.preference == 0 ? 255U : route->second.preference;
      for (const auto& line :
           lines == w_.judge.mroutes.end() ? std::set<RightAnswer::Line>() : lines->second) {
        expected |= line.preference <= winning && !resolves(prefix, line).has_value();
      }
    }
    const bool names = e_.conclusion.find("does not resolve") != std::string::npos ||
                       e_.conclusion.find("is held back") != std::string::npos;
    EXPECT_EQ(names, expected) << e_.conclusion;
  }

  std::optional<mrib::Route> resolves(const Prefix& prefix, const RightAnswer::Line& line) const {
    mrib::Route into{prefix};
    RightAnswer::Mrib done = w_.mrib;
    if (!w_.judge.resolve(prefix, line, into, done)) return std::nullopt;
    return into;
  }
  /// Why a line does not resolve, from the right MRIB alone.
  mrib::Reason reasonOf(const Prefix& prefix, const RightAnswer::Line& line) const {
    using enum mrib::Reason;
    if (w_.judge.isHeld(prefix, line)) return heldBack;
    if (!line.name.empty() && w_.judge.linkOf(line.name) == 0) return noInterface;
    const auto address = w_.judge.addressOf(line);
    if (!address) return noAddress;
    const mrib::Route* match = w_.longest(*address);
    if (!match) return noRoute;
    if (match->prefix == prefix) return itself;
    if (match->prefix.length() == 0) return onlyDefault;
    return RightAnswer::leadsNowhere(prefix, match->prefix) ? coveredBy : unsettled;
  }
  void judgeLine(const Explanation::Step& step) {
    const mrib::Resolution& said = *step.line;
    const Prefix prefix = prefixOf(said.mroute);
    const RightAnswer::Line line = lineOf(said.mroute);
    ASSERT_TRUE(w_.judge.mroutes.at(prefix).contains(line));
    const auto right = resolves(prefix, line);
    if (!right) {
      EXPECT_EQ(step.state, State::unresolved);
      ASSERT_TRUE(said.fault.has_value());
      EXPECT_EQ(said.fault->reason, reasonOf(prefix, line));
      return;
    }
    EXPECT_FALSE(said.fault.has_value());
    const U8 winning = w_.mrib.at(prefix).preference;
    EXPECT_EQ(step.state, line.preference == winning ? State::inForce : State::waiting);
    EXPECT_EQ(hopsOf(said.nextHops), hopsOf(right->nextHops));
  }
  /// The steps of a circle lead from one to the next, and back to the line before them.
  void judgeCircle(std::size_t at) {
    const mrib::Mroute& line = e_.steps[at].line->mroute;
    EXPECT_TRUE(w_.judge.isHeld(prefixOf(line), lineOf(line)));
    const mrib::Mroute& before = e_.steps[at - 1].line->mroute;
    EXPECT_TRUE(w_.judge.targets(prefixOf(before), lineOf(before)).contains(prefixOf(line)));
  }
  void judgeThrough(const Explanation::Step& step) {
    const mrib::Route* match = w_.longest(*step.line->address);
    ASSERT_NE(match, nullptr);
    EXPECT_EQ(step.route->prefix, match->prefix);
    EXPECT_EQ(step.route->preference, match->preference);
    EXPECT_EQ(hopsOf(step.route->nextHops), hopsOf(match->nextHops));
  }
  void judgeInterface(const Explanation::Interface& said) {
    const kernel::Link& link = w_.kernel.links.at(said.index - 1);
    EXPECT_EQ(said.name, link.name);
    EXPECT_EQ(said.up, link.up);
    EXPECT_EQ(said.carrier, link.lowerUp);
    const auto own = std::count_if(w_.kernel.addresses.begin(), w_.kernel.addresses.end(),
                                   [&](const auto& a) { return a.link == link.index; });
    EXPECT_EQ(said.addresses.size(), static_cast<std::size_t>(own));
  }

  const World& w_;
  const Explanation& e_;
  IpAddr source_;
};

}  // namespace

TEST(Explanation, EachClaimIsTheRightOne) {
  std::map<Kind, int> told;
  std::map<mrib::Reason, int> reasons;
  int refused = 0;
  for (U64 seed = 1; seed <= 10000 && !testing::Test::HasFailure(); ++seed) {
    World world(seed);
    ASSERT_EQ(world.isRefused, world.judge.isRefused()) << seed;
    refused += world.isRefused;
    if (world.isRefused) continue;
    IpAddr source(world.pick(addressPool));
    for (const auto& u : world.router.agent().unresolved()) {  // the rarest ones are looked for
      if (u.reason == mrib::Reason::heldBack)
        source = IpAddr::fromHost(prefixOf(u.mroute).address().host() | 9);
    }
    const Explanation e = explain(world.router, IpGenAddr(source), std::nullopt, nullptr);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", source " + source.stringValue() + ": " + e.conclusion);
    Judge(world, e).judge();
    for (const auto& step : e.steps) {
      ++told[step.kind];
      if (step.kind == Kind::line && step.line->fault) ++reasons[step.line->fault->reason];
    }
  }
  EXPECT_LT(refused, 5000);
  // All that can be told was, some hundred times.
  EXPECT_EQ(told.size(), 10U);
  EXPECT_EQ(reasons.size(), 7U);
  for (const auto& [reason, count] : reasons) EXPECT_GT(count, 20) << static_cast<int>(reason);
}
