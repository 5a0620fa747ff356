#include "Documents.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "ConfigText.h"
#include "Escape.h"
#include "Names.h"

namespace host::documents {

using kernel::Answer;

namespace {

/// As a JSON string. Nearly all texts here are plain, and need no library to be one.
void appendString(std::string& out, std::string_view text) {
  const auto isPlain = [](char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; };
  if (!std::all_of(text.begin(), text.end(), isPlain)) {
    out += textOf(Json(jsonText(text)));
    return;
  }
  out += '"';
  out += text;
  out += '"';
}

/// The vias of a route: of each the neighbour (empty: none) and the interface (null: none).
class Vias {
 public:
  explicit Vias(std::string& out) : out_(out) { out_ += R"(,"vias":[)"; }
  void add(const std::string& nextHop, const std::string* interface) {
    out_ += std::exchange(isFirst_, false) ? R"({"nextHop":)" : R"(,{"nextHop":)";
    addOrNull(nextHop.empty() ? nullptr : &nextHop);
    out_ += R"(,"interface":)";
    addOrNull(interface);
    out_ += '}';
  }
  void end() { out_ += "]}"; }

 private:
  void addOrNull(const std::string* text) {
    if (text) return appendString(out_, *text);
    out_ += "null";
  }

  std::string& out_;
  bool isFirst_ = true;
};

std::string_view nameOf(Answer::Kind kind) {
  constexpr std::string_view names[] = {"none",      "attached",    "local",    "gateway",
                                        "blackhole", "unreachable", "prohibit", "throw"};
  return names[static_cast<std::size_t>(kind)];
}

}  // namespace

void appendRoute(std::string& out, const Router& router, const mrib::Route& route, KernelFeed::When when) {
  out += R"({"prefix":")";
  out += route.prefix.stringValue();
  out += R"(","type":")";
  out += typeOf(route);
  out += R"(","preference":)";
  out += std::to_string(route.preference);
  Vias vias(out);
  for (const mrib::NextHop& hop : route.nextHops) {
    vias.add(router.isAttached(hop, when) ? std::string() : hop.address.stringValue(),
             router.linkName(hop, when));
  }
  vias.end();
}

void appendUnicast(std::string& out, const Router& router, const Lumo::IpGenPrefix& prefix,
                   const Answer& answer) {
  out += fmt::format(R"({{"prefix":"{}","type":"{}","preference":{},"protocol":)", prefix.stringValue(),
                     nameOf(answer.kind), preferenceOf(answer.protocol));
  appendString(out, kernel::protocolName(answer.protocol));
  out += fmt::format(R"(,"metric":{})", answer.metric);
  Vias vias(out);
  for (const kernel::Hop& hop : answer.hops) {
    const kernel::Link* link = router.mirror().topology().link(hop.link);
    vias.add(hop.gateway == Lumo::IpGenAddr() ? std::string() : hop.gateway.stringValue(),
             link ? &link->name : nullptr);
  }
  vias.end();
}

Json ofMroute(const Configuration& configuration, const mrib::Mroute& mroute) {
  Json json;
  json["prefix"] = mroute.prefix.stringValue();
  json["rpf"] = jsonText(rpfOf(mroute));
  json["preference"] = mroute.preference;
  json["place"] = configuration.placeOf(mroute.origin);
  return json;
}

Json ofUnresolved(const Configuration& configuration, const Why& why, const mrib::Unresolved& u) {
  Json json = ofMroute(configuration, u.mroute);
  json["reason"] = nameOf(u.reason);
  json["why"] = why.of(u);
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

void appendChange(std::string& out, const Router& router, const mrib::Change& change, KernelFeed::When when) {
  out += R"({"prefix":")";
  out += change.prefix().stringValue();
  out += R"(","before":)";
  if (change.added()) {
    out += "null";
  } else {
    appendRoute(out, router, change.before, KernelFeed::When::before);
  }
  out += R"(,"after":)";
  if (change.removed()) {
    out += "null";
  } else {
    appendRoute(out, router, change.after, when);
  }
  out += '}';
}

Json ofConfigurationChange(const ConfigurationChange& change, const Why& why, std::size_t most) {
  std::size_t left = 0;
  const auto list = [&most, &left](const auto& elements, auto&& toJson) {
    const std::size_t taken = std::min(most, elements.size());
    most -= taken;
    left += elements.size() - taken;
    Json array = Json::array();
    for (std::size_t i = 0; i < taken; ++i) array.push_back(toJson(elements[i]));
    return array;
  };
  const auto ofLineIn = [](const Configuration& configuration) {
    return [&configuration](const MrouteLine& line) { return ofLine(configuration, line); };
  };
  Json json;
  const Difference& difference = change.difference;
  json["added"] = list(difference.added, ofLineIn(change.after));
  json["gone"] = list(difference.gone, ofLineIn(change.before));
  json["changed"] = list(difference.changed, [&change](const auto& lines) {
    const auto& [before, after] = lines;
    return Json{{"before", ofLine(change.before, before)}, {"after", ofLine(change.after, after)}};
  });
  json["lookupMode"] = nullptr;
  if (const auto& mode = difference.lookupMode) {
    json["lookupMode"] = {{"before", nameOf(mode->first)}, {"after", nameOf(mode->second)}};
  }
  json["unresolved"] =
      list(change.unresolved, [&](const mrib::Unresolved& u) { return ofUnresolved(change.after, why, u); });
  json["warnings"] = list(change.warnings, [](const std::string& warning) { return Json(warning); });
  json["left"] = left;
  return json;
}

void appendAnswered(std::string& out, const Router& router, const RpfAnswer& answer) {
  if (answer.route) return appendRoute(out, router, *answer.route);
  if (answer.answer) return appendUnicast(out, router, answer.prefix, *answer.answer);
  out += "null";
}

std::string_view nameOf(RpfAnswer::Status status) {
  constexpr std::string_view names[] = {"found", "unreachable", "noRoute"};
  return names[static_cast<std::size_t>(status)];
}

std::string_view nameOf(mrib::Reason reason) {
  constexpr std::string_view names[] = {"noInterface", "noAddress", "noRoute", "onlyDefault", "itself",
                                        "coveredBy",   "heldBack",  "waiting", "unsettled"};
  return names[static_cast<std::size_t>(reason)];
}

std::string_view nameOf(RpfAnswer::Table table) {
  constexpr std::string_view names[] = {"", "mrib", "unicast"};
  return names[static_cast<std::size_t>(table)];
}

std::string_view typeOf(const mrib::Route& route) {
  return route.type == mrib::RouteType::connected ? "connected" : "static";
}

std::string rpfOf(const mrib::Mroute& mroute) {
  const auto* name = std::get_if<std::string>(&mroute.rpf);
  return name ? *name : std::get<Lumo::IpGenAddr>(mroute.rpf).stringValue();
}

std::string textOf(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace host::documents
