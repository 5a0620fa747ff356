#include <fmt/format.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/nexthop.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "Datagram.h"
#include "Describe.h"
#include "VirtualKernel.h"

// What a virtual kernel says and hears.

using namespace host::kernel;

namespace {

std::vector<U8> bytesOf(const IpGenAddr& address) {
  const U32 network = address.v4Addr().network();
  std::vector<U8> bytes(sizeof network);
  std::memcpy(bytes.data(), &network, sizeof network);
  return bytes;
}

void putAddress(Datagram& d, U16 type, const IpGenAddr& address) {
  if (address != IpGenAddr()) d.attribute(type, bytesOf(address).data(), sizeof(U32));
}

/// What is in a message.
std::vector<U8> nested(Datagram& d) {
  return {d.bytes().begin() + sizeof(nlmsghdr), d.bytes().end()};
}

/// The attributes behind a number.
void putNested(Datagram& d, U16 type, Datagram& from) {
  const auto all = nested(from);
  d.attribute(type | NLA_F_NESTED, all.data() + sizeof(U32), all.size() - sizeof(U32));
}

void put(Datagram& d, const LinkChange& c, U16 flags, U32 sequence) {
  const Link& l = c.link;
  const U32 state = l.up * U32{IFF_UP} | l.lowerUp * U32{IFF_LOWER_UP} | l.running * U32{IFF_RUNNING};
  d.message(c.gone ? RTM_DELLINK : RTM_NEWLINK,
            ifinfomsg{AF_UNSPEC, 0, 1, static_cast<int>(l.index), state, 0}, flags, sequence);
  d.attribute(IFLA_IFNAME, l.name).attribute(IFLA_OPERSTATE, l.operState);
  Datagram kind;
  kind.message(0, U32{0}).attribute(IFLA_INFO_KIND, std::string(l.vrfTable == 0 ? "bridge" : "vrf"));
  Datagram table;
  table.message(0, U32{0}).attribute(IFLA_VRF_TABLE, l.vrfTable);
  putNested(kind, IFLA_INFO_DATA, table);
  putNested(d, IFLA_LINKINFO, kind);
  if (l.master != 0) d.attribute(IFLA_MASTER, l.master);
  Datagram names;
  names.message(0, U32{0});
  for (const std::string& name : l.alternativeNames) names.attribute(IFLA_ALT_IFNAME, name);
  putNested(d, IFLA_PROP_LIST, names);
}

void put(Datagram& d, const AddressChange& c, U16 flags, U32 sequence) {
  const Address& a = c.address;
  const U8 state = a.secondary ? IFA_F_SECONDARY : 0;
  d.message(c.gone ? RTM_DELADDR : RTM_NEWADDR, ifaddrmsg{AF_INET, a.length, state, a.scope, a.link}, flags,
            sequence);
  putAddress(d, IFA_LOCAL, a.local);
  putAddress(d, IFA_ADDRESS, a.peer);
}

void put(Datagram& d, const NextHopChange& c, U16 flags, U32 sequence) {
  const NextHop& n = c.nextHop;
  d.message(c.gone ? RTM_DELNEXTHOP : RTM_NEWNEXTHOP, nhmsg{AF_INET, 0, 0, 0, n.hop.flags}, flags, sequence);
  d.attribute(NHA_ID, n.id);
  std::vector<nexthop_grp> group;
  for (const U32 id : n.group) group.push_back({id, 0, 0, 0});
  if (!group.empty()) d.attribute(NHA_GROUP, group.data(), group.size() * sizeof group[0]);
  if (n.blackhole) d.attribute(NHA_BLACKHOLE, nullptr, 0);
  if (n.hop.link != 0) d.attribute(NHA_OIF, n.hop.link);
  putAddress(d, NHA_GATEWAY, n.hop.gateway);
}

void put(Datagram& d, const RouteChange& c, U16 flags, U32 sequence) {
  const Route& r = c.route;
  const bool one = r.hops.size() == 1;
  d.message(c.gone ? RTM_DELROUTE : RTM_NEWROUTE,
            rtmsg{AF_INET, r.prefix.length(), 0, r.tos, static_cast<U8>(r.table), r.protocol, r.scope,
                  static_cast<U8>(r.type), one ? r.hops[0].flags : 0u},
            flags, sequence);
  d.attribute(RTA_TABLE, r.table).attribute(RTA_PRIORITY, r.metric);
  putAddress(d, RTA_DST, IpGenAddr(r.prefix.v4Prefix().address()));
  putAddress(d, RTA_PREFSRC, r.source);
  if (r.rest != 0) d.attribute(RTA_FLOW, r.rest);
  if (r.nextHop != 0) d.attribute(RTA_NH_ID, r.nextHop);
  if (one) d.attribute(RTA_OIF, r.hops[0].link), putAddress(d, RTA_GATEWAY, r.hops[0].gateway);
  std::vector<U8> legs;
  for (const Hop& h : one ? std::vector<Hop>() : r.hops) {
    const U16 size = sizeof(rtnexthop) + (h.gateway == IpGenAddr() ? 0 : 8);
    Datagram leg;
    leg.message(0, rtnexthop{size, h.flags, 0, static_cast<int>(h.link)});
    putAddress(leg, RTA_GATEWAY, h.gateway);
    const auto bytes = nested(leg);
    legs.insert(legs.end(), bytes.begin(), bytes.end());
  }
  if (!legs.empty()) d.attribute(RTA_MULTIPATH, legs.data(), legs.size());
}

void put(Datagram& d, const SettingChange&, U16 flags, U32 sequence) {
  d.message(RTM_NEWNETCONF, netconfmsg{AF_INET}, flags, sequence);
}

void put(Datagram& d, const DumpEnd& end, U16 flags, U32 sequence) {
  d.message(NLMSG_DONE, end.error, flags, sequence);
}

void put(Datagram& d, const Refused& refused, U16 flags, U32 sequence) {
  d.message(NLMSG_ERROR, nlmsgerr{refused.error, {}}, flags, sequence);
}

template <class Other>
void put(Datagram&, const Other&, U16, U32) {}

template <class Change>
std::string textOf(const Change& c) {
  if constexpr (requires { c.link; }) return describe(c.link);
  if constexpr (requires { c.address; }) return describe(c.address);
  if constexpr (requires { c.nextHop; }) return describe(c.nextHop);
  if constexpr (requires { c.route; }) {
    return fmt::format("route {} table {} {}", c.route.prefix.stringValue(), c.route.table,
                       describe(c.route));
  }
  return "else";
}

}  // namespace

