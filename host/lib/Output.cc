#include "Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "ConfigText.h"
#include "Escape.h"

namespace host {

using mrib::NextHop;
using mrib::Route;
using nlohmann::ordered_json;

namespace {

constexpr int schemaVersion = 1;

std::vector<const Route*> sortedRoutes(const mrib::Agent& agent) {
  std::vector<const Route*> routes;
  for (const Route& route : agent.routes()) routes.push_back(&route);
  std::sort(routes.begin(), routes.end(),
            [](const Route* a, const Route* b) { return a->prefix < b->prefix; });
  return routes;
}

std::string_view typeText(const Route& route) {
  return route.type == mrib::RouteType::connected ? "connected" : "static";
}

bool attached(const NextHop& hop) {
  return hop.address == Lumo::IpAddr();
}

std::string hopText(const NextHop& hop) {
  return attached(hop) ? "attached" : hop.address.stringValue();
}

std::string intfText(const mrib::Agent& agent, const NextHop& hop) {
  const mrib::Link* link = agent.link(hop.link);
  return link ? escaped(link->name) : "-";
}

ordered_json routeJson(const mrib::Agent& agent, const Route& route) {
  ordered_json vias = ordered_json::array();
  for (const NextHop& hop : route.nextHops) {
    const mrib::Link* link = agent.link(hop.link);
    ordered_json entry;
    entry["nextHop"] = attached(hop) ? ordered_json() : ordered_json(hop.address.stringValue());
    entry["interface"] = link ? ordered_json(jsonText(link->name)) : ordered_json();
    vias.push_back(std::move(entry));
  }
  ordered_json json;
  json["prefix"] = route.prefix.stringValue();
  json["type"] = typeText(route);
  json["preference"] = route.preference;
  json["vias"] = std::move(vias);
  return json;
}

struct Unresolved {
  const MrouteLine* line;
  std::string why;
};

/// The lines that do not resolve, in their order; without those that wait behind a better preference.
std::vector<Unresolved> unresolvedOf(const MribView& view) {
  std::vector<Unresolved> unresolved;
  std::unordered_map<U64, const MrouteLine*> lines;
  for (const MrouteLine& line : view.lines) lines.emplace(line.origin, &line);
  for (const mrib::Unresolved& u : view.agent.unresolved()) {
    const auto line = lines.find(u.mroute.origin);
    if (u.isError() && line != lines.end()) unresolved.push_back({line->second, u.text()});
  }
  std::sort(unresolved.begin(), unresolved.end(),
            [](const Unresolved& a, const Unresolved& b) { return a.line < b.line; });
  return unresolved;
}

}  // namespace

std::string mribText(const MribView& view) {
  constexpr std::string_view row = "{:<18}  {:<9}  {:>4}  {:<15}  {}\n";
  std::string text = fmt::format("MRIB, {}\n\n", view.source);
  text += fmt::format(row, "Prefix", "Type", "Pref", "Next hop", "Interface");
  for (const Route* route : sortedRoutes(view.agent)) {
    const std::string prefix = route->prefix.stringValue();
    if (route->nextHops.empty()) {
      text += fmt::format(row, prefix, typeText(*route), route->preference, "none", "-");
    }
    for (const NextHop& hop : route->nextHops) {
      const std::string intf = intfText(view.agent, hop);
      text += &hop == route->nextHops.begin()
                  ? fmt::format(row, prefix, typeText(*route), route->preference, hopText(hop), intf)
                  : fmt::format(row, "", "", "", hopText(hop), intf);
    }
  }
  const std::vector<Unresolved> unresolved = unresolvedOf(view);
  if (!unresolved.empty()) text += "\nNot resolved:\n";
  for (const Unresolved& u : unresolved) {
    text += fmt::format("  {} {} {} (line {}): {}\n", u.line->prefix.stringValue(), rpfText(*u.line),
                        u.line->preference, static_cast<U32>(u.line->origin), u.why);
  }
  return text;
}

std::string mribJson(const MribView& view) {
  ordered_json document;
  document["schemaVersion"] = schemaVersion;
  document["source"] = view.source;
  document["routes"] = ordered_json::array();
  for (const Route* route : sortedRoutes(view.agent)) {
    document["routes"].push_back(routeJson(view.agent, *route));
  }
  document["unresolved"] = ordered_json::array();
  for (const Unresolved& u : unresolvedOf(view)) {
    ordered_json entry;
    entry["prefix"] = u.line->prefix.stringValue();
    entry["rpf"] = rpfText(*u.line);
    entry["preference"] = u.line->preference;
    entry["line"] = static_cast<U32>(u.line->origin);
    entry["why"] = u.why;
    document["unresolved"].push_back(std::move(entry));
  }
  document["warnings"] = view.warnings;
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

std::string rpfText(const mrib::Agent& agent, Lumo::IpAddr source) {
  const Route* route = agent.rpf(source);
  if (!route) return fmt::format("RPF information for {}: no route\n", source.stringValue());
  std::string text = fmt::format("RPF information for {}\n", source.stringValue());
  for (const NextHop& hop : route->nextHops) {
    text += fmt::format("  RPF interface: {}\n", intfText(agent, hop));
    text += fmt::format("  RPF neighbor: {}\n",
                        attached(hop) ? source.stringValue() + " - directly connected" : hopText(hop));
  }
  if (route->nextHops.empty()) text += "  RPF interface: none\n";
  text += fmt::format("  RPF route/mask: {}\n", route->prefix.stringValue());
  text += fmt::format("  RPF type: multicast ({})\n", typeText(*route));
  text += fmt::format("  RPF preference: {}\n", route->preference);
  return text;
}

std::string rpfJson(const mrib::Agent& agent, Lumo::IpAddr source) {
  const Route* route = agent.rpf(source);
  ordered_json document;
  document["schemaVersion"] = schemaVersion;
  document["source"] = source.stringValue();
  document["route"] = route ? routeJson(agent, *route) : ordered_json();
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace host
