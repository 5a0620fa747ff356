#pragma once

#include <mrib.h>

#include <set>

#include "mrib/Agent.h"

// An agent through the C API beside one in C++, told of everything alike: whatever can be asked and heard of
// them must be the same.

namespace ctwin {

inline std::string say(const mrib_ip& value) {
  char text[MRIB_IP_TEXT];
  return value.family == MRIB_NONE ? "0.0.0.0" : mrib_ip_text(&value, text, sizeof text);
}
inline std::string say(const mrib_prefix& value) {
  char text[MRIB_PREFIX_TEXT];
  return mrib_prefix_text(&value, text, sizeof text);
}
inline std::string say(const mrib_route& r) {
  std::string text = say(r.prefix) + ' ' + std::to_string(r.type) + ' ' + std::to_string(r.preference);
  for (U32 i = 0; i < r.next_hop_count; ++i)
    text += ' ' + say(r.next_hops[i].neighbour) + '@' + std::to_string(r.next_hops[i].link);
  return text + '\n';
}
/// Some reasons have a match.
inline std::string matchOf(const mrib::Unresolved& u) {
  const bool has = u.reason == mrib::Reason::itself || u.reason == mrib::Reason::onlyDefault ||
                   u.reason == mrib::Reason::coveredBy;
  return has ? u.match.stringValue() : "";
}
inline std::string say(const mrib::Route& r) {
  std::string text =
      r.prefix.stringValue() + ' ' + std::to_string(U32(r.type)) + ' ' + std::to_string(r.preference);
  for (const mrib::NextHop& hop : r.nextHops)
    text += ' ' + hop.address.stringValue() + '@' + std::to_string(hop.link);
  return text + '\n';
}
inline std::string say(U64 generation, bool isSettled, std::size_t changes) {
  return std::to_string(generation) + (isSettled ? " settled " : " ") + std::to_string(changes) + '\n';
}

/// A route to be filled in, with room for its next hops.
struct Space {
  mrib_next_hop hops[64];
  mrib_route route{};
  Space() { route.size = sizeof route, route.next_hops = hops, route.next_hop_room = 64; }
};

inline int sayUnresolved(void* lines, const mrib_unresolved* u) {
  static_cast<std::multiset<std::string>*>(lines)->insert(
      say(u->mroute->prefix) + ": " + u->text + ' ' + std::to_string(u->reason) + ' ' +
      std::to_string(u->installed) + ' ' + say(u->address) + ' ' + say(u->match) + ' ' +
      std::to_string(u->flags) + '\n');
  return 0;
}

inline mrib_ip ip(Lumo::IpAddr address) {
  const U32 host = address.host();
  const uint8_t bytes[] = {uint8_t(host >> 24), uint8_t(host >> 16), uint8_t(host >> 8), uint8_t(host)};
  return mrib_ipv4(bytes);
}
inline mrib_prefix prefix(const Lumo::Prefix& p) {
  return mrib_ipv4_prefix(ip(p.address()).bytes, static_cast<uint8_t>(p.length()));
}
template <class Struct>
Struct sized() {
  Struct s{};
  s.size = sizeof s;
  return s;
}

}  // namespace ctwin

class CTwin {
 public:
  CTwin(mrib::Agent& one, U32 rebuildFrom) : one_(one) {
    using namespace ctwin;
    auto options = sized<mrib_options>();
    options.rebuild_from = rebuildFrom;
    two_ = mrib_create(&options);
    mrib_subscribe(two_, hear, this);
    one_.subscribe([this](const mrib::Update& u) {
      heard_ = say(u.generation, u.settled, u.changes.size());
      for (const mrib::Change& c : u.changes) heard_ += say(c.before) + say(c.after);
    });
  }
  ~CTwin() { mrib_free(two_); }
  CTwin(const CTwin&) = delete;
  CTwin& operator=(const CTwin&) = delete;

  /// The same transaction, with the outcome that it has had.
  void commit(const mrib::Transaction& t, const mrib::CommitResult& result) {
    mrib_begin(two_);
    for (const auto& op : t.linkOps()) tell(op);
    for (const auto& op : t.routeOps()) tell(op, t.hopsOf(op));
    for (const auto& op : t.mrouteOps()) tell(op, t.names());
    const bool accepted = mrib_commit(two_, nullptr) == MRIB_OK;
    heardToo_ += accepted == result.accepted ? "" : "another outcome";
    if (accepted || result.refusals.empty()) return;
    const mrib::Refusal& refusal = result.refusals.front();
    std::vector<U64> origins(refusal.origins.size() + 1);
    origins.resize(mrib_error_origins(0, origins.data(), origins.size()));
    if (refusal.text != mrib_error_text(0) || refusal.origins != origins) heardToo_ += "another refusal";
  }
  void settle() { mrib_settle(two_, nullptr); }

