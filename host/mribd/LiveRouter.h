#pragma once

#include "Application.h"
#include "Configurator.h"
#include "History.h"
#include "LiveExport.h"
#include "LiveMirror.h"
#include "Log.h"

namespace host {

/// The live MRIB of a kernel, as the loop drives it.
class LiveRouter : public daemon::Application {
 public:
  struct Options {
    kernel::Mirror::Settings mirror;
    std::string path;  ///< of the configuration; empty: there is none
    Configuration configuration;
    std::optional<LiveExport::Options> exported;
    kernel::Access access = kernel::thisKernel();
    Router::Clock clock = monotonicNow;
    std::size_t history = History::usualSize;  ///< changes that are remembered
  };

  /// Throws Error. `log` outlives this.
  LiveRouter(Options options, daemon::Log& log);

  std::vector<int> descriptors() const override;
  Nanos turn(Nanos now) override;
  bool isWoken() const override { return router_.isWoken(); }
  bool isReady() const override { return router_.isReady(); }
  void reload(Nanos now) override;
  std::string status() const override;

  Router& router() { return router_; }
  Configurator& configurator() { return configurator_; }
  const kernel::LiveMirror& live() const { return live_; }
  /// Null before it is ready.
  const History* history() const { return history_ ? &*history_ : nullptr; }
  /// Null when nothing is exported.
  const LiveExport* exported() const { return export_ ? &*export_ : nullptr; }
  /// To be called at the end of the daemon; not when it failed, so that nobody who reads the table notices.
  void end();

 private:
  void logLosses(Nanos now);
  void logDifference(const ConfigurationChange& change, Nanos now);
  void warn(const std::vector<std::string>& warnings, Nanos now);

  Router::Clock clock_;
  kernel::LiveMirror live_;
  Router router_;
  Configurator configurator_;
  daemon::Log& log_;
  std::optional<LiveExport> export_;
  std::size_t mostHistory_;
  std::optional<History> history_;
  bool wasReady_ = false;
  std::array<U64, kernel::reasonCount> resyncs_{};  // that the log knows of
};

}  // namespace host
