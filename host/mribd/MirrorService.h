#pragma once

#include "Application.h"
#include "LiveMirror.h"

namespace host {

/// Keeps a mirror of the kernel in step.
class MirrorApplication : public daemon::Application {
 public:
  MirrorApplication(const kernel::Mirror::Settings& settings, daemon::Nanos now) : live_(settings, now) {}

  std::vector<int> descriptors() const override { return {live_.eventFd(), live_.answerFd()}; }
  daemon::Nanos turn(daemon::Nanos now) override;
  bool isReady() const override { return live_.mirror().isSynced(); }
  std::string status() const override;

  const kernel::LiveMirror& live() const { return live_; }

 private:
  kernel::LiveMirror live_;
};

/// `org.mrib`: how the mirror is.
class MirrorHandler : public control::Handler {
 public:
  /// `application` outlives this.
  explicit MirrorHandler(const MirrorApplication& application);

  const std::vector<control::Interface>& interfaces() const override { return interfaces_; }
  std::optional<control::Answer> call(std::string_view method, const nlohmann::json& parameters, bool more,
                                      const control::Peer& peer) override;

 private:
  const MirrorApplication& application_;
  std::vector<control::Interface> interfaces_;
};

}  // namespace host
