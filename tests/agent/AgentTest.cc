#include <gtest/gtest.h>

#include "mrib/Agent.h"

// What the agent layer does for every host, one behaviour a test.

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using mrib::Net;
using mrib::RouteType;
using mrib::Transaction;

IpGenAddr addr(const char* text) {
  return IpGenAddr(std::string_view(text));
}

class AgentTest : public testing::Test {
 protected:
  /// Two interfaces with their subnets, 20.0.0.0/24 on eth1 and 30.0.0.0/24 on eth2.
  AgentTest() {
    t.link({1, "eth1"});
    t.link({2, "eth2"});
    t.address({1, addr("20.0.0.1")});
    t.address({2, addr("30.0.0.1")});
    connected("20.0.0.0/24", 1);
    connected("30.0.0.0/24", 2);
    commit();
  }
  void connected(const char* prefix, U32 link, U8 preference = 0) {
    t.route({Net(prefix), RouteType::connected, preference, {{{}, link}}});
  }
  void mroute(const char* prefix, const char* rpf, U32 preference = 1, U64 origin = 0) {
    t.mroute(Net(prefix), addr(rpf), preference, origin);
  }
  mrib::CommitResult commit() {
    auto result = agent.commit(t);
    t.clear();
    return result;
  }
  /// The commit is refused for one reason.
  std::string refusal() {
    const auto result = commit();
    return result.refusals.size() == 1 ? result.refusals.front().text : "not one refusal";
  }
  static std::string show(const mrib::Route* route) {
    if (!route) return "none";
    std::string text = 'p' + std::to_string(route->preference);
    for (const auto& hop : route->nextHops) {
      text += ' ' + hop.address.stringValue() + " on " + std::to_string(hop.link);
    }
    return text;
  }
  /// "PREFIX RPF REASON, ..." of what does not resolve.
  std::string why() const {
    std::string text;
    for (const auto& u : agent.unresolved()) text += u.mroute.prefix.stringValue() + ": " + u.text() + '\n';
    return text;
  }

  mrib::Agent agent{mrib::Agent::Options{1000000}};  // the engine follows every step
  Transaction t;
};

TEST_F(AgentTest, WhatIsNoCanonicalIpv4IsRefusedWithItsLine) {
  const Net ten("10.0.0.0/8"), wide(addr("10.0.0.0"), 33), odd(addr("10.0.0.1"), 8);
  const std::tuple<Net, const char*, U32, const char*> cases[] = {
      {Net("2001:db8::/32"), "20.0.0.5", 1, "2001:db8::/32 is not an IPv4 prefix"},
      {odd, "20.0.0.5", 1, "10.0.0.1/8 has host bits set, the network is 10.0.0.0/8"},
      {wide, "20.0.0.5", 1, "10.0.0.0/33 has a length over 32"},
      {Net("232.0.0.0/8"), "20.0.0.5", 1, "232.0.0.0/8 is a range of group addresses"},
      {ten, "20.0.0.5", 0, "10.0.0.0/8: the preference 0 is not 1 to 255"},
      {ten, "20.0.0.5", 256, "10.0.0.0/8: the preference 256 is not 1 to 255"},
      {ten, "::1", 1, "10.0.0.0/8: the RPF \"::1\" is not an IPv4 address"},
      {ten, "224.0.0.5", 1, "10.0.0.0/8: the RPF \"224.0.0.5\" is a group address"},
      {ten, "0.0.0.0", 1, "10.0.0.0/8: the RPF \"0.0.0.0\" is not the address of a host"},
  };
  for (const auto& [net, rpf, preference, text] : cases) {
    t.mroute(net, addr(rpf), preference, 3);
    EXPECT_EQ(refusal(), std::string("line 3: multicast route ") + text);
  }
  t.mroute(ten, "", 1);
  EXPECT_EQ(refusal(), "multicast route 10.0.0.0/8: the RPF is an empty name") << "no origin, no line";
  t.route({ten, RouteType::igp, 0, {{addr("::1"), 1}}});
  EXPECT_EQ(refusal(), "next hop of 10.0.0.0/8 \"::1\" is not an IPv4 address");
  for (int i = 0; i < 300; ++i) mroute("10.0.0.0/8", "20.0.0.5", 0);
  const auto result = commit();
  EXPECT_EQ(result.refusals.size(), Transaction::mostTexts);
  EXPECT_EQ(result.refusalCount, 300u);
  mroute("0.0.0.0/0", "20.0.0.5");
  EXPECT_TRUE(commit().accepted);
  EXPECT_EQ(show(agent.rpf(IpAddr("8.8.8.8"))), "p1 20.0.0.5 on 1");
}

