#include "Configurator.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigReader.h"
#include "ConfigSave.h"
#include "ConfigText.h"
#include "Documents.h"

namespace host {

namespace {

std::string keyOf(const mrib::Unresolved& u) {
  return fmt::format("{} {} {}", u.mroute.prefix.stringValue(), documents::rpfOf(u.mroute),
                     u.mroute.preference);
}

/// The errors among `after` that were none before.
std::vector<mrib::Unresolved> newErrors(const std::vector<mrib::Unresolved>& before,
                                        std::vector<mrib::Unresolved> after) {
  std::set<std::string> known;
  for (const mrib::Unresolved& u : before) {
    if (u.isError()) known.insert(keyOf(u));
  }
  std::erase_if(after, [&](const auto& u) { return !u.isError() || known.contains(keyOf(u)); });
  return after;
}

}  // namespace

std::vector<OwnSubnet> ownSubnetsOf(const kernel::Mirror& mirror) {
  std::vector<OwnSubnet> subnets;
  for (const auto& [key, entry] : mirror.topology().addresses.all()) {
    const kernel::Address& a = entry.value;
    const kernel::Link* link = mirror.topology().link(a.link);
    if (a.local.af() != Lumo::ipv4() || !link) continue;
    const bool isPointToPoint = a.peer != a.local;
    subnets.push_back(
        {a.local.v4Addr(), isPointToPoint ? U32{Lumo::Prefix::maxLength} : a.length, link->name});
  }
  return subnets;
}

Configurator::Configurator(Router& router, std::string path, Router::Clock clock)
    : router_(router), path_(std::move(path)), clock_(std::move(clock)) {}

ConfigurationChange Configurator::read(const std::string& path, bool dryRun) {
  try {
    return change(readConfiguration(path), dryRun);
  } catch (const ConfigurationError& e) {
    return {messagesOf(e.errors()), {}, {}, {}, {}, {}};
  }
}

ConfigurationChange Configurator::configure(std::span<const std::string> commands, bool save, bool dryRun) {
  const Configuration before = router_.configuration();
  if (save && before.files.size() > 1) {
    return {{"the configuration is made of several files: change those, and reload"}, {}, {}, {}, {}, {}};
  }
  ConfigurationChange result;
  try {
    result = change(edited(before, commands), dryRun);
  } catch (const ConfigurationError& e) {
    result.reasons = messagesOf(e.errors());
  }
  if (!save || dryRun || !result.reasons.empty()) return result;
  try {
    host::save(path_, textOf(router_.configuration()));
  } catch (const Error& e) {
    router_.configurationIs(before, clock_());
    result.reasons = {e.what()};
  }
  return result;
}

ConfigurationChange Configurator::change(Configuration next, bool dryRun) {
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
    result.reasons = router_.configurationIs(std::move(next), clock_());
    result.unresolved = newErrors(unresolved, router_.agent().unresolved());
  }
  if (result.reasons.empty()) result.warnings = router_.warningsFor(result.after);
  return result;
}

}  // namespace host
