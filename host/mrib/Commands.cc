#include "Commands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Backend.h"
#include "Client.h"
#include "ConfigReader.h"
#include "Documents.h"
#include "Error.h"
#include "Escape.h"
#include "Pim/MribSm/MribSm.h"
#include "Text.h"
#include "Zan/Assert.h"
#include "Zan/Trace.h"

namespace host {

namespace {

constexpr int schemaVersion = 2;
constexpr const char* defaultConfig = "/etc/mrib.conf";
constexpr const char* defaultSocket = "/run/mrib/mribd.sock";
constexpr int mostNotes = 5;

// ---- Output ----

/// Standard output cannot be written.
class OutputError : public Error {
 public:
  using Error::Error;
};

void print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  throw OutputError(std::string("standard output: ") + std::strerror(errno));
}

/// In ASCII, so that nothing in it moves a terminal.
std::string dump(const Json& document, int indent) {
  return document.dump(indent, ' ', true, Json::error_handler_t::replace) + '\n';
}

/// Prints a trace with everything that a terminal might take for a command escaped.
void printTrace(void*, const Zan::TraceMessage& m) {
  std::fprintf(stderr, "%.*s %u %s\n", static_cast<int>(m.handle.size()), m.handle.data(), m.level,
               escaped(m.text).c_str());
}

void traceUpTo(int level) {
  if (level < 0) return;
  for (Zan::TraceHandle* handle : Zan::TraceHandle::handles()) handle->levelsUpToIs(static_cast<U32>(level));
  Zan::traceSinkIs(printTrace, nullptr);
}

// ---- Who answers ----

std::unique_ptr<OwnReading> once(const Request& request) {
  OnceOptions options{request.from, request.config, std::nullopt, request.sample, request.tableNumber};
  const bool ownMachine = request.from.empty();
  if (options.config.empty() && !options.sample && ownMachine && access(defaultConfig, F_OK) == 0) {
    options.config = defaultConfig;
  }
  return readOnce(options, [&] { traceUpTo(request.traceLevel); });
}

/// A socket that the user named, or nothing.
std::string namedSocket(const Request& request) {
  const char* named = std::getenv("MRIB_SOCKET");
  return !request.socket.empty() ? request.socket : named ? named : "";
}

std::unique_ptr<Backend> daemonFor(const Request& request) {
  const std::string socket = namedSocket(request);
  return daemonAt(socket.empty() ? defaultSocket : socket);
}

/// The daemon where one answers; otherwise, and when the request is about something else than what a daemon
/// serves, this process.
std::unique_ptr<Backend> backendFor(const Request& request) {
  const bool own = request.once || request.sample || request.table || request.traceLevel >= 0 ||
                   !request.from.empty() || !request.config.empty() || !request.inspect.sets.empty() ||
                   !request.inspect.calls.empty();
  if (own) return once(request);
  try {
    return daemonFor(request);
  } catch (const control::NotAnswering&) {
    if (!namedSocket(request).empty()) throw;
    return once(request);
  }
}

// ---- Questions ----

Json documentOf(const Backend& backend, const Json& answer) {
  Json document;
  document["schemaVersion"] = schemaVersion;
  document["answeredBy"] = jsonText(backend.name());
  document.update(answer);
  return document;
}

int codeOf(const Request& request, const Json& answer, int code = found) {
  return request.fresh && answer.at("stale") == true ? stale : code;
}

bool isPrefix(const std::string& text) {
  return text.find('/') != std::string::npos;
}

Json filterOf(const Request& request) {
  Json filter = Json::object();
  if (request.longer && request.arguments.empty()) throw Error("--longer needs a prefix, such as 10.0.0.0/8");
  if (!request.arguments.empty()) {
    const std::string& text = request.arguments.front();
    if (request.longer && !isPrefix(text)) throw Error("--longer needs a prefix, such as 10.0.0.0/8");
    filter[isPrefix(text) ? "prefix" : "address"] = jsonText(text);
  }
  if (request.longer) filter["longer"] = true;
  if (!request.type.empty()) filter["type"] = request.type;
  return filter;
}

/// A document with long lists, printed while their parts come: JSON has one element a line.
class Listing {
 public:
  using PartText = std::function<std::string(const Json&)>;

