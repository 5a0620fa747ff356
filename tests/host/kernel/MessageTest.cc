#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include "Datagram.h"
#include "Message.h"

using namespace host::kernel;

namespace {

constexpr U8 gateway6[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};

rtmsg routeHead(U8 length = 8) {
  return {AF_INET, length, 0, 0, RT_TABLE_MAIN, RTPROT_STATIC, RT_SCOPE_UNIVERSE, RTN_UNICAST, 0};
}

TEST(Message, RefusesWhatCannotBe) {
  const auto route = routeHead();
  const std::pair<const char*, Datagram> cases[] = {
      {"route: length of its prefix",
       Datagram().message(RTM_NEWROUTE, routeHead(33)).attribute(RTA_DST, U32{1})},
      {"route: family of its prefix", Datagram().message(RTM_NEWROUTE, route).attribute(RTA_DST, gateway6)},
      {"link: without index or name", Datagram().message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, 0, 0})},
      {"metric: wrong size", Datagram().message(RTM_NEWROUTE, route).attribute(RTA_PRIORITY, U64{1})},
      {"address: family, link or length",
       Datagram().message(RTM_NEWADDR, ifaddrmsg{AF_INET6, 129, 0, 0, 7}).attribute(IFA_ADDRESS, gateway6)},
  };
  for (const auto& [why, datagram] : cases) {
    const std::vector<U8> bytes(datagram.bytes());  // memory of just this size: a byte too far is a fault
    std::string said;
    parseMessages(bytes, [&](Event&& event) { said = std::get<Malformed>(event.body).why; });
    EXPECT_EQ(said, why);
  }
}

TEST(Message, OfALinkSaysWhichOneItFollowsHere) {
  const struct {
    U16 size = 12, type = IFLA_INFO_KIND;
    char kind[8] = "macvlan";
  } info;
  const auto lowerOf = [&](U16 infoType, U16 elsewhere) {
    Datagram d;
    d.message(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 1, 7, IFF_UP | IFF_RUNNING, 0});
    d.attribute(IFLA_IFNAME, std::string("m0")).attribute(IFLA_LINK, U32{3});
    d.attribute(infoType, &info, sizeof info).attribute(elsewhere, U32{0});
    Link link;
    parseMessages(d.bytes(), [&](Event&& event) { link = std::get<LinkChange>(event.body).link; });
    return link.running && !link.loopback ? link.lower : 99;
  };
  const U32 known = lowerOf(IFLA_LINKINFO, IFLA_MTU), elsewhere = lowerOf(IFLA_LINKINFO, IFLA_LINK_NETNSID);
  EXPECT_TRUE(known == 3 && elsewhere == 0 && lowerOf(IFLA_XDP, IFLA_MTU) == 0);
}

}  // namespace
