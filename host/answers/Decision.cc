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

/// Why the unicast table's route counts, and not the MRIB's.
std::string whyUnicast(const Router& router, const Lumo::IpGenAddr& source) {
  const LookupMode mode = router.configuration().lookupMode;
  if (source.af() != Lumo::ipv4()) return ", and the MRIB is of IPv4";
  if (mode == LookupMode::uribOnly) return fmt::format(", and {} lets no other table answer", nameOf(mode));
  const RpfAnswer multicast = router.inMrib(source);
  if (!multicast.route) return ", and the MRIB has no route";
  return fmt::format(", and by {} it comes before the MRIB's {}", nameOf(mode),
                     multicast.prefix.stringValue());
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

std::string lineNames(const Configuration& configuration, std::span<const mrib::Mroute> lines) {
  constexpr std::size_t most = 4;
  std::vector<std::string> names;
  for (const mrib::Mroute& line : lines.first(std::min(most, lines.size()))) {
    names.push_back(lineName(configuration, line));
  }
  if (lines.size() > most) names.push_back(fmt::format("{} more", lines.size() - most));
  return fmt::format("{}", fmt::join(names, " and "));
}

std::string decidingName(const Router& router, const Decision& decision) {
  if (!decision.lines.empty()) return lineNames(router.configuration(), decision.lines);
  if (decision.prefix.empty()) return "no route";
  return fmt::format("{} {}", decision.route ? "the connected subnet" : "the unicast route",
                     decision.prefix.stringValue());
}

std::string decidingText(const Router& router, const Decision& decision) {
  const std::string name = decidingName(router, decision);
  if (decision.lines.size() == 1) return name + " decides";
  if (!decision.lines.empty()) {
    return fmt::format("{} have the same preference, {}", name, decision.lines.front().preference);
  }
  if (decision.route) return "it is on " + name;
  if (!decision.unicast) return "no table has a route to it";
  return fmt::format("{} {}{}", name, wordsFor(decision.unicast->kind), whyUnicast(router, decision.source));
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
