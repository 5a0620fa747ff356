#pragma once

#include <random>

#include "../../fuzz/Target.h"
#include "CTwin.h"
#include "RightAnswer.h"

// Random transactions on an agent. After each one the MRIB must be the right answer where the agent says so,
// and after each settling in any case; what listeners hear must add up to the same; and an agent that is told
// only what is left at the end must give the same.

namespace agentrandom {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using mrib::RouteType;

inline const std::vector<const char*> routePool{"20.0.0.0/24", "20.0.0.128/25", "30.0.0.0/24", "30.1.0.0/16",
                                                "40.0.0.0/8",  "40.1.0.0/16",   "0.0.0.0/0",   "50.0.0.0/24",
                                                "10.1.0.0/16", "60.1.0.0/16",   "10.1.1.1/32", "70.0.0.0/9"};
inline const std::vector<const char*> mroutePool{"10.0.0.0/8",  "10.1.0.0/16", "10.1.1.0/24", "60.0.0.0/8",
                                                 "60.1.0.0/16", "70.0.0.0/8",  "70.7.0.0/16", "80.0.0.0/12",
                                                 "0.0.0.0/0",   "40.1.1.0/24", "20.0.0.0/16", "30.0.0.0/24"};
inline const std::vector<const char*> addressPool{
    "20.0.0.5", "20.0.0.200", "30.0.0.9", "30.1.2.3", "40.9.9.9", "40.1.1.7", "10.1.1.1", "10.9.9.9",
    "60.1.1.1", "60.9.9.9",   "70.7.7.7", "70.1.1.1", "80.0.0.1", "99.9.9.9", "50.0.0.1", "20.0.9.9"};
inline const std::vector<U32> preferencePool{1, 1, 2, 3, 200};
inline constexpr U32 linkCount = 5;

inline std::string show(const RightAnswer::Mrib& mrib) {
  std::string text;
  for (const auto& [prefix, route] : mrib) text += ctwin::say(route);
  return text;
}

inline std::string show(const mrib::Agent& agent) {
  RightAnswer::Mrib mrib;
  for (const mrib::Route& route : agent.routes()) mrib[route.prefix] = route;
  return show(mrib);
}

class Driver {
 public:
  /// A new engine takes over from so many changed prefixes on.
  Driver(fuzz::Dice dice, U32 rebuildFrom)
      : random_(dice), agent_(mrib::Agent::Options{rebuildFrom}), twin_(agent_, rebuildFrom) {
    agent_.subscribe([this](const mrib::Update& u) { hear(u); });
  }

  /// One transaction, and what there is to say against what became of it.
  std::string step(bool settle) {
    RightAnswer next = inputs_;
    mrib::Transaction t;
    for (auto n = 1 + random_() % (chance(15) ? 20 : 4); n > 0; --n) change(next, t);
    const U64 before = agent_.generation();
    const mrib::CommitResult result = agent_.commit(t);
    twin_.commit(t, result);
    const bool refused = hasDoubleName(next) || next.isRefused();
    if (result.accepted == refused)
      return refused ? "should be refused" : "should be accepted: " + said(result);
    if (refused)
      return agent_.generation() == before ? twin_.difference() : "refused, yet another generation";
    inputs_ = std::move(next);
    ++commits;
    if (std::string fault = judge(result.mayDiffer); !fault.empty()) return fault;
    if (!settle) return "";
    const bool mayDiffer = result.mayDiffer;
    const std::size_t found = agent_.settle().changes.size();
    twin_.settle();
    if (!mayDiffer && found > 0) return "settling heals what could not differ";
    mayDiffers += mayDiffer;
    healed += found > 0;
    return judge(false);
  }

  bool isOver() const { return random_.isOver(); }

  int commits = 0;
  int mayDiffers = 0;
  int healed = 0;

 private:
  bool chance(U32 percent) { return random_() % 100 < percent; }
  template <class T>
  const T& pick(const std::vector<T>& pool) {
    return pool[random_() % pool.size()];
  }
  U32 index() { return 1 + static_cast<U32>(random_() % linkCount); }
  std::string name() { return 'e' + std::to_string(index()); }

