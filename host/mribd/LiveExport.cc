#include "LiveExport.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"

namespace host {

using daemon::Level;

namespace {

constexpr std::size_t routesATurn = 200;     // written: about a millisecond
constexpr std::size_t surveyedATurn = 2000;  // likewise
constexpr std::size_t prefixesATurn = 5000;
constexpr Nanos compareEvery = seconds(60);

kernel::Mirror::Settings settingsFor(U32 table) {
  kernel::Mirror::Settings settings;
  settings.table = table;
  settings.ipv6 = false;
  settings.everyRoute = true;
  return settings;
}

}  // namespace

LiveExport::LiveExport(const Options& options, Router& router, daemon::Log& log, const kernel::Access& access,
                       Nanos now)
    : options_(options),
      router_(router),
      log_(log),
      live_(settingsFor(options.table.table), now, access),
      writer_(access.writer()),
      exporter_(live_.mirror(),
                options.table.user == ExportFor::frr ? Exporter::Readers::follow : Exporter::Readers::lookUp),
      wanted_(router, options.table.user),
      subscription_(router.agent().subscribe([this](const mrib::Update& update) {
        for (const mrib::Change& change : update.changes) changed_.push_back(change.prefix());
      })) {}

LiveExport::~LiveExport() {
  router_.agent().unsubscribe(subscription_);
}

Nanos LiveExport::read(Nanos now) {
  const Nanos until = live_.turn(now);
  if (!live_.mirror().isSynced()) return until;
  const auto changes = live_.mirror().takeChanges(prefixesATurn);
  for (const auto& prefix : changes.prefixes) exporter_.check(prefix.v4Prefix());
  for (const auto& [prefix, metric, protocol] : changes.told) {
    if (protocol != Exporter::protocol || metric != Exporter::metric) exporter_.crossed(prefix.v4Prefix());
  }
  for (const U32 link : changes.links) {
    if (begun_) exporter_.linkChanged(link, now);
  }
  if (!changes.links.empty()) surveyAt_ = 0;
  return changes.complete ? until : now;
}

Nanos LiveExport::write(Nanos now) {
  if (!router_.isReady() || !live_.mirror().isSynced()) return ~Nanos{0};
  if (!begun_ && router_.agent().mayDiffer()) return ~Nanos{0};  // it will settle
  if (router_.contextChanges() != contextSeen_ || now >= compareAt_) look();
  if (now >= compareAt_) {
    if (begun_) ruleIs(true, now);
    compareAt_ = now + compareEvery;
  }
  for (const Lumo::Prefix& prefix : changed_) exporter_.want(prefix, wanted_.of(prefix));
  changed_.clear();
  const bool surveyed = survey(begun_ ? surveyedATurn : ~std::size_t{0});
  if (!begun_) begin(now);
  if (!live_.isCurrent()) return now;
  writeBatches(now);
  return surveyed ? std::min(exporter_.due(), compareAt_) : now;
}

/// What next hops mean may have changed, or it is time to compare all.
void LiveExport::look() {
  contextSeen_ = router_.contextChanges();
  wanted_.configurationChanged();
  exporter_.checkRefused();
  surveyAt_ = 0;
}

/// The routes change meanwhile: those that do are told, and one that changes its place may have to wait for
/// the next time. True when done.
bool LiveExport::survey(std::size_t count) {
  const mrib::Routes routes = router_.agent().routes();
  if (surveyAt_ == 0) compare({});
  for (; surveyAt_ < routes.size() && count > 0; ++surveyAt_, --count) compare(routes[surveyAt_].prefix);
  if (surveyAt_ < routes.size()) return false;
  surveyAt_ = ~std::size_t{0};
  return true;
}

void LiveExport::compare(const Lumo::Prefix& prefix) {
  exporter_.want(prefix, wanted_.of(prefix));
  exporter_.check(prefix);
}

void LiveExport::begin(Nanos now) {
  begun_ = true;
  exporter_.begin();
  log_.write(Level::info,
             fmt::format("exports the MRIB to table {} for {}, as protocol {}", options_.table.table,
                         nameOf(options_.table.user), Exporter::protocol),
             now);
  removeLeftRules(now);
  ruleIs(true, now);
}

/// Of a former run that was killed, for another user or another table.
void LiveExport::removeLeftRules(Nanos now) {
  for (const kernel::UserRule& left : writer_->rules(Exporter::protocol)) {
    if (left == rule()) continue;
    const std::string fault = writer_->rule(left, false);
    log_.write(Level::notice,
               fmt::format("a rule is left of a former run, for user {} and table {}: {}", left.user,
                           left.table, fault.empty() ? "removed" : fault),
               now);
  }
}

void LiveExport::writeBatches(Nanos now) {
  const Exporter::Batch batch = exporter_.next(now, routesATurn);
  if (batch.empty()) return;
  exporter_.written(batch, writer_->write(batch));
  logRefusals(now);
}

/// Each time that there are more than before, with one of them.
void LiveExport::logRefusals(Nanos now) {
  const std::size_t before = std::exchange(refused_, exporter_.refused());
  if (refused_ <= before) return;
  for (const auto& [prefix, fault] : exporter_.faults()) {
    if (!fault.refused) continue;
    return log_.write(Level::warning,
                      fmt::format("the kernel refuses {} routes of table {}, such as {}: {}", refused_,
                                  options_.table.table, prefix.stringValue(), fault.text),
                      now);
  }
}

void LiveExport::ruleIs(bool there, Nanos now) {
  if (!rule()) return;
  const std::string fault = writer_->rule(*rule(), there);
  if (!fault.empty()) log_.write(Level::warning, "the rule of the exported table: " + fault, now);
}

std::optional<kernel::UserRule> LiveExport::rule() const {
  if (!options_.user) return std::nullopt;
  return kernel::UserRule{*options_.user, options_.table.table, Exporter::protocol};
}

void LiveExport::end(Nanos now) {
  if (options_.keep) return log_.write(Level::info, "the exported routes stay", now);
  ruleIs(false, now);
  writer_->write(exporter_.withdrawal());
}

}  // namespace host
