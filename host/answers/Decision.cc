#include "Decision.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Escape.h"

namespace host {

using Status = RpfAnswer::Status;

namespace {

std::string nameOf(const Way& way) {
  return way.link == 0 ? "an unknown interface" : escaped(way.interface);
}

std::string_view wordsFor(kernel::Answer::Kind kind) {
  using enum kernel::Answer::Kind;
  switch (kind) {
    case blackhole:
      return "is a blackhole";
    case unreachable:
      return "says unreachable";
    case prohibit:
      return "prohibits it";
    case local:
      return "makes it this router's own address";
    default:
      return "leads there";
  }
}

}  // namespace

bool Decision::allows(U32 link) const {
  return std::any_of(ways.begin(), ways.end(), [link](const Way& way) { return way.link == link; });
}

std::vector<Way> waysOf(const Router& router, const mrib::Route& route) {
  std::vector<Way> ways;
  for (const mrib::NextHop& hop : route.nextHops) {
    const std::string* name = router.linkName(hop);
    const auto neighbor = router.isAttached(hop) ? Lumo::IpGenAddr() : Lumo::IpGenAddr(hop.address);
    ways.push_back({neighbor, name ? hop.link : 0, name ? *name : ""});
  }
  return ways;
}

std::vector<Way> waysOf(const Router& router, const kernel::Answer& answer) {
  std::vector<Way> ways;
  for (const kernel::Hop& hop : answer.hops) {
    const kernel::Link* link = router.mirror().topology().link(hop.link);
    ways.push_back({hop.gateway, link ? hop.link : 0, link ? link->name : ""});
  }
  return ways;
}

Decision decisionFor(const Router& router, const Lumo::IpGenAddr& source) {
  const RpfAnswer answer = router.lookUp(source);
  Decision decision{source, answer.status, answer.table, answer.prefix, {}, {}, {}, {}};
  if (answer.route) {
    decision.route = *answer.route;
    decision.ways = waysOf(router, *answer.route);
    for (const auto& resolution : router.agent().resolutions(answer.route->prefix)) {
      if (resolution.inForce) decision.lines.push_back(resolution.mroute);
    }
  } else if (answer.answer) {
    decision.unicast = *answer.answer;
    decision.ways = waysOf(router, *answer.answer);
  }
  return decision;
}

std::string lineName(const Configuration& configuration, const mrib::Mroute& line) {
  MrouteLine written{
      {line.prefix.address.v4Addr(), line.prefix.length}, {}, static_cast<U8>(line.preference), 0};
  if (const auto* name = std::get_if<std::string>(&line.rpf)) {
    written.rpf = *name;
  } else {
    written.rpf = std::get<Lumo::IpGenAddr>(line.rpf).v4Addr();
  }
  return fmt::format("{} ({})", configuration.placeOf(line.origin), textOf(written));
}

std::string decidingText(const Router& router, const Decision& decision) {
  const std::string prefix = decision.prefix.empty() ? "" : decision.prefix.stringValue();
  if (!decision.lines.empty()) {
    std::vector<std::string> names;
    for (const mrib::Mroute& line : decision.lines) names.push_back(lineName(router.configuration(), line));
    if (names.size() == 1) return names.front() + " decides";
    return fmt::format("{} have the same preference, {}", fmt::join(names, " and "),
                       decision.lines.front().preference);
  }
  if (decision.route) return fmt::format("it is on the connected subnet {}", prefix);
  if (!decision.unicast) return "no table has a route to it";
  return fmt::format("the unicast route {} {}", prefix, wordsFor(decision.unicast->kind));
}

std::string interfacesText(const std::vector<Way>& ways) {
  std::vector<std::string> names;
  for (const Way& way : ways) {
    std::string name = nameOf(way);
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
  }
  return names.empty() ? "no interface" : fmt::format("{}", fmt::join(names, " or "));
}

std::string waysText(const std::vector<Way>& ways) {
  std::vector<std::string> texts;
  for (const Way& way : ways) {
    const bool direct = way.neighbor == Lumo::IpGenAddr();
    texts.push_back((direct ? "" : "by " + way.neighbor.stringValue() + ' ') + "on " + nameOf(way));
  }
  return texts.empty() ? "nowhere" : fmt::format("{}", fmt::join(texts, " or "));
}

}  // namespace host
