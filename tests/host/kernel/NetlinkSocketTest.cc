#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "Datagram.h"
#include "NetlinkSocket.h"

using namespace host::kernel;

TEST(NetlinkSocket, BelievesTheKernelAlone) {
  NetlinkSocket ours;
  sockaddr_nl to{};
  socklen_t size = sizeof to;
  ASSERT_EQ(getsockname(ours.fd(), reinterpret_cast<sockaddr*>(&to), &size), 0);
  Datagram lie;
  lie.message(RTM_NEWROUTE, rtmsg{AF_INET, 8, 0, 0, RT_TABLE_MAIN, RTPROT_STATIC, 0, RTN_BLACKHOLE, 0})
      .attribute(RTA_DST, U32{20});
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  const auto sent =
      sendto(fd, lie.bytes().data(), lie.bytes().size(), 0, reinterpret_cast<sockaddr*>(&to), size);
  const int error = errno;
  close(fd);
  if (sent < 0 && error == EPERM) GTEST_SKIP() << "only who is privileged can try";
  ASSERT_GT(sent, 0);
  std::vector<U8> buffer(4096);
  EXPECT_EQ(ours.receive(buffer).outcome, Channel::Outcome::foreign);
  EXPECT_EQ(ours.receive(buffer).outcome, Channel::Outcome::nothing);
}
