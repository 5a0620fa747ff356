#include "RibService.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "ConfigText.h"
#include "Error.h"
#include "Escape.h"
#include "Inspect.h"
#include "OrgMrib.h"
#include "Pim/MribSm/MribSm.h"
#include "StandardErrors.h"
#include "Zan/Exception.h"

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

namespace {

bool isWithin(const IpGenPrefix& inner, const IpGenPrefix& outer) {
  if (inner.af() != outer.af() || inner.length() < outer.length()) return false;
  if (inner.af() == Lumo::ipv4()) return outer.v4Prefix().contains(inner.v4Prefix().address());
  return Lumo::Ip6Prefix(inner.v6Prefix().address(), outer.length()) == outer.v6Prefix();
}

}  // namespace

const char* version() {
  return orgMribVersion;
}

RibService::RibService(Router& router, Configurator* configurator, Router::Clock clock, Setting setting)
    : router_(router),
      configurator_(configurator),
      clock_(std::move(clock)),
      setting_(std::move(setting)),
      interfaces_{{"org.mrib", orgMribDescription}},
      log_(std::make_shared<MonitorLog>(router)) {
  subscription_ = router_.subscribe([log = log_](const Router::News& news) { log->update(news.update); });
}

RibService::~RibService() {
  router_.unsubscribe(subscription_);
}

std::optional<Answer> RibService::call(std::string_view method, const nlohmann::json& parameters, bool more,
                                       const control::Peer& peer) {
  static const std::map<std::string_view, Method> methods{
      {"org.mrib.GetStatus", &RibService::getStatus},
      {"org.mrib.Lookup", &RibService::lookup},
      {"org.mrib.Explain", &RibService::explain},
      {"org.mrib.ListRoutes", &RibService::listRoutes},
      {"org.mrib.ListUnicastRoutes", &RibService::listUnicastRoutes},
      {"org.mrib.ListUnresolved", &RibService::listUnresolved},
      {"org.mrib.ListInterfaces", &RibService::listInterfaces},
      {"org.mrib.Graph", &RibService::graph},
      {"org.mrib.GetWarnings", &RibService::getWarnings},
      {"org.mrib.Monitor", &RibService::monitor},
      {"org.mrib.Watch", &RibService::watch},
      {"org.mrib.GetConfiguration", &RibService::getConfiguration},
      {"org.mrib.Reload", &RibService::reload},
      {"org.mrib.Configure", &RibService::configure},
      {"org.mrib.Inspect", &RibService::inspect},
      {"org.mrib.WhatIf", &RibService::whatIf},
      {"org.mrib.RankLinks", &RibService::rankLinks},
      {"org.mrib.History", &RibService::history},
      {"org.mrib.ExplainPast", &RibService::explainPast},

      {"org.mrib.Check", &RibService::check},
      {"org.mrib.ListMulticastInterfaces", &RibService::listMulticastInterfaces}};
  const auto found = methods.find(method);
  if (found == methods.end()) return std::nullopt;
  Call call{Parameters(parameters), more, peer};
  try {
    Answer answer = (this->*found->second)(call);
    const auto* reply = std::get_if<Reply>(&answer);
    if (reply && reply->parameters.size() > bytesAtOnce)
      return errorReply("org.mrib.TooMany", {{"count", reply->parameters.size()}});
    return answer;
  } catch (Reply& error) {
    return std::move(error);
  }
}

// ---- Status ----

