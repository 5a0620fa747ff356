#include "Backend.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>
#include <tuple>

#include "Client.h"
#include "ConfigReader.h"
#include "Escape.h"
#include "LiveMirror.h"
#include "LiveReversePath.h"
#include "RibService.h"
#include "Sample.h"
#include "Saved.h"
#include "SavedReversePath.h"
#include "StandardErrors.h"

namespace host {

namespace {

/// Until one of the descriptors can be read, for so many milliseconds (-1: forever). Throws Error when
/// standard output counts and nobody reads it any more.
void waitFor(std::span<const int> inputs, int patience, bool outputCounts) {
  std::vector<pollfd> fds{{outputCounts ? STDOUT_FILENO : -1, 0, 0}};
  for (const int fd : inputs) fds.push_back({fd, POLLIN, 0});
  const int ready = poll(fds.data(), fds.size(), patience);
  if (ready < 0 && errno != EINTR) throw Error("waiting: poll failed");
  if (ready > 0 && (fds[0].revents & (POLLERR | POLLHUP)) != 0)
    throw Error("standard output: nobody reads it any more");
}

// ---- The daemon ----

class Daemon : public Backend {
 public:
  explicit Daemon(const std::string& socket) : socket_(socket), client_(socket) {}

  std::string name() const override { return "mribd at " + escaped(socket_); }
  Json call(const std::string& method, const Json& parameters) override {
    return Json(client_.call(method, parameters));
  }
  void stream(const std::string& method, const Json& parameters,
              const std::function<bool(const Json&)>& each) override {
    client_.send(method, parameters, true);
    for (;;) {
      if (!client_.hasReply()) waitFor(std::array{client_.fd()}, -1, isFollowing_);
      const auto message = client_.next();
      if (!each(Json(message.parameters)) || !message.continues) return;
    }
  }

 private:
  std::string socket_;
  control::Client client_;
};

// ---- This process ----

class Once : public OwnReading {
 public:
  Once(const OnceOptions& options, const std::function<void()>& prepare)
      : source_(options.from.empty() ? "this machine's kernel" : "the files in " + escaped(options.from)) {
    if (options.from.empty()) {
      live_ = std::make_unique<kernel::LiveMirror>(settingsFor(options), monotonicNow());
      readAll(*live_);
      cache_ = std::make_unique<kernel::LiveMulticastCache>();
      kernel_ = std::make_unique<kernel::LiveReversePath>(live_->mirror());
    } else {
      saved_ = std::make_unique<kernel::Mirror>(settingsFor(options), 0);
      readSaved(options.from, *saved_);
      cache_ = std::make_unique<kernel::SavedMulticastCache>(options.from, *saved_);
      kernel_ = std::make_unique<kernel::SavedReversePath>(options.from, *saved_);
    }
    prepare();
    router_ = std::make_unique<Router>(mirror(), monotonicNow);
    router_->conclude(monotonicNow());
    if (options.configuration) configure(*options.configuration);
    if (!options.config.empty()) configure(readConfiguration(options.config));
    if (options.sample && options.config.empty()) takeSample();
    router_->conclude(monotonicNow());
    if (!options.config.empty()) source_ += ", configuration " + escaped(options.config);
    configurator_ = std::make_unique<Configurator>(*router_, options.config, monotonicNow);
    RibService::Setting setting{name(), monotonicNow()};
    if (live_) setting.linkSwitch = kernel::isSwitchedOn;
    setting.kernel = kernel_.get();
    setting.cache = cache_.get();
    service_ = std::make_unique<RibService>(*router_, configurator_.get(), monotonicNow, std::move(setting));
  }

  ~Once() override;
  Once(const Once&) = delete;
  Once& operator=(const Once&) = delete;

  std::string name() const override { return source_ + ", read once"; }
  const Router& router() const override { return *router_; }
  Configurator& configurator() override { return *configurator_; }

