#include "Netlink.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "Error.h"

namespace host {

namespace {

constexpr int dumpAttempts = 8;
constexpr std::size_t dumpBytes = 32768;  // what the kernel fills at most with one part of a dump

/// The protocols by the names that `ip route` gives them (/etc/iproute2/rt_protos as shipped).
std::string protocolName(unsigned protocol) {
  switch (protocol) {
    case RTPROT_REDIRECT:
      return "redirect";
    case RTPROT_KERNEL:
      return "kernel";
    case RTPROT_BOOT:
      return "boot";
    case RTPROT_STATIC:
      return "static";
    case RTPROT_RA:
      return "ra";
    case RTPROT_ZEBRA:
      return "zebra";
    case RTPROT_BIRD:
      return "bird";
    case RTPROT_DHCP:
      return "dhcp";
    case RTPROT_BABEL:
      return "babel";
    case RTPROT_BGP:
      return "bgp";
    case RTPROT_ISIS:
      return "isis";
    case RTPROT_OSPF:
      return "ospf";
    case RTPROT_RIP:
      return "rip";
    case RTPROT_EIGRP:
      return "eigrp";
    default:
      return std::to_string(protocol);
  }
}

/// The attributes of one message by type; a later one of the same type wins.
template <std::size_t N>
struct Attributes {
  std::array<const nlattr*, N> by{};

