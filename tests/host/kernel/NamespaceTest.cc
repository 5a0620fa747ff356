#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Datagram.h"
#include "Describe.h"
#include "Netns.h"

// The mirror against a real kernel, and what it means by a route against what the kernel does.

using namespace host;
using namespace host::kernel;

namespace {

constexpr auto patience = seconds(8);  // of a loaded machine; what it takes is a tenth of a second or two

class NamespaceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!net.missing().empty()) GTEST_SKIP() << net.missing();
    for (const char* link : {"v0", "v1", "v2"}) makeVeth(link);
    net.batch(
        "link set lo up\nlink add br0 type bridge\nlink set br0 up\nlink add m0 link v0 type macvlan mode "
        "bridge\n"
        "link set m0 up\ntuntap add tun0 mode tun\nlink set tun0 up\n"
        "addr add 10.0.0.1/24 dev v0\naddr add 10.0.1.1/24 dev v1\naddr add 10.0.2.1/24 dev v2\n"
        "addr add 10.0.3.1 peer 10.0.3.2/32 dev tun0\n");
    live = std::make_unique<LiveMirror>(Mirror::Settings(), monotonicNow());
    readAll(*live);
  }
  void makeVeth(const std::string& link) {
    net.batch("link add " + link + " type veth peer name p" + link + "\nlink set " + link +
              " up\nlink set p" + link + " up\n");
  }

  /// Drives the mirror for a while, and until it has nothing to do.
  void pump(Nanos atLeast = 0) {
    const Nanos start = monotonicNow();
    for (Nanos now = start; now < start + patience; now = monotonicNow()) {
      const Nanos until = live->turn(now);
      live->mirror().takeChanges();
      if (until <= now) continue;
      if (!live->mirror().isStale() && now >= start + atLeast) return;
      pollfd fds[] = {{live->eventFd(), POLLIN, 0}, {live->answerFd(), POLLIN, 0}};
      poll(fds, 2, 1 + static_cast<int>(std::min(until - now, milliseconds(20)) / milliseconds(1)));
    }
  }
  std::string against(const Mirror& other) { return difference(describe(live->mirror()), describe(other)); }
  /// What is different between the mirror and what `ip` says, once time has passed for the kernel to settle.
  std::string differenceToIp(const char* options = "") {
    std::string found;
    for (const Nanos start = monotonicNow(); monotonicNow() < start + patience; pump(milliseconds(100))) {
      pump();
      Mirror saved(Mirror::Settings(), 0);
      net.save(saved, options);
      found = against(saved);
      if (found.empty()) break;
    }
    return found;
  }

  U32 indexOf(const std::string& name) const {
    for (const auto& [index, entry] : live->mirror().topology().links.all()) {
      if (entry.value.link.name == name) return index;
    }
    return 0;
  }
  std::string lookup(const std::string& address) const {
    const IpGenPrefix match = live->mirror().longestMatch(IpGenAddr(address));
    return match.empty() ? "none" : describe(match, live->mirror().answer(match));
  }
  /// Empty when the kernel would send a packet to this address as the mirror says.
  std::string differenceToRouteGet(const std::string& address);

  Netns net;
  std::unique_ptr<LiveMirror> live;
};

std::string NamespaceTest::differenceToRouteGet(const std::string& address) {
  const std::string said = net.output("-j route get " + address);
  const IpGenPrefix match = live->mirror().longestMatch(IpGenAddr(address));
  const Answer& answer = live->mirror().answer(match);
  const std::string all = address + ": mirror says " + lookup(address) + ", kernel says " + said;
  const std::pair<const char*, std::vector<Answer::Kind>> errors[] = {
      {"Network is unreachable", {Answer::Kind::none, Answer::Kind::throwing}},
      {"No route to host", {Answer::Kind::unreachable}},
      {"Permission denied", {Answer::Kind::prohibit}},
      {"Invalid argument", {Answer::Kind::blackhole}}};
  for (const auto& [error, kinds] : errors) {
    if (said.find(error) == said.npos) continue;
    return std::find(kinds.begin(), kinds.end(), answer.kind) == kinds.end() ? all : "";
  }
  const auto json = nlohmann::json::parse(said, nullptr, false);
  if (!json.is_array() || json.empty()) return all;
  const auto& route = json[0];
  if (route.value("type", "") == "local") return answer.kind == Answer::Kind::local ? "" : all;
  if (answer.kind != Answer::Kind::attached && answer.kind != Answer::Kind::gateway) return all;
  std::string gateway = route.value("gateway", "");
  if (route.contains("via")) gateway = route["via"].value("host", "");
  for (const Hop& hop : answer.hops) {
    const Link* link = live->mirror().topology().link(hop.link);
    if (link && link->name == route.value("dev", "") && hop.gateway.stringValue() == gateway) return "";
  }
  return all;
}