// ---- Messages ----

/// What sounds like news of what there is, and is none: of a bridge's ports, a scan, a bridge's object, a
/// cache, routes by source or of another family.
void putAside(Datagram& d, U32 what, const std::string& name, U32 number) {
  const ifinfomsg link{what == 0 ? U8{AF_BRIDGE} : U8{AF_UNSPEC}, 0, 1, static_cast<int>(number), 0, 0};
  const U8 family = what == 5 ? RTNL_FAMILY_IPMR : what == 4 ? AF_INET6 : AF_INET;
  if (what < 2) d.message(RTM_DELLINK, link).attribute(IFLA_IFNAME, name);
  if (what == 1) d.attribute(IFLA_WIRELESS, U32{0});
  if (what == 2) d.message(RTM_NEWNEXTHOP, nhmsg{}).attribute(NHA_ID, number).attribute(NHA_FDB, nullptr, 0);
  if (what > 2 && what < 6) {
    d.message(RTM_NEWROUTE, rtmsg{family, 0, what == 4 ? U8{64} : U8{0}, 0, VirtualKernel::mainTable, 3, 0,
                                  RTN_UNICAST, what == 3 ? RTM_F_CLONED : 0U})
        .attribute(RTA_OIF, number);
  }
}

void VirtualKernel::tell(Body body, U16 flags) {
  Datagram d;
  if (auto* change = std::get_if<RouteChange>(&body)) change->route = shown(change->route);
  if (faulty_ && !links_.empty()) putAside(d, dice_(40), links_.begin()->second.name, links_.begin()->first);
  std::visit([&](const auto& b) { put(d, b, flags, 0); }, body);
  if (isLoud)
    fmt::print(stderr, "    {} {:x}\n", std::visit([](const auto& b) { return textOf(b); }, body), flags);
  changes_ += !std::holds_alternative<RouteChange>(body);
  const bool twice = faulty_ && !std::holds_alternative<RouteChange>(body) && dice_(10) == 0;
  for (int n = 0; n <= twice; ++n) inFlight_.push_back(d.bytes());
  if (!faulty_ || dice_(4) != 0) deliver();
}