  static mrib::Mroute mrouteOf(const Prefix& prefix, const RightAnswer::Line& line) {
    mrib::Mroute m{prefix, IpGenAddr(line.address), line.preference};
    if (!line.name.empty()) m.rpf = line.name;
    return m;
  }
  static std::string said(const mrib::CommitResult& result) {
    return result.refusals.empty() ? "" : result.refusals.front().text;
  }
  static bool hasDoubleName(const RightAnswer& inputs) {
    std::set<std::string> names;
    for (const auto& [index, link] : inputs.links) {
      if (!names.insert(link.name).second) return true;
    }
    return false;
  }

  void change(RightAnswer& next, mrib::Transaction& t) {
    const U64 kind = random_() % 10;
    if (kind == 0) return changeLink(next, t);
    if (kind == 1) return changeAddress(next, t);
    kind < 5 ? changeRoute(next, t) : changeMroute(next, t);
  }
  void changeLink(RightAnswer& next, mrib::Transaction& t) {
    const U32 i = index();
    if (chance(30)) {
      next.links.erase(i);
      std::erase_if(next.addresses, [&](const auto& a) { return a.first.first == i; });
      return t.linkDel(i);
    }
    const mrib::Link link{i, chance(80) ? 'e' + std::to_string(i) : name(), chance(80)};
    next.links[i] = link;
    t.link(link);
  }
  void changeAddress(RightAnswer& next, mrib::Transaction& t) {
    const U32 i = index();
    const IpAddr address(pick(addressPool));
    if (chance(40)) {
      const auto held = next.addresses.lower_bound({i, {}});
      const IpAddr gone =
          held != next.addresses.end() && held->first.first == i ? held->first.second : address;
      next.addresses.erase({i, gone});
      return t.addressDel(i, IpGenAddr(gone));
    }
    const bool secondary = chance(20);
    next.addresses[{i, address}] = secondary;
    t.address({i, IpGenAddr(address), secondary});
  }
  void changeRoute(RightAnswer& next, mrib::Transaction& t) {
    const Prefix prefix(pick(routePool));
    if (next.routes.contains(prefix) && chance(50)) {
      next.routes.erase(prefix);
      return t.routeDel(prefix);
    }
    mrib::UnicastRoute route{
        prefix, chance(80) ? RouteType::connected : RouteType::igp, static_cast<U8>(random_() % 4), {}};
    for (auto n = random_() % 4; n > 0; --n) {
      route.nextHops.push_back({chance(70) ? IpGenAddr() : IpGenAddr(IpAddr("20.0.0.77")), index()});
    }
    next.routes.insert_or_assign(prefix, route);
    t.route(route);
  }
  void changeMroute(RightAnswer& next, mrib::Transaction& t) {
    const Prefix prefix(pick(mroutePool));
    if (chance(2)) {
      next.mroutes.clear();
      return t.mrouteDelAll();
    }
    auto& lines = next.mroutes[prefix];
    if (!lines.empty() && chance(45)) {
      const auto line = std::next(lines.begin(), static_cast<std::ptrdiff_t>(random_() % lines.size()));
      t.mrouteDel(mrouteOf(prefix, *line));
      lines.erase(line);
    } else {
      RightAnswer::Line line{pick(preferencePool), "", {}};
      if (chance(25)) {
        line.name = name();
      } else {
        line.address = IpAddr(pick(addressPool));
      }
      lines.insert(line);
      t.mroute(mrouteOf(prefix, line));
    }
    if (lines.empty()) next.mroutes.erase(prefix);
  }

  void hear(const mrib::Update& u) {
    if (u.generation != heardGeneration_ + 1) heardFault_ = "a generation is missing";
    heardGeneration_ = u.generation;
    std::set<Prefix> seen;
    for (const mrib::Change& c : u.changes) {
      if (!seen.insert(c.prefix()).second) heardFault_ = "a prefix twice";
      const auto was = heard_.find(c.prefix());
      const mrib::Route before = was == heard_.end() ? mrib::Route{c.prefix()} : was->second;
      if (!(c.before == before)) heardFault_ = "not as it was before";
      if (c.before == c.after) heardFault_ = "no change";
      if (c.removed()) {
        heard_.erase(c.prefix());
      } else {
        heard_[c.prefix()] = c.after;
      }
    }
  }

