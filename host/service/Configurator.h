#pragma once

#include "ConfigEdit.h"
#include "Router.h"

namespace host {

/// What became of a change of the configuration, or would become of it.
struct ConfigurationChange {
  std::vector<std::string> reasons;  ///< why it is refused; empty: it is not
  Difference difference;
  std::vector<mrib::Unresolved> unresolved;  ///< that were resolved before, or not there
  std::vector<std::string> warnings;
  Configuration before;
  Configuration after;
};

/// Changes a router's configuration as operators do: from its file, and by hand. All or nothing.
class Configurator {
 public:
  /// Without a file, `path` is empty.
  Configurator(Router& router, std::string path, Router::Clock clock);

  const std::string& path() const { return path_; }
  /// From now on a change of the exported table is refused: it is made at the start, with the privileges that
  /// it takes.
  void keepExportTable() { keepsExportTable_ = true; }
  ConfigurationChange reload(bool dryRun) { return read(path_, dryRun); }
  /// With `save`, also writes the file, or changes nothing.
  ConfigurationChange configure(std::span<const std::string> commands, bool save, bool dryRun);
  /// Takes the configuration of another file.
  ConfigurationChange take(const std::string& path) { return read(path, false); }

 private:
  ConfigurationChange read(const std::string& path, bool dryRun);
  ConfigurationChange saved(const Configuration& before, const Configuration& next, const std::string& cause);
  ConfigurationChange change(Configuration next, bool dryRun, const std::string& cause);

  Router& router_;
  std::string path_;
  Router::Clock clock_;
  bool keepsExportTable_ = false;
};

}  // namespace host
