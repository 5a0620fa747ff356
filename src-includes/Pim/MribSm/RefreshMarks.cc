#include "Pim/MribSm/RefreshMarks.h"

#include <algorithm>
#include <new>
#include <utility>

namespace Routing::Multicast::Rib {

namespace {

U32 lastOf(const Lumo::Prefix& prefix) {
  return prefix.address().host() | ~Lumo::Prefix::mask(prefix.length());
}

}  // namespace

// ---- What is listened to ----

void RefreshMarks::inputsAre(const Inputs& inputs) {
  const auto follow = [](auto& tap, const auto* record) {
    if (record ? tap.isOn(record->taps()) : !tap.isOn()) return false;
    record ? tap.attach(record->taps()) : tap.detach();
    return true;
  };
  bool replaced = follow(configTap_, inputs.config);
  replaced |= follow(statusTap_, inputs.status);
  replaced |= follow(trieTap_, inputs.trie);
  replaced |= follow(ipTap_, inputs.ipStatus);
  replaced |= follow(intfTap_, inputs.intfStatus);
  if (!replaced) return;
  inputs_ = inputs;
  indexAll();
  markAll();
}

void RefreshMarks::markAll() {
  doubt_ = Doubt::all;
  touched_.clear();
}

/// Only RPFs matter to an offer.
void RefreshMarks::hearConfig(const ConfigChange& change) {
  const RouteKeyPrefix& entry = change.entry;
  if (!change.rpf) {
    if (!change.present) unmark(entry);
    return;
  }
  change.present ? index(entry, *change.rpf) : unindex(entry, *change.rpf);
  mark(entry);
}

void RefreshMarks::hearStatus(const Lumo::Prefix& prefix) {
  if (!offer_ || !offer_->writing_ || offer_->prefix_ != prefix) return touch(prefix);
  offer_->writing_ = false;
  offer_->wrote_ = true;
}

/// An entry of the prefix that is being offered is of no use to the offer, whoever made it.
void RefreshMarks::hearTrie(const Lumo::IpGenPrefix& prefix) {
  const Lumo::Prefix key = prefix.v4Prefix();
  if (!offer_ || offer_->prefix_ != key) return touch(key);
  offer_->wrote_ = true;
}

void RefreshMarks::hearMember(const Lumo::IpGenPrefix& prefix) {
  const Lumo::Prefix key = prefix.v4Prefix();
  if (!offer_ || !offer_->writing_ || offer_->prefix_ != key) return touch(key);
  offer_->writing_ = false;
}

/// The index goes by the present addresses at any time, so that it is right whenever it is asked.
void RefreshMarks::hearAddress(const Ip::AddressChange& change) {
  const U32 intf = change.intf.value();
  if (!isNamed(intf)) return;
  if (change.before) intfAddresses_.erase({change.before->host(), intf});
  if (const auto* now = addressOf(intf)) intfAddresses_.insert({now->addr().host(), intf});
  markUsersOf(intf);
}

void RefreshMarks::note(const Lumo::Prefix& prefix) {
  if (!listens()) return markAll();
  try {
    touched_.push_back(prefix);
  } catch (const std::bad_alloc&) {
    return markAll();
  }
  constexpr std::size_t fewNotes = 64;
  if (touched_.size() > std::max<std::size_t>(fewNotes, inputs_.config->routeCount())) markAll();
}

/// A refresh within an offer must meet the prefix that is half done, and those that resolve through it.
void RefreshMarks::disturbOffers() {
  for (Offer* offer = offer_; offer; offer = offer->outer_) {
    offer->disturbed_ = true;
    if (isConfigured(offer->entry_)) mark(offer->entry_);
    if (std::exchange(offer->wrote_, false)) settleWrites(offer->prefix_);
  }
}

// ---- The index ----

void RefreshMarks::indexAll() {
  byAddress_.clear();
  byIntf_.clear();
  intfAddresses_.clear();
  marked_.clear();
  for (auto entry = inputs_.config->routeIterator(); entry; ++entry) {
    for (auto pref = entry->prefIterator(); pref; ++pref) {
      for (auto rpf = pref->rpfIterator(); rpf; ++rpf) index(*entry, *rpf);
    }
  }
}

void RefreshMarks::index(const RouteKeyPrefix& entry, const Rpf& rpf) {
  if (rpf.rpfType == Rpf::addr()) byAddress_.insert({rpf.address.v4Addr().host(), &entry});
  if (rpf.rpfType != Rpf::intf()) return;
  const U32 intf = rpf.intfId.value();
  byIntf_.insert({intf, &entry});
  if (const auto* now = addressOf(intf)) intfAddresses_.insert({now->addr().host(), intf});
}

void RefreshMarks::unindex(const RouteKeyPrefix& entry, const Rpf& rpf) {
  if (isNamedElsewhere(entry, rpf)) return;
  if (rpf.rpfType == Rpf::addr()) byAddress_.erase({rpf.address.v4Addr().host(), &entry});
  if (rpf.rpfType != Rpf::intf()) return;
  const U32 intf = rpf.intfId.value();
  byIntf_.erase({intf, &entry});
  const auto* now = isNamed(intf) ? nullptr : addressOf(intf);
  if (now) intfAddresses_.erase({now->addr().host(), intf});
}

/// Whether an entry that is configured has the RPF at another preference.
bool RefreshMarks::isNamedElsewhere(const RouteKeyPrefix& entry, const Rpf& rpf) const {
  if (!isConfigured(entry)) return false;
  for (auto pref = entry.prefIterator(); pref; ++pref) {
    if (pref->rpf(rpf)) return true;
  }
  return false;
}

bool RefreshMarks::isNamed(U32 intf) const {
  const User* user = byIntf_.from({intf, nullptr});
  return user && user->key == intf;
}

const Ip::IntfAddr* RefreshMarks::addressOf(U32 intf) const {
  return ipTap_.isOn() ? inputs_.ipStatus->intfAddr(Lumo::IntfId(intf)) : nullptr;
}

bool RefreshMarks::isConfigured(const RouteKeyPrefix& entry) const {
  return configTap_.isOn() && inputs_.config->route(entry.prefix()) == &entry;
}

// ---- The marks ----

/// Without memory for one mark, all are marked.
void RefreshMarks::mark(const RouteKeyPrefix& entry) {
  try {
    if (doubt_ != Doubt::all) marked_.insert({entry.order(), &entry});
  } catch (const std::bad_alloc&) {
    doubt_ = Doubt::all;
  }
}

const RouteKeyPrefix* RefreshMarks::next(U64 order, const Lumo::IpGenPrefix& defaultPrefix) {
  disturbOffers();
  settle(defaultPrefix);
  const Marked* marked = allAreMarked() ? nullptr : marked_.from({order + 1, nullptr});
  return marked ? marked->entry : nullptr;
}

void RefreshMarks::settle(const Lumo::IpGenPrefix& defaultPrefix) {
  if (!listens()) markAll();
  for (const Lumo::Prefix& prefix : touched_) {
    if (const auto* entry = inputs_.config->route(prefix)) mark(*entry);
    // Nothing resolves through the default route: to have it as the longest match or none is the same, where
    // there is nothing shorter.
    if (prefix.length() > 0 || Lumo::IpGenPrefix(prefix) != defaultPrefix) markDependants(prefix);
  }
  touched_.clear();
}

/// An offer has written the route of its prefix.
void RefreshMarks::settleWrites(const Lumo::Prefix& prefix) {
  if (!listens()) markAll();
  if (doubt_ != Doubt::all) markDependants(prefix);
}

/// Marks those with an RPF address below `prefix` that has no longer match.
void RefreshMarks::markDependants(const Lumo::Prefix& prefix) {
  const U32 last = lastOf(prefix);
  // Both indexes go by the address first; those below a longer match are passed over.
  const auto walk = [&](const auto& set, auto markUser) {
    for (auto at = set.iterator({prefix.address().host(), {}}); at;) {
      const auto [address, user] = *at;
      if (address > last) return;
      const Lumo::IpGenPrefix match = inputs_.trie->longestMatch({Lumo::IpAddr::fromHost(address), 32});
      if (match.empty() || match.length() <= prefix.length()) {
        markUser(user);
        ++at;
      } else if (const U32 end = lastOf(match.v4Prefix()); end < last) {
        at = set.iterator({end + 1, {}});
      } else {
        return;
      }
    }
  };
  walk(byAddress_, [&](const RouteKeyPrefix* entry) { mark(*entry); });
  if (intfAddresses_.size() > 0) walk(intfAddresses_, [&](U32 intf) { markUsersOf(intf); });
}

void RefreshMarks::markUsersOf(U32 intf) {
  for (auto user = byIntf_.iterator({intf, nullptr}); user && user->key == intf; ++user) mark(*user->entry);
}

}  // namespace Routing::Multicast::Rib
