#include "inside/CBorder.h"
#include "inside/Texts.h"

// What is collected for a commit. A change that is not taken, for whatever reason, is remembered, so that a
// host need look at nothing but the commit.

namespace mrib {

namespace {

/// The text that this thread was given last, with the origins.
Refusal lastRefusal() {
  Refusal refusal{mrib_error_text(0), std::vector<U64>(mrib_error_origins(0, nullptr, 0))};
  mrib_error_origins(0, refusal.origins.data(), refusal.origins.size());
  return refusal;
}

int remember(mrib_agent::Pending& pending, int code) noexcept {
  ++pending.faultCount;
  try {
    if (pending.faults.size() < Transaction::mostTexts) pending.faults.push_back(lastRefusal());
  } catch (const std::bad_alloc&) {  // the commit is refused without this text
  }
  return code;
}

/// Lets `f` say something to the open transaction; it returns the code of what it finds wrong itself.
template <class F>
int change(const char* function, mrib_agent* agent, F f) noexcept {
  if (const int bad = check(function, agent); bad != MRIB_OK) return bad;
  if (!agent->open) {
    return fail(MRIB_ERROR_STATE, "%s: no transaction is open, mrib_begin opens one", function);
  }
  const int code = caught(function, [&](const char*) {
    Transaction& t = agent->pending.transaction;
    const std::size_t before = t.refusalCount();
    const int own = f(t, function);
    if (own != MRIB_OK || t.refusalCount() == before) return own;
    if (before >= Transaction::mostTexts) {
      return fail(MRIB_ERROR_ARGUMENT, "%s: more than %zu changes are wrong", function, before);
    }
    Refusal refusal = t.refusals().back();
    nameOrigin(refusal, {});
    return fail(MRIB_ERROR_ARGUMENT, std::vector{std::move(refusal)});
  });
  return code == MRIB_OK ? code : remember(agent->pending, code);
}

int checkReserved(const char* function, const char* what, U32 reserved) noexcept {
  if (reserved == 0) return MRIB_OK;
  return fail(MRIB_ERROR_ARGUMENT, "%s: a reserved field of the %s is %u, not 0", function, what, reserved);
}
int checkFlags(const char* function, const char* what, U32 flags, U32 known) noexcept {
  if ((flags & ~known) == 0) return MRIB_OK;
  return fail(MRIB_ERROR_ARGUMENT, "%s: the %s has unknown flags: 0x%x", function, what, flags & ~known);
}

/// A configured route as it was given.
int readMroute(const char* function, const mrib_mroute* from, Mroute& into) {
  mrib_mroute m;
  Lumo::IpGenAddr rpf;
  int code = readSized(function, "multicast route", from, m);
  if (code == MRIB_OK) code = readValue(function, "prefix", &m.prefix, into.prefix);
  if (code == MRIB_OK) code = readValue(function, "RPF address", &m.rpf_address, rpf);
  if (code != MRIB_OK) return code;
  const bool byAddress = m.rpf_address.family != MRIB_NONE;
  if (byAddress == (m.rpf_interface != nullptr)) {
    return fail(
        MRIB_ERROR_ARGUMENT, "%s: multicast route %s has %s", function, into.prefix.stringValue().c_str(),
        byAddress ? "both an RPF address and an RPF interface" : "no RPF, by address or by interface");
  }
  into.rpf = rpf;
  if (!byAddress) into.rpf = std::string(m.rpf_interface);
  into.preference = m.preference;
  into.origin = m.origin;
  return MRIB_OK;
}

int readHops(const char* function, const mrib_unicast& from, std::vector<Gateway>& into) {
  if (from.next_hop_count > 0 && !from.next_hops) return failNull(function, "array of next hops");
  into.reserve(from.next_hop_count);
  for (const mrib_next_hop& hop : std::span(from.next_hops, from.next_hop_count)) {
    Gateway gateway{{}, hop.link};
    const int code = readValue(function, "neighbour of a next hop", &hop.neighbour, gateway.gateway);
    if (code != MRIB_OK) return code;
    into.push_back(gateway);
  }
  return MRIB_OK;
}

}  // namespace

}  // namespace mrib