TEST_F(NamespaceTest, MeansByARouteWhatTheKernelDoes) {
  net.batch(
      "nexthop add id 1 via 10.0.0.5 dev v0\nnexthop add id 2 via 10.0.1.5 dev v1\nnexthop add id 3 "
      "blackhole\n"
      "nexthop add id 4 via fe80::9 dev v1\nnexthop add id 10 group 1/2,3\nnexthop add id 11 group 1/4\n"
      "route add 20.0.0.0/8 via 10.0.0.2 metric 20\nroute add 20.0.0.0/8 via 10.0.1.2 metric 10\n"
      "route add 20.0.0.0/8 dev v2 tos 0x10\n"
      "route add blackhole 21.0.0.0/8\nroute add unreachable 22.0.0.0/8\nroute add prohibit 23.0.0.0/8\n"
      "route add throw 24.0.0.0/8\nroute add 24.0.0.0/7 dev v0\n"
      "route add 26.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.0.1.2 nexthop dev tun0\n"
      "route add 27.0.0.0/8 via inet6 fe80::1 dev v1\nroute add 28.0.0.0/8 via 9.9.9.9 dev v0 onlink\n"
      "route add 29.0.0.0/8 nhid 1\nroute add 30.0.0.0/8 nhid 11\nroute add 31.0.0.0/8 nhid 3\n"
      "route add 32.0.0.0/8 dev v1 scope global\nroute add 33.0.0.0/8 dev tun0\n"
      "route add 34.0.0.0/8 dev v0\nroute append 34.0.0.0/8 dev v1\nroute prepend 34.0.0.0/8 dev v2\n"
      "route add local 35.0.0.0/8 dev v0 table main\naddr add 10.0.0.9/24 dev v0\naddr add 36.0.0.1/32 dev "
      "m0\n"
      "route add 37.1.0.0/16 dev v1\nroute add 37.0.0.0/8 via 10.0.2.2\nroute add default via 10.0.0.254\n");
  std::vector<std::string> addresses{"26.1.1.2", "10.0.0.9", "10.0.0.1", "10.0.0.77", "36.0.0.1",
                                     "37.2.1.1", "10.0.3.1", "10.0.3.2", "127.0.0.1", "99.1.1.1"};
  for (int n = 20; n <= 37; ++n) addresses.push_back(std::to_string(n) + ".1.1.1");
  const auto check = [&](const char* state) {
    EXPECT_EQ(differenceToIp(), "") << state;
    for (const auto& address : addresses) EXPECT_EQ(differenceToRouteGet(address), "") << state;
  };
  check("all up");
  EXPECT_EQ(lookup("20.1.1.1"), "20.0.0.0/8 gateway 10.0.1.2@" + std::to_string(indexOf("v1")));
  EXPECT_EQ(differenceToIp("-N"), "") << "numbers for names";
  net.set("ipv4/nexthop_compat_mode", 0);
  check("no next hops in routes by objects");
  net.ip("link set pv1 down");
  pump(milliseconds(1300));  // the kernel takes its time over a lost carrier
  check("carrier lost, and used all the same");
  // Not while the carrier is lost: of a route with several legs, Linux would go on using this one.
  net.ip("link set pv1 up");
  pump(milliseconds(1300));
  net.set("ipv4/conf/v1/ignore_routes_with_linkdown", 1);
  net.ip("link set pv1 down");
  pump(milliseconds(1300));
  check("carrier lost, and not used for that");
  net.ip("link set v0 down");
  check("a link down");
  net.batch("link set v0 up\nlink set pv1 up\n");
  pump(milliseconds(1300));
  check("up again");
}

TEST_F(NamespaceTest, BelievesTheKernelAlone) {
  sockaddr_nl to{};
  socklen_t size = sizeof to;
  ASSERT_EQ(getsockname(live->eventFd(), reinterpret_cast<sockaddr*>(&to), &size), 0);
  Datagram lie;
  lie.message(RTM_NEWROUTE, rtmsg{AF_INET, 8, 0, 0, RT_TABLE_MAIN, RTPROT_STATIC, 0, RTN_BLACKHOLE, 0})
      .attribute(RTA_DST, U32{20});
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  to.nl_groups = 0;
  EXPECT_GT(sendto(fd, lie.bytes().data(), lie.bytes().size(), 0, reinterpret_cast<sockaddr*>(&to), size), 0);
  close(fd);
  pump();
  EXPECT_EQ(live->foreign(), 1u);
  EXPECT_EQ(lookup("20.1.1.1"), "none");
}

}  // namespace