  U32 u32(std::size_t type) const {
    return by[type] && mnl_attr_validate(by[type], MNL_TYPE_U32) >= 0 ? mnl_attr_get_u32(by[type]) : 0;
  }
  Lumo::IpAddr address(std::size_t type) const {
    U32 network = 0;
    if (by[type] && mnl_attr_get_payload_len(by[type]) == sizeof network) {
      std::memcpy(&network, mnl_attr_get_payload(by[type]), sizeof network);
    }
    return Lumo::IpAddr::fromNetwork(network);
  }
};

template <std::size_t N>
int collect(const nlattr* attribute, void* data) {
  const unsigned type = mnl_attr_get_type(attribute);
  if (type < N) static_cast<Attributes<N>*>(data)->by[type] = attribute;
  return MNL_CB_OK;
}

template <std::size_t N>
Attributes<N> attributesOf(const nlmsghdr* message, std::size_t headerBytes) {
  Attributes<N> attributes;
  mnl_attr_parse(message, static_cast<unsigned>(headerBytes), collect<N>, &attributes);
  return attributes;
}

int onLink(const nlmsghdr* message, void* data) {
  const auto* info = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
  const auto attributes = attributesOf<IFLA_MAX + 1>(message, sizeof *info);
  const nlattr* name = attributes.by[IFLA_IFNAME];
  if (!name) return MNL_CB_OK;
  const char* text = static_cast<const char*>(mnl_attr_get_payload(name));
  const std::size_t length = strnlen(text, mnl_attr_get_payload_len(name));
  static_cast<KernelState*>(data)->links.push_back(
      {static_cast<U32>(info->ifi_index), std::string(text, length), (info->ifi_flags & IFF_UP) != 0});
  return MNL_CB_OK;
}

int onAddress(const nlmsghdr* message, void* data) {
  const auto* info = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
  if (info->ifa_family != AF_INET || info->ifa_prefixlen > 32) return MNL_CB_OK;
  const auto attributes = attributesOf<IFA_MAX + 1>(message, sizeof *info);
  const auto type = attributes.by[IFA_LOCAL] ? IFA_LOCAL : IFA_ADDRESS;
  static_cast<KernelState*>(data)->addresses.push_back({info->ifa_index, attributes.address(type),
                                                        info->ifa_prefixlen,
                                                        (info->ifa_flags & IFA_F_SECONDARY) != 0});
  return MNL_CB_OK;
}

/// The next hops of a multipath attribute that are alive and of IPv4.
std::vector<NextHop> multipath(const nlattr* attribute) {
  std::vector<NextHop> hops;
  const auto* hop = static_cast<const rtnexthop*>(mnl_attr_get_payload(attribute));
  int left = mnl_attr_get_payload_len(attribute);
  for (; RTNH_OK(hop, left); left -= static_cast<int>(RTNH_ALIGN(hop->rtnh_len)), hop = RTNH_NEXT(hop)) {
    if ((hop->rtnh_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) != 0) continue;
    Attributes<RTA_MAX + 1> attributes;
    mnl_attr_parse_payload(RTNH_DATA(hop), static_cast<std::size_t>(hop->rtnh_len) - sizeof *hop,
                           collect<RTA_MAX + 1>, &attributes);
    if (attributes.by[RTA_VIA]) continue;
    hops.push_back({attributes.address(RTA_GATEWAY), static_cast<U32>(hop->rtnh_ifindex)});
  }
  return hops;
}

int onRoute(const nlmsghdr* message, void* data) {
  const auto* info = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  auto& state = *static_cast<KernelState*>(data);
  if (info->rtm_family != AF_INET || info->rtm_type != RTN_UNICAST || info->rtm_dst_len > 32)
    return MNL_CB_OK;
  if ((info->rtm_flags & RTM_F_CLONED) != 0) return MNL_CB_OK;
  const auto attributes = attributesOf<RTA_MAX + 1>(message, sizeof *info);
  const U32 table = attributes.by[RTA_TABLE] ? attributes.u32(RTA_TABLE) : info->rtm_table;
  if (table != RT_TABLE_MAIN) return MNL_CB_OK;
  if ((info->rtm_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) != 0) return MNL_CB_OK;

  KernelRoute route{};
  route.prefix = Lumo::Prefix(attributes.address(RTA_DST), info->rtm_dst_len);
  route.protocol = protocolName(info->rtm_protocol);
  route.metric = attributes.u32(RTA_PRIORITY);
  if (attributes.by[RTA_MULTIPATH]) {
    route.nextHops = multipath(attributes.by[RTA_MULTIPATH]);
  } else if (attributes.by[RTA_OIF] && !attributes.by[RTA_VIA]) {
    route.nextHops.push_back({attributes.address(RTA_GATEWAY), attributes.u32(RTA_OIF)});
  }
  if (route.nextHops.empty()) {
    state.notes.push_back("route " + route.prefix.stringValue() + " has no IPv4 next hop: left out");
    return MNL_CB_OK;
  }
  route.connected = info->rtm_scope == RT_SCOPE_LINK &&
                    std::all_of(route.nextHops.begin(), route.nextHops.end(),
                                [](const NextHop& h) { return h.gateway == Lumo::IpAddr(); });
  route.preference = route.connected ? U8{0} : preferenceOf(route.protocol);
  state.routes.push_back(std::move(route));
  return MNL_CB_OK;
}

struct CloseSocket {
  void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using Socket = std::unique_ptr<mnl_socket, CloseSocket>;

[[noreturn]] void failed(const char* what) {
  throw Error(std::string("kernel: ") + what + ": " + std::strerror(errno));
}

/// One dump; false when the kernel says that a change interrupted it.
bool dumpOnce(mnl_socket* socket, U16 type, mnl_cb_t callback, KernelState& state) {
  static U32 sequence = 0;
  alignas(nlmsghdr) std::array<char, dumpBytes> buffer{};
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = type;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = ++sequence;
  auto* body = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
  body->rtm_family = type == RTM_GETLINK ? AF_UNSPEC : AF_INET;
  if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) failed("request");
  for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
    const ssize_t received = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
    if (received < 0 && errno == EINTR) continue;
    if (received < 0) failed("dump");
    more = mnl_cb_run(buffer.data(), static_cast<std::size_t>(received), sequence,
                      mnl_socket_get_portid(socket), callback, &state);
    if (more < 0 && errno != EINTR) failed("dump");
    if (more < 0) return false;
  }
  return true;
}

}  // namespace

KernelState readKernel() {
  struct Dump {
    U16 type;
    mnl_cb_t callback;
  };
  constexpr std::array<Dump, 3> dumps{
      {{RTM_GETLINK, onLink}, {RTM_GETADDR, onAddress}, {RTM_GETROUTE, onRoute}}};
  for (int attempt = 0; attempt < dumpAttempts; ++attempt) {
    const Socket socket(mnl_socket_open(NETLINK_ROUTE));
    if (!socket) failed("socket");
    if (mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) failed("bind");
    KernelState state;
    const bool whole = std::all_of(dumps.begin(), dumps.end(), [&](const Dump& d) {
      return dumpOnce(socket.get(), d.type, d.callback, state);
    });
    if (!whole) continue;  // a new socket leaves the rest of the old dump behind
    normalise(state);
    return state;
  }
  throw Error("kernel: its tables changed during each of 8 attempts to read them");
}

}  // namespace host
