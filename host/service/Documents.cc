#include "Documents.h"

#include "ConfigText.h"
#include "Escape.h"
#include "Names.h"

namespace host::documents {

using kernel::Answer;

namespace {

Json interfaceName(const std::string* name) {
  return name ? Json(jsonText(*name)) : Json();
}

Json viasOf(const Router& router, const mrib::Route& route, KernelFeed::When when) {
  Json vias = Json::array();
  for (const mrib::NextHop& hop : route.nextHops) {
    Json via;
    via["nextHop"] = router.isAttached(hop, when) ? Json() : Json(hop.address.stringValue());
    via["interface"] = interfaceName(router.linkName(hop, when));
    vias.push_back(std::move(via));
  }
  return vias;
}

Json viasOf(const Router& router, const Answer& answer) {
  Json vias = Json::array();
  for (const kernel::Hop& hop : answer.hops) {
    const kernel::Link* link = router.mirror().topology().link(hop.link);
    Json via;
    via["nextHop"] = hop.gateway == Lumo::IpGenAddr() ? Json() : Json(hop.gateway.stringValue());
    via["interface"] = interfaceName(link ? &link->name : nullptr);
    vias.push_back(std::move(via));
  }
  return vias;
}

std::string_view nameOf(Answer::Kind kind) {
  constexpr std::string_view names[] = {"none",      "attached",    "local",    "gateway",
                                        "blackhole", "unreachable", "prohibit", "throw"};
  return names[static_cast<std::size_t>(kind)];
}

std::string_view nameOf(mrib::Reason reason) {
  constexpr std::string_view names[] = {"noInterface", "noAddress", "noRoute", "onlyDefault", "itself",
                                        "coveredBy",   "heldBack",  "waiting", "unsettled"};
  return names[static_cast<std::size_t>(reason)];
}

/// An interface without a route of its own has a stand-in that nobody needs to know of.
std::string whyOf(const mrib::Unresolved& u) {
  if (!KernelFeed::isStandIn(u.address) || u.reason == mrib::Reason::waiting) return u.text();
  const std::string why = "the interface has no connected route";
  return u.linkIsDown ? why + "; it is down" : why;
}

}  // namespace

Json ofRoute(const Router& router, const mrib::Route& route, KernelFeed::When when) {
  Json json;
  json["prefix"] = route.prefix.stringValue();
  json["type"] = route.type == mrib::RouteType::connected ? "connected" : "static";
  json["preference"] = route.preference;
  json["vias"] = viasOf(router, route, when);
  return json;
}

Json ofUnicast(const Router& router, const Lumo::IpGenPrefix& prefix, const Answer& answer) {
  Json json;
  json["prefix"] = prefix.stringValue();
  json["type"] = nameOf(answer.kind);
  json["preference"] = preferenceOf(answer.protocol);
  json["protocol"] = jsonText(kernel::protocolName(answer.protocol));
  json["metric"] = answer.metric;
  json["vias"] = viasOf(router, answer);
  return json;
}

Json ofUnresolved(const Configuration& configuration, const mrib::Unresolved& u) {
  Json json;
  json["prefix"] = u.mroute.prefix.stringValue();
  const auto* name = std::get_if<std::string>(&u.mroute.rpf);
  json["rpf"] = name ? jsonText(*name) : std::get<Lumo::IpGenAddr>(u.mroute.rpf).stringValue();
  json["preference"] = u.mroute.preference;
  json["place"] = configuration.placeOf(u.mroute.origin);
  json["reason"] = nameOf(u.reason);
  json["why"] = whyOf(u);
  return json;
}

Json ofNotExported(const Configuration& configuration, const MrouteLine& line, const Exporter::Fault& fault) {
  Json json = ofLine(configuration, line);
  json.erase("neighbor");
  if (line.preference == 0) json["place"] = "the exported table";
  json["reason"] = fault.refused ? "refusedByKernel" : "notExportable";
  json["why"] = jsonText(fault.text);
  return json;
}

Json ofLine(const Configuration& configuration, const MrouteLine& line) {
  Json json;
  json["prefix"] = line.prefix.stringValue();
  const auto* name = std::get_if<std::string>(&line.rpf);
  json["rpf"] = name ? jsonText(*name) : std::get<Lumo::IpAddr>(line.rpf).stringValue();
  if (line.neighbor != Lumo::IpAddr()) json["neighbor"] = line.neighbor.stringValue();
  json["preference"] = line.preference;
  json["place"] = configuration.placeOf(line.origin);
  return json;
}

Json ofChange(const Router& router, const mrib::Change& change) {
  Json json;
  json["prefix"] = change.prefix().stringValue();
  json["before"] = change.added() ? Json() : ofRoute(router, change.before, KernelFeed::When::before);
  json["after"] = change.removed() ? Json() : ofRoute(router, change.after);
  return json;
}

Json ofConfigurationChange(const ConfigurationChange& change) {
  Json json;
  const Difference& difference = change.difference;
  json["added"] = Json::array();
  for (const MrouteLine& line : difference.added) json["added"].push_back(ofLine(change.after, line));
  json["gone"] = Json::array();
  for (const MrouteLine& line : difference.gone) json["gone"].push_back(ofLine(change.before, line));
  json["changed"] = Json::array();
  for (const auto& [before, after] : difference.changed) {
    json["changed"].push_back(
        {{"before", ofLine(change.before, before)}, {"after", ofLine(change.after, after)}});
  }
  json["lookupMode"] = nullptr;
  if (const auto& mode = difference.lookupMode) {
    json["lookupMode"] = {{"before", nameOf(mode->first)}, {"after", nameOf(mode->second)}};
  }
  json["unresolved"] = Json::array();
  for (const mrib::Unresolved& u : change.unresolved)
    json["unresolved"].push_back(ofUnresolved(change.after, u));
  json["warnings"] = change.warnings;
  return json;
}

Json ofAnswered(const Router& router, const RpfAnswer& answer) {
  if (answer.route) return ofRoute(router, *answer.route);
  if (answer.answer) return ofUnicast(router, answer.prefix, *answer.answer);
  return {};
}

std::string_view nameOf(RpfAnswer::Status status) {
  constexpr std::string_view names[] = {"found", "unreachable", "noRoute"};
  return names[static_cast<std::size_t>(status)];
}

std::string_view nameOf(RpfAnswer::Table table) {
  constexpr std::string_view names[] = {"", "mrib", "unicast"};
  return names[static_cast<std::size_t>(table)];
}

std::string textOf(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace host::documents
