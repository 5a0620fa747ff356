#include "Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Escape.h"

namespace host {

using nlohmann::ordered_json;
using Routing::Fib::RouteType;
using Routing::Fib::Via;
using Routing::Multicast::Rib::Route;

namespace {

constexpr int schemaVersion = 1;

std::vector<const Route*> sortedRoutes(const Agent& agent) {
  std::vector<const Route*> routes;
  for (auto r = agent.mrib().routeIterator(); r; ++r) routes.push_back(r.get());
  std::sort(routes.begin(), routes.end(),
            [](const Route* a, const Route* b) { return a->prefix() < b->prefix(); });
  return routes;
}

std::string_view typeText(const Route& route) {
  return route.routeType() == RouteType::connected ? "connected" : "static";
}

bool attached(const Via& via) {
  return via.hop == Lumo::IpAddr();
}

std::string hopText(const Via& via) {
  return attached(via) ? "attached" : via.hop.stringValue();
}

std::string intfText(const Via& via) {
  return via.intfStatus ? escaped(via.intfStatus->name().view()) : "-";
}

std::vector<Via> viasOf(const Route& route) {
  std::vector<Via> vias;
  for (auto via = route.viaIterator(); via; ++via) vias.push_back(*via);
  return vias;
}

ordered_json routeJson(const Route& route) {
  ordered_json vias = ordered_json::array();
  for (const Via& via : viasOf(route)) {
    ordered_json entry;
    entry["nextHop"] = attached(via) ? ordered_json() : ordered_json(via.hop.stringValue());
    entry["interface"] =
        via.intfStatus ? ordered_json(jsonText(via.intfStatus->name().view())) : ordered_json();
    vias.push_back(std::move(entry));
  }
  ordered_json json;
  json["prefix"] = route.prefix().stringValue();
  json["type"] = typeText(route);
  json["preference"] = route.preference();
  json["vias"] = std::move(vias);
  return json;
}

struct Unresolved {
  const MrouteLine* line;
  std::string why;
};

std::vector<Unresolved> unresolvedOf(const MribView& view) {
  std::vector<Unresolved> unresolved;
  for (const MrouteLine& line : view.lines) {
    if (auto why = view.agent.whyUnresolved(line)) unresolved.push_back({&line, std::move(*why)});
  }
  return unresolved;
}

}  // namespace

std::string mribText(const MribView& view) {
  constexpr std::string_view row = "{:<18}  {:<9}  {:>4}  {:<15}  {}\n";
  std::string text = fmt::format("MRIB, {}\n\n", view.source);
  text += fmt::format(row, "Prefix", "Type", "Pref", "Next hop", "Interface");
  for (const Route* route : sortedRoutes(view.agent)) {
    const std::vector<Via> vias = viasOf(*route);
    if (vias.empty()) {
      text +=
          fmt::format(row, route->prefix().stringValue(), typeText(*route), route->preference(), "none", "-");
    }
    for (std::size_t i = 0; i < vias.size(); ++i) {
      text += i == 0 ? fmt::format(row, route->prefix().stringValue(), typeText(*route), route->preference(),
                                   hopText(vias[i]), intfText(vias[i]))
                     : fmt::format(row, "", "", "", hopText(vias[i]), intfText(vias[i]));
    }
  }
  const std::vector<Unresolved> unresolved = unresolvedOf(view);
  if (!unresolved.empty()) text += "\nNot resolved:\n";
  for (const Unresolved& u : unresolved) {
    text += fmt::format("  {} {} {} (line {}): {}\n", u.line->prefix.stringValue(), u.line->rpfText(),
                        u.line->preference, u.line->line, u.why);
  }
  return text;
}

std::string mribJson(const MribView& view) {
  ordered_json document;
  document["schemaVersion"] = schemaVersion;
  document["source"] = view.source;
  document["routes"] = ordered_json::array();
  for (const Route* route : sortedRoutes(view.agent)) document["routes"].push_back(routeJson(*route));
  document["unresolved"] = ordered_json::array();
  for (const Unresolved& u : unresolvedOf(view)) {
    ordered_json entry;
    entry["prefix"] = u.line->prefix.stringValue();
    entry["rpf"] = u.line->rpfText();
    entry["preference"] = u.line->preference;
    entry["line"] = u.line->line;
    entry["why"] = u.why;
    document["unresolved"].push_back(std::move(entry));
  }
  document["warnings"] = view.warnings;
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

std::string rpfText(Lumo::IpAddr source, const Route* route) {
  if (!route) return fmt::format("RPF information for {}: no route\n", source.stringValue());
  std::string text = fmt::format("RPF information for {}\n", source.stringValue());
  for (const Via& via : viasOf(*route)) {
    text += fmt::format("  RPF interface: {}\n", intfText(via));
    text += fmt::format("  RPF neighbor: {}\n",
                        attached(via) ? source.stringValue() + " - directly connected" : hopText(via));
  }
  if (route->viaCount() == 0) text += "  RPF interface: none\n";
  text += fmt::format("  RPF route/mask: {}\n", route->prefix().stringValue());
  text += fmt::format("  RPF type: multicast ({})\n", typeText(*route));
  text += fmt::format("  RPF preference: {}\n", route->preference());
  return text;
}

std::string rpfJson(Lumo::IpAddr source, const Route* route) {
  ordered_json document;
  document["schemaVersion"] = schemaVersion;
  document["source"] = source.stringValue();
  document["route"] = route ? routeJson(*route) : ordered_json();
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace host