namespace {

Json exportStatus(const RibService::Exported& exported) {
  const Exporter& exporter = exported.exporter;
  Json json;
  json["table"] = exported.table.table;
  json["for"] = nameOf(exported.table.user);
  json["user"] = exported.user ? Json(*exported.user) : Json();
  json["routes"] = exporter.routes();
  json["refused"] = exporter.refused();
  json["notExportable"] = exporter.faults().size() - exporter.refused();
  json["written"] = exporter.counters().written;
  json["putRight"] = exporter.counters().putRight;
  return json;
}

/// The configured routes that are in force and not, or not wholly, in the exported table; also those of the
/// table that nobody configured.
std::vector<Json> notExported(const Router& router, const Exporter& exporter) {
  auto faults = exporter.faults();
  std::vector<Json> list;
  for (const MrouteLine& line : faults.empty() ? std::vector<MrouteLine>() : router.configuration().mroutes) {
    const auto fault = exporter.faults().find(line.prefix);
    const mrib::Route* route = router.agent().route(line.prefix);
    if (fault == exporter.faults().end() || !route || route->preference != line.preference) continue;
    list.push_back(documents::ofNotExported(router.configuration(), line, fault->second));
    faults.erase(line.prefix);
  }
  for (const auto& [prefix, fault] : faults) {
    list.push_back(documents::ofNotExported(router.configuration(), {prefix, "", 0, 0, {}}, fault));
  }
  return list;
}

}  // namespace

Answer RibService::getStatus(Call& call) {
  call.parameters.done();
  const mrib::Agent& agent = router_.agent();
  const auto counters = router_.mirror().counters();
  const auto unresolved = agent.unresolved();
  Json resyncs = Json::object();
  for (std::size_t i = 0; i < counters.resyncs.size(); ++i) {
    if (counters.resyncs[i] != 0)
      resyncs[std::string(nameOf(static_cast<kernel::Reason>(i)))] = counters.resyncs[i];
  }
  Json status;
  status["version"] = version();
  status["source"] = setting_.source;
  status["uptime"] = (clock_() - setting_.startedAt) / seconds(1);
  status["generation"] = router_.generation();
  status["stale"] = router_.isStale();
  status["lookupMode"] = nameOf(router_.configuration().lookupMode);
  status["routes"] = router_.routeCount();
  status["configured"] = router_.configuration().mroutes.size();
  status["unresolved"] =
      std::count_if(unresolved.begin(), unresolved.end(), [](const auto& u) { return u.isError(); });
  status["links"] = agent.links().size();
  status["unicastRoutes"] =
      router_.mirror().routes(Lumo::ipv4()).routeCount() + router_.mirror().routes(Lumo::ipv6()).routeCount();
  status["healed"] = agent.healed();
  Json& mirror = status["mirror"];
  mirror["overruns"] = counters.overruns;
  mirror["resyncs"] = std::move(resyncs);
  mirror["corrected"] = counters.healed;
  mirror["lastDuration"] = static_cast<double>(counters.lastDuration) / 1e9;
  mirror["foreign"] = setting_.foreign();
  status["export"] = setting_.exported ? exportStatus(*setting_.exported) : Json();
  return Reply{documents::textOf(status)};
}

// ---- Look-ups ----

/// The answer but for the source, which is nearly always what was answered before.
const std::string& RibService::answerBody(const RpfAnswer& answer) {
  if (std::exchange(bodiesOf_, router_.revision()) != router_.revision()) {
    for (auto& bodies : bodies_) bodies.clear();
  }
  std::string& body = bodies_[static_cast<std::size_t>(answer.table)][answer.prefix];
  if (!body.empty()) return body;
  const std::string_view table = documents::nameOf(answer.table);
  body = fmt::format(R"("status":"{}","table":{},"route":)", documents::nameOf(answer.status),
                     table.empty() ? "null" : fmt::format("\"{}\"", table));
  documents::appendAnswered(body, router_, answer);
  return body += '}';
}

void RibService::appendAnswer(const std::string& source, std::string& out) {
  const IpGenAddr address = sourceOf(source);
  out += R"({"source":")";
  out += address.stringValue();
  out += "\",";
  out += answerBody(router_.lookUp(address));
}

Answer RibService::lookup(Call& call) {
  const std::vector<std::string> addresses = call.parameters.texts("addresses");
  call.parameters.done();
  std::string text = fmt::format(R"({{{},"lookupMode":"{}","answers":[)", headOf(router_),
                                 nameOf(router_.configuration().lookupMode));
  for (const std::string& address : addresses) {
    if (&address != &addresses.front()) text += ',';
    appendAnswer(address, text);
  }
  text += "]}";
  return Reply{std::move(text)};
}

