#include <algorithm>

#include "inside/CBorder.h"

// What is asked of an agent. The look-ups allocate nothing.

namespace mrib {

namespace {

// A look-up writes its answer where it belongs: to make it elsewhere and copy it would cost as much again.

/// Of an address or a prefix.
template <class T>
void putV4(Lumo::IpAddr address, T& into) {
  const U32 network = address.network();
  into.family = MRIB_IPV4;
  std::memset(into.padding, 0, sizeof into.padding);
  std::memcpy(into.bytes, &network, sizeof network);
  std::memset(into.bytes + sizeof network, 0, sizeof into.bytes - sizeof network);
}

/// 0.0.0.0 is the link itself.
void put(const NextHop& hop, mrib_next_hop& into) {
  putV4(hop.address, into.neighbour);
  if (hop.address == Lumo::IpAddr()) into.neighbour.family = MRIB_NONE;
  into.link = hop.link;
}

/// Next hops go to the caller's array, if his struct is one that has it.
void writeHops(const NextHops& hops, mrib_route& into) {
  if (into.size < sizeof into) return;
  into.reserved2 = 0;
  const U32 count = into.next_hops ? std::min(hops.size(), into.next_hop_room) : 0;
  for (U32 i = 0; i < count; ++i) put(hops[i], into.next_hops[i]);
  if (into.size > sizeof into) std::memset(&into + 1, 0, into.size - sizeof into);
}

void writeRoute(const Route& route, mrib_route& into) {
  into.type = static_cast<U8>(route.type);
  into.preference = route.preference;
  into.reserved = 0;
  putV4(route.prefix.address(), into.prefix);
  into.prefix.length = route.prefix.length();
  into.next_hop_count = route.nextHops.size();
  writeHops(route.nextHops, into);
}

int answer(const Route* route, mrib_route* into) {
  if (!route) return MRIB_NOT_FOUND;
  writeRoute(*route, *into);
  return MRIB_OK;
}

mrib_mroute mrouteOf(const Mroute& m) {
  mrib_mroute out{};
  out.size = sizeof out;
  out.preference = m.preference;
  out.prefix = cOf(Lumo::Prefix(m.prefix.address.v4Addr(), m.prefix.length));
  if (const auto* address = std::get_if<Lumo::IpGenAddr>(&m.rpf)) out.rpf_address = cOf(*address);
  if (const auto* name = std::get_if<std::string>(&m.rpf)) out.rpf_interface = name->c_str();
  out.origin = m.origin;
  return out;
}

mrib_reason reasonOf(Reason reason) {
  switch (reason) {
    case Reason::noInterface:
      return MRIB_REASON_NO_INTERFACE;
    case Reason::noAddress:
      return MRIB_REASON_NO_ADDRESS;
    case Reason::noRoute:
      return MRIB_REASON_NO_ROUTE;
    case Reason::onlyDefault:
      return MRIB_REASON_ONLY_DEFAULT;
    case Reason::itself:
      return MRIB_REASON_ITSELF;
    case Reason::coveredBy:
      return MRIB_REASON_COVERED;
    case Reason::heldBack:
      return MRIB_REASON_HELD_BACK;
    case Reason::waiting:
      return MRIB_REASON_WAITING;
    case Reason::unsettled:
      break;
  }
  return MRIB_REASON_UNSETTLED;
}

bool hasMatch(Reason reason) {
  return reason == Reason::onlyDefault || reason == Reason::itself || reason == Reason::coveredBy;
}

int checkPrefix(const char* function, const mrib_prefix* prefix) noexcept {
  if (!prefix) return failNull(function, "prefix");
  if (prefix->family != MRIB_IPV4) return failFamily(function, "prefix", prefix->family);
  if (prefix->length > Lumo::Prefix::maxLength) {
    return fail(MRIB_ERROR_ARGUMENT, "%s: the length of the prefix is %u, over 32", function,
                unsigned{prefix->length});
  }
  if ((v4Of(*prefix).host() & ~Lumo::Prefix::mask(prefix->length)) == 0) return MRIB_OK;
  return fail(MRIB_ERROR_ARGUMENT, "%s: the prefix has host bits set", function);
}

/// All but the two that it points to.
mrib_unresolved unresolvedOf(const Unresolved& u) {
  mrib_unresolved out{};
  out.size = sizeof out;
  out.reason = reasonOf(u.reason);
  if (u.address != Lumo::IpAddr()) out.address = cOf(u.address);
  if (hasMatch(u.reason)) out.match = cOf(u.match);
  out.installed = u.installed;
  if (u.anotherResolves) out.flags |= MRIB_ANOTHER_RESOLVES;
  if (u.linkIsDown) out.flags |= MRIB_RPF_LINK_DOWN;
  return out;
}

/// Calls a visitor with each of `all` until it has enough.
template <class T, class Visit>
int visitAll(mrib_agent& agent, const std::vector<T>& all, Visit visit) {
  const InCallback inside(agent);
  for (const T& each : all) {
    if (const int stop = visit(each); stop != 0) return stop;
  }
  return MRIB_OK;
}

}  // namespace

}  // namespace mrib

