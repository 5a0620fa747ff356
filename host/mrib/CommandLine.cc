#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "CommandWords.h"
#include "RibService.h"
#include "Words.h"

namespace host {

namespace {

using words::notEmpty;

void addOptions(CLI::App& app, Request& request) {
  app.add_flag("-j,--json", request.json, "JSON for programs");
  auto* socket = app.add_option("--socket", request.socket,
                                "Ask the daemon at this socket (MRIB_SOCKET; /run/mrib/mribd.sock)")
                     ->type_name("PATH")
                     ->check(notEmpty);
  app.add_flag("--once", request.once, "Ask no daemon: read the kernel now")->excludes(socket);
  app.add_option("--from", request.from,
                 "Read link.json, addr.json and route.json (ip -j) from DIR, not the kernel")
      ->type_name("DIR")
      ->check(notEmpty);
  app.add_option("-c,--config", request.config,
                 "Read this configuration (mrib.conf(5)), not a daemon's or /etc/mrib.conf")
      ->type_name("FILE")
      ->check(notEmpty);
  app.add_flag("--sample", request.sample, "Without a configuration: take a sample that fits the machine");
  app.add_flag("--fresh", request.fresh, "Exit with 5 when the answer may be out of date");
  app.add_flag("--notes", request.notes, "Print all warnings, not a few");
  app.add_option("--trace", request.traceLevel,
                 "Print the engine's traces up to LEVEL (0 to 9) on standard error")
      ->check(CLI::Range(0, 9))
      ->type_name("LEVEL");
}

CLI::App& addCommand(CLI::App& app, Request& request, const std::string& name, const std::string& about) {
  CLI::App* command = app.add_subcommand(name, about);
  command->fallthrough();
  command->callback([&request, name] { request.command = name; });
  return *command;
}

void addQuestions(CLI::App& app, Request& request) {
  auto& route =
      addCommand(app, request, "route", "The MRIB, or the route of a prefix, or the one for an address");
  route.add_option("PREFIX|ADDRESS", request.arguments)->expected(0, 1);
  route.add_flag("--longer", request.longer, "Also all routes within the prefix");
  route.add_option("--type", request.type, "Only these")
      ->check(CLI::IsMember({"connected", "static"}))
      ->type_name("TYPE");
  route.add_flag("--unresolved", request.unresolved, "Also the configured routes that are not resolved");
  auto& rpf = addCommand(app, request, "rpf", "The RPF route, next hop and interface for sources");
  rpf.add_option("ADDRESS", request.arguments, "Sources; - reads them from standard input")->required();
  auto& explain = addCommand(app, request, "explain", "Why packets from a source must come in by their way");
  explain.add_option("ADDRESS", request.arguments, "The source")->required()->expected(1);
  auto* incoming =
      explain.add_option("--in", request.incoming, "Also whether those that come in by this interface pass")
          ->type_name("INTERFACE")
          ->check(notEmpty);
  explain.add_option("--at", request.at, "As the MRIB was in a generation or at a time (as history --since)")
      ->type_name("TIME|GENERATION")
      ->check(notEmpty)
      ->excludes(incoming);
  auto& unicast = addCommand(app, request, "unicast", "The unicast table as the router uses it");
  unicast.add_option("PREFIX|ADDRESS", request.arguments)->expected(0, 1);
  unicast.add_flag("--longer", request.longer, "Also all routes within the prefix");
  auto& unresolved = addCommand(app, request, "unresolved", "Configured routes that do not resolve, and why");
  unresolved.add_flag("--waiting", request.waiting, "Also those that wait behind a better preference");
  addCommand(app, request, "status", "How the daemon and its view of the kernel are");
  addCommand(app, request, "monitor", "The MRIB, then each change, until interrupted");
  auto& watch = addCommand(app, request, "watch", "The answers for sources or prefixes, then each change");
  watch.add_option("ADDRESS|PREFIX", request.arguments)->required();
}

void addOutput(CLI::App& command, Request& request) {
  command.add_option("-o,--output", request.output, "Write FILE; - is standard output")
      ->type_name("FILE")
      ->check(notEmpty);
}

void addPictures(CLI::App& app, Request& request) {
  auto& graph =
      addCommand(app, request, "graph", "What leads where in the MRIB, and what depends on it, drawn");
  graph.add_option("PREFIX|SOURCE", request.arguments, "Only what it leads through, and what depends on it")
      ->expected(0, 1);
  graph
      .add_option(
          "--format", request.format,
          "tree, dot, svg, mermaid or json; by default as FILE ends: .svg, .dot, .gv, .mmd, .json, else tree")
      ->check(CLI::IsMember({"tree", "dot", "svg", "mermaid", "json"}))
      ->type_name("FORMAT");
  addOutput(graph, request);
  graph
      .add_option("--most", request.most, "Draw what is alike as one when there are more nodes than N (200)")
      ->type_name("N")
      ->check(CLI::Range(1, 20000));
  addOutput(addCommand(app, request, "report", "All there is to see, in one HTML page for a ticket"),
            request);
}

void addImagined(CLI::App& app, Request& request) {
  auto& whatIf = addCommand(app, request, "what-if", "What changes would come to; nothing is changed");
  whatIf.add_option(
      "CHANGE", request.arguments,
      "link NAME down|up, address NAME add|del ADDRESS/LENGTH, route add|del ... as ip route has "
      "it, ip mroute ... or ip multicast ..., also with no before it; several: with commas behind words, or "
      "each in quotes");
  whatIf.add_flag("--each-link", request.eachLink, "Every link down in turn, by what depends on it");
}

void addHistory(CLI::App& app, Request& request) {
  auto& history =
      addCommand(app, request, "history", "The daemon's last changes of the MRIB, and what led to each");
  history.add_option("PREFIX|ADDRESS", request.arguments, "Only those of a prefix, or those for a source")
      ->expected(0, 1);
  history.add_option("--last", request.last, "At most so many")->type_name("N")->check(CLI::Range(1u, ~0u));
  history.add_option("--since", request.since, "Later ones: 14:03, \"2026-03-01 14:03:20\" or 10m (ago)")
      ->type_name("TIME")
      ->check(notEmpty);
}

/// "nan" is between any two numbers, as the library compares.
std::string isNumber(const std::string& text) {
  return text.find_first_of("nN") == text.npos ? "" : "a number is needed";
}

void addForwarding(CLI::App& app, Request& request) {
  constexpr double longest = 86400;
  auto& check = addCommand(app, request, "check", "The kernel's multicast forwarding, against the MRIB");
  check.add_option("SOURCE|GROUP|PREFIX", request.arguments, "Only these flows")->expected(0, 1);
  check.add_flag("--watch", request.follow, "Then each flow whose verdict changes, until interrupted");
  auto& metrics = addCommand(app, request, "metrics", "The counters of status and check, for Prometheus");
  for (CLI::App* command : {&check, &metrics}) {
    command
        ->add_option("--interval", request.interval,
                     "Between the readings that are compared (1); 0: one reading")
        ->check(isNumber)
        ->check(CLI::Range(0.0, longest))
        ->type_name("SECONDS");
  }
}

void addChanges(CLI::App& app, Request& request) {
  auto& reload = addCommand(app, request, "reload", "The daemon reads its configuration again");
  reload.add_flag("--dry-run", request.dryRun, "Say what would change, and change nothing");
  auto& configure = addCommand(app, request, "configure", "Change the daemon's running configuration");
  configure
      .add_option("COMMAND", request.arguments,
                  "'ip mroute ...' or 'ip multicast ...', also with no before it")
      ->required();
  configure.add_flag("--dry-run", request.dryRun, "Say what would change, and change nothing");
  configure.add_flag("--save", request.save, "Also write the configuration file");
  addCommand(app, request, "running-config", "The running configuration");
  auto& check =
      addCommand(app, request, "check-config", "Whether a configuration is right, and what it would change");
  check.add_option("FILE", request.arguments)->required()->expected(1);
}

void addInspect(CLI::App& app, Request& request) {
  auto& inspect =
      addCommand(app, request, "inspect", "The engine's live objects, their attributes and operations");
  inspect.add_option(
      "PATH", request.inspect.path,
      "Object or collection, as MribSm/routeResolver/mribForPrefix[20.0.0.0/24]; MribSm by default");
  inspect.add_option("--set", request.inspect.sets, "Set an attribute first")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  inspect.add_option("--call", request.inspect.calls, "Invoke an operation first")
      ->type_name("'NAME ARGUMENT=VALUE ...'")
      ->allow_extra_args(false);
  inspect.add_option("--depth", request.inspect.depth, "Objects within objects that are shown (2)")
      ->type_name("N");
}

}  // namespace

std::string readCommandLine(std::vector<std::string> words, Request& request) {
  CLI::App app{"The multicast RIB of this machine: which way packets from a source must come in.", "mrib"};
  app.set_version_flag("--version", std::string("mrib ") + host::version());
  app.require_subcommand(0, 1);
  addOptions(app, request);
  auto* named = app.add_option("--table", request.tableName, "Unicast routes are those of this table; main")
                    ->type_name("NAME|ID");
  app.add_option("--vrf", request.vrf, "... of the table of this VRF")->type_name("NAME")->excludes(named);
  addQuestions(app, request);
  addPictures(app, request);
  addForwarding(app, request);
  addImagined(app, request);
  addHistory(app, request);
  addChanges(app, request);
  addInspect(app, request);
  app.footer(
      "Without a command: all of the MRIB. Commands may be shortened.\n"
      "Exit codes: 0 found, 1 usage, 2 kernel, file or daemon error, 3 no RPF route, 4 not taken in (explain "
      "--in, check), "
      "5 stale (--fresh).");
  // Known before the rest is read, so that what is wrong with it is said as the user wants it.
  const auto isJson = [](const std::string& word) { return word == "-j" || word == "--json"; };
  request.json = std::any_of(words.begin(), words.end(), isJson);
  return words::read(app, commandInFull(std::move(words), [&app](const std::string& word) {
                       const CLI::Option* option = app.get_option_no_throw(word);
                       return option ? std::optional(option->get_items_expected_max()) : std::nullopt;
                     }));
}

}  // namespace host
