#include <net/if.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "Error.h"
#include "Escape.h"
#include "Loop.h"
#include "MirrorService.h"
#include "Names.h"

// Leaves a daemon running: reads the options, and puts the parts together.

namespace {

enum ExitCode : int { ended = 0, usageError = 1, systemError = 2 };

struct Options {
  std::string config;
  std::string socket = host::daemon::defaultSocket;
  std::string table = "main";
  std::string vrf;
  std::string logLevel = "info";
  bool foreground = false;
};

/// The table of a VRF device, as the kernel says; throws Error when there is no such device.
U32 tableOfVrf(const std::string& name) {
  host::kernel::LiveMirror live({}, host::daemon::monotonicNow());
  readAll(live);
  const auto* link = live.mirror().topology().link(if_nametoindex(name.c_str()));
  if (!link || link->vrfTable == 0) throw host::Error("there is no VRF \"" + host::escaped(name) + '"');
  return link->vrfTable;
}

host::kernel::Mirror::Settings settingsOf(const Options& options) {
  host::kernel::Mirror::Settings settings;
  const auto table = host::kernel::tableNumber(options.table);
  if (!table) throw host::Error("there is no table \"" + host::escaped(options.table) + '"');
  settings.table = options.vrf.empty() ? *table : tableOfVrf(options.vrf);
  return settings;
}

void serve(const Options& options, host::daemon::Log& log) {
  using namespace host;
  daemon::Listener listener(options.socket);
  if (!listener.note().empty()) log.write(daemon::Level::notice, listener.note(), daemon::monotonicNow());
  MirrorApplication application(settingsOf(options), daemon::monotonicNow());
  MirrorHandler handler(application);
  control::Server server(handler, {"mrib", "mribd", MRIB_PROJECT_VERSION, ""});
  daemon::Manager manager;
  log.write(daemon::Level::info, "serves at " + options.socket, daemon::monotonicNow());
  daemon::run({application, server, listener, manager, log});
  manager.stopping();
  log.write(daemon::Level::info, "ends", daemon::monotonicNow());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Keeps the multicast RIB of this machine in step with its kernel, and answers mrib(1)."};
  app.set_version_flag("--version", "mribd " MRIB_PROJECT_VERSION);
  app.add_option("-c,--config", options.config, "Configuration")->type_name("FILE");
  app.add_option("--socket", options.socket, "Where clients connect; " + options.socket)->type_name("PATH");
  auto* table = app.add_option("--table", options.table, "Unicast routes are those of this table; main")
                    ->type_name("NAME|ID");
  app.add_option("--vrf", options.vrf, "... of the table of this VRF")->type_name("NAME")->excludes(table);
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
  std::signal(SIGPIPE, SIG_IGN);
  auto log = host::daemon::standardLog(*host::daemon::levelOf(options.logLevel));
  try {
    serve(options, log);
    return ended;
  } catch (const std::exception& e) {
    log.write(host::daemon::Level::error, e.what(), host::daemon::monotonicNow());
    return systemError;
  }
}
