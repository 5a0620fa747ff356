#include "NetlinkSocket.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Error.h"

namespace host::kernel {

namespace {

constexpr int forcedBuffer = 16 << 20;  // with CAP_NET_ADMIN
constexpr int plainBuffer = 8 << 20;    // of this, what net.core.rmem_max allows

[[noreturn]] void failed(const char* what) {
  throw Error(std::string("kernel: ") + what + ": " + std::strerror(errno));
}

void addHeader(nlmsghdr* request, Dump dump, U32 table) {
  const auto put = [&](auto header) {
    std::memcpy(mnl_nlmsg_put_extra_header(request, sizeof header), &header, sizeof header);
  };
  switch (dump) {
    case Dump::links:
      put(ifinfomsg{});
      return mnl_attr_put_u32(request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    case Dump::addresses:
      return put(ifaddrmsg{});
    case Dump::nextHops:
      return put(nhmsg{});
    case Dump::routes4:
    case Dump::routes6:
      rtmsg header{};
      header.rtm_family = dump == Dump::routes4 ? AF_INET : AF_INET6;
      put(header);
      return mnl_attr_put_u32(request, RTA_TABLE, table);
  }
}

constexpr std::array<U16, dumpCount> requestTypes{RTM_GETLINK, RTM_GETADDR, RTM_GETNEXTHOP, RTM_GETROUTE,
                                                  RTM_GETROUTE};

}  // namespace

void NetlinkSocket::Close::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

/// Strict checking, which kernels before 4.20 do not have, makes the table of a request count.
NetlinkSocket::NetlinkSocket() : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)) {
  if (!socket_) failed("socket");
  if (mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) failed("bind");
  int on = 1;
  mnl_socket_setsockopt(socket_.get(), NETLINK_GET_STRICT_CHK, &on, sizeof on);
}

int NetlinkSocket::fd() const {
  return mnl_socket_get_fd(socket_.get());
}

void NetlinkSocket::subscribe() {
  if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &forcedBuffer, sizeof forcedBuffer) < 0) {
    setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &plainBuffer, sizeof plainBuffer);
  }
  for (int group : {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_ROUTE,
                    RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF, RTNLGRP_NEXTHOP}) {
    const bool old = group == RTNLGRP_NEXTHOP;  // kernels before 5.3 do without
    if (mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) < 0 && !old) {
      failed("subscribe");
    }
  }
}

bool NetlinkSocket::request(Dump dump, U32 sequence, U32 table) {
  return send(requestTypes[static_cast<std::size_t>(dump)], sequence,
              [&](nlmsghdr* request) { addHeader(request, dump, table); });
}

bool NetlinkSocket::request(U16 type, Bytes header, U32 sequence) {
  return send(type, sequence, [&](nlmsghdr* request) {
    std::memcpy(mnl_nlmsg_put_extra_header(request, header.size()), header.data(), header.size());
  });
}

template <class AddBody>
bool NetlinkSocket::send(U16 type, U32 sequence, AddBody addBody) {
  alignas(nlmsghdr) std::array<char, 128> buffer{};
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = type;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = sequence;
  addBody(request);
  if (mnl_socket_sendto(socket_.get(), request, request->nlmsg_len) >= 0) return true;
  if (!isPassing(errno)) failed("request");
  return false;
}

NetlinkSocket::Received NetlinkSocket::receive(std::span<U8> buffer) {
  sockaddr_nl sender{};
  iovec part{buffer.data(), buffer.size()};
  msghdr message{};
  message.msg_name = &sender;
  message.msg_namelen = sizeof sender;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  const ssize_t size = recvmsg(fd(), &message, 0);
  if (size < 0) {
    if (errno == EAGAIN || errno == EINTR) return {};
    if (isPassing(errno)) return {Outcome::lost, {}};
    failed("receive");
  }
  if (message.msg_namelen != sizeof sender || sender.nl_pid != 0) return {Outcome::foreign, {}};
  if ((message.msg_flags & MSG_TRUNC) != 0) return {Outcome::truncated, {}};
  return {Outcome::datagram, Bytes(buffer.data(), static_cast<std::size_t>(size))};
}

}  // namespace host::kernel