  Listing(const Request& request, Backend& backend) : request_(request), backend_(backend) {}

  /// Prints a list; in text, by what `text` makes of its parts. Returns how many elements it had.
  std::size_t list(const std::string& method, const Json& parameters, const char* name,
                   const PartText& text) {
    std::size_t count = 0;
    backend_.stream(method, parameters, [&](const Json& part) {
      if (count == 0) begin(part, name);
      const Json& elements = part.at(name);
      std::string out = request_.json ? "" : text(elements);
      for (std::size_t i = 0; request_.json && i < elements.size(); ++i) {
        out += (count + i == 0 ? "\n    " : ",\n    ") + line(elements[i]);
      }
      count += elements.size();
      print(out);
      return true;
    });
    if (request_.json) print(count == 0 ? "]" : "\n  ]");
    return count;
  }
  /// Ends the document.
  void end() {
    if (request_.json) print("\n}\n");
  }
  bool isStale() const { return stale_; }

 private:
  static std::string line(const Json& value) {
    std::string text = dump(value, -1);
    text.pop_back();
    return text;
  }
  /// What stands before a list.
  void begin(const Json& part, const char* name) {
    const bool isFirst = !std::exchange(begun_, true);
    std::string out;
    if (isFirst && request_.json) {
      out = fmt::format("{{\n  \"schemaVersion\": {},\n  \"answeredBy\": {}", schemaVersion,
                        line(jsonText(backend_.name())));
      for (const auto& [key, value] : part.items()) {
        if (key != name) out += fmt::format(",\n  \"{}\": {}", key, line(value));
      }
    }
    if (request_.json) out += fmt::format(",\n  \"{}\": [", name);
    if (isFirst) stale_ = part.value("stale", false);
    print(out);
  }

