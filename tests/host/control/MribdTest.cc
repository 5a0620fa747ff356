#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Client.h"
#include "Loop.h"

// The daemon as a process, and its loop with an application that always has work.

namespace {

using namespace host;
using control::Client;
namespace fs = std::filesystem;
using std::chrono::milliseconds;

class MribdTest : public testing::Test {
 protected:
  MribdTest() {
    std::string pattern = (fs::temp_directory_path() / "mribd-test-XXXXXX").string();
    dir = mkdtemp(pattern.data());
    path = dir / "s";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address.sun_family);  // the kernel names it
    socklen_t size = sizeof address;
    getsockname(manager, reinterpret_cast<sockaddr*>(&address), &size);
    managerName = "@" + std::string(address.sun_path + 1, size - sizeof address.sun_family - 1);
    const timeval patience{10, 0};
    setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~MribdTest() override {
    if (pid > 0) kill(pid, SIGKILL), wait();
    close(manager);
    fs::remove_all(dir);
  }

  pid_t spawn(const std::string& at) const {
    const pid_t child = fork();
    if (child != 0) return child;
    setenv("NOTIFY_SOCKET", managerName.c_str(), 1);
    setenv("WATCHDOG_USEC", "100000", 1);
    freopen((dir / "log").c_str(), "a", stderr);
    execl(MRIBD_PROGRAM, "mribd", "--foreground", "--socket", at.c_str(), nullptr);
    _exit(127);
  }
  void start() {
    pid = spawn(path);
    hear("READY=1");
  }
  int wait() {
    int status = 0;
    waitpid(std::exchange(pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  /// Exit code of a daemon that does not come up.
  int refused(const std::string& at) {
    pid_t kept = std::exchange(pid, spawn(at));
    const int code = wait();
    pid = kept;
    return code;
  }
  /// Awaits what the manager is to be told.
  void hear(const std::string& what) const {
    char text[4096];
    for (std::string said; said.find(what) == std::string::npos;) {
      const ssize_t n = recv(manager, text, sizeof text, 0);
      ASSERT_GT(n, 0) << what << '\n' << log();
      said.assign(text, static_cast<std::size_t>(n));
    }
  }
  std::string log() const {
    std::ifstream in(dir / "log");
    return {std::istreambuf_iterator<char>(in), {}};
  }

  fs::path dir;
  std::string path;
  int manager = -1;
  std::string managerName;
  pid_t pid = 0;
};

TEST_F(MribdTest, ServesUntilItIsToldToEnd) {
  start();
  Client client(path);
  EXPECT_EQ(client.call("org.mrib.GetStatus")["stale"], false);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0660));
  EXPECT_EQ(refused(path), 2);
  EXPECT_NE(log().find("<3>" + path + ": another mribd serves here\n"), std::string::npos) << log();
  const std::string socat =
      "printf '{\"method\":\"org.varlink.service.GetInfo\"}\\0nonsense\\0' | socat -t5 - UNIX:" + path +
      " | tr '\\0' '\\n' | grep -c -e '\"product\":\"mribd\"' -e 'bad JSON' | grep -q 2";
  const bool hasSocat = std::system("command -v socat >/dev/null") == 0;
  EXPECT_TRUE(!hasSocat || std::system(socat.c_str()) == 0);
  try {
    client.call("org.mrib.\x1b");
    FAIL();
  } catch (const control::RemoteError& e) {
    EXPECT_EQ(e.name(), "org.varlink.service.MethodNotFound");
    EXPECT_STREQ(e.what(), R"(org.varlink.service.MethodNotFound {"method":"org.mrib.\u001b"})");
  }
  hear("WATCHDOG=1");
  kill(pid, SIGHUP);
  hear("RELOADING=1");
  hear("READY=1");
  const auto begin = std::chrono::steady_clock::now();
  kill(pid, SIGTERM);
  hear("STOPPING=1");
  EXPECT_EQ(wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(1000));
  EXPECT_FALSE(fs::exists(path) || fs::exists(path + ".lock"));
  EXPECT_THROW(client.call("org.mrib.GetStatus"), Error);
}

TEST_F(MribdTest, TakesOverWhatIsStaleAndNothingElse) {
  start();
  kill(pid, SIGKILL);
  EXPECT_EQ(wait(), -SIGKILL);
  try {
    Client client(path);
    FAIL();
  } catch (const control::NotAnswering& e) {
    EXPECT_EQ(e.what(), "no mribd answers at " + path + ": nobody listens");
  }
  start();
  EXPECT_EQ(Client(path).call("org.varlink.service.GetInfo")["vendor"], "mrib");
  std::ofstream(dir / "file") << "x";
  EXPECT_EQ(refused(dir / "file"), 2);
  EXPECT_TRUE(fs::is_regular_file(dir / "file"));
  EXPECT_EQ(refused(std::string(200, 'x')), 2);
  EXPECT_EQ(refused(dir / "none" / "s"), 2);
}

/// Takes all the time that there is.
struct Busy : daemon::Application {
  std::vector<int> descriptors() const override { return {}; }
  daemon::Nanos turn(daemon::Nanos now) override {
    while (daemon::monotonicNow() < now + 1'000'000) ++work;
    ++turns;
    return now;
  }
  U64 work = 0;
  U64 turns = 0;
};

/// `t.Turn`: the number of the turn; with `more` each one as it comes, padded with `size` bytes.
struct Turns : control::Handler {
  explicit Turns(const Busy& application) : busy(application) {}
  struct Each : control::Stream {
    Each(const Busy& application, std::size_t padding) : busy(application), size(padding) {}
    std::optional<control::Reply> next() override {
      if (size == 0 && std::exchange(last, busy.turns) == busy.turns) return std::nullopt;
      return Turns::reply(busy.turns, size);
    }
    const Busy& busy;
    std::size_t size;
    U64 last = 0;
  };
  static control::Reply reply(U64 turn, std::size_t size) {
    return {nlohmann::json{{"n", turn}, {"pad", std::string(size, ' ')}}.dump(), {}, true};
  }
  const std::vector<control::Interface>& interfaces() const override { return list; }
  std::optional<control::Answer> call(std::string_view, const nlohmann::json& parameters, bool more,
                                      const control::Peer&) override {
    if (!more) return reply(busy.turns, 0);
    return std::make_unique<Each>(busy, parameters.value("size", std::size_t{0}));
  }
  const Busy& busy;
  std::vector<control::Interface> list{{"t", ""}};
};

/// Runs until it is told to end.
struct Background {
  ~Background() {
    kill(getpid(), SIGTERM);
    thread.join();
  }
  std::thread thread;
};

TEST_F(MribdTest, ServesClientsWhileTheApplicationWorks) {
  const Background background{std::thread([&] {
    Busy busy;
    Turns turns(busy);
    control::Server server(turns, {});
    daemon::Listener listener(path);
    daemon::Manager none;
    daemon::Log log(daemon::Level::error, false, [](std::string_view) {});
    daemon::run({busy, server, listener, none, log});
  })};
  while (!fs::exists(path)) std::this_thread::sleep_for(milliseconds(1));
  std::this_thread::sleep_for(milliseconds(20));  // until it listens
  Client deaf(path), monitor(path), asker(path);
  deaf.send("t.Turn", {{"size", 10'000}}, true);  // without end, and it does not read
  monitor.send("t.Turn", {}, true);
  std::vector<U64> waits;
  for (int i = 0; i < 100; ++i) {
    const auto begin = daemon::monotonicNow();
    const U64 now = asker.call("t.Turn")["n"];
    waits.push_back(daemon::monotonicNow() - begin);
    for (U64 n = 0; n < now;) n = monitor.next(milliseconds(5000)).parameters["n"];  // each turn is told
  }
  // The quickest: the others may have waited for the processor, which the daemon can do nothing about.
  EXPECT_LT(*std::min_element(waits.begin(), waits.end()), 5'000'000u);
  for (int i = 0; i < 200; ++i) EXPECT_TRUE(deaf.next(milliseconds(5000)).continues);
}

TEST(Log, SaysTheSameThingOnce) {
  constexpr daemon::Nanos second = 1'000'000'000;
  std::string out;
  daemon::Log log(daemon::Level::info, true, [&](std::string_view line) { out += line; });
  for (int i = 0; i < 3; ++i) log.write(daemon::Level::warning, "a\nb\x1b", second);
  log.write(daemon::Level::debug, "no", second);
  EXPECT_EQ(out, "<4>a\\x0Ab\\x1B\n");
  EXPECT_EQ(log.turn(2 * second), 11 * second);
  for (int i = 0; i < 100; ++i) log.write(daemon::Level::info, std::to_string(i), 3 * second);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 32);
  out.clear();
  log.turn(13 * second);
  EXPECT_EQ(out, "<4>a\\x0Ab\\x1B (2 times more)\n<4>69 other messages were left out\n");
}

}  // namespace
