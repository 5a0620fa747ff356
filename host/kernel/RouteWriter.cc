#include "RouteWriter.h"

#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/in6.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Error.h"

namespace host::kernel {

namespace {

constexpr std::size_t bytesAtOnce = 32 << 10;
constexpr std::size_t largestWay = 32;  // in a request, which is as large without any
constexpr std::size_t largestHead = 128;
constexpr int answerRoom = 2 << 20;  // for a refusal of each request of a batch
constexpr U32 rulePriority = 32000;  // behind others' rules, and before the main table's

[[noreturn]] void failed(const char* what) {
  throw Error(std::string("kernel: ") + what + ": " + std::strerror(errno));
}

template <class Header>
void putHeader(nlmsghdr* request, const Header& header) {
  std::memcpy(mnl_nlmsg_put_extra_header(request, sizeof header), &header, sizeof header);
}

/// One of IPv6 may lead an IPv4 route of others' (RFC 5549).
void putGateway(nlmsghdr* request, const IpGenAddr& gateway) {
  if (gateway.af() == Lumo::ipv4()) return mnl_attr_put_u32(request, RTA_GATEWAY, gateway.v4Addr().network());
  constexpr std::size_t size = sizeof(in6_addr);
  U8 via[sizeof(rtvia) + size];
  const U16 family = AF_INET6;
  std::memcpy(via, &family, sizeof family);
  std::memcpy(via + sizeof(rtvia), gateway.v6Addr().bytes().data(), size);
  mnl_attr_put(request, RTA_VIA, sizeof via, via);
}

void putLegs(nlmsghdr* request, const std::vector<Hop>& hops) {
  nlattr* legs = mnl_attr_nest_start(request, RTA_MULTIPATH);
  for (const Hop& hop : hops) {
    auto* leg = static_cast<rtnexthop*>(mnl_nlmsg_put_extra_header(request, sizeof(rtnexthop)));
    const U32 begin = request->nlmsg_len - static_cast<U32>(sizeof *leg);
    leg->rtnh_flags = hop.flags & Hop::onlink;
    leg->rtnh_ifindex = static_cast<int>(hop.link);
    if (hop.gateway != IpGenAddr()) putGateway(request, hop.gateway);
    leg->rtnh_len = static_cast<U16>(request->nlmsg_len - begin);
  }
  mnl_attr_nest_end(request, legs);
}

void putHops(nlmsghdr* request, rtmsg* header, const Route& route) {
  if (route.hops.size() > 1) return putLegs(request, route.hops);
  if (route.hops.empty()) return;
  const Hop& hop = route.hops.front();
  header->rtm_flags = hop.flags & Hop::onlink;
  if (hop.gateway != IpGenAddr()) putGateway(request, hop.gateway);
  mnl_attr_put_u32(request, RTA_OIF, hop.link);
}

/// Deletes only the very route: protocol, metric, type and ways have to be the same.
void putRoute(nlmsghdr* request, const RouteOp& op) {
  const Route& route = op.route;
  request->nlmsg_type = op.add ? RTM_NEWROUTE : RTM_DELROUTE;
  request->nlmsg_flags = NLM_F_REQUEST;
  if (op.add) request->nlmsg_flags |= NLM_F_CREATE | NLM_F_EXCL;
  auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
  header->rtm_family = AF_INET;
  header->rtm_dst_len = route.prefix.length();
  header->rtm_tos = route.tos;
  header->rtm_protocol = route.protocol;
  header->rtm_scope = route.scope;
  header->rtm_type = static_cast<U8>(route.type);
  mnl_attr_put_u32(request, RTA_TABLE, route.table);
  mnl_attr_put_u32(request, RTA_DST, route.prefix.v4Prefix().address().network());
  mnl_attr_put_u32(request, RTA_PRIORITY, route.metric);
  putHops(request, header, route);
}

std::string textOf(S32 error, Bytes attributes) {
  std::string said;
  forAttributes(attributes, [&](U16 type, Bytes payload) {
    if (type == NLMSGERR_ATTR_MSG) said = text(payload, "refusal");
  });
  const std::string system = std::strerror(error);
  return said.empty() ? system : system + ": " + said;
}

std::optional<UserRule> userRule(Bytes body) {
  UserRule rule;
  bool ofUser = false;
  take<fib_rule_hdr>(body, "rule");
  forAttributes(body, [&](U16 type, Bytes payload) {
    if (type == FRA_TABLE) rule.table = number<U32>(payload, "table of a rule");
    if (type == FRA_PROTOCOL) rule.protocol = number<U8>(payload, "protocol of a rule");
    if (type != FRA_UID_RANGE) return;
    const auto range = number<fib_rule_uid_range>(payload, "users of a rule");
    ofUser = range.start == range.end;
    rule.user = range.start;
  });
  return ofUser ? std::optional(rule) : std::nullopt;
}

}  // namespace

void RouteWriter::Close::operator()(mnl_socket* socket) const {
  mnl_socket_close(socket);
}

RouteWriter::RouteWriter()
    : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      requests_(bytesAtOnce),
      answers_(bytesAtOnce) {
  if (!socket_) failed("socket");
  if (mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) failed("bind");
  int on = 1;
  mnl_socket_setsockopt(socket_.get(), NETLINK_EXT_ACK, &on, sizeof on);
  mnl_socket_setsockopt(socket_.get(), NETLINK_CAP_ACK, &on, sizeof on);
  setsockopt(mnl_socket_get_fd(socket_.get()), SOL_SOCKET, SO_RCVBUFFORCE, &answerRoom, sizeof answerRoom);
}

bool RouteWriter::mayWrite(U32 table) {
  RouteOp nothing;
  nothing.route.prefix = IpGenPrefix("255.255.255.255/32");
  nothing.route.table = table;
  nothing.route.metric = ~U32{0};
  const auto faults = write({&nothing, 1});
  return !faults.empty() && faults[0].error == ESRCH;
}

std::vector<RouteFault> RouteWriter::write(std::span<const RouteOp> ops) {
  std::vector<RouteFault> faults;
  std::size_t first = 0;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < ops.size(); ++i) {
    const std::size_t most = bytes + largestHead + largestWay * ops[i].route.hops.size();
    if (requests_.size() < most) requests_.resize(most);
    nlmsghdr* request = mnl_nlmsg_put_header(requests_.data() + bytes);
    putRoute(request, ops[i]);
    request->nlmsg_seq = sequence_ + static_cast<U32>(i - first);
    bytes += NLMSG_ALIGN(request->nlmsg_len);
    // What is deleted and added of a prefix goes at once.
    const bool isLast = i + 1 == ops.size();
    if (!isLast && (bytes < bytesAtOnce / 2 || ops[i + 1].add) && bytes < bytesAtOnce) continue;
    request->nlmsg_flags |= NLM_F_ACK;
    if (const int error = send(bytes)) {
      for (std::size_t op = first; op <= i; ++op) faults.push_back({op, error, std::strerror(error)});
    } else {
      readAnswers(first, faults);
    }
    sequence_ += static_cast<U32>(i - first) + 1;
    first = i + 1;
    bytes = 0;
  }
  return faults;
}