Answer RibService::watch(Call& call) {
  const std::vector<std::string> addresses = call.parameters.texts("addresses");
  std::vector<Lumo::Prefix> prefixes;
  for (const std::string& text : call.parameters.texts("prefixes")) prefixes.push_back(v4PrefixOf(text));
  call.parameters.done();
  for (const std::string& address : addresses) sourceOf(address);
  auto stream = std::make_unique<WatchStream>(
      router_, addresses, std::move(prefixes),
      [this](const std::string& source, std::string& out) { appendAnswer(source, out); });
  if (call.more) return stream;
  Reply reply = *stream->next();
  reply.continues = false;
  return reply;
}

// ---- Lists ----

std::vector<mrib::Route> RibService::routesFor(Call& call) const {
  const auto prefixText = call.parameters.text("prefix");
  const auto address = call.parameters.text("address");
  const bool longer = call.parameters.flag("longer");
  const auto type = call.parameters.text("type");
  call.parameters.done();
  if (type && *type != "connected" && *type != "static") {
    throw control::invalidParameter("type");
  }
  std::optional<IpGenPrefix> prefix;
  if (prefixText) prefix = prefixOf(*prefixText);
  const mrib::Route* match = nullptr;
  if (address) {
    const IpGenAddr source = sourceOf(*address);
    if (source.af() == Lumo::ipv4()) match = router_.agent().rpf(source.v4Addr());
  }
  std::vector<mrib::Route> routes = router_.routes();
  std::erase_if(routes, [&](const mrib::Route& route) {
    if (address && !(match && match->prefix == route.prefix)) return true;
    if (prefix && !(longer ? isWithin(route.prefix, *prefix) : *prefix == IpGenPrefix(route.prefix)))
      return true;
    return type && *type != documents::typeOf(route);
  });
  return routes;
}

Answer RibService::listRoutes(Call& call) {
  const auto routes = std::make_shared<const std::vector<mrib::Route>>(routesFor(call));
  auto list = std::make_unique<ListStream>(router_, "routes", routes->size(),
                                           [this, routes](std::size_t i, std::string& out) {
                                             documents::appendRoute(out, router_, (*routes)[i]);
                                           });
  return answerWith(std::move(list), call.more);
}

std::vector<IpGenPrefix> RibService::unicastFor(Call& call) const {
  const auto prefixText = call.parameters.text("prefix");
  const auto address = call.parameters.text("address");
  const bool longer = call.parameters.flag("longer");
  call.parameters.done();
  const kernel::Mirror& mirror = router_.mirror();
  std::vector<IpGenPrefix> prefixes;
  if (address) {
    const IpGenPrefix match = mirror.longestMatch(sourceOf(*address));
    if (!match.empty()) prefixes.push_back(match);
    return prefixes;
  }
  std::optional<IpGenPrefix> prefix;
  if (prefixText) prefix = prefixOf(*prefixText);
  for (const auto family : {Lumo::ipv4(), Lumo::ipv6()}) {
    mirror.routes(family).forEachAnswer([&](const IpGenPrefix& each, const kernel::Answer&) {
      if (prefix && !(longer ? isWithin(each, *prefix) : *prefix == each)) return;
      prefixes.push_back(each);
    });
  }
  std::sort(prefixes.begin(), prefixes.end());
  return prefixes;
}

Answer RibService::listUnicastRoutes(Call& call) {
  const auto prefixes = std::make_shared<const std::vector<IpGenPrefix>>(unicastFor(call));
  auto list = std::make_unique<ListStream>(
      router_, "routes", prefixes->size(), [this, prefixes](std::size_t i, std::string& out) {
        const kernel::Answer& answer = router_.mirror().answer((*prefixes)[i]);
        if (answer.kind == kernel::Answer::Kind::none) return;
        documents::appendUnicast(out, router_, (*prefixes)[i], answer);
      });
  return answerWith(std::move(list), call.more);
}

