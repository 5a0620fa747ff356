#include "LiveRouter.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Why.h"

namespace host {

using daemon::Level;

LiveRouter::LiveRouter(Options options, daemon::Log& log)
    : clock_(options.clock),
      live_(options.mirror, clock_(), options.access),
      router_(live_.mirror(), clock_),
      configurator_(router_, options.path, clock_),
      log_(log),
      mostHistory_(options.history) {
  configurator_.keepExportTable();
  const auto refusals = router_.configurationIs(std::move(options.configuration), clock_());
  if (!refusals.empty()) throw Error(fmt::format("{}", fmt::join(refusals, "\n")));
  if (options.exported) export_.emplace(*options.exported, router_, log_, options.access, clock_());
}

std::vector<int> LiveRouter::descriptors() const {
  std::vector<int> all{live_.eventFd(), live_.answerFd()};
  if (export_) {
    for (const int fd : export_->descriptors()) all.push_back(fd);
  }
  return all;
}

void LiveRouter::end() {
  if (export_) export_->end(clock_());
}

Nanos LiveRouter::turn(Nanos now) {
  const Nanos table = export_ ? export_->read(now) : ~Nanos{0};
  const Nanos mirror = live_.turn(now);
  const Nanos router = router_.turn(now);
  const Nanos exported = export_ ? export_->write(now) : ~Nanos{0};
  logLosses(now);
  for (const std::string& fault : router_.takeFaults()) log_.write(Level::error, fault, now);
  if (router_.isReady() && !std::exchange(wasReady_, true)) {
    history_.emplace(router_, History::Clocks{wallNow, clock_}, mostHistory_);
    // What was configured before the kernel was read cannot be refused for its addresses; they may change.
    std::vector<std::string> warnings;
    for (const ConfigError& e : impossibleNextHops(router_.configuration(), ownSubnetsOf(live_.mirror()))) {
      warnings.push_back(e.message());
    }
    warn(warnings, now);
    warn(router_.warningsFor(router_.configuration()), now);
    log_.write(Level::info, status(), now);
  }
  return std::min({table, mirror, router, exported});
}

/// Readings of the kernel whose cause is no change.
void LiveRouter::logLosses(Nanos now) {
  using enum kernel::Reason;
  const auto resyncs = live_.mirror().counters().resyncs;
  for (const kernel::Reason reason : {overrun, malformed, truncated, refused}) {
    const auto i = static_cast<std::size_t>(reason);
    if (std::exchange(resyncs_[i], resyncs[i]) == resyncs[i]) continue;
    log_.write(Level::warning, fmt::format("lost track of the kernel ({}): reads it again", nameOf(reason)),
               now);
  }
}

void LiveRouter::warn(const std::vector<std::string>& warnings, Nanos now) {
  const std::size_t told = std::min(warnings.size(), ConfigurationError::mostPrinted);
  for (std::size_t i = 0; i < told; ++i) log_.write(Level::warning, warnings[i], now);
  if (told < warnings.size()) {
    log_.write(Level::warning, fmt::format("and {} more warnings", warnings.size() - told), now);
  }
}

void LiveRouter::reload(Nanos now) {
  if (configurator_.path().empty()) throw Error("there is no configuration file to read again");
  const ConfigurationChange change = configurator_.reload(false);
  if (!change.reasons.empty()) throw Error(fmt::format("{}", fmt::join(change.reasons, "\n")));
  logDifference(change, now);
  warn(change.warnings, now);
}

/// In one line, and some of what it comes to.
void LiveRouter::logDifference(const ConfigurationChange& change, Nanos now) {
  const Difference& difference = change.difference;
  log_.write(
      Level::notice,
      fmt::format("configuration read again: {} added, {} gone, {} with another preference, {} not resolved "
                  "now",
                  difference.added.size(), difference.gone.size(), difference.changed.size(),
                  change.unresolved.size()),
      now);
  std::vector<std::string> lines;
  for (const MrouteLine& line : difference.added) lines.push_back("+ " + textOf(line));
  for (const MrouteLine& line : difference.gone) lines.push_back("- " + textOf(line));
  for (const auto& [before, after] : difference.changed) lines.push_back("~ " + textOf(after));
  const Why why(router_);
  for (const mrib::Unresolved& u : change.unresolved) {
    lines.push_back("not resolved: " + u.mroute.prefix.stringValue() + ": " + why.of(u));
  }
  if (lines.size() > ConfigurationError::mostPrinted) lines.resize(ConfigurationError::mostPrinted);
  for (const std::string& line : lines) log_.write(Level::notice, line, now);
}

std::string LiveRouter::status() const {
  return fmt::format("generation {}, {} MRIB routes, {} configured, {} unicast routes{}",
                     router_.generation(), router_.routeCount(), router_.configuration().mroutes.size(),
                     live_.mirror().routes(Lumo::ipv4()).routeCount(), router_.isStale() ? ", stale" : "");
}

}  // namespace host