/// A dump does not wait for the messages about what it shows.
class VirtualKernel::Socket : public Channel {
 public:
  explicit Socket(VirtualKernel& kernel) : kernel_(kernel) { kernel_.sockets_.push_back(this); }
  ~Socket() override { std::erase(kernel_.sockets_, this); }

  int fd() const override { return -1; }
  void subscribe() override { isSubscribed = true; }
  bool request(Dump dump, U32 sequence, U32 table) override;
  Received receive(std::span<U8> buffer) override;

  void deliver(const std::vector<U8>& bytes) {
    if (!isSubscribed) return;
    overrun |= queue.size() >= (kernel_.faulty_ ? room_ : ~std::size_t{0});
    if (overrun) return kernel_.forgetFollowed();
    queue.push_back(bytes);
  }
  host::Nanos readableAt() const {
    if (overrun || !queue.empty()) return kernel_.now_;
    return isDumping_ ? std::max(partAt_, kernel_.now_) : ~host::Nanos{0};
  }

  bool isSubscribed = false;
  bool overrun = false;
  std::deque<std::vector<U8>> queue;

 private:
  bool fails(U32 oneIn) const { return kernel_.faulty_ && kernel_.dice_(oneIn) == 0; }
  std::vector<U8> part();

  VirtualKernel& kernel_;
  std::size_t room_ = 3 + kernel_.dice_(30);
  bool isDumping_ = false;
  Dump dump_{};
  U32 sequence_ = 0;
  U32 table_ = 0;
  host::Nanos partAt_ = 0;
  U64 startedAt_ = 0;  // in changes of the kernel
  std::size_t at_ = 0;
  IpGenPrefix after_;
};

bool VirtualKernel::Socket::request(Dump dump, U32 sequence, U32 table) {
  if (fails(30)) return kernel_.refusedAt_ = kernel_.now_, false;
  const bool isThere = dump != Dump::routes4 || !kernel_.tables_[table].empty();
  if (isDumping_ || !isThere || fails(30)) {
    Datagram d;
    put(d, Refused{isDumping_ || isThere ? -EBUSY : -ENOENT}, 0, sequence);
    queue.push_back(d.bytes());
    if (isDumping_ || isThere) kernel_.refusedAt_ = kernel_.now_;
    return true;
  }
  isDumping_ = true;
  dump_ = dump;
  sequence_ = sequence;
  table_ = table;
  at_ = 0;
  after_ = {};
  startedAt_ = kernel_.changes_;
  partAt_ = kernel_.now_;
  return true;
}

/// While somebody reads, others change what there is.
Channel::Received VirtualKernel::Socket::receive(std::span<U8> buffer) {
  if (fails(12) && !std::exchange(kernel_.inChange_, true)) {
    kernel_.change();
    kernel_.inChange_ = false;
  }
  if (fails(4) || !kernel_.faulty_) kernel_.deliver();
  const bool hasPart = isDumping_ && kernel_.now_ >= partAt_;
  if (fails(100)) return {Outcome::foreign, {}};
  if (std::exchange(overrun, false)) return {Outcome::lost, {}};
  if (queue.empty() && !hasPart) return {};
  std::vector<U8> bytes = queue.empty() ? part() : queue.front();
  if (!queue.empty()) queue.pop_front();
  const bool isLost = fails(100);
  const bool isCut = !isLost && !bytes.empty() && fails(100);
  if (isLost || isCut) kernel_.refusedAt_ = kernel_.now_, kernel_.forgetFollowed();
  if (isLost) return {kernel_.dice_(2) ? Outcome::truncated : Outcome::lost, {}};
  if (isCut) bytes.resize(bytes.size() - 1);
  std::copy(bytes.begin(), bytes.end(), buffer.begin());
  return {Outcome::datagram, buffer.first(bytes.size())};
}