TEST_F(AgentTest, ACircleIsRefusedAndSpelledOut) {
  mroute("10.0.0.0/8", "50.0.0.1", 1, 1);
  mroute("50.0.0.0/8", "60.0.0.1", 1, 2);
  commit();
  mroute("60.0.0.0/8", "10.1.1.1", 9, 4);
  const auto result = commit();
  ASSERT_EQ(result.refusals.size(), 1u);
  EXPECT_EQ(
      result.refusals.front().text,
      "these routes could resolve through each other in a circle: 60.0.0.0/8 (line 4, through 10.1.1.1) -> "
      "10.0.0.0/8 (line 1, through 50.0.0.1) -> 50.0.0.0/8 (line 2, through 60.0.0.1) -> 60.0.0.0/8");
  EXPECT_EQ(result.refusals.front().origins, (std::vector<U64>{4, 1, 2}));
}

TEST_F(AgentTest, AChainOf100000ResolvesAndFollows) {
  const auto inside = [](U32 i) { return IpAddr::fromHost((100u << 24) + (i << 8) + 1); };
  constexpr U32 length = 100000;
  for (U32 i = 0; i < length; ++i) {
    const IpAddr rpf = i + 1 < length ? inside(i + 1) : IpAddr("20.0.0.9");
    t.mroute(Prefix(inside(i), 24), IpGenAddr(rpf), 1);
  }
  EXPECT_EQ(commit().changes.size(), length);
  EXPECT_EQ(show(agent.rpf(inside(0))), "p1 20.0.0.9 on 1");
  t.routeDel(Net("20.0.0.0/24"));
  EXPECT_EQ(commit().changes.size(), length + 1);
  EXPECT_FALSE(agent.rpf(inside(0)));
  connected("20.0.0.0/24", 2);
  EXPECT_EQ(commit().changes.size(), length + 1);
  EXPECT_EQ(show(agent.rpf(inside(0))), "p1 20.0.0.9 on 2");
}

/// Layers of two routes, each of which resolves through both of the layer before.
TEST_F(AgentTest, MoreWaysThanCanBeFollowedAreRefused) {
  const auto inside = [](U32 layer, U32 side) {
    return IpAddr::fromHost((100u << 24) + ((2 * layer + side) << 8) + 1);
  };
  const auto addLayer = [&](U32 layer) {
    for (const U32 n : {0u, 1u, 2u, 3u}) {
      const U32 side = n / 2, other = n % 2;
      const IpAddr rpf = layer == 0 ? IpAddr("20.0.0.9") : inside(layer - 1, other);
      t.mroute(Prefix(inside(layer, side), 24), IpGenAddr(rpf), 1, layer + 1);
    }
  };
  U32 layers = 0;
  std::string text;
  for (; text.empty() && layers < 100; ++layers) {
    addLayer(layers);
    const auto result = commit();
    if (!result) text = result.refusals.front().text;
  }
  EXPECT_EQ(text,
            "line 1: more than 1000000 ways lead to 100.0.0.0/24 from routes that could resolve through it, "
            "one through the other");
  EXPECT_EQ(layers, 20u) << "19 layers are 2 to the power of 19 ways and as many again below";
}

TEST_F(AgentTest, EveryUnresolvedRouteSaysWhy) {
  connected("0.0.0.0/0", 1);
  connected("10.0.0.0/8", 1);
  mroute("10.1.0.0/16", "10.2.0.1", 1, 12);
  mroute("20.0.0.0/24", "20.0.0.9");
  mroute("50.0.0.0/8", "99.0.0.1");
  mroute("60.0.0.0/8", "20.0.0.9");
  mroute("60.0.0.0/8", "99.0.0.1");
  mroute("60.0.0.0/8", "30.0.0.9", 2);
  t.mroute(Net("70.0.0.0/8"), "eth9", 1);
  t.mroute(Net("71.0.0.0/8"), "eth3", 1);
  t.link({3, "eth3", false});
  commit();
  EXPECT_EQ(
      why(),
      "10.1.0.0/16: 10.2.0.1 resolves through 10.0.0.0/8, which covers the prefix itself\n"
      "20.0.0.0/24: it would resolve through itself\n"
      "50.0.0.0/8: only the default route leads to 99.0.0.1, which resolves nothing\n"
      "60.0.0.0/8: only the default route leads to 99.0.0.1, which resolves nothing; another RPF of the same "
      "preference resolves\n"
      "60.0.0.0/8: waiting: preference 1 is in force\n"
      "70.0.0.0/8: there is no such interface\n"
      "71.0.0.0/8: the interface has no IPv4 address; the interface is down\n");
  EXPECT_EQ(agent.unresolved().front().mroute.origin, 12u);
  EXPECT_FALSE(agent.unresolved()[4].isError());
  t.routeDel(Net("0.0.0.0/0"));
  commit();
  EXPECT_EQ(agent.unresolved()[2].text(), "no MRIB route leads to 99.0.0.1");
}

}  // namespace
