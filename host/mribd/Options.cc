#include "Options.h"

#include <CLI/CLI.hpp>

#include "ConfigReader.h"
#include "RibService.h"
#include "Words.h"

namespace host {

using words::notEmpty;

std::string readOptions(std::vector<std::string> words, Options& options) {
  CLI::App app{"Keeps the multicast RIB of this machine in step with its kernel, and answers mrib(1).",
               "mribd"};
  app.set_version_flag("--version", std::string("mribd ") + version());
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
  app.add_option("--export-table", options.exportTable, "Writes the MRIB into this kernel table")
      ->type_name("N")
      ->check(CLI::Range(1u, ~0u));
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
  return words::read(app, std::move(words));
}

}  // namespace host