/// 0, or the errno of a system that has no room for them.
int RouteWriter::send(std::size_t count) {
  if (mnl_socket_sendto(socket_.get(), requests_.data(), count) >= 0) return 0;
  if (!isPassing(errno)) failed("write");
  return errno;
}

/// All are there. Those for which there was no room are not known; the table's mirror will tell.
template <class F>
void RouteWriter::forAnswers(F each) {
  for (;;) {
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), answers_.data(), answers_.size());
    if (size < 0 && errno == EAGAIN) return;
    if (size < 0 && !isPassing(errno)) failed("answers");
    Bytes rest(answers_.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    while (rest.size() >= sizeof(nlmsghdr)) {
      Bytes body = rest;
      const auto header = take<nlmsghdr>(body, "answer");
      if (header.nlmsg_len < sizeof header || header.nlmsg_len > rest.size()) break;
      body = body.first(header.nlmsg_len - sizeof header);
      rest = rest.subspan(std::min<std::size_t>(NLMSG_ALIGN(header.nlmsg_len), rest.size()));
      each(header, body);
    }
  }
}

void RouteWriter::readAnswers(std::size_t first, std::vector<RouteFault>& faults) {
  forAnswers([&](const nlmsghdr& header, Bytes body) {
    if (header.nlmsg_type != NLMSG_ERROR) return;
    const auto error = take<nlmsgerr>(body, "answer");
    if (error.error == 0) return;
    faults.push_back({first + (header.nlmsg_seq - sequence_), -error.error, textOf(-error.error, body)});
  });
}

std::vector<UserRule> RouteWriter::rules(U8 protocol) {
  nlmsghdr* request = mnl_nlmsg_put_header(requests_.data());
  request->nlmsg_type = RTM_GETRULE;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = sequence_++;
  fib_rule_hdr header{};
  header.family = AF_INET;
  putHeader(request, header);
  if (send(request->nlmsg_len) != 0) return {};
  std::vector<UserRule> found;
  forAnswers([&](const nlmsghdr& answer, Bytes body) {
    if (answer.nlmsg_type != RTM_NEWRULE) return;
    const auto rule = userRule(body);
    if (rule && rule->protocol == protocol) found.push_back(*rule);
  });
  return found;
}

std::string RouteWriter::rule(const UserRule& rule, bool add) {
  nlmsghdr* request = mnl_nlmsg_put_header(requests_.data());
  request->nlmsg_type = add ? RTM_NEWRULE : RTM_DELRULE;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  if (add) request->nlmsg_flags |= NLM_F_CREATE | NLM_F_EXCL;
  request->nlmsg_seq = sequence_;
  fib_rule_hdr header{};
  header.family = AF_INET;
  header.action = FR_ACT_TO_TBL;
  putHeader(request, header);
  mnl_attr_put_u32(request, FRA_TABLE, rule.table);
  mnl_attr_put_u32(request, FRA_PRIORITY, rulePriority);
  mnl_attr_put_strz(request, FRA_IIFNAME, "lo");
  mnl_attr_put_u8(request, FRA_PROTOCOL, rule.protocol);
  const fib_rule_uid_range range{rule.user, rule.user};
  mnl_attr_put(request, FRA_UID_RANGE, sizeof range, &range);
  if (const int error = send(request->nlmsg_len)) return std::strerror(error);
  std::vector<RouteFault> faults;
  readAnswers(0, faults);
  ++sequence_;
  if (faults.empty() || faults[0].error == (add ? EEXIST : ENOENT)) return {};
  return faults[0].text;
}

}  // namespace host::kernel
