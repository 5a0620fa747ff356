#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>

#include "Client.h"
#include "Log.h"
#include "host/Folder.h"

// The daemon as a process.

namespace {

using namespace host;
using control::Client;
namespace fs = std::filesystem;
using std::chrono::milliseconds;

class MribdTest : public testing::Test {
 protected:
  MribdTest() {
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

  const Folder folder;
  const fs::path& dir = folder.path;
  const std::string path = dir / "s";
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
  for (const int again : {SIGHUP, SIGTERM}) kill(pid, again);
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

TEST(Log, SaysTheSameThingOnce) {
  constexpr Nanos second = 1'000'000'000;
  std::string out;
  daemon::Log log(daemon::Level::info, true, [&](std::string_view line) { out += line; });
  for (int i = 0; i < 3; ++i) log.write(daemon::Level::warning, "a\nb\x1b", second);
  log.write(daemon::Level::debug, "no", second);
  log.writeLines(daemon::Level::error, "not: ", "one \"x\"\ntwo", second);
  EXPECT_EQ(out, "<4>a\\x0Ab\\x1B\n<3>not: one \"x\"\n<3>not: two\n");
  EXPECT_EQ(log.turn(2 * second), 11 * second);
  for (int i = 0; i < 100; ++i) log.write(daemon::Level::info, std::to_string(i), 3 * second);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 32);
  out.clear();
  log.turn(13 * second);
  EXPECT_EQ(out, "<4>a\\x0Ab\\x1B (2 times more)\n<4>71 other messages were left out\n");
}

}  // namespace