  Json call(const std::string& method, const Json& parameters) override {
    control::Answer answer = ask(method, parameters, false);
    return parse(std::get<control::Reply>(answer));
  }
  void stream(const std::string& method, const Json& parameters,
              const std::function<bool(const Json&)>& each) override {
    control::Answer answer = ask(method, parameters, true);
    if (const auto* reply = std::get_if<control::Reply>(&answer)) {
      each(parse(*reply));
      return;
    }
    control::Stream& stream = *std::get<std::unique_ptr<control::Stream>>(answer);
    for (;;) {
      const auto reply = stream.next();
      if (reply && (!each(parse(*reply)) || !reply->continues)) return;
      if (!reply && !wait(stream.due())) return;
    }
  }

 private:
  static kernel::Mirror::Settings settingsFor(const OnceOptions& options) {
    kernel::Mirror::Settings settings;
    settings.table = options.table;
    return settings;
  }
  kernel::Mirror& mirror() { return live_ ? live_->mirror() : *saved_; }

  void configure(Configuration configuration) {
    const auto refusals = router_->configurationIs(std::move(configuration), monotonicNow());
    if (refusals.empty()) return;
    throw Error(fmt::format("{}", fmt::join(refusals, "\n")));
  }
  void takeSample() {
    const std::string text = sampleConfiguration(*router_);
    if (text.empty()) throw Error("no sample: this router has no connected subnet that one fits in");
    configure(parseConfiguration(text, "the sample"));
    source_ += ", a sample configuration";
  }

  control::Answer ask(const std::string& method, const Json& parameters, bool more) {
    const control::Peer self{0, true};
    auto answer = service_->call(method, parameters, more, self);
    return answer ? std::move(*answer) : control::methodNotFound(method);
  }
  static Json parse(const control::Reply& reply) {
    if (!reply.error.empty())
      throw control::RemoteError(reply.error, nlohmann::json::parse(reply.parameters));
    return Json::parse(reply.parameters);
  }
  /// Until a time has come or the kernel has changed. False when it cannot.
  bool wait(Nanos due) {
    const Nanos now = monotonicNow();
    if (due <= now) return true;
    if (!live_) return false;
    const Nanos until = std::min({due, live_->turn(now), router_->turn(now)});
    if (until <= now) return true;
    const auto patience = static_cast<int>(std::min<Nanos>((until - now) / milliseconds(1) + 1, 60000));
    waitFor(std::array{live_->eventFd(), live_->answerFd()}, patience, isFollowing_);
    return true;
  }

  std::string source_;
  std::unique_ptr<kernel::LiveMirror> live_;
  std::unique_ptr<kernel::Mirror> saved_;
  std::unique_ptr<kernel::ReversePath> kernel_;
  std::unique_ptr<kernel::MulticastCache> cache_;
  std::unique_ptr<Router> router_;
  std::unique_ptr<Configurator> configurator_;
  std::unique_ptr<RibService> service_;
};

/// The process ends now. To take a million routes apart would take it longer than to answer; only a sanitizer
/// is shown that it all comes apart.
Once::~Once() {
#ifndef MRIB_SANITIZED
  using Kept =
      std::tuple<std::unique_ptr<kernel::LiveMirror>, std::unique_ptr<kernel::Mirror>,
                 std::unique_ptr<Router>, std::unique_ptr<Configurator>, std::unique_ptr<RibService>>;
  static auto* const kept = new std::vector<Kept>;  // NOLINT: without memory for it, the process ends as well
  kept->emplace_back(std::move(live_), std::move(saved_), std::move(router_), std::move(configurator_),
                     std::move(service_));
#endif
}

}  // namespace

std::unique_ptr<OwnReading> readOnce(const OnceOptions& options, const std::function<void()>& prepare) {
  return std::make_unique<Once>(options, prepare);
}

std::unique_ptr<Backend> daemonAt(const std::string& socket) {
  return std::make_unique<Daemon>(socket);
}

}  // namespace host
