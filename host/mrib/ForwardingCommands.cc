#include "CommandTable.h"
#include "Escape.h"
#include "Metrics.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// The kernel's multicast forwarding.

namespace host::commands {

namespace {

/// Empty: all flows.
std::string selectionOf(const Request& request) {
  return request.arguments.empty() ? "" : request.arguments.front();
}

Json questionOf(const Request& request) {
  Json question{{"interval", static_cast<U32>(request.interval * 1000)}};
  if (!request.arguments.empty()) question["flows"] = jsonText(selectionOf(request));
  return question;
}

/// Whether some flow is not forwarded as the MRIB says.
int codeOfFlows(const Json& summary) {
  for (const char* verdict : {"wrong", "notFollowed", "dropped", "noRpf"}) {
    if (summary.at(verdict) != 0) return notTakenIn;
  }
  return found;
}

/// All flows with a summary, then those that change.
int follow(const Request& request, Backend& backend) {
  Json question = questionOf(request);
  question["follow"] = true;
  text::FlowTable table;
  std::size_t told = 0;
  bool isBegun = false;
  backend.follow("org.mrib.Check", question, [&](const Json& reply) {
    if (request.json) {
      Json line{{"schemaVersion", schemaVersion}};
      line.update(reply);
      print(dump(line, -1));
      return true;
    }
    std::string out = table.part(reply.at("flows"));
    told += reply.at("flows").size();
    if (!isBegun && told == text::flowsIn(reply.at("summary"))) {
      isBegun = true;
      out += text::ofSummary(reply.at("summary"), selectionOf(request));
    }
    print(out);
    return true;
  });
  return found;
}

}  // namespace

int check(const Request& request) {
  const auto backend = backendFor(request);
  if (request.follow) return follow(request, *backend);
  Listing listing(request, *backend);
  text::FlowTable table;
  if (!request.json) print(backend->name() + "\n\n");
  listing.list("org.mrib.Check", questionOf(request), "flows",
               [&](const Json& flows) { return table.part(flows); });
  listing.end();
  const Json& summary = listing.head().at("summary");
  if (!request.json) print(text::ofSummary(summary, selectionOf(request)));
  return codeOf(request, listing.isStale(), codeOfFlows(summary));
}

int metrics(const Request& request) {
  const auto backend = backendFor(request);
  Json question = questionOf(request);
  question["brief"] = true;
  Json forwarding;
  backend->stream("org.mrib.Check", question, [&](const Json& reply) {
    forwarding = reply;
    return false;
  });
  const Json interfaces = backend->call("org.mrib.ListMulticastInterfaces", Json::object());
  const Json status = backend->call("org.mrib.GetStatus", Json::object());
  print(metricsOf(status, forwarding, interfaces.at("interfaces")));
  return codeOf(request, status.at("stale") == true);
}

}  // namespace host::commands