using mrib::checkSized;
using mrib::with;

int mrib_rpf(const mrib_agent* agent, const mrib_ip* source, mrib_route* route) {
  return with(__func__, agent, [&](const char* function) {
    if (!source) return mrib::failNull(function, "source");
    if (source->family != MRIB_IPV4) return mrib::failFamily(function, "source", source->family);
    if (const int code = checkSized(function, "route", route); code != MRIB_OK) return code;
    return mrib::answer(agent->agent.rpf(mrib::v4Of(*source)), route);
  });
}

int mrib_route_get(const mrib_agent* agent, const mrib_prefix* prefix, mrib_route* route) {
  return with(__func__, agent, [&](const char* function) {
    if (const int code = mrib::checkPrefix(function, prefix); code != MRIB_OK) return code;
    if (const int code = checkSized(function, "route", route); code != MRIB_OK) return code;
    return mrib::answer(agent->agent.route({mrib::v4Of(*prefix), prefix->length}), route);
  });
}

int mrib_route_at(const mrib_agent* agent, uint32_t i, mrib_route* route) {
  return with(__func__, agent, [&](const char* function) {
    if (const int code = checkSized(function, "route", route); code != MRIB_OK) return code;
    const mrib::Routes all = agent->agent.routes();
    return mrib::answer(i < all.size() ? &all[i] : nullptr, route);
  });
}

int mrib_change_at(const mrib_update* update, uint32_t i, mrib_route* before, mrib_route* after) {
  int code = checkSized(__func__, "update", update);
  if (code == MRIB_OK && !update->changes) code = mrib::failNull(__func__, "list of changes");
  if (code == MRIB_OK && before) code = checkSized(__func__, "route before", before);
  if (code == MRIB_OK && after) code = checkSized(__func__, "route after", after);
  if (code != MRIB_OK) return code;
  const std::span<const mrib::Change> all = update->changes->all;
  if (i >= all.size()) return MRIB_NOT_FOUND;
  if (before) mrib::writeRoute(all[i].before, *before);
  if (after) mrib::writeRoute(all[i].after, *after);
  return MRIB_OK;
}

int mrib_link_get(const mrib_agent* agent, uint32_t index, mrib_link* link) {
  return with(__func__, agent, [&](const char* function) {
    if (const int code = checkSized(function, "link", link); code != MRIB_OK) return code;
    // The agent would be made anew for this, which is nothing for a call that others run beside.
    if (agent->agent.lacksMemory())
      return mrib::fail(MRIB_ERROR_MEMORY, "%s: there was none for the last commit or settling", function);
    const mrib::Link* found = agent->agent.link(index);
    if (!found) return int{MRIB_NOT_FOUND};
    mrib_link now{};
    now.index = index;
    now.name = found->name.c_str();
    if (!found->up) now.flags |= MRIB_LINK_DOWN;
    if (!found->carrier) now.flags |= MRIB_LINK_NO_CARRIER;
    mrib::writeSized(now, link);
    return int{MRIB_OK};
  });
}

int mrib_visit_mroutes(mrib_agent* agent, mrib_mroute_visitor* visitor, void* context) {
  return with(__func__, agent, [&](const char* function) {
    if (!visitor) return mrib::failNull(function, "visitor");
    return mrib::visitAll(*agent, agent->agent.mroutes(), [&](const mrib::Mroute& m) {
      const mrib_mroute out = mrib::mrouteOf(m);
      return visitor(context, &out);
    });
  });
}

int mrib_visit_unresolved(mrib_agent* agent, mrib_unresolved_visitor* visitor, void* context) {
  return with(__func__, agent, [&](const char* function) {
    if (!visitor) return mrib::failNull(function, "visitor");
    return mrib::visitAll(*agent, agent->agent.unresolved(), [&](const mrib::Unresolved& u) {
      const mrib_mroute mroute = mrib::mrouteOf(u.mroute);
      const std::string text = u.text();
      mrib_unresolved out = mrib::unresolvedOf(u);
      out.mroute = &mroute;
      out.text = text.c_str();
      return visitor(context, &out);
    });
  });
}
