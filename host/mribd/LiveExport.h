#pragma once

#include "LiveMirror.h"
#include "Log.h"
#include "WantedRoutes.h"

namespace host {

/// The MRIB in a kernel table, for programs that read such.
class LiveExport {
 public:
  struct Options {
    ExportTable table;
    bool keep = false;          ///< its routes stay when this ends
    std::optional<U32> user{};  ///< whose look-ups the table answers
  };

  /// Refers to all of them. Throws Error.
  LiveExport(const Options& options, Router& router, daemon::Log& log, const kernel::Access& access,
             Nanos now);
  ~LiveExport();
  LiveExport(const LiveExport&) = delete;
  LiveExport& operator=(const LiveExport&) = delete;

  std::vector<int> descriptors() const { return {live_.eventFd(), live_.answerFd()}; }
  /// Follows the table. To be called before the router's turn: a link that goes down shall not be news of the
  /// table before it is of the MRIB.
  Nanos read(Nanos now);
  /// Writes what is due. To be called after the router's turn.
  Nanos write(Nanos now);
  /// Takes the routes and the rule away, unless they are to stay.
  void end(Nanos now);

  const Options& options() const { return options_; }
  const Exporter& exporter() const { return exporter_; }
  /// What is known of the table.
  const kernel::Mirror& mirror() const { return live_.mirror(); }

 private:
  void look();
  void begin(Nanos now);
  bool survey(std::size_t count);
  void compare(const Lumo::Prefix& prefix);
  void writeBatches(Nanos now);
  void logRefusals(Nanos now);
  void ruleIs(bool there, Nanos now);
  void removeLeftRules(Nanos now);
  std::optional<kernel::UserRule> rule() const;

  Options options_;
  Router& router_;
  daemon::Log& log_;
  kernel::LiveMirror live_;
  std::unique_ptr<kernel::Writer> writer_;
  Exporter exporter_;
  WantedRoutes wanted_;
  U64 subscription_;
  std::vector<Lumo::Prefix> changed_;  // in the MRIB
  U64 contextSeen_ = ~U64{0};
  std::size_t surveyAt_ = ~std::size_t{0};  // of the MRIB's routes; past their end: none runs
  Nanos compareAt_ = 0;
  std::size_t refused_ = 0;  // as logged
  bool begun_ = false;
};

}  // namespace host
