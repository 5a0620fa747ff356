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

constexpr U8 gateway4[] = {10, 0, 0, 9};
constexpr U8 gateway6[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};

rtmsg routeHead(U8 family = AF_INET, U8 length = 8) {
  return {family, length, 0, 0, RT_TABLE_MAIN, RTPROT_STATIC, RT_SCOPE_UNIVERSE, RTN_UNICAST, 0};
}

/// One leg of a multipath attribute.
std::vector<U8> leg(int link, U8 flags, U16 type, const void* address, std::size_t size) {
  Datagram d;
  d.message(0, rtnexthop{static_cast<U16>(sizeof(rtnexthop) + 4 + size), flags, 0, link})
      .attribute(type, address, size);
  return {d.bytes().begin() + sizeof(nlmsghdr), d.bytes().end()};
}

Datagram everything() {
  Datagram d;
  d.message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, IFF_UP | IFF_RUNNING | IFF_LOWER_UP, 0})
      .attribute(IFLA_IFNAME, std::string("eth7", 5))
      .attribute(IFLA_OPERSTATE, U8{6})
      .attribute(IFLA_MASTER, U32{3});
  d.message(RTM_DELADDR, ifaddrmsg{AF_INET, 24, IFA_F_SECONDARY, 0, 7})
      .attribute(IFA_ADDRESS, U32{0x0200000A})
      .attribute(IFA_LOCAL, U32{0x0100000A});
  d.message(RTM_NEWNEXTHOP, nhmsg{AF_INET, 0, 0, 0, RTNH_F_ONLINK}, NLM_F_REPLACE)
      .attribute(NHA_ID, U32{5})
      .attribute(NHA_OIF, U32{7})
      .attribute(NHA_GATEWAY, gateway4);
  auto legs = leg(7, RTNH_F_DEAD | RTNH_F_PERVASIVE, RTA_GATEWAY, gateway4, 4);
  constexpr U16 family = AF_INET6;
  U8 via[18];
  std::memcpy(via, &family, sizeof family);
  std::memcpy(via + 2, gateway6, sizeof gateway6);
  const auto second = leg(8, RTNH_F_LINKDOWN, RTA_VIA, via, sizeof via);
  legs.insert(legs.end(), second.begin(), second.end());
  d.message(RTM_NEWROUTE, routeHead(), NLM_F_CREATE | NLM_F_APPEND, 42)
      .attribute(RTA_TABLE, U32{1000})
      .attribute(RTA_DST, U32{20})
      .attribute(RTA_PRIORITY, U32{77})
      .attribute(RTA_MULTIPATH, legs.data(), legs.size());
  d.message(NLMSG_DONE, int{0}, NLM_F_DUMP_INTR, 42);
  return d;
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

TEST(Message, CutOffAnywhereIsAFaultAndNoMore) {
  const Datagram whole = everything();
  const std::size_t all = whole.bytes().size();
  for (std::size_t size = 0; size < all; ++size) {
    const auto events =
        parse({whole.bytes().begin(), whole.bytes().begin() + static_cast<std::ptrdiff_t>(size)});
    const auto complete = static_cast<std::size_t>(std::count_if(
        whole.ends().begin(), whole.ends().end(), [&](std::size_t end) { return end <= size; }));
    const bool atEnd = size == 0 || std::count(whole.ends().begin(), whole.ends().end(), size) == 1;
    ASSERT_EQ(events.size(), complete + !atEnd) << size;
    if (!atEnd) {
      ASSERT_TRUE(std::holds_alternative<Malformed>(events.back().body)) << size;
    }
  }
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
