#include <gtest/gtest.h>

#include "Check.h"
#include "ConfigReader.h"
#include "Folder.h"
#include "Saved.h"
#include "SavedReversePath.h"

// What is said of the entries of a forwarding cache, where a test has a kernel and an exported table of its
// own; entries that no routing daemon answers, or for any source: e2e/flows.py.

using namespace host;
using namespace host::kernel;
using Lumo::IpAddr;

namespace {

class CheckTest : public testing::Test {
 protected:
  CheckTest()
      : mirror({}, 0),
        router(mirror, [] { return Nanos{0}; }),
        exporter(mirror, host::Exporter::Readers::follow) {
    folder.write("link.json", R"([{"ifindex":1,"ifname":"e1","flags":["UP","LOWER_UP"]},
{"ifindex":2,"ifname":"e2","flags":["UP","LOWER_UP"]},{"ifindex":3,"ifname":"e3","flags":["UP","LOWER_UP"]},
{"ifindex":4,"ifname":"pimreg","flags":["UP"]},{"ifindex":5,"ifname":"e5","flags":["UP","LOWER_UP"]}])");
    std::string addresses;
    std::string routes;
    for (const char* n : {"1", "2", "3", "5"}) {
      const std::string net = std::string("10.").append(n).append(".0.");
      addresses.append(addresses.empty() ? "" : ",").append(R"({"ifindex":)").append(n);
      addresses.append(R"(,"addr_info":[{"family":"inet","local":")")
          .append(net)
          .append(R"(1","prefixlen":24}]})");
      routes.append(routes.empty() ? "" : ",").append(R"({"dst":")").append(net).append(R"(0/24","dev":"e)");
      routes.append(n).append(R"(","scope":"link","protocol":"kernel"})");
    }
    folder.write("addr.json", '[' + addresses + ']');
    folder.write("route.json", '[' + routes + R"(,{"dst":"10.3.9.0/24","gateway":"10.1.0.2","dev":"e1"}])");
    folder.write("netconf.json",
                 R"([{"interface":"all","mc_forwarding":true},{"interface":"e1","mc_forwarding":true},
{"interface":"e2","mc_forwarding":true},{"interface":"e3","rp_filter":"strict","mc_forwarding":true}])");
    readSaved(folder.path.string(), mirror);
    while (router.turn(0) == 0) {
    }
    const auto refusals = router.configurationIs(
        parseConfiguration(
            "ip mroute 10.3.9.0/24 e3\nip mroute 10.8.0.0/16 10.1.0.2\nip mroute 10.8.0.0/16 10.2.0.2\n"
            "ip mroute 10.9.0.0/16 10.66.0.1\nip mroute 10.7.0.0/16 e5\n",
            "m.conf"),
        0);
    EXPECT_TRUE(refusals.empty());
  }

  static MulticastRoute route(const char* source, U32 in, bool resolved = true) {
    return {253, IpAddr(source), IpAddr("239.1.1.1"), resolved, in, {2}, 10, 100, 4};
  }
  std::string judged(const MulticastRoute& route, std::optional<Growth> growth = {},
                     Nanos now = seconds(100)) {
    const FlowCheck::Interfaces interfaces{{253, 1, false, 0, 0, 0, 0},
                                           {253, 2, false, 0, 0, 0, 0},
                                           {253, 3, false, 0, 0, 0, 0},
                                           {253, 4, true, 0, 0, 0, 0}};
    const SavedReversePath reversePath(folder.path.string(), mirror);
    const FlowAnswer answer =
        FlowCheck(router, {&reversePath, isExported ? &exporter : nullptr}, interfaces, now)
            .judge(route, growth);
    return std::string(nameOf(answer.verdict)) + (answer.why.empty() ? "" : ": ") + answer.why;
  }

  const Folder folder;
  Mirror mirror;
  Router router;
  Exporter exporter;
  bool isExported = false;
};