  const Request& request_;
  Backend& backend_;
  bool begun_ = false;
  bool stale_ = false;
};

int codeOf(const Request& request, const Listing& listing, int code = found) {
  return request.fresh && listing.isStale() ? stale : code;
}

int showUnresolved(const Request& request, Backend& backend) {
  Listing listing(request, backend);
  const std::size_t count = listing.list("org.mrib.ListUnresolved", {{"waiting", request.waiting}},
                                         "unresolved", text::ofUnresolved);
  listing.end();
  if (count == 0 && !request.json) print("all configured routes are resolved\n");
  return codeOf(request, listing);
}

int showRoutes(const Request& request, Backend& backend, const char* method) {
  const Json filter = filterOf(request);
  Listing listing(request, backend);
  text::RouteTable table;
  if (!request.json) print(backend.name() + "\n\n");
  const std::size_t count =
      listing.list(method, filter, "routes", [&](const Json& routes) { return table.part(routes); });
  const bool whole = filter.empty() && request.command != "unicast";
  if (whole || request.unresolved) {
    bool isFirst = true;
    listing.list("org.mrib.ListUnresolved", Json::object(), "unresolved", [&](const Json& unresolved) {
      const bool isTitled = !unresolved.empty() && std::exchange(isFirst, false);
      return (isTitled ? "\nNot resolved:\n" : "") + text::ofUnresolved(unresolved);
    });
  }
  if (whole && request.json) listing.list("org.mrib.GetWarnings", Json::object(), "warnings", {});
  listing.end();
  if (count == 0 && !request.json) print("no route\n");
  if (listing.isStale() && !request.json)
    print("\nThis may be out of date: the daemon is reading the kernel.\n");
  return codeOf(request, listing, count == 0 && !request.arguments.empty() ? noRpfRoute : found);
}

/// Warnings go to standard error, a few of them unless all are asked for.
void warn(const Request& request, Backend& backend) {
  const Json answer = backend.call("org.mrib.GetWarnings", Json::object());
  const Json& warnings = answer.at("warnings");
  int printed = 0;
  for (const Json& warning : warnings) {
    if (!request.notes && printed == mostNotes) break;
    std::cerr << "mrib: warning: " << warning.get<std::string>() << '\n';
    ++printed;
  }
  const auto rest = warnings.size() - static_cast<std::size_t>(printed);
  if (rest > 0) std::cerr << "mrib: and " << rest << " more warnings (--notes prints them)\n";
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

int showRpf(const Request& request, Backend& backend) {
  constexpr std::size_t addressesACall = 1000;
  const std::vector<std::string> addresses = addressesOf(request);
  Json whole;
  for (std::size_t at = 0; at < addresses.size() || whole.is_null(); at += addressesACall) {
    const auto first = addresses.begin() + static_cast<std::ptrdiff_t>(at);
    const auto count = std::min(addressesACall, addresses.size() - at);
    const std::vector<std::string> some(first, first + static_cast<std::ptrdiff_t>(count));
    const Json answer = backend.call("org.mrib.Lookup", {{"addresses", some}});
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
  out += fmt::format("  Answered by: {}, generation {}{}\n", backend.name(), whole.at("generation").dump(),
                     whole.at("stale") == true ? ", stale" : "");
  print(request.json ? dump(documentOf(backend, whole), 2) : out);
  return codeOf(request, whole, code);
}

int showStatus(const Request& request, Backend& backend) {
  const Json status = backend.call("org.mrib.GetStatus", Json::object());
  print(request.json ? dump(documentOf(backend, status), 2) : text::ofStatus(status));
  return codeOf(request, status);
}

int monitor(const Request& request, Backend& backend) {
  backend.stream("org.mrib.Monitor", Json::object(), [&](const Json& reply) {
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

int watch(const Request& request, Backend& backend) {
  Json addresses = Json::array();
  Json prefixes = Json::array();
  for (const std::string& argument : addressesOf(request))
    (isPrefix(argument) ? prefixes : addresses).push_back(argument);
  backend.stream(
      "org.mrib.Watch", {{"addresses", addresses}, {"prefixes", prefixes}}, [&](const Json& reply) {
        if (request.json) {
          Json line{{"schemaVersion", schemaVersion}};
          line.update(reply);
          print(dump(line, -1));
          return true;
        }
        std::string out;
        for (const Json& answer : reply.at("answers")) out += text::ofWatched(answer);
        for (const Json& watched : reply.at("routes")) {
          Json change{{"prefix", watched.at("prefix")}, {"before", nullptr}, {"after", watched.at("route")}};
          out += watched.at("route").is_null()
                     ? escaped(watched.at("prefix").get<std::string>()) + ": no route\n"
                     : text::ofChange(change, false).substr(2);
        }
        print(out);
        return true;
      });
  return found;
}

// ---- Changes ----

int showDifference(const Request& request, const Backend& backend, const Json& answer) {
  print(request.json ? dump(documentOf(backend, answer), 2) : text::ofDifference(answer.at("difference")));
  return found;
}

int reload(const Request& request) {
  const auto backend = daemonFor(request);
  return showDifference(request, *backend, backend->call("org.mrib.Reload", {{"dryRun", request.dryRun}}));
}

int configure(const Request& request) {
  const auto backend = daemonFor(request);
  std::vector<std::string> commands;
  for (const std::string& argument : request.arguments) commands.push_back(jsonText(argument));
  const Json parameters{{"commands", commands}, {"save", request.save}, {"dryRun", request.dryRun}};
  return showDifference(request, *backend, backend->call("org.mrib.Configure", parameters));
}

/// All of a running configuration, in one text.
std::string configurationOf(Backend& backend) {
  std::string text;
  backend.stream("org.mrib.GetConfiguration", Json::object(), [&](const Json& part) {
    text += part.at("text").get<std::string>();
    return true;
  });
  return text;
}

/// Against what a daemon runs, where one answers. The file is read by this process, with the user's rights.
int checkConfig(const Request& request) {
  const std::string& file = request.arguments.front();
  OnceOptions options{request.from, "", std::nullopt, false, request.tableNumber};
  try {
    if (!request.once && request.from.empty()) {
      options.configuration =
          parseConfiguration(configurationOf(*daemonFor(request)), "the running configuration");
    }
  } catch (const control::NotAnswering&) {
    if (!namedSocket(request).empty()) throw;
  }
  const auto own = readOnce(options, [] {});
  ConfigurationChange change = own->configurator().take(file);  // by this process, and nobody else
  if (!change.reasons.empty()) throw Error(fmt::format("{}", fmt::join(change.reasons, "\n")));
  const bool compares = options.configuration.has_value();
  if (!compares && !request.json) change.difference = {};  // all is new
  Json answer;
  answer["valid"] = true;
  answer["configured"] = change.after.mroutes.size();
  answer["difference"] = documents::ofConfigurationChange(change);
  if (request.json) {
    print(dump(documentOf(*own, answer), 2));
    return found;
  }
  std::string out =
      fmt::format("{}: valid, {} configured routes\n", escaped(file), change.after.mroutes.size());
  if (compares) {
    out += "Against the running configuration:\n" + text::ofDifference(answer["difference"]);
  } else {
    out += text::ofConsequences(answer["difference"]);
  }
  print(out);
  return found;
}

int showConfiguration(const Request& request, Backend& backend) {
  const std::string text = configurationOf(backend);
  print(request.json ? dump(documentOf(backend, {{"text", text}}), 2) : text);
  return found;
}

// ---- The engine ----

/// An operation that was called by hand may be refused by an assertion: that is an answer, not a crash.
void reportAssertion(const Zan::AssertionFailure& failure) {
  std::fprintf(stderr, "mrib: the engine refuses this: assertion `%s' in %s\n", failure.expression,
               failure.function);
  std::_Exit(usageError);
}

/// The objects of this process. Wrong names are answered as a daemon answers them.
std::string inspectOwn(const Router& router, const InspectRequest& request) {
  Zan::assertionObserverIs(reportAssertion);
  try {
    return inspect(Zan::GenericIf(router.agent().engine()), "MribSm", request);
  } catch (const Error& e) {
    throw control::RemoteError("org.mrib.NotFound", {{"why", jsonText(e.what())}});
  }
}

int runInspect(const Request& request) {
  const auto backend = backendFor(request);
  InspectRequest asked = request.inspect;
  asked.json = request.json;
  if (const auto* own = dynamic_cast<const OwnReading*>(backend.get())) {
    print(inspectOwn(own->router(), asked));
    return found;
  }
  const Json answer = backend->call(
      "org.mrib.Inspect", {{"path", jsonText(asked.path)}, {"depth", asked.depth}, {"json", asked.json}});
  print(answer.at("text").get<std::string>());
  return found;
}

}  // namespace

int report(const Request& request, int code, const std::string& text) {
  if (request.json) {
    Json error{{"schemaVersion", schemaVersion}, {"error", jsonText(text)}, {"exitCode", code}};
    const std::string line = dump(error, 2);
    if (std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0)
      return code;
  }
  std::cerr << "mrib: " << text << '\n';
  return code;
}

int execute(const Request& request) {
  const std::string& command = request.command;
  if (command == "inspect") return runInspect(request);
  if (command == "check-config") return checkConfig(request);
  if (command == "reload") return reload(request);
  if (command == "configure") return configure(request);
  const auto backend = backendFor(request);
  if (command == "rpf") return showRpf(request, *backend);
  if (command == "unresolved") return showUnresolved(request, *backend);
  if (command == "status") return showStatus(request, *backend);
  if (command == "monitor") return monitor(request, *backend);
  if (command == "watch") return watch(request, *backend);
  if (command == "running-config") return showConfiguration(request, *backend);
  if (command == "unicast") return showRoutes(request, *backend, "org.mrib.ListUnicastRoutes");
  if (!request.json && request.arguments.empty()) warn(request, *backend);
  return showRoutes(request, *backend, "org.mrib.ListRoutes");
}

}  // namespace host
