#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <sys/socket.h>

#include "Datagram.h"
#include "Message.h"

using namespace host::kernel;

namespace {

std::vector<Event> parse(const std::vector<U8>& bytes) {
  const std::vector<U8> exact(bytes);  // memory of just this size: a byte too far is a fault
  std::vector<Event> events;
  parseMessages({exact.data(), exact.size()}, [&](Event&& e) { events.push_back(std::move(e)); });
  return events;
}

template <class Body>
Body only(const Datagram& datagram) {
  auto events = parse(datagram.bytes());
  EXPECT_EQ(events.size(), 1u);
  return events.empty() ? Body{} : std::get<Body>(events.front().body);
}

constexpr U8 gateway6[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};

rtmsg routeHead(U8 family = AF_INET, U8 length = 8) {
  return {family, length, 0, 0, RT_TABLE_MAIN, RTPROT_STATIC, RT_SCOPE_UNIVERSE, RTN_UNICAST, 0};
}

TEST(Message, LeavesAsideWhatSaysNothingOfRoutes) {
  Datagram d;
  d.message(RTM_DELLINK, ifinfomsg{AF_BRIDGE, 0, 1, 7, 0, 0}).attribute(IFLA_IFNAME, std::string("eth7"));
  d.message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, 0, 0})
      .attribute(IFLA_IFNAME, std::string("eth7"))
      .attribute(IFLA_WIRELESS, U32{0});
  d.message(RTM_NEWNEXTHOP, nhmsg{}).attribute(NHA_ID, U32{5}).attribute(NHA_FDB, nullptr, 0);
  rtmsg cached = routeHead();
  cached.rtm_flags = RTM_F_CLONED;
  d.message(RTM_NEWROUTE, cached);
  rtmsg bySource = routeHead(AF_INET6, 0);
  bySource.rtm_src_len = 64;
  d.message(RTM_NEWROUTE, bySource);
  d.message(RTM_NEWROUTE, routeHead(RTNL_FAMILY_IPMR, 0));
  d.message(RTM_NEWNEIGH, ifinfomsg{});
  EXPECT_TRUE(parse(d.bytes()).empty());
}

TEST(Message, OfAVrfNamesItsTable) {
  const auto nested = [](U16 type, const void* data, std::size_t size) {
    Datagram d;
    d.message(0, U32{0}).attribute(type, data, size);
    return std::vector<U8>(d.bytes().begin() + sizeof(nlmsghdr) + 4, d.bytes().end());
  };
  const U32 table = 1234;
  auto info = nested(IFLA_INFO_KIND, "vrf", 4);
  const auto inner = nested(IFLA_VRF_TABLE, &table, sizeof table);
  const auto data = nested(IFLA_INFO_DATA | NLA_F_NESTED, inner.data(), inner.size());
  info.insert(info.end(), data.begin(), data.end());
  Datagram d;
  d.message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, 0, 0})
      .attribute(IFLA_IFNAME, std::string("red"))
      .attribute(IFLA_LINKINFO | NLA_F_NESTED, info.data(), info.size());
  EXPECT_EQ(only<LinkChange>(d).link.vrfTable, 1234u);
}

TEST(Message, RefusesWhatCannotBe) {
  const auto route = routeHead();
  const std::pair<const char*, Datagram> cases[] = {
      {"route: length of its prefix",
       Datagram().message(RTM_NEWROUTE, routeHead(AF_INET, 33)).attribute(RTA_DST, U32{1})},
      {"route: family of its prefix", Datagram().message(RTM_NEWROUTE, route).attribute(RTA_DST, gateway6)},
      {"link: without index or name", Datagram().message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, 0, 0})},
      {"metric: wrong size", Datagram().message(RTM_NEWROUTE, route).attribute(RTA_PRIORITY, U64{1})},
      {"address: family, link or length",
       Datagram().message(RTM_NEWADDR, ifaddrmsg{AF_INET6, 129, 0, 0, 7}).attribute(IFA_ADDRESS, gateway6)},
  };
  for (const auto& [why, datagram] : cases) EXPECT_EQ(only<Malformed>(datagram).why, why);
}

}  // namespace
