#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "LiveRouter.h"
#include "Loop.h"
#include "RibService.h"

// Leaves a daemon running: reads the options, and puts the parts together.

namespace {

enum ExitCode : int { ended = 0, usageError = 1, systemError = 2 };

constexpr const char* defaultConfig = "/etc/mrib.conf";

struct Options {
  std::string config;
  std::string socket = host::daemon::defaultSocket;
  std::string table;
  std::string vrf;
  std::string logLevel = "info";
  bool foreground = false;
};

std::string notEmpty(const std::string& text) {
  return text.empty() ? "a word is needed" : "";
}

void serve(const Options& options, host::daemon::Log& log) {
  using namespace host;
  daemon::Listener listener(options.socket);
  if (!listener.note().empty()) log.write(daemon::Level::notice, listener.note(), daemon::monotonicNow());
  kernel::Mirror::Settings settings;
  settings.table = kernel::tableOf(options.table, options.vrf);
  LiveRouter application(settings, options.config, log);
  const kernel::LiveMirror& live = application.live();
  RibService service(application.router(), &application.configurator(), kernel::monotonicNow,
                     {"this machine's kernel", kernel::monotonicNow(), [&] { return live.foreign(); }});
  control::Server server(service, {"mrib", "mribd", MRIB_PROJECT_VERSION, ""});
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
  app.add_option("-c,--config", options.config,
                 "Configuration (mrib.conf(5)); " + std::string(defaultConfig) + " when that exists")
      ->type_name("FILE")
      ->check(notEmpty);
  app.add_option("--socket", options.socket, "Where clients connect; " + options.socket)
      ->type_name("PATH")
      ->check(notEmpty);
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
  if (options.config.empty() && access(defaultConfig, F_OK) == 0) options.config = defaultConfig;
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