TEST_F(CheckTest, SaysWhatIsWrongAndWhatDecides) {
  const std::string e1 = "packets must come in by e1: it is on the connected subnet 10.1.0.0/24";
  EXPECT_EQ(judged(route("10.1.0.9", 1)), "right");
  EXPECT_EQ(judged(route("10.1.0.9", 2)), "wrong: " + e1);
  EXPECT_EQ(judged(route("10.1.0.9", 0)),
            "wrong: the interface that its packets were taken from is no more; " + e1);
  EXPECT_EQ(judged(route("10.8.0.9", 1)) + judged(route("10.8.0.9", 2)), "rightright");  // either way
  EXPECT_EQ(judged(route("10.8.0.9", 3)),
            "wrong: packets must come in by e1 or e2: m.conf:2 (ip mroute 10.8.0.0/16 10.1.0.2) and m.conf:3 "
            "(ip mroute 10.8.0.0/16 10.2.0.2) have the same preference, 1");
  EXPECT_EQ(judged(route("10.7.0.9", 1)),
            "wrong: packets must come in by e5: m.conf:5 (ip mroute 10.7.0.0/16 e5) decides; no routing "
            "daemon has made e5 an interface of multicast forwarding");
  EXPECT_TRUE(
      judged(route("10.9.0.9", 1)).starts_with("noRpf: packets from 10.9.0.9 have no way in: m.conf:4 "));
  EXPECT_TRUE(judged(route("10.9.0.9", 0, false)).starts_with("noRpf: "));
}

TEST_F(CheckTest, CountersTellOfPacketsThatComeInElsewhere) {
  EXPECT_EQ(judged(route("10.1.0.9", 1), Growth{5, 0}), "right");
  EXPECT_EQ(judged(route("10.1.0.9", 1), Growth{5, 4}),
            "right: 4 packets came in by other interfaces as well");
  EXPECT_EQ(
      judged(route("10.1.0.9", 1), Growth{5, 5}),
      "wrong: all packets of late (5) came in by other interfaces; packets must come in by e1: it is on the "
      "connected subnet 10.1.0.0/24");
}

/// Unless packets get through all the same, and but for what the router sends itself.
TEST_F(CheckTest, WhatTheKernelDropsIsNoFlow) {
  EXPECT_EQ(judged(route("10.3.9.9", 3)),
            "dropped: the kernel drops its packets on e3: rp_filter is 1 and the unicast route to 10.3.9.9 "
            "leaves by e1; `sysctl -w net.ipv4.conf.e3.rp_filter=2` would change it");
  EXPECT_EQ(judged(route("10.3.9.9", 3), Growth{2, 0}), "right");
  EXPECT_EQ(judged(route("10.3.0.2", 3)) + judged(route("10.3.0.1", 3)), "rightright");
}

TEST_F(CheckTest, EntriesOfOtherKindsAreWhatTheyAre) {
  EXPECT_EQ(judged(route("10.1.0.9", 4)), "registered");
  MulticastRoute other = route("10.1.0.9", 2);
  other.table = 10;
  EXPECT_EQ(judged(other), "otherTable");
}

/// FRR gets a second; before, and where the table is not right, the flow is wrong for other reasons.
TEST_F(CheckTest, FrrHasToFollowTheExportedTable) {
  isExported = true;
  const std::string line = "packets must come in by e3: m.conf:1 (ip mroute 10.3.9.0/24 e3) decides";
  EXPECT_EQ(judged(route("10.3.9.9", 1)), "wrong: " + line);
  Wanted wanted;
  wanted.type = RouteType::unicast;
  wanted.hops = {{Lumo::IpGenAddr(IpAddr("10.3.0.2")), 3, 0}};
  const Lumo::Prefix prefix("10.3.9.0/24");
  exporter.want(prefix, wanted);
  exporter.begin();
  EXPECT_EQ(exporter.next(seconds(100), 9).size(), 1U);
  EXPECT_EQ(judged(route("10.3.9.9", 1)), "wrong: " + line);
  Route written;
  written.prefix = prefix;
  written.table = 254;
  written.protocol = Exporter::protocol;
  written.metric = Exporter::metric;
  written.hops = wanted.hops;
  mirror.event({0, 0x400, RouteChange{written, false}}, seconds(100));
  exporter.check(prefix);
  exporter.next(seconds(101), 9);
  EXPECT_EQ(judged(route("10.3.9.9", 1), {}, seconds(100) + FlowCheck::patience - 1), "wrong: " + line);
  EXPECT_EQ(judged(route("10.3.9.9", 1), {}, seconds(107)),
            "notFollowed: FRR does not follow the exported table, which has said e3 for 7 s; " + line);
}

}  // namespace
