#include "ConfigText.h"
#include "Escape.h"
#include "Explanation.h"
#include "RibService.h"

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;
using Kind = Explanation::Kind;

namespace {

std::string_view nameOf(Kind kind) {
  constexpr std::string_view names[] = {"lookupMode", "match",    "shorter",     "wouldMatch", "line",
                                        "onCircle",   "through",  "interface",   "cut",        "unicast",
                                        "answer",     "incoming", "kernelCheck", "forwarding"};
  return names[static_cast<std::size_t>(kind)];
}

std::string_view nameOf(Explanation::LineState state) {
  constexpr std::string_view names[] = {"inForce", "waiting", "unresolved", "unsettled"};
  return names[static_cast<std::size_t>(state)];
}

std::string_view nameOf(Explanation::Verdict verdict) {
  constexpr std::string_view names[] = {"accepted", "wrongInterface", "noRpf", "kernelDrops", "notForwarded"};
  return names[static_cast<std::size_t>(verdict)];
}

std::string_view nameOf(KernelVerdict::Cause cause) {
  constexpr std::string_view names[] = {"none",      "unknown",  "loopback", "ownAddress",    "localRoute",
                                        "broadcast", "otherWay", "noRoute",  "unusableRoute", "unnumbered"};
  return names[static_cast<std::size_t>(cause)];
}

Json ofWays(const std::vector<Way>& ways) {
  Json list = Json::array();
  for (const Way& way : ways) {
    const bool direct = way.neighbor == Lumo::IpGenAddr();
    list.push_back({{"nextHop", direct ? Json() : Json(way.neighbor.stringValue())},
                    {"interface", way.link == 0 ? Json() : Json(jsonText(way.interface))}});
  }
  return list;
}

/// Stand-ins of interfaces are nobody's concern.
Json ofLine(const Router& router, const Explanation::Step& step) {
  const mrib::Resolution& line = *step.line;
  Json json = documents::ofMroute(router.configuration(), line.mroute);
  json["state"] = nameOf(step.state);
  if (line.fault) json["reason"] = documents::nameOf(line.fault->reason);
  const bool isTold = line.address && !KernelFeed::isStandIn(*line.address);
  if (isTold) json["address"] = line.address->stringValue();
  if (isTold && line.match) json["match"] = line.match->stringValue();
  json["vias"] = ofWays(waysOf(router, mrib::Route{{}, {}, 0, line.nextHops}));
  return json;
}

Json ofKernel(const KernelVerdict& verdict) {
  Json json;
  json["interface"] = jsonText(verdict.interface);
  json["cause"] = nameOf(verdict.cause);
  if (verdict.settings) {
    json["rpFilter"] = verdict.settings->rpFilter();
    json["multicastForwarding"] = verdict.settings->forwardsMulticast();
  }
  if (!verdict.why.empty()) json["why"] = verdict.why;
  if (!verdict.change.empty()) json["change"] = jsonText(verdict.change);
  return json;
}

Json ofStep(const Router& router, const Explanation::Step& step, std::size_t number) {
  Json json{{"number", number}, {"depth", step.depth}, {"kind", nameOf(step.kind)}, {"text", step.text}};
  if (!step.prefix.empty()) json["prefix"] = step.prefix.stringValue();
  std::string route;
  if (step.route) documents::appendRoute(route, router, *step.route);
  if (step.unicast) documents::appendUnicast(route, router, step.prefix, *step.unicast);
  if (!route.empty()) json["route"] = Json::parse(route);
  if (step.line && step.kind != Kind::through) json["line"] = ofLine(router, step);
  if (const auto& interface = step.interface) {
    json["interface"] = {{"name", jsonText(interface->name)},
                         {"up", interface->up},
                         {"carrier", interface->carrier},
                         {"addresses", interface->addresses}};
  }
  if (step.kernel) json["kernel"] = ofKernel(*step.kernel);
  if (step.seen != 0) json["seen"] = step.seen;
  return json;
}

/// The link with a name, or with it among its alternative names; as documents tell them, since a request can
/// have no others.
const kernel::Link& linkNamed(const Router& router, const std::string& name) {
  const auto isMeant = [&](const std::string& other) { return jsonText(other) == name; };
  for (const auto& [index, entry] : router.mirror().topology().links.all()) {
    const kernel::Link& link = entry.value.link;
    const auto& others = link.alternativeNames;
    if (isMeant(link.name) || std::any_of(others.begin(), others.end(), isMeant)) return link;
  }
  throw errorReply("org.mrib.NotFound", {{"why", "there is no interface \"" + escaped(name) + '"'}});
}

}  // namespace

Answer RibService::explain(Call& call) {
  const std::string text = call.parameters.text("source").value_or("");
  const auto name = call.parameters.text("incoming");
  call.parameters.done();
  const Lumo::IpGenAddr source = sourceOf(text);
  std::optional<U32> incoming;
  if (name) incoming = linkNamed(router_, *name).index;
  const Explanation explanation = host::explain(router_, source, incoming, setting_.kernel);
  Json json;
  json["generation"] = router_.generation();
  json["stale"] = router_.isStale();
  json["lookupMode"] = nameOf(router_.configuration().lookupMode);
  if (name) json["incoming"] = jsonText(*name);
  std::string answer;
  appendAnswer(text, answer);
  json["answer"] = Json::parse(answer);
  json["steps"] = Json::array();
  for (const Explanation::Step& step : explanation.steps) {
    json["steps"].push_back(ofStep(router_, step, json["steps"].size() + 1));
  }
  json["verdict"] = nameOf(explanation.verdict);
  json["conclusion"] = explanation.conclusion;
  return Reply{documents::textOf(json)};
}

}  // namespace host