  std::string judge(bool mayDiffer) {
    if (!heardFault_.empty()) return heardFault_;
    if (heardGeneration_ != agent_.generation()) return "a generation was not told";
    const std::string real = show(agent_);
    if (show(heard_) != real) return "heard:\n" + show(heard_) + "is:\n" + real;
    if (const std::string found = twin_.difference(); !found.empty() || mayDiffer) return found;
    const auto answer = inputs_.mrib();
    if (real != show(answer)) return "is:\n" + real + "right:\n" + show(answer);
    return judgeUnresolved(answer);
  }
  static RightAnswer::Line lineOf(const mrib::Mroute& mroute) {
    RightAnswer::Line line{mroute.preference, "", {}};
    if (const auto* text = std::get_if<std::string>(&mroute.rpf)) line.name = *text;
    if (const auto* address = std::get_if<IpGenAddr>(&mroute.rpf)) line.address = address->v4Addr();
    return line;
  }
  mrib::Resolution resolutionOf(const Prefix& prefix, const RightAnswer::Line& line) const {
    const auto all = agent_.resolutions(prefix);
    return *std::find_if(all.begin(), all.end(), [&](const auto& r) { return lineOf(r.mroute) == line; });
  }
  std::string judgeUnresolved(const RightAnswer::Mrib& answer) {
    std::map<std::pair<Prefix, RightAnswer::Line>, mrib::Unresolved> reasons;
    for (const mrib::Unresolved& u : agent_.unresolved()) {
      reasons.emplace(
          std::pair(Prefix(u.mroute.prefix.address.v4Addr(), u.mroute.prefix.length), lineOf(u.mroute)), u);
    }
    std::size_t unresolved = 0;
    for (const auto& [prefix, lines] : inputs_.mroutes) {
      RightAnswer::Mrib done = answer;
      const auto first = std::find_if(lines.begin(), lines.end(), [&, &to = prefix](const auto& line) {
        mrib::Route scratch{to};
        return inputs_.resolve(to, line, scratch, done);
      });
      const U32 installed = first == lines.end() ? 0 : first->preference;
      for (const auto& line : lines) {
        mrib::Route scratch{prefix};
        const auto reason = reasons.find({prefix, line});
        const bool resolves = inputs_.resolve(prefix, line, scratch, done);
        const auto found = answer.find(prefix);
        const bool inForce = resolves && found->second.preference == line.preference;
        unresolved += !inForce;
        std::sort(scratch.nextHops.begin(), scratch.nextHops.end());
        const auto resolution = resolutionOf(prefix, line);
        if (resolution.inForce != inForce || resolution.fault.has_value() == resolves ||
            !(resolution.nextHops == scratch.nextHops))
          return "resolution of " + prefix.stringValue();
        if ((reason == reasons.end()) != inForce) return "unresolved: " + prefix.stringValue();
        if (inForce) continue;
        const mrib::Unresolved& said = reason->second;
        const std::string what = prefix.stringValue() + " " + said.text();
        if (inputs_.isHeld(prefix, line) != (said.reason == mrib::Reason::heldBack)) return "held " + what;
        if (resolves != (said.reason == mrib::Reason::waiting) && resolves) return "waiting " + what;
        if (said.reason == mrib::Reason::unsettled) return "unsettled " + what;
        if (said.installed != installed || said.anotherResolves != (installed == line.preference))
          return "in force beside " + what;
      }
    }
    return unresolved == reasons.size() ? "" : "unresolved that are not configured";
  }

  fuzz::Dice random_;
  RightAnswer inputs_;
  mrib::Agent agent_;
  CTwin twin_;
  RightAnswer::Mrib heard_;
  U64 heardGeneration_ = 0;
  std::string heardFault_;
};

}  // namespace agentrandom
