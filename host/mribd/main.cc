#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdio>

#include "ConfigReader.h"
#include "ConfigText.h"
#include "Escape.h"
#include "LiveReversePath.h"
#include "LiveRouter.h"
#include "Loop.h"
#include "Options.h"
#include "RibService.h"
#include "RouteWriter.h"
#include "StandardDescriptors.h"

// Leaves a daemon running: puts the parts together as the options say.

namespace {

using host::Options;

enum ExitCode : int { ended = 0, usageError = 1, systemError = 2 };

std::optional<host::RibService::Exported> exportStatus(const host::LiveExport* exported) {
  if (!exported) return std::nullopt;
  return host::RibService::Exported{exported->options().table, exported->options().user,
                                    exported->exporter()};
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
  host::holdStandardDescriptors();
  Options options;
  try {
    const std::string help = host::readOptions({argv + 1, argv + argc}, options);
    std::fputs(help.c_str(), stdout);
    if (!help.empty()) return ended;
  } catch (const host::Error& e) {
    std::fprintf(stderr, "mribd: %s\n", e.what());
    return usageError;
  }
  if (options.config.empty() && access(host::defaultConfig, F_OK) == 0) options.config = host::defaultConfig;
  std::signal(SIGPIPE, SIG_IGN);
  host::daemon::signalsAreHeld(true);  // until the loop hears them
  auto log = host::daemon::standardLog(*host::daemon::levelOf(options.logLevel));
  try {
    serve(options, log);
    return ended;
  } catch (const std::bad_alloc&) {
    log.write(host::daemon::Level::error, "out of memory: ends", host::monotonicNow());
    return systemError;
  } catch (const std::exception& e) {
    log.writeLines(host::daemon::Level::error, "", e.what(), host::monotonicNow());
    return systemError;
  }
}
