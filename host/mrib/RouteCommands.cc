#include <fmt/format.h>

#include <iostream>
#include <limits>

#include "CommandTable.h"
#include "Escape.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// What is asked of the tables.

namespace host::commands {

namespace {

constexpr std::size_t mostNotes = 5;

bool isPrefix(const std::string& text) {
  return text.find('/') != std::string::npos;
}

Json filterOf(const Request& request) {
  Json filter = Json::object();
  if (request.longer && request.arguments.empty())
    throw UsageError("--longer needs a prefix, such as 10.0.0.0/8");
  if (!request.arguments.empty()) {
    const std::string& text = request.arguments.front();
    if (request.longer && !isPrefix(text)) throw UsageError("--longer needs a prefix, such as 10.0.0.0/8");
    filter[isPrefix(text) ? "prefix" : "address"] = jsonText(text);
  }
  if (request.longer) filter["longer"] = true;
  if (!request.type.empty()) filter["type"] = request.type;
  return filter;
}

int showRoutes(const Request& request, Backend& backend, const char* method, const Json& filter) {
  Listing listing(request, backend);
  text::RouteTable table;
  if (!request.json) print(backend.name() + "\n\n");
  const std::size_t count =
      listing.list(method, filter, "routes", [&](const Json& routes) { return table.part(routes); });
  const bool whole = filter.empty() && request.command != "unicast";
  if (whole || request.unresolved) {
    text::UnresolvedList lines("Not resolved:\n");
    listing.list("org.mrib.ListUnresolved", Json::object(), "unresolved",
                 [&](const Json& unresolved) { return lines.part(unresolved); });
  }
  if (whole && request.json) listing.list("org.mrib.GetWarnings", Json::object(), "warnings", {});
  listing.end();
  if (count == 0 && !request.json) print("no route\n");
  if (listing.isStale() && !request.json)
    print("\nThis may be out of date: the daemon is reading the kernel.\n");
  return codeOf(request, listing.isStale(), count == 0 && !request.arguments.empty() ? noRpfRoute : found);
}

/// Warnings go to standard error, a few of them unless all are asked for.
void warn(const Request& request, Backend& backend) {
  const std::size_t most = request.notes ? std::numeric_limits<std::size_t>::max() : mostNotes;
  std::size_t count = 0;
  backend.stream("org.mrib.GetWarnings", Json::object(), [&](const Json& part) {
    for (const Json& warning : part.at("warnings")) {
      if (count++ < most) std::cerr << "mrib: warning: " << warning.get<std::string>() << '\n';
    }
    return true;
  });
  if (count > most) std::cerr << "mrib: and " << count - most << " more warnings (--notes prints them)\n";
}

/// The arguments; for `-` the words of standard input.
std::vector<std::string> addressesOf(const Request& request) {
  std::vector<std::string> addresses;
  for (const std::string& argument : request.arguments) {
    if (argument != "-") {
      addresses.push_back(jsonText(argument));
      continue;
    }
    for (std::string word; std::cin >> word;) addresses.push_back(jsonText(word));
  }
  return addresses;
}

}  // namespace

int routes(const Request& request) {
  const Json filter = filterOf(request);
  const auto backend = backendFor(request);
  if (!request.json && request.arguments.empty()) warn(request, *backend);
  return showRoutes(request, *backend, "org.mrib.ListRoutes", filter);
}

int unicast(const Request& request) {
  const Json filter = filterOf(request);
  return showRoutes(request, *backendFor(request), "org.mrib.ListUnicastRoutes", filter);
}

int unresolved(const Request& request) {
  const auto backend = backendFor(request);
  Listing listing(request, *backend);
  text::UnresolvedList lines("");
  if (!request.json) print(backend->name() + '\n');
  const std::size_t count =
      listing.list("org.mrib.ListUnresolved", {{"waiting", request.waiting}}, "unresolved",
                   [&](const Json& unresolved) { return lines.part(unresolved); });
  listing.end();
  if (count == 0 && !request.json) {
    const bool isAny = backend->call("org.mrib.GetStatus", Json::object()).at("configured") != 0;
    print(isAny ? "\nall configured routes are resolved\n" : "\nno route is configured\n");
  }
  return codeOf(request, listing.isStale());
}

int rpf(const Request& request) {
  const auto backend = backendFor(request);
  constexpr std::size_t addressesACall = 1000;
  const std::vector<std::string> addresses = addressesOf(request);
  Json whole;
  for (std::size_t at = 0; at < addresses.size() || whole.is_null(); at += addressesACall) {
    const auto first = addresses.begin() + static_cast<std::ptrdiff_t>(at);
    const auto count = std::min(addressesACall, addresses.size() - at);
    const std::vector<std::string> some(first, first + static_cast<std::ptrdiff_t>(count));
    const Json answer = backend->call("org.mrib.Lookup", {{"addresses", some}});
    if (whole.is_null()) {
      whole = answer;
    } else {
      for (const Json& element : answer.at("answers")) whole["answers"].push_back(element);
      if (answer.at("stale") == true) whole["stale"] = true;
    }
  }
  int code = found;
  std::string out;
  for (const Json& answer : whole.at("answers")) {
    out += text::ofAnswer(answer);
    if (answer.at("status") != "found") code = noRpfRoute;
  }
  out += fmt::format("  Answered by: {}, generation {}{}\n", backend->name(), whole.at("generation").dump(),
                     whole.at("stale") == true ? ", stale" : "");
  print(request.json ? dump(documentOf(*backend, whole), 2) : out);
  return codeOf(request, whole.at("stale") == true, code);
}

int status(const Request& request) {
  const auto backend = backendFor(request);
  const Json status = backend->call("org.mrib.GetStatus", Json::object());
  print(request.json ? dump(documentOf(*backend, status), 2) : text::ofStatus(status));
  return codeOf(request, status.at("stale") == true);
}

int monitor(const Request& request) {
  const auto backend = backendFor(request);
  backend->follow("org.mrib.Monitor", Json::object(), [&](const Json& reply) {
    std::string out;
    for (const Json& change : reply.at("changes")) {
      if (!request.json) {
        out += text::ofChange(change, reply.at("settled") == true);
        continue;
      }
      Json line{{"schemaVersion", schemaVersion},
                {"generation", reply.at("generation")},
                {"restart", reply.at("restart")},
                {"settled", reply.at("settled")}};
      line.update(change);
      out += dump(line, -1);
    }
    print(out);
    return true;
  });
  return found;
}

int watch(const Request& request) {
  const auto backend = backendFor(request);
  Json addresses = Json::array();
  Json prefixes = Json::array();
  for (const std::string& argument : addressesOf(request))
    (isPrefix(argument) ? prefixes : addresses).push_back(argument);
  backend->follow("org.mrib.Watch", {{"addresses", addresses}, {"prefixes", prefixes}},
                  [&](const Json& reply) {
                    if (request.json) {
                      Json line{{"schemaVersion", schemaVersion}};
                      line.update(reply);
                      print(dump(line, -1));
                      return true;
                    }
                    std::string out;
                    for (const Json& answer : reply.at("answers")) out += text::ofWatched(answer);
                    for (const Json& watched : reply.at("routes")) out += text::ofWatchedPrefix(watched);
                    print(out);
                    return true;
                  });
  return found;
}

}  // namespace host::commands
