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

/// All parts of a list, with the head of the first one.
Json listOf(Backend& backend, const std::string& method, const Json& parameters, const char* name) {
  Json whole;
  backend.stream(method, parameters, [&](const Json& part) {
    if (whole.is_null()) {
      whole = part;
    } else {
      for (const Json& element : part.at(name)) whole[name].push_back(element);
    }
    return true;
  });
  return whole;
}

Json documentOf(const Backend& backend, const Json& answer) {
  Json document;
  document["schemaVersion"] = schemaVersion;
  document["answeredBy"] = jsonText(backend.name());
  document.update(answer);
  return document;
}

std::string headOf(const Backend& backend, const Json& answer) {
  return fmt::format("{}{}\n\n", backend.name(), answer.at("stale") == true ? " (stale)" : "");
}

int codeOf(const Request& request, const Json& answer, int code = found) {
  return request.fresh && answer.at("stale") == true ? stale : code;
}

bool isPrefix(const std::string& text) {
  return text.find('/') != std::string::npos;
}

Json filterOf(const Request& request) {
  Json filter = Json::object();
  if (!request.arguments.empty()) {
    const std::string& text = request.arguments.front();
    if (request.longer && !isPrefix(text)) throw Error("--longer needs a prefix, such as 10.0.0.0/8");
    filter[isPrefix(text) ? "prefix" : "address"] = jsonText(text);
  }
  if (request.longer) filter["longer"] = true;
  if (!request.type.empty()) filter["type"] = request.type;
  return filter;
}

int showUnresolved(const Request& request, Backend& backend) {
  const Json answer =
      listOf(backend, "org.mrib.ListUnresolved", {{"waiting", request.waiting}}, "unresolved");
  if (request.json) {
    print(dump(documentOf(backend, answer), 2));
  } else if (answer.at("unresolved").empty()) {
    print("all configured routes are resolved\n");
  } else {
    print(text::ofUnresolved(answer.at("unresolved")));
  }
  return codeOf(request, answer);
}

int showRoutes(const Request& request, Backend& backend, const char* method) {
  const Json filter = filterOf(request);
  Json answer = listOf(backend, method, filter, "routes");
  const bool whole = filter.empty() && request.command != "unicast";
  if (whole || request.unresolved) {
    answer["unresolved"] =
        listOf(backend, "org.mrib.ListUnresolved", Json::object(), "unresolved").at("unresolved");
  }
  if (whole) answer["warnings"] = backend.call("org.mrib.GetWarnings", Json::object()).at("warnings");
  const int code = answer.at("routes").empty() && !request.arguments.empty() ? noRpfRoute : found;
  if (request.json) {
    print(dump(documentOf(backend, answer), 2));
    return codeOf(request, answer, code);
  }
  std::string out = headOf(backend, answer) + text::ofRoutes(answer.at("routes"));
  if (answer.contains("unresolved") && !answer["unresolved"].empty()) {
    out += "\nNot resolved:\n" + text::ofUnresolved(answer["unresolved"]);
  }
  print(out);
  return codeOf(request, answer, code);
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
  const ConfigurationChange change = own->configurator().check(file);
  if (!change.reasons.empty()) throw Error(fmt::format("{}", fmt::join(change.reasons, "\n")));
  Json answer;
  answer["valid"] = true;
  answer["configured"] = change.after.mroutes.size();
  answer["difference"] = documents::ofConfigurationChange(own->router(), change);
  if (request.json) {
    print(dump(documentOf(*own, answer), 2));
    return found;
  }
  std::string out =
      fmt::format("{}: valid, {} configured routes\n", escaped(file), change.after.mroutes.size());
  if (options.configuration) out += "Against the running configuration:\n";
  if (!options.configuration) answer["difference"]["added"] = Json::array();
  if (!options.configuration) answer["difference"]["lookupMode"] = nullptr;
  print(out + text::ofDifference(answer["difference"]));
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

int runInspect(const Request& request) {
  const auto backend = backendFor(request);
  InspectRequest asked = request.inspect;
  asked.json = request.json;
  if (const auto* own = dynamic_cast<const OwnReading*>(backend.get())) {
    Zan::assertionObserverIs(reportAssertion);
    print(inspect(Zan::GenericIf(own->router().agent().engine()), "MribSm", asked));
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
