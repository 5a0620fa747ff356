#include <linux/netlink.h>

#include <cerrno>
#include <utility>

#include "Mirror.h"

// The mirror's road from one dump to the next.

namespace host::kernel {

namespace {

constexpr std::size_t sweepBudget = 20'000;  // routes at a time: about a millisecond
constexpr U32 mostAttempts = 3;              // at one dump, when changes interrupt it

/// Errors that say there is nothing to dump: no such table, no such family, a kernel without next-hop
/// objects.
bool meansNothingThere(S32 error) {
  return error == -ENOENT || error == -EOPNOTSUPP || error == -EAFNOSUPPORT;
}

}  // namespace

Mirror::Action Mirror::next(Nanos now) {
  if (!std::exchange(subscribed_, true)) return {Action::Kind::subscribe};
  if (phase_ == Phase::answering && now >= heardAt_ + settings_.patience) failed(now);
  if (phase_ == Phase::answering) return {.until = heardAt_ + settings_.patience};
  if (phase_ == Phase::sweeping) {
    if (!sweep(sweepBudget)) return {Action::Kind::proceed};
    turnToNext(now);
  }
  if (phase_ == Phase::ask) return startDump(now);
  if (now < schedule_.due()) return {.until = schedule_.due()};
  schedule_.started(now);
  dump_ = Dump::links;
  attempts_ = 0;
  return startDump(now);
}

Mirror::Action Mirror::startDump(Nanos now) {
  const Epoch epoch = ++epoch_;
  switch (dump_) {
    case Dump::links:
      topology_.links.startDump(epoch);
      break;
    case Dump::addresses:
      topology_.addresses.startDump(epoch);
      break;
    case Dump::nextHops:
      topology_.nextHops.startDump(epoch);
      break;
    case Dump::routes4:
      v4_.startDump(epoch);
      break;
    case Dump::routes6:
      v6_.startDump(epoch);
      break;
  }
  phase_ = Phase::answering;
  heardAt_ = now;
  interrupted_ = false;
  ++attempts_;
  return {Action::Kind::dump, dump_, ++sequence_};
}

void Mirror::answered(Event event, Nanos now) {
  if (phase_ != Phase::answering) return;
  if (std::holds_alternative<Malformed>(event.body)) {
    dirty(Reason::malformed, now);
    return failed(now);
  }
  if (event.sequence != sequence_) return;
  heardAt_ = now;
  interrupted_ |= (event.flags & NLM_F_DUMP_INTR) != 0;
  if (const auto* end = std::get_if<DumpEnd>(&event.body)) return dumpEnded(end->error, now);
  if (const auto* refused = std::get_if<Refused>(&event.body)) return dumpEnded(refused->error, now);
  dumped(event, now);
}

void Mirror::dumped(Event& event, Nanos now) {
  if (auto* route = std::get_if<RouteChange>(&event.body)) {
    if (!isOurs(route->route)) return;
    keepOwnPart(route->route);
    tableOf(route->route).dumped(route->route);
  }
  if (auto* link = std::get_if<LinkChange>(&event.body)) healed_ += put(std::move(link->link), now, true);
  if (const auto* address = std::get_if<AddressChange>(&event.body)) healed_ += put(address->address, true);
  if (const auto* nextHop = std::get_if<NextHopChange>(&event.body)) healed_ += put(nextHop->nextHop, true);
}

/// A dump that changes interrupt again and again is worth what it says, but not what it does not say.
void Mirror::dumpEnded(S32 error, Nanos now) {
  if (error != 0 && !meansNothingThere(error)) return failed(now);
  if (dump_ == Dump::nextHops) knowsNextHops_ = error != -EOPNOTSUPP;
  if (!interrupted_) {
    phase_ = Phase::sweeping;
  } else if (attempts_ < mostAttempts) {
    phase_ = Phase::ask;
  } else {
    dirty(Reason::interrupted, now);
    turnToNext(now);
  }
}

/// Takes away what the dump did not see, as far as the budget goes. True when done.
bool Mirror::sweep(std::size_t budget) {
  if (dump_ == Dump::routes4) return v4_.finishDump(budget);
  if (dump_ == Dump::routes6) return v6_.finishDump(budget);
  if (dump_ == Dump::links) {
    healed_ += topology_.links.sweep([&](const auto& state) { linkGone(state.link.index); });
  } else if (dump_ == Dump::addresses) {
    healed_ += topology_.addresses.sweep([&](const Address& address) { addressGone(address.link); });
  } else {
    healed_ += topology_.nextHops.sweep([&](const NextHop&) { nextHopGone(); });
  }
  return true;
}

void Mirror::turnToNext(Nanos now) {
  if (dump_ == Dump::routes4 && v4_.isUnsure()) dirty(Reason::mismatch, now);
  if (dump_ == Dump::routes6 && v6_.isUnsure()) dirty(Reason::mismatch, now);
  attempts_ = 0;
  phase_ = Phase::ask;
  const Dump last = settings_.ipv6 ? Dump::routes6 : Dump::routes4;
  if (dump_ != last) {
    dump_ = static_cast<Dump>(static_cast<U8>(dump_) + 1);
    return;
  }
  phase_ = Phase::idle;
  schedule_.ended(now);
  if (!std::exchange(synced_, true)) healedAtStart_ = healed_ + v4_.healed() + v6_.healed();
}

void Mirror::failed(Nanos now) {
  phase_ = Phase::idle;
  schedule_.failed(now);
}

}  // namespace host::kernel
