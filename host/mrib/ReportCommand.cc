#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>

#include "Client.h"
#include "CommandTable.h"
#include "Error.h"
#include "GraphDrawings.h"
#include "GraphTree.h"
#include "Graphviz.h"
#include "Output.h"
#include "Report.h"
#include "RibService.h"
#include "Text.h"
#include "WhoAnswers.h"

namespace host::commands {

namespace {

using Content = output::ReportContent;

constexpr unsigned betweenCounters = 500;  // milliseconds

/// Asks all of a report's questions.
class Questions {
 public:
  explicit Questions(Backend& backend) : backend_(backend) {}

  Json one(const std::string& method) { return backend_.call(method, Json::object()); }
  /// Calls `each` with the elements of a list. `beside` gets what else was said.
  template <class F>
  void forEach(const std::string& method, const Json& parameters, const char* name, F each,
               Json* beside = nullptr) {
    backend_.stream(method, parameters, [&](const Json& part) {
      if (beside) beside->update(part);
      for (const Json& element : part.at(name)) each(element);
      return true;
    });
  }
  Content::List list(const std::string& method, const Json& parameters, const char* name,
                     Json* beside = nullptr) {
    Content::List list;
    forEach(
        method, parameters, name, [&](const Json& element) { add(list, element); }, beside);
    return list;
  }
  /// The configured routes that are not in force, that wait, and that are not exported.
  void unresolved(Content& content) {
    forEach("org.mrib.ListUnresolved", {{"waiting", true}}, "unresolved", [&](const Json& line) {
      add(text::isNotExported(line)        ? content.notExported
          : line.at("reason") == "waiting" ? content.waiting
                                           : content.unresolved,
          line);
    });
  }
  std::string configuration() {
    std::string text;
    backend_.stream("org.mrib.GetConfiguration", Json::object(), [&](const Json& part) {
      text += part.at("text").get_ref<const std::string&>();
      return true;
    });
    return text;
  }

 private:
  /// The first are kept, and the others counted.
  static void add(Content::List& list, const Json& element) {
    if (list.count++ < Content::mostElements) list.elements.push_back(element);
  }

  Backend& backend_;
};

/// What not everybody can answer: why not, if so.
Content::List askIfKnown(Questions& ask, const std::string& method, const Json& parameters, const char* name,
                         Json& beside) {
  try {
    return ask.list(method, parameters, name, &beside);
  } catch (const control::RemoteError& e) {
    const bool isOld = e.name() == "org.varlink.service.MethodNotFound";
    beside = {
        {"error", isOld ? "mribd is too old to know" : e.parameters().value("why", "it is not known yet")}};
    return {};
  }
}

/// Where it cannot be drawn, the tree has to do.
void draw(Content& content) {
  content.tree = output::treeOf(content.graph, {true, false});
  try {
    content.picture = output::svgOf(output::dotOf(content.graph));
  } catch (const Error& e) {
    content.noPicture = e.what();
  }
}

std::string now() {
  const std::time_t time = std::time(nullptr);
  return fmt::format("{:%Y-%m-%d %H:%M:%S %Z}", fmt::localtime(time));
}

void addMachine(Content& content) {
  utsname machine{};
  if (uname(&machine) != 0) return;
  content.machine = machine.nodename;
  content.versions.emplace_back("Kernel",
                                fmt::format("{} {} {}", machine.sysname, machine.release, machine.machine));
}

Content contentOf(const Request& request, Backend& backend) {
  Questions ask(backend);
  Content content;
  content.time = now();
  content.answeredBy = backend.name();
  content.status = ask.one("org.mrib.GetStatus");
  content.routes = ask.list("org.mrib.ListRoutes", Json::object(), "routes");
  ask.unresolved(content);
  content.warnings = ask.list("org.mrib.GetWarnings", Json::object(), "warnings");
  content.graph = ask.one("org.mrib.Graph");
  draw(content);
  content.interfaces = ask.list("org.mrib.ListInterfaces", Json::object(), "interfaces");
  content.unicast = ask.list("org.mrib.ListUnicastRoutes", Json::object(), "routes");
  content.configuration = ask.configuration();
  content.flows = askIfKnown(ask, "org.mrib.Check", {{"interval", betweenCounters}}, "flows", content.check);
  content.changes =
      askIfKnown(ask, "org.mrib.History", {{"last", Content::mostElements}}, "changes", content.history);
  content.versions = {{"mrib", version()},
                      {"Answered by", "version " + content.status.at("version").get<std::string>()},
                      {"Routes from", content.status.at("source").get<std::string>()},
                      {"Generation", content.status.at("generation").dump()},
                      {"RPF lookup mode", content.status.at("lookupMode").get<std::string>()}};
  if (request.from.empty()) addMachine(content);
  return content;
}

}  // namespace

int report(const Request& request) {
  if (request.json) {
    return host::report(request, usageError,
                        "a report is a page; route, unresolved, check and graph have JSON");
  }
  if (request.output.empty() && isatty(STDOUT_FILENO)) {
    return host::report(request, usageError, "a report is a page: name a file with -o");
  }
  const auto backend = backendFor(request);
  const Content content = contentOf(request, *backend);
  const std::string page = output::reportOf(content);
  put(request.output, page);
  return codeOf(request, content.status.at("stale") == true);
}

}  // namespace host::commands
