#include "Mirror.h"

#include <algorithm>
#include <utility>

namespace host::kernel {

Mirror::Mirror(const Settings& settings, Nanos now) : settings_(settings), schedule_(settings.schedule) {
  topology_.needsCarrier = settings.needsCarrier;
  v4_.tellEvery(settings.everyRoute);
  v6_.tellEvery(settings.everyRoute);
  dirty(Reason::start, now);
}

// Links, addresses, next hops

void Mirror::reconsiderAll() {
  v4_.reconsiderAll();
  v6_.reconsiderAll();
}

namespace {

bool sameState(const Link& a, const Link& b) {
  return a.up == b.up && a.lowerUp == b.lowerUp && a.running == b.running && a.operState == b.operState &&
         a.master == b.master && a.vrfTable == b.vrfTable;
}

}  // namespace

/// A link that goes down takes routes along; one that is new under an index has none yet, whatever is known
/// of routes over that index.
bool Mirror::put(Link link, Nanos now, bool dumped) {
  if (dumped && topology_.links.isTouched(link.index)) return false;
  const auto* known = topology_.links.find(link.index);
  const bool goesDown = known && known->value.link.up && !link.up;
  if (known && !dumped && !sameState(known->value.link, link)) dirty(Reason::linkState, now);
  if (known && known->value.link.up != link.up) reconsiderAll();
  if (known && settings_.needsCarrier && known->value.link.lowerUp != link.lowerUp) reconsiderAll();
  if (!known || goesDown) loss();
  const U32 index = link.index;
  const Epoch down = !known || goesDown ? topology_.lastLoss : known->value.down;
  Topology::LinkState state{std::move(link), down};
  const bool isNew = dumped ? topology_.links.putDumped(index, std::move(state))
                            : topology_.links.put(index, std::move(state), epoch_);
  if (isNew) changes_.links.insert(index);
  ownMayDiffer_ |= isNew;
  return isNew;
}

bool Mirror::put(const Address& address, bool dumped) {
  const auto key = Topology::keyOf(address);
  const bool isNew =
      dumped ? topology_.addresses.putDumped(key, address) : topology_.addresses.put(key, address, epoch_);
  if (isNew) changes_.addresses.insert(address.link);
  ownMayDiffer_ |= isNew;
  return isNew;
}

/// An object that is replaced stays in its groups, and of them nothing is told; unless it, or another that is
/// in one, went with its link before.
void Mirror::confirmGroupsOf(U32 replaced) {
  topology_.nextHops.confirm(
      [&](const auto& entry) {
        const auto isIn = [&](U32 id) {
          const auto* member = topology_.nextHops.find(id);
          return member && member->born <= entry.epoch &&
                 (member->value.blackhole ||
                  topology_.isConfirmed(member->value.hop, std::min(member->epoch, entry.epoch)));
        };
        const auto& group = entry.value.group;
        return std::find(group.begin(), group.end(), replaced) != group.end() &&
               std::all_of(group.begin(), group.end(), isIn);
      },
      epoch_);
}

/// One that was in doubt may lead somewhere again without being another one.
bool Mirror::put(const NextHop& nextHop, bool dumped) {
  const auto* known = topology_.nextHops.find(nextHop.id);
  const bool wasInDoubt = known && (known->epoch <= topology_.lastLoss ||
                                    std::any_of(nextHop.group.begin(), nextHop.group.end(), [&](U32 member) {
                                      return topology_.isYounger(member, known->epoch);
                                    }));
  if (known && !dumped && known->value.hop.link != nextHop.hop.link) confirmGroupsOf(nextHop.id);
  const bool isNew = dumped ? topology_.nextHops.putDumped(nextHop.id, nextHop)
                            : topology_.nextHops.put(nextHop.id, nextHop, epoch_);
  if (isNew || wasInDoubt) reconsiderAll();
  return isNew;
}

void Mirror::linkGone(U32 index) {
  loss();
  reconsiderAll();
  changes_.links.insert(index);
  ownMayDiffer_ = true;
}

void Mirror::addressGone(U32 link) {
  changes_.addresses.insert(link);
  ownMayDiffer_ = true;
}

void Mirror::nextHopGone() {
  loss();
  reconsiderAll();
}

// Events

void Mirror::tell(LinkChange& change, U16, Nanos now) {
  const auto* known = topology_.links.find(change.link.index);
  const Link* before = known ? &known->value.link : nullptr;
  if (change.gone ? before != nullptr : !before || *before != change.link) news_.link(before, change);
  if (!change.gone) {
    put(std::move(change.link), now, false);
  } else if (topology_.links.erase(change.link.index)) {
    linkGone(change.link.index);
    dirty(Reason::linkGone, now);
  }
}

void Mirror::tell(AddressChange& change, U16, Nanos now) {
  if (!change.gone) {
    const bool isFirst = !topology_.hasIpv4(change.address.link);
    if (!put(change.address, false)) return;
    news_.address(change, topology_);
    if (isFirst) dirty(Reason::addressNew, now);
  } else if (topology_.addresses.erase(Topology::keyOf(change.address))) {
    news_.address(change, topology_);
    addressGone(change.address.link);
    dirty(Reason::addressGone, now);
  }
}

void Mirror::tell(NextHopChange& change, U16, Nanos now) {
  if (!change.gone) {
    if (put(change.nextHop, false)) news_.nextHop(change);
  } else if (topology_.nextHops.erase(change.nextHop.id)) {
    news_.nextHop(change);
    nextHopGone();
    dirty(Reason::nextHopGone, now);
  }
}

bool Mirror::isOurs(const Route& route) const {
  return route.table == settings_.table && (settings_.ipv6 || route.prefix.af() == Lumo::ipv4());
}

/// A next-hop object says what the route leads to, and goes on saying it when it changes; what the route's
/// own message repeats of it (unless that is switched off) is not told again. An object that is a blackhole
/// shows as a type of route.
void Mirror::keepOwnPart(Route& route) const {
  if (!knowsNextHops_) {
    route.nextHop = 0;
  } else if (route.nextHop != 0) {
    route.hops.clear();
    if (route.type == RouteType::blackhole) route.type = RouteType::unicast;
  }
}

void Mirror::tell(RouteChange& change, U16 flags, Nanos now) {
  if (!isOurs(change.route)) return;
  keepOwnPart(change.route);
  news_.route(change, topology_);
  if (settings_.everyRoute) {
    changes_.told.push_back({change.route.prefix, change.route.metric, change.route.protocol});
  }
  const bool fits = tableOf(change.route).change(change.route, flags, change.gone, epoch_);
  if (!fits && synced_) dirty(Reason::mismatch, now);
}

void Mirror::event(Event event, Nanos now) {
  std::visit(
      [&](auto& body) {
        using Body = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<Body, SettingChange>) {
          dirty(Reason::setting, now);
        } else if constexpr (std::is_same_v<Body, Lost>) {
          lost(Reason::overrun, now);
        } else if constexpr (std::is_same_v<Body, Malformed>) {
          lost(Reason::malformed, now);
        } else if constexpr (!std::is_same_v<Body, DumpEnd> && !std::is_same_v<Body, Refused>) {
          tell(body, event.flags, now);
        }
      },
      event.body);
}

