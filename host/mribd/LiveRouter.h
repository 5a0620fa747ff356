#pragma once

#include "Application.h"
#include "Configurator.h"
#include "LiveMirror.h"
#include "Log.h"

namespace host {

/// The live MRIB of the kernel that this process runs on, as the loop drives it.
class LiveRouter : public daemon::Application {
 public:
  /// Reads the configuration; without one, `config` is empty. Throws Error. `log` outlives this.
  LiveRouter(const kernel::Mirror::Settings& settings, const std::string& config, daemon::Log& log);

  std::vector<int> descriptors() const override { return {live_.eventFd(), live_.answerFd()}; }
  daemon::Nanos turn(daemon::Nanos now) override;
  bool isWoken() const override { return router_.isWoken(); }
  bool isReady() const override { return router_.isReady(); }
  void reload(daemon::Nanos now) override;
  std::string status() const override;

  Router& router() { return router_; }
  Configurator& configurator() { return configurator_; }
  const kernel::LiveMirror& live() const { return live_; }

 private:
  void logDifference(const ConfigurationChange& change, daemon::Nanos now);
  void warn(const std::vector<std::string>& warnings, daemon::Nanos now);

  kernel::LiveMirror live_;
  Router router_;
  Configurator configurator_;
  daemon::Log& log_;
  bool wasReady_ = false;
};

}  // namespace host
