#include "Loop.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <list>

#include "Clients.h"
#include "Error.h"

namespace host::daemon {

namespace {

constexpr std::array<int, 3> heard{SIGTERM, SIGINT, SIGHUP};
constexpr Nanos statusInterval = 1'000'000'000;
constexpr Nanos never = ~Nanos{0};

/// A loop that closes whatever is still in it.
class UvLoop {
 public:
  UvLoop() {
    if (const int error = uv_loop_init(&loop_); error < 0) {
      throw Error(std::string("no event loop: ") + uv_strerror(error));
    }
  }
  ~UvLoop() {
    uv_run(&loop_, UV_RUN_DEFAULT);  // what is being closed
    uv_loop_close(&loop_);
  }
  UvLoop(const UvLoop&) = delete;
  UvLoop& operator=(const UvLoop&) = delete;
  uv_loop_t& get() { return loop_; }

 private:
  uv_loop_t loop_{};
};

/// Gives each part its turn before the loop waits.
class Runner {
 public:
  explicit Runner(const Parts& parts);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  void run();

 private:
  void onSignal(int signal);
  void turn();
  void reload();
  Nanos tellManager(Nanos now);
  void waitUntil(Nanos due);

  Parts parts_;
  UvLoop loop_;
  Clients clients_;
  Turns turns_;
  std::list<Poll> polls_;  // of the application
  uv_prepare_t prepare_{};
  uv_idle_t idle_{};  // runs when the loop is not to wait
  uv_timer_t timer_{};
  std::array<uv_signal_t, heard.size()> signals_{};
  bool reload_ = false;
  bool ready_ = false;
  Nanos statusDue_ = 0;
  std::exception_ptr failure_;
};

Runner::Runner(const Parts& parts)
    : parts_(parts),
      clients_(loop_.get(), parts.server, parts.listener, parts.log),
      turns_(parts.application) {
  uv_loop_t* loop = &loop_.get();
  for (const int fd : parts_.application.descriptors()) {
    polls_.emplace_back(*loop, fd, [this](int) { turns_.readable(); }).want(UV_READABLE);
  }
  uv_prepare_init(loop, &prepare_);
  prepare_.data = this;
  uv_prepare_start(&prepare_, [](uv_prepare_t* handle) { static_cast<Runner*>(handle->data)->turn(); });
  uv_idle_init(loop, &idle_);
  uv_timer_init(loop, &timer_);
  for (std::size_t i = 0; i < signals_.size(); ++i) {
    uv_signal_init(loop, &signals_[i]);
    signals_[i].data = this;
    uv_signal_start(
        &signals_[i],
        [](uv_signal_t* handle, int signal) { static_cast<Runner*>(handle->data)->onSignal(signal); },
        heard[i]);
  }
  signalsAreHeld(false);
}

Runner::~Runner() {
  signalsAreHeld(true);  // what has begun to end does so in order, however often it is told to
  const auto close = [](auto& handle) { uv_close(reinterpret_cast<uv_handle_t*>(&handle), nullptr); };
  close(prepare_);
  close(idle_);
  close(timer_);
  for (uv_signal_t& signal : signals_) close(signal);
  uv_run(&loop_.get(), UV_RUN_NOWAIT);  // they are members: closed before they go
}

void Runner::run() {
  uv_run(&loop_.get(), UV_RUN_DEFAULT);
  if (failure_) std::rethrow_exception(failure_);
}

void Runner::onSignal(int signal) {
  if (signal == SIGHUP) {
    reload_ = true;
  } else {
    uv_stop(&loop_.get());
  }
}

/// No exception may pass through the loop.
void Runner::turn() {
  try {
    if (reload_) reload();
    const Nanos due = turns_.turn(monotonicNow());
    const Nanos now = monotonicNow();
    const Nanos clients = clients_.turn(now);
    const Nanos woken = parts_.application.isWoken() ? now : never;
    waitUntil(std::min({due, clients, woken, tellManager(now), parts_.log.turn(now)}));
  } catch (...) {
    failure_ = std::current_exception();
    uv_stop(&loop_.get());
  }
}

void Runner::reload() {
  reload_ = false;
  const Nanos now = monotonicNow();
  parts_.manager.reloading(now);
  try {
    parts_.application.reload(now);
  } catch (const Error& e) {
    parts_.log.writeLines(Level::error, "not reloaded: ", e.what(), now);
  }
  turns_.readable();
  ready_ = false;  // says so again
}

Nanos Runner::tellManager(Nanos now) {
  if (!ready_ && parts_.application.isReady()) {
    ready_ = true;
    parts_.manager.ready(parts_.application.status());
  } else if (ready_ && parts_.manager.isThere() && now >= statusDue_) {
    statusDue_ = now + statusInterval;
    parts_.manager.status(parts_.application.status());
  }
  return parts_.manager.alive(now);
}

/// To the millisecond, as loops do, and not before.
void Runner::waitUntil(Nanos due) {
  uv_idle_stop(&idle_);
  uv_timer_stop(&timer_);
  if (due == never) return;
  const Nanos now = monotonicNow();
  if (due <= now) {
    uv_idle_start(&idle_, [](uv_idle_t*) {});
    return;
  }
  uv_update_time(&loop_.get());
  uv_timer_start(
      &timer_, [](uv_timer_t*) {}, (due - now + 999'999) / 1'000'000, 0);
}

}  // namespace

void signalsAreHeld(bool held) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : heard) sigaddset(&signals, signal);
  pthread_sigmask(held ? SIG_BLOCK : SIG_UNBLOCK, &signals, nullptr);
}

void run(const Parts& parts) {
  Runner(parts).run();
}

}  // namespace host::daemon