Answer RibService::listUnresolved(Call& call) {
  const bool waiting = call.parameters.flag("waiting");
  call.parameters.done();
  auto unresolved = std::make_shared<std::vector<mrib::Unresolved>>(router_.agent().unresolved());
  if (!waiting) std::erase_if(*unresolved, [](const auto& u) { return !u.isError(); });
  auto more = std::make_shared<std::vector<Json>>();
  if (setting_.exported) *more = notExported(router_, setting_.exported->exporter);
  auto list = std::make_unique<ListStream>(
      router_, "unresolved", unresolved->size() + more->size(),
      [this, why = Why(router_), unresolved, more](std::size_t i, std::string& out) {
        const bool isExport = i >= unresolved->size();
        out += documents::textOf(
            isExport ? (*more)[i - unresolved->size()]
                     : documents::ofUnresolved(router_.configuration(), why, (*unresolved)[i]));
      });
  return answerWith(std::move(list), call.more);
}

Answer RibService::getWarnings(Call& call) {
  call.parameters.done();
  const auto warnings =
      std::make_shared<const std::vector<std::string>>(router_.warningsFor(router_.configuration()));
  auto list = std::make_unique<ListStream>(
      router_, "warnings", warnings->size(),
      [warnings](std::size_t i, std::string& out) { out += documents::textOf((*warnings)[i]); });
  return answerWith(std::move(list), call.more);
}

Answer RibService::monitor(Call& call) {
  call.parameters.done();
  auto stream = std::make_unique<MonitorStream>(log_);
  if (call.more) return stream;
  if (stream->size() > elementsAtOnce) return errorReply("org.mrib.TooMany", {{"count", stream->size()}});
  return stream->whole();
}

// ---- The configuration ----

Answer RibService::getConfiguration(Call& call) {
  call.parameters.done();
  auto stream = std::make_unique<TextStream>(textOf(router_.configuration()));
  if (call.more) return stream;
  return stream->whole();
}

Configurator& RibService::configuratorFor(const Call& call) const {
  if (!call.peer.mayChange) throw control::permissionDenied();
  if (!configurator_) throw errorReply("org.mrib.NoConfigurationFile", Json::object());
  return *configurator_;
}

Answer RibService::answerTo(const ConfigurationChange& change) const {
  if (!change.reasons.empty()) return errorReply("org.mrib.Refused", {{"reasons", change.reasons}});
  return Reply{
      fmt::format(R"({{"generation":{},"difference":{}}})", router_.generation(),
                  documents::textOf(documents::ofConfigurationChange(change, Why(router_), elementsAtOnce)))};
}

Answer RibService::reload(Call& call) {
  const bool dryRun = call.parameters.flag("dryRun");
  call.parameters.done();
  Configurator& configurator = configuratorFor(call);
  if (configurator.path().empty()) throw errorReply("org.mrib.NoConfigurationFile", Json::object());
  return answerTo(configurator.reload(dryRun));
}

Answer RibService::configure(Call& call) {
  const std::vector<std::string> commands = call.parameters.texts("commands");
  const bool save = call.parameters.flag("save");
  const bool dryRun = call.parameters.flag("dryRun");
  call.parameters.done();
  Configurator& configurator = configuratorFor(call);
  if (save && configurator.path().empty()) throw errorReply("org.mrib.NoConfigurationFile", Json::object());
  return answerTo(configurator.configure(commands, save, dryRun));
}

// ---- The engine ----

Answer RibService::inspect(Call& call) {
  InspectRequest request;
  request.path = call.parameters.text("path").value_or("");
  request.depth = call.parameters.number("depth").value_or(request.depth);
  request.json = call.parameters.flag("json");
  call.parameters.done();
  Json reply;
  try {
    reply["text"] = jsonText(host::inspect(Zan::GenericIf(router_.agent().engine()), "MribSm", request));
  } catch (const Error& e) {
    throw errorReply("org.mrib.NotFound", {{"why", jsonText(e.what())}});
  }
  return Reply{documents::textOf(reply)};
}

}  // namespace host