  /// What only one of them says, or nothing.
  std::string difference() const {
    using namespace ctwin;
    std::string first = heard_, second = heardToo_;
    for (const mrib::Route& r : one_.routes()) first += say(r);
    std::multiset<std::string> lines, linesToo;  // names are in an order of the agent's own
    for (const mrib::Unresolved& u : one_.unresolved())
      lines.insert(u.mroute.prefix.stringValue() + ": " + u.text() + ' ' + std::to_string(U32(u.reason) + 1) +
                   ' ' + std::to_string(u.installed) + ' ' + u.address.stringValue() + ' ' + matchOf(u) +
                   ' ' + std::to_string(u.anotherResolves + 2 * u.linkIsDown) + '\n');
    Space at;
    for (U32 i = 0; mrib_route_at(two_, i, &at.route) == MRIB_OK; ++i) second += say(at.route);
    mrib_visit_unresolved(two_, sayUnresolved, &linesToo);
    auto status = sized<mrib_status>();
    mrib_status_get(two_, &status);
    first += say(one_.generation(), one_.mayDiffer(), one_.healed());
    second += say(status.generation, (status.flags & MRIB_MAY_DIFFER) != 0, status.healed);
    for (const auto& line : lines) first += line;
    for (const auto& line : linesToo) second += line;
    return first == second ? "" : first + "but by the C API:\n" + second;
  }

 private:
  static void hear(void* self, const mrib_update* u) {
    using namespace ctwin;
    auto& heard = static_cast<CTwin*>(self)->heardToo_;
    Space before, after;
    heard = say(u->generation, (u->flags & MRIB_UPDATE_SETTLED) != 0, u->change_count);
    for (U32 i = 0; mrib_change_at(u, i, &before.route, &after.route) == MRIB_OK; ++i)
      heard += say(before.route) + say(after.route);
  }

  void tell(const mrib::Transaction::LinkOp& op) {
    using Kind = mrib::Transaction::LinkOp::Kind;
    auto link = ctwin::sized<mrib_link>();
    link.index = op.value.index;
    link.name = op.value.name.c_str();
    link.flags = (op.value.up ? 0 : U32{MRIB_LINK_DOWN}) | (op.value.carrier ? 0 : U32{MRIB_LINK_NO_CARRIER});
    auto address = ctwin::sized<mrib_address>();
    address.link = op.value.index;
    address.ip = ctwin::ip(op.address);
    address.flags = op.secondary ? MRIB_SECONDARY : 0;
    if (op.kind == Kind::linkIs) mrib_link_set(two_, &link);
    if (op.kind == Kind::linkDel) mrib_link_del(two_, link.index);
    if (op.kind == Kind::addressIs) mrib_address_set(two_, &address);
    if (op.kind == Kind::addressDel) mrib_address_del(two_, link.index, &address.ip);
  }
  void tell(const mrib::Transaction::RouteOp& op, std::span<const mrib::NextHop> hops) {
    std::vector<mrib_next_hop> ways;
    for (const auto& hop : hops) ways.push_back({ctwin::ip(hop.address), hop.link});
    auto route = ctwin::sized<mrib_unicast>();
    route.type = static_cast<uint8_t>(op.type);
    route.preference = op.preference;
    route.prefix = ctwin::prefix(op.prefix);
    route.next_hop_count = op.hopCount;
    route.next_hops = ways.data();
    op.present ? mrib_route_set(two_, &route) : mrib_route_del(two_, &route.prefix);
  }
  void tell(const mrib::Transaction::MrouteOp& op, const std::vector<std::string>& names) {
    auto m = ctwin::sized<mrib_mroute>();
    m.preference = op.preference;
    m.prefix = ctwin::prefix(op.prefix);
    if (op.byName) m.rpf_interface = names[op.rpf].c_str();
    if (!op.byName) m.rpf_address = ctwin::ip(Lumo::IpAddr::fromHost(op.rpf));
    m.origin = op.origin;
    if (op.kind == op.add) mrib_mroute_set(two_, &m);
    if (op.kind == op.del) mrib_mroute_del(two_, &m);
    if (op.kind == op.delAll) mrib_mroute_del_all(two_);
  }

  mrib::Agent& one_;
  mrib_agent* two_ = nullptr;
  std::string heard_, heardToo_;
};