/// Those after the last that was told, a few at a time.
std::vector<U8> VirtualKernel::Socket::part() {
  Datagram d;
  std::size_t count = kernel_.faulty_ ? 1 + kernel_.dice_(4) : ~std::size_t{0};
  const bool isOfRoutes = dump_ >= Dump::routes4;
  const bool isTorn = !isOfRoutes && startedAt_ != kernel_.changes_;
  const U16 flags = static_cast<U16>(NLM_F_MULTI | (isTorn ? NLM_F_DUMP_INTR : 0));
  const auto tell = [&](const auto& change) { put(d, change, flags, sequence_); };
  const auto tellSome = [&](const auto& records, auto changeOf) {
    for (auto it = records.begin(); it != records.end(); ++it) {
      if (static_cast<std::size_t>(std::distance(records.begin(), it)) < at_ || count == 0) continue;
      if (!isTorn || !fails(4)) tell(changeOf(*it));  // one that is torn leaves some out
      ++at_, --count;
    }
  };
  if (dump_ == Dump::links) tellSome(kernel_.links_, [](const auto& l) { return LinkChange{l.second}; });
  if (dump_ == Dump::addresses) tellSome(kernel_.addresses_, [](const auto& a) { return AddressChange{a}; });
  if (dump_ == Dump::nextHops)
    tellSome(kernel_.nextHops_, [](const auto& n) { return NextHopChange{n.second}; });
  if (dump_ == Dump::routes4) {
    const Table& table = kernel_.tables_[table_];
    for (auto it = after_.empty() ? table.begin() : table.upper_bound(after_); it != table.end() && count > 0;
         ++it) {
      for (const Route& r : it->second) tell(RouteChange{kernel_.shown(r)});
      after_ = it->first;
      count -= !it->second.empty();
    }
  }
  if (count > 0) {
    const bool fault = fails(100);
    if (fault) kernel_.refusedAt_ = kernel_.now_;
    tell(DumpEnd{fault ? -ENOBUFS : 0});
    isDumping_ = false;
  }
  partAt_ = kernel_.now_ + (fails(3) ? host::milliseconds(1) / 2 : 0);
  return d.bytes();
}

void VirtualKernel::deliver() {
  for (const auto& bytes : inFlight_) {
    for (Socket* socket : sockets_) socket->deliver(bytes);
  }
  inFlight_.clear();
}

void VirtualKernel::loseEvents() {
  inFlight_.clear();
  forgetFollowed();
  for (Socket* socket : sockets_) {
    socket->overrun |= socket->isSubscribed;
    if (socket->isSubscribed) socket->queue.clear();
  }
}

void VirtualKernel::faultyIs(bool faulty) {
  faulty_ = faulty;
  if (!faulty) deliver();
}

host::Nanos VirtualKernel::readableAt() const {
  host::Nanos at = ~host::Nanos{0};
  for (const Socket* socket : sockets_) at = std::min(at, socket->readableAt());
  return at;
}

bool VirtualKernel::isHeard() const {
  return inFlight_.empty() && std::none_of(sockets_.begin(), sockets_.end(), [](const Socket* s) {
           return s->isSubscribed && (s->overrun || !s->queue.empty());
         });
}

// ---- Writing ----

class VirtualKernel::Writer : public host::kernel::Writer {
 public:
  explicit Writer(VirtualKernel& kernel) : kernel_(kernel) {}

  std::vector<RouteFault> write(std::span<const RouteOp> ops) override {
    if (kernel_.onWrite) kernel_.onWrite(ops);
    std::vector<RouteFault> faults;
    const bool none = fails(12);
    for (std::size_t i = 0; i < ops.size(); ++i) {
      const int error = none ? ENOBUFS : fails(20) ? ENOMEM : kernel_.write(ops[i]);
      if (error == ENOBUFS || error == ENOMEM) kernel_.refusedAt_ = kernel_.now_;
      if (error != 0) faults.push_back({i, error, std::strerror(error)});
    }
    if (fails(10)) {  // somebody takes a route away at once, and nobody hears of it
      kernel_.deleteRoute(exportTable);
      kernel_.loseEvents();
    }
    return faults;
  }
  std::string rule(const UserRule&, bool) override { return fails(2) ? "no room" : ""; }
  std::vector<UserRule> rules(U8) override { return {}; }

 private:
  bool fails(U32 oneIn) const { return kernel_.faulty_ && kernel_.dice_(oneIn) == 0; }

  VirtualKernel& kernel_;
};

Access VirtualKernel::access() {
  return {[this] { return std::make_unique<Socket>(*this); },
          [this] { return std::make_unique<Writer>(*this); }};
}