using mrib::change;
using mrib::readSized;
using mrib::readValue;
using mrib::Transaction;

int mrib_link_set(mrib_agent* agent, const mrib_link* link) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib_link l;
    int code = readSized(function, "link", link, l);
    if (code == MRIB_OK) code = mrib::checkReserved(function, "link", l.reserved);
    if (code == MRIB_OK) {
      code = mrib::checkFlags(function, "link", l.flags, MRIB_LINK_DOWN | MRIB_LINK_NO_CARRIER);
    }
    if (code != MRIB_OK) return code;
    t.link({l.index, l.name ? l.name : "", (l.flags & MRIB_LINK_DOWN) == 0,
            (l.flags & MRIB_LINK_NO_CARRIER) == 0});
    return code;
  });
}

int mrib_link_del(mrib_agent* agent, uint32_t index) {
  return change(__func__, agent, [&](Transaction& t, const char*) {
    t.linkDel(index);
    return MRIB_OK;
  });
}

int mrib_address_set(mrib_agent* agent, const mrib_address* address) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib_address a;
    mrib::Address into;
    int code = readSized(function, "address", address, a);
    if (code == MRIB_OK) code = mrib::checkFlags(function, "address", a.flags, MRIB_SECONDARY);
    if (code == MRIB_OK) code = readValue(function, "address", &a.ip, into.address);
    if (code != MRIB_OK) return code;
    into.link = a.link;
    into.secondary = (a.flags & MRIB_SECONDARY) != 0;
    t.address(into);
    return code;
  });
}

int mrib_address_del(mrib_agent* agent, uint32_t link, const mrib_ip* ip) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    Lumo::IpGenAddr address;
    const int code = readValue(function, "address", ip, address);
    if (code == MRIB_OK) t.addressDel(link, address);
    return code;
  });
}

int mrib_route_set(mrib_agent* agent, const mrib_unicast* route) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib_unicast r;
    mrib::Net prefix{Lumo::IpGenAddr(), 0};
    std::vector<mrib::Gateway> hops;
    int code = readSized(function, "route", route, r);
    if (code == MRIB_OK) code = mrib::checkReserved(function, "route", r.reserved);
    if (code == MRIB_OK) code = readValue(function, "prefix", &r.prefix, prefix);
    if (code == MRIB_OK && (r.type < MRIB_DROP || r.type > MRIB_CONNECTED)) {
      code = mrib::fail(MRIB_ERROR_ARGUMENT, "%s: route %s has the type %u, which is none", function,
                        prefix.stringValue().c_str(), unsigned{r.type});
    }
    if (code == MRIB_OK) code = mrib::readHops(function, r, hops);
    if (code == MRIB_OK) t.route(prefix, static_cast<mrib::RouteType>(r.type), r.preference, hops);
    return code;
  });
}

int mrib_route_del(mrib_agent* agent, const mrib_prefix* prefix) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib::Net net{Lumo::IpGenAddr(), 0};
    const int code = readValue(function, "prefix", prefix, net);
    if (code == MRIB_OK) t.routeDel(net);
    return code;
  });
}

int mrib_mroute_set(mrib_agent* agent, const mrib_mroute* mroute) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib::Mroute m{Lumo::Prefix(), {}};
    const int code = mrib::readMroute(function, mroute, m);
    if (code == MRIB_OK) t.mroute(m);
    return code;
  });
}

int mrib_mroute_del(mrib_agent* agent, const mrib_mroute* mroute) {
  return change(__func__, agent, [&](Transaction& t, const char* function) {
    mrib::Mroute m{Lumo::Prefix(), {}};
    const int code = mrib::readMroute(function, mroute, m);
    if (code == MRIB_OK) t.mrouteDel(m);
    return code;
  });
}

int mrib_mroute_del_all(mrib_agent* agent) {
  return change(__func__, agent, [&](Transaction& t, const char*) {
    t.mrouteDelAll();
    return MRIB_OK;
  });
}
