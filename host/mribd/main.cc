#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>

#include "ConfigReader.h"
#include "ConfigText.h"
#include "Escape.h"
#include "LiveReversePath.h"
#include "LiveRouter.h"
#include "Loop.h"
#include "RibService.h"
#include "RouteWriter.h"

// Leaves a daemon running: reads the options, and puts the parts together.

namespace {

enum ExitCode : int { ended = 0, usageError = 1, systemError = 2 };

struct Options {
  std::string config;
  std::string socket = host::daemon::defaultSocket;
  std::string table;
  std::string vrf;
  std::string logLevel = "info";
  bool foreground = false;
  U32 exportTable = 0;
  std::string exportFor;
  bool exportKeep = false;
  std::string exportRule;
};

std::optional<host::RibService::Exported> exportStatus(const host::LiveExport* exported) {
  if (!exported) return std::nullopt;
  return host::RibService::Exported{exported->options().table, exported->options().user,
                                    exported->exporter()};
}

std::string notEmpty(const std::string& text) {
  return text.empty() ? "a word is needed" : "";
}

/// A user by name or number.
U32 userOf(const std::string& name) {
  if (const passwd* user = getpwnam(name.c_str())) return user->pw_uid;
  U32 number = 0;
  const char* end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data(), end, number);
  if (stop != end || error != std::errc{})
    throw host::Error("there is no user \"" + host::escaped(name) + '"');
  return number;
}

/// What is to be exported: as the options say, or else the configuration.
std::optional<host::LiveExport::Options> exportOf(const Options& options,
                                                  const host::Configuration& configuration, U32 unicast) {
  using namespace host;
  std::optional<ExportTable> table = configuration.exportTable;
  if (options.exportTable != 0) table = {options.exportTable, ExportFor::frr};
  if (!table) {
    if (options.exportRule.empty() && options.exportFor.empty()) return std::nullopt;
    throw Error("--export-for and --export-rule need a table, by --export-table or the configuration");
  }
  if (!options.exportFor.empty()) table->user = *exportForOf(options.exportFor);
  std::string fault = faultOf(*table);
  if (table->table == unicast) fault = fmt::format("table {} is the unicast table", unicast);
  if (!fault.empty()) throw Error("the MRIB can't be exported: " + fault);
  LiveExport::Options exported{*table, options.exportKeep};
  if (!options.exportRule.empty()) exported.user = userOf(options.exportRule);
  return exported;
}

host::LiveRouter::Options routerOptions(const Options& options, host::daemon::Log& log) {
  using namespace host;
  LiveRouter::Options router;
  router.path = options.config;
  if (!options.config.empty()) router.configuration = readConfiguration(options.config);
  router.mirror.table = kernel::tableOf(options.table, options.vrf);
  router.exported = exportOf(options, router.configuration, router.mirror.table);
  if (router.exported && !kernel::RouteWriter().mayWrite(router.exported->table.table)) {
    log.write(daemon::Level::error, "may not write routes (CAP_NET_ADMIN): goes on, and exports nothing",
              monotonicNow());
    router.exported.reset();
  }
  router.mirror.needsCarrier = router.exported && router.exported->table.user == ExportFor::frr;
  return router;
}

void serve(const Options& options, host::daemon::Log& log) {
  using namespace host;
  daemon::Listener listener(options.socket);
  if (!listener.note().empty()) log.write(daemon::Level::notice, listener.note(), monotonicNow());
  LiveRouter application(routerOptions(options, log), log);
  const kernel::LiveMirror& live = application.live();
  const kernel::LiveMulticastCache cache;
  const kernel::LiveReversePath kernel(live.mirror());
  RibService::Setting setting{"this machine's kernel", monotonicNow()};
  setting.foreign = [&] { return live.foreign(); };
  if (const auto exported = exportStatus(application.exported())) setting.exported.emplace(*exported);
  setting.kernel = &kernel;
  setting.cache = &cache;
  setting.linkSwitch = kernel::isSwitchedOn;
  setting.history = [&] { return application.history(); };
  RibService service(application.router(), &application.configurator(), monotonicNow, std::move(setting));
  control::Server server(service, {"mrib", "mribd", version(), ""});
  daemon::Manager manager;
  log.write(daemon::Level::info, "serves at " + options.socket, monotonicNow());
  daemon::run({application, server, listener, manager, log});
  manager.stopping();
  application.end();
  log.write(daemon::Level::info, "ends", monotonicNow());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Keeps the multicast RIB of this machine in step with its kernel, and answers mrib(1)."};
  app.set_version_flag("--version", std::string("mribd ") + host::version());
  app.add_option("-c,--config", options.config,
                 "Configuration (mrib.conf(5)); " + std::string(host::defaultConfig) + " when that exists")
      ->type_name("FILE")
      ->check(notEmpty);
  app.add_option("--socket", options.socket, "Where clients connect; " + options.socket)
      ->type_name("PATH")
      ->check(notEmpty);
  auto* table = app.add_option("--table", options.table, "Unicast routes are those of this table; main")
                    ->type_name("NAME|ID");
  app.add_option("--vrf", options.vrf, "... of the table of this VRF")->type_name("NAME")->excludes(table);
  app.add_option("--export-table", options.exportTable, "Writes the MRIB into this kernel table")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  app.add_option("--export-for", options.exportFor, "... for frr (the default) or for look-ups in the kernel")
      ->check(CLI::IsMember({"frr", "kernel"}))
      ->type_name("frr|kernel");
  app.add_flag("--export-keep", options.exportKeep, "... where its routes stay when mribd ends");
  app.add_option("--export-rule", options.exportRule, "... and answers the look-ups of this user")
      ->type_name("USER")
      ->check(notEmpty);
  app.add_option("--log-level", options.logLevel, "error, warning, notice, info (the default) or debug")
      ->check(CLI::IsMember({"error", "warning", "notice", "info", "debug"}))
      ->type_name("LEVEL");
  app.add_flag("--foreground", options.foreground, "Taken for those who are used to it: it never forks");
  app.footer("SIGHUP reads the configuration again, SIGTERM ends it. Exit codes: 0 ended, 1 usage, 2 error.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? ended : usageError;
  }
  if (options.config.empty() && access(host::defaultConfig, F_OK) == 0) options.config = host::defaultConfig;
  std::signal(SIGPIPE, SIG_IGN);
  auto log = host::daemon::standardLog(*host::daemon::levelOf(options.logLevel));
  try {
    serve(options, log);
    return ended;
  } catch (const std::bad_alloc&) {
    log.write(host::daemon::Level::error, "out of memory: ends", host::monotonicNow());
    return systemError;
  } catch (const std::exception& e) {
    log.write(host::daemon::Level::error, e.what(), host::monotonicNow());
    return systemError;
  }
}
