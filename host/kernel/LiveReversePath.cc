#include "LiveReversePath.h"

#include <libmnl/libmnl.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "Error.h"
#include "Message.h"

namespace host::kernel {

namespace {

constexpr std::size_t largestAnswer = 64 << 10;

[[noreturn]] void failed(const char* what) {
  throw Error(std::string("kernel: ") + what + ": " + std::strerror(errno));
}

/// A request of one message, built in place.
class Request {
 public:
  template <class Header>
  Request(U16 type, const Header& header) : message_(mnl_nlmsg_put_header(buffer_)) {
    message_->nlmsg_type = type;
    message_->nlmsg_flags = NLM_F_REQUEST;
    std::memcpy(mnl_nlmsg_put_extra_header(message_, sizeof header), &header, sizeof header);
  }
  void put(U16 type, U32 value) { mnl_attr_put_u32(message_, type, value); }
  std::span<U8> bytes() { return {buffer_, message_->nlmsg_len}; }

 private:
  alignas(nlmsghdr) U8 buffer_[256] = {};
  nlmsghdr* message_;
};

/// Netlink does not tell it. Where /proc/sys is hidden from this process, it is off, as nearly everywhere.
bool acceptsLocal(const std::string& name) {
  std::ifstream file("/proc/sys/net/ipv4/conf/" + name + "/accept_local");
  int value = 0;
  return file >> value && value != 0;
}

std::optional<PacketSettings::One> parseSettings(Bytes bytes) {
  Bytes rest = bytes;
  if (bytes.empty() || take<nlmsghdr>(rest, "settings").nlmsg_type != RTM_NEWNETCONF) return std::nullopt;
  take<U32>(rest, "settings");  // the family, filled up
  PacketSettings::One settings;
  forAttributes(rest, [&](U16 type, Bytes payload) {
    if (type == NETCONFA_RP_FILTER) settings.rpFilter = static_cast<U8>(number<U32>(payload, "rp_filter"));
    if (type == NETCONFA_MC_FORWARDING)
      settings.multicastForwarding = number<U32>(payload, "mc_forwarding") != 0;
  });
  return settings;
}

RouteType typeOf(S32 error) {
  switch (-error) {
    case EINVAL:
      return RouteType::blackhole;
    case EHOSTUNREACH:
      return RouteType::unreachable;
    case EACCES:
      return RouteType::prohibit;
    default:
      return RouteType::unspecified;
  }
}

}  // namespace

void LiveReversePath::Close::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

LiveReversePath::LiveReversePath(const Mirror& mirror)
    : mirror_(mirror),
      socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      answer_(largestAnswer) {
  if (!socket_) failed("socket");
  if (mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) failed("bind");
}

/// The kernel answers before the call that asks returns, so nothing waits. What is left of earlier answers is
/// skipped.
Bytes LiveReversePath::ask(std::span<U8> request) const {
  nlmsghdr header{};
  std::memcpy(&header, request.data(), sizeof header);
  header.nlmsg_seq = ++sequence_;
  std::memcpy(request.data(), &header, sizeof header);
  if (mnl_socket_sendto(socket_.get(), request.data(), request.size()) < 0) return {};
  for (;;) {
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), answer_.data(), answer_.size());
    if (size < 0 && (errno == EINTR || errno == ENOBUFS)) continue;
    if (size < static_cast<ssize_t>(sizeof header)) return {};
    std::memcpy(&header, answer_.data(), sizeof header);
    if (header.nlmsg_seq == sequence_) return Bytes(answer_).first(static_cast<std::size_t>(size));
  }
}

std::optional<PacketSettings::One> LiveReversePath::settingsOf(S32 index, const std::string& name) const {
  Request request(RTM_GETNETCONF, netconfmsg{AF_INET});
  request.put(NETCONFA_IFINDEX, static_cast<U32>(index));
  try {
    auto settings = parseSettings(ask(request.bytes()));
    if (settings) settings->acceptLocal = acceptsLocal(name);
    return settings;
  } catch (const MalformedBytes&) {
    return std::nullopt;
  }
}

std::optional<PacketSettings> LiveReversePath::settings(const Link& link) const {
  const auto own = settingsOf(static_cast<S32>(link.index), link.name);
  const auto all = settingsOf(NETCONFA_IFINDEX_ALL, "all");
  if (!own || !all) return std::nullopt;
  return PacketSettings{*own, *all};
}

/// As the check itself asks: for root, since the kernel checks in nobody's name, and in the VRF of the link.
std::optional<SourceRoute> LiveReversePath::routeTo(Lumo::IpAddr source, const Link& link) const {
  rtmsg header{};
  header.rtm_family = AF_INET;
  header.rtm_dst_len = Lumo::Prefix::maxLength;
  header.rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
  Request request(RTM_GETROUTE, header);
  request.put(RTA_DST, source.network());
  request.put(RTA_UID, 0);
  const Link* master = mirror_.topology().link(link.master);
  if (master && master->vrfTable != 0) request.put(RTA_OIF, master->index);
  std::optional<SourceRoute> found;
  parseMessages(ask(request.bytes()), [&](Event&& event) {
    if (const auto* refused = std::get_if<Refused>(&event.body)) {
      found = SourceRoute{typeOf(refused->error), {}, 0, {}};
    } else if (auto* change = std::get_if<RouteChange>(&event.body)) {
      Route& route = change->route;
      // With nexthop_compat_mode=0 the kernel names only the object.
      if (route.hops.empty()) mirror_.topology().addUsable(route.nextHop, ~Epoch{0}, route.hops);
      found = SourceRoute{route.type, route.prefix, route.table, std::move(route.hops)};
    }
  });
  return found;
}

}  // namespace host::kernel