void Mirror::lost(Reason reason, Nanos now) {
  if (reason == Reason::overrun) ++overruns_;
  dirty(reason, now);
}

// Answers

void Mirror::refreshOwn() {
  if (!std::exchange(ownMayDiffer_, false)) return;
  std::map<IpGenAddr, U32> own = topology_.ownAddresses(settings_.table);
  const auto tell = [&](const IpGenAddr& address, U32 link) {
    if (address.af() == Lumo::ipv4()) return v4_.own(IpGenPrefix(address.v4Addr(), 32), link);
    if (settings_.ipv6) v6_.own(Lumo::Ip6Prefix(address.v6Addr(), 128), link);
  };
  for (const auto& [address, link] : own_) {
    if (!own.contains(address)) tell(address, 0);
  }
  for (const auto& [address, link] : own) {
    const auto known = own_.find(address);
    if (known == own_.end() || known->second != link) tell(address, link);
  }
  own_.swap(own);
}

Mirror::Changes Mirror::takeChanges(std::size_t limit) {
  refreshOwn();
  Changes changes = std::exchange(changes_, {});
  const bool anyNamed = v4_.hasNamed() || v6_.hasNamed();
  const bool done4 = v4_.settle(limit, changes.prefixes);
  const bool done6 = v6_.settle(limit, changes.prefixes);
  changes.complete = done4 && done6;
  changes.named = anyNamed && !v4_.hasNamed() && !v6_.hasNamed();
  return changes;
}

News Mirror::news() const {
  News news = news_;
  news.healed(counters().healed - healedTold_);
  return news;
}

News Mirror::takeNews() {
  News taken = news();
  healedTold_ = counters().healed;
  news_ = {};
  return taken;
}

Mirror::Counters Mirror::counters() const {
  const U64 healed = healed_ + v4_.healed() + v6_.healed();
  return {overruns_, synced_ ? healed - healedAtStart_ : 0, schedule_.resyncs(), schedule_.lastDuration()};
}

}  // namespace host::kernel
