#include "Configurator.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigReader.h"
#include "ConfigSave.h"
#include "ConfigText.h"
#include "Escape.h"
#include "Why.h"

namespace host {

namespace {

std::string causeOf(std::span<const std::string> commands) {
  if (commands.empty()) return "configured by hand";
  const std::string first = "configured by hand: " + escaped(commands.front());
  const std::size_t more = commands.size() - 1;
  return more == 0 ? first : fmt::format("{}, and {} more line{}", first, more, more == 1 ? "" : "s");
}

}  // namespace

Configurator::Configurator(Router& router, std::string path, Router::Clock clock)
    : router_(router), path_(std::move(path)), clock_(std::move(clock)) {}

ConfigurationChange Configurator::read(const std::string& path, bool dryRun) {
  try {
    return change(readConfiguration(path), dryRun, "configuration " + escaped(path) + " read");
  } catch (const ConfigurationError& e) {
    return {messagesOf(e.errors()), {}, {}, {}, {}, {}};
  }
}

ConfigurationChange Configurator::configure(std::span<const std::string> commands, bool save, bool dryRun) {
  const Configuration before = router_.configuration();
  if (save && before.includes) {
    return {{"the configuration includes other files: change those, and reload"}, {}, {}, {}, {}, {}};
  }
  try {
    const Configuration next = edited(before, commands);
    if (save && !dryRun) return saved(before, next, causeOf(commands));
    return change(next, dryRun, causeOf(commands));
  } catch (const ConfigurationError& e) {
    return {messagesOf(e.errors()), {}, {}, {}, {}, {}};
  }
}

/// Each line gets its place in the file; why it is refused is said by the places that there are now.
ConfigurationChange Configurator::saved(const Configuration& before, const Configuration& next,
                                        const std::string& cause) {
  const std::string text = textOf(next);
  ConfigurationChange result = change(parseConfiguration(text, path_), false, cause + ", and saved");
  if (!result.reasons.empty()) {
    std::vector<std::string> reasons = change(next, true, cause).reasons;
    if (!reasons.empty()) result.reasons = std::move(reasons);
    return result;
  }
  try {
    host::save(path_, text);
  } catch (const Error& e) {
    router_.configurationIs(before, clock_(), "the configuration as it was: it cannot be saved");
    result.reasons = {e.what()};
  }
  return result;
}

ConfigurationChange Configurator::change(Configuration next, bool dryRun, const std::string& cause) {
  ConfigurationChange result;
  result.reasons = messagesOf(impossibleNextHops(next, ownSubnetsOf(router_.mirror())));
  if (keepsExportTable_ && next.exportTable != router_.configuration().exportTable) {
    result.reasons.push_back("another exported table (ip multicast export-table) needs a restart of mribd");
  }
  if (!result.reasons.empty()) return result;
  const std::vector<mrib::Unresolved> unresolved = router_.agent().unresolved();
  result.before = router_.configuration();
  result.after = next;
  result.difference = differenceOf(result.before, result.after);
  if (dryRun) {
    Router::Trial trial = router_.tryConfiguration(next);
    result.reasons = std::move(trial.refusals);
    result.unresolved = newErrors(unresolved, std::move(trial.unresolved));
  } else {
    result.reasons = router_.configurationIs(std::move(next), clock_(), cause);
    result.unresolved = newErrors(unresolved, router_.agent().unresolved());
  }
  if (result.reasons.empty()) result.warnings = router_.warningsFor(result.after);
  return result;
}

}  // namespace host
