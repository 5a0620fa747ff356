#include "MulticastCache.h"

#include <linux/if_link.h>
#include <linux/mroute.h>
#include <linux/rtnetlink.h>

#include <utility>

#include "Error.h"
#include "NetlinkSocket.h"

namespace host::kernel {

namespace {

using Lumo::IpAddr;

// ---- Messages ----

IpAddr addressOf(Bytes payload) {
  return IpAddr::fromNetwork(number<U32>(payload, "multicast address"));
}

/// They stand like the legs of a multipath route, of which only the link says something here.
std::vector<U32> outgoing(Bytes payload) {
  std::vector<U32> links;
  while (!payload.empty()) {
    Bytes rest = payload;
    const auto leg = take<rtnexthop>(rest, "outgoing interface");
    if (leg.rtnh_len < sizeof leg || leg.rtnh_len > payload.size()) {
      throw MalformedBytes("outgoing interface: wrong length");
    }
    links.push_back(static_cast<U32>(leg.rtnh_ifindex));
    payload = payload.subspan(std::min<std::size_t>(RTNH_ALIGN(leg.rtnh_len), payload.size()));
  }
  return links;
}

MulticastRoute parseRoute(const rtmsg& info, Bytes attributes) {
  MulticastRoute route;
  route.table = info.rtm_table;
  route.resolved = (info.rtm_flags & RTNH_F_UNRESOLVED) == 0;
  forAttributes(attributes, [&](U16 type, Bytes payload) {
    if (type == RTA_TABLE) route.table = number<U32>(payload, "table");
    if (type == RTA_SRC) route.source = addressOf(payload);
    if (type == RTA_DST) route.group = addressOf(payload);
    if (type == RTA_IIF) route.in = number<U32>(payload, "incoming interface");
    if (type == RTA_MULTIPATH) route.out = outgoing(payload);
    if (type != RTA_MFC_STATS) return;
    const auto counts = take<rta_mfc_stats>(payload, "counters of a multicast route");
    route.packets = counts.mfcs_packets;
    route.bytes = counts.mfcs_bytes;
    route.wrong = counts.mfcs_wrong_if;
  });
  return route;
}

MulticastInterface parseInterface(U32 table, Bytes attributes) {
  MulticastInterface interface;
  interface.table = table;
  forAttributes(attributes, [&](U16 type, Bytes payload) {
    const auto count = [&] { return number<U64>(payload, "counter of an interface"); };
    if (type == IPMRA_VIFA_IFINDEX) interface.link = number<U32>(payload, "interface");
    if (type == IPMRA_VIFA_FLAGS)
      interface.registers = (number<U16>(payload, "flags of an interface") & VIFF_REGISTER) != 0;
    if (type == IPMRA_VIFA_BYTES_IN) interface.bytesIn = count();
    if (type == IPMRA_VIFA_PACKETS_IN) interface.packetsIn = count();
    if (type == IPMRA_VIFA_BYTES_OUT) interface.bytesOut = count();
    if (type == IPMRA_VIFA_PACKETS_OUT) interface.packetsOut = count();
  });
  return interface;
}

void parseInterfaces(Bytes tableAttributes, MulticastState& state) {
  U32 table = 0;
  forAttributes(tableAttributes, [&](U16 type, Bytes payload) {
    if (type == IPMRA_TABLE_ID) table = number<U32>(payload, "multicast table");
    if (type != IPMRA_TABLE_VIFS) return;
    forAttributes(payload, [&](U16, Bytes one) { state.interfaces.push_back(parseInterface(table, one)); });
  });
}

/// A kernel without multicast routing answers with its other links and routes.
void parseMessage(U16 type, Bytes body, MulticastState& state) {
  if (type == RTM_NEWROUTE) {
    const auto info = take<rtmsg>(body, "multicast route");
    if (info.rtm_family == RTNL_FAMILY_IPMR) state.routes.push_back(parseRoute(info, body));
  } else if (type == RTM_NEWLINK) {
    const auto info = take<ifinfomsg>(body, "multicast table");
    if (info.ifi_family != RTNL_FAMILY_IPMR) return;
    forAttributes(body, [&](U16 attribute, Bytes payload) {
      if (attribute == IFLA_AF_SPEC) parseInterfaces(payload, state);
    });
  }
}

// ---- A reading ----

class LiveReading : public MulticastReading {
 public:
  LiveReading() : buffer_(bufferSize) {
    ifinfomsg header{};
    header.ifi_family = RTNL_FAMILY_IPMR;
    request(RTM_GETLINK, header);
  }

  bool step() override {
    using Outcome = NetlinkSocket::Outcome;
    const auto received = socket_.receive(buffer_);
    if (received.outcome == Outcome::lost || received.outcome == Outcome::truncated)
      throw Error("kernel: a part of the multicast forwarding cache is missing");
    silent_ = received.outcome == Outcome::nothing ? silent_ + 1 : 0;
    if (silent_ > patience)
      throw Error("kernel: it does not answer requests for its multicast forwarding cache");
    try {
      return !parseMulticast(received.bytes, state_) || next();
    } catch (const MalformedBytes& fault) {
      throw Error(std::string("kernel: ") + fault.what());
    }
  }

 private:
  static constexpr std::size_t bufferSize = 128 << 10;  // the kernel fills 32 KiB with a part of a dump
  static constexpr int patience = 1000;                 // tries; a dump is made while it is received

  template <class Header>
  void request(U16 type, const Header& header) {
    if (!socket_.request(type, Bytes(reinterpret_cast<const U8*>(&header), sizeof header), 1))
      throw Error("kernel: it has no room for a request");
  }
  /// After the interfaces come the routes, and nothing after them.
  bool next() {
    if (std::exchange(inRoutes_, true)) return false;
    rtmsg header{};
    header.rtm_family = RTNL_FAMILY_IPMR;
    request(RTM_GETROUTE, header);
    return true;
  }

  NetlinkSocket socket_;
  std::vector<U8> buffer_;
  bool inRoutes_ = false;
  int silent_ = 0;
};

}  // namespace

bool parseMulticast(Bytes datagram, MulticastState& state) {
  bool isEnd = false;
  forMessages(datagram, [&](const nlmsghdr& header, Bytes body) {
    isEnd = isEnd || header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR;
    if (!isEnd) parseMessage(header.nlmsg_type, body, state);
  });
  return isEnd;
}

std::unique_ptr<MulticastReading> LiveMulticastCache::read() const {
  return std::make_unique<LiveReading>();
}

}  // namespace host::kernel
