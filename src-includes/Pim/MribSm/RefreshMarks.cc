#include "Pim/MribSm/RefreshMarks.h"

#include <algorithm>

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
  all_ = true;
  fresh_ = {};
  touched_.clear();
  touchedIntfs_.clear();
}

/// Only RPFs matter to an offer; the first one that an unmarked prefix gets is held apart (see
/// `offeredNewRpf`).
void RefreshMarks::hearConfig(const ConfigChange& change) {
  const RouteKeyPrefix& entry = change.entry;
  if (!change.rpf) {
    if (entry.prefix().af() != Lumo::ipv4())
      change.present ? foreign_.insert(&entry) : foreign_.erase(&entry);
    if (!change.present) forget(entry);
    return;
  }
  change.present ? index(entry, *change.rpf) : unindex(entry, *change.rpf);
  const bool isFresh = change.present && isUnmarked(entry);
  markFresh();
  if (isFresh) {
    fresh_ = {&entry, *change.rpf, change.preference};
  } else {
    mark(entry);
  }
}

void RefreshMarks::forget(const RouteKeyPrefix& entry) {
  if (fresh_.entry == &entry) fresh_ = {};
  unmark(entry);
}

void RefreshMarks::markFresh() {
  if (!fresh_.entry) return;
  mark(*fresh_.entry);
  fresh_ = {};
}

void RefreshMarks::hearStatus(const Lumo::Prefix& prefix) {
  if (expected_ == prefix) {
    expected_.reset();
  } else {
    othersWrote_ = true;
  }
  touch(prefix);
}

void RefreshMarks::note(const Lumo::Prefix& prefix) {
  if (!listens()) return markAll();
  touched_.push_back(prefix);
  constexpr std::size_t fewNotes = 64;
  if (touched_.size() > std::max<std::size_t>(fewNotes, inputs_.config->routeCount())) markAll();
}

void RefreshMarks::touchIntf(U32 intf) {
  if (!all_ && byIntf_.from({intf, nullptr})) touchedIntfs_.push_back(intf);
}

// ---- The index ----

void RefreshMarks::indexAll() {
  byAddress_.clear();
  byIntf_.clear();
  intfAddresses_.clear();
  foreign_.clear();
  passedOver_.clear();
  marked_.clear();
  if (!inputs_.config) return;
  for (auto entry = inputs_.config->routeIterator(); entry; ++entry) {
    if (entry->prefix().af() != Lumo::ipv4()) foreign_.insert(entry.get());
    for (auto pref = entry->prefIterator(); pref; ++pref) {
      for (auto rpf = pref->rpfIterator(); rpf; ++rpf) index(*entry, *rpf);
    }
  }
}

void RefreshMarks::index(const RouteKeyPrefix& entry, const Rpf& rpf) {
  if (rpf.rpfType == Rpf::addr()) byAddress_.insert({rpf.address.v4Addr().host(), &entry});
  if (rpf.rpfType == Rpf::intf() && byIntf_.insert({rpf.intfId.value(), &entry})) {
    readIntfAddress(rpf.intfId.value());
  }
}

void RefreshMarks::unindex(const RouteKeyPrefix& entry, const Rpf& rpf) {
  if (isNamedElsewhere(entry, rpf)) return;
  if (rpf.rpfType == Rpf::addr()) byAddress_.erase({rpf.address.v4Addr().host(), &entry});
  if (rpf.rpfType == Rpf::intf() && byIntf_.erase({rpf.intfId.value(), &entry})) {
    readIntfAddress(rpf.intfId.value());
  }
}

/// Whether an entry that is configured has the RPF at another preference.
bool RefreshMarks::isNamedElsewhere(const RouteKeyPrefix& entry, const Rpf& rpf) const {
  if (!isConfigured(entry)) return false;
  for (auto pref = entry.prefIterator(); pref; ++pref) {
    if (pref->rpf(rpf)) return true;
  }
  return false;
}

/// Keeps the address of an interface that RPFs name, and forgets that of another.
void RefreshMarks::readIntfAddress(U32 intf) {
  if (const auto old = addressOfIntf_.find(intf); old != addressOfIntf_.end()) {
    intfAddresses_.erase({old->second, intf});
    addressOfIntf_.erase(old);
  }
  const User<U32>* user = byIntf_.from({intf, nullptr});
  if (!user || user->key != intf || !ipTap_.isOn()) return;
  if (const auto* entry = inputs_.ipStatus->intfAddr(Lumo::IntfId(intf))) {
    addressOfIntf_[intf] = entry->addr().host();
    intfAddresses_.insert({entry->addr().host(), intf});
  }
}

// ---- The marks ----

void RefreshMarks::mark(const RouteKeyPrefix& entry) {
  if (!all_) marked_.insert({entry.order(), &entry});
}

void RefreshMarks::unmark(const RouteKeyPrefix& entry) {
  marked_.erase({entry.order(), &entry});
  passedOver_.erase(&entry);
}

bool RefreshMarks::isConfigured(const RouteKeyPrefix& entry) const {
  return inputs_.config && inputs_.config->route(entry.prefix()) == &entry;
}

/// An offer that has left something out, or was not made to its end; if no handler has taken the prefix out.
void RefreshMarks::keepInMind(const RouteKeyPrefix& entry, bool wasOffered) {
  if (!isConfigured(entry)) return;
  if (wasOffered) {
    passedOver_.insert(&entry);
  } else {
    mark(entry);
  }
}

void RefreshMarks::offeredNewRpf(const RouteKeyPrefix& entry, const Rpf& rpf, U8 preference) {
  if (fresh_ != Fresh{&entry, rpf, preference} || all_ || !(nothingNoted() || onlyItsOwnWrites(entry)))
    return;
  fresh_ = {};
  settleOwnWrites();
}

bool RefreshMarks::onlyItsOwnWrites(const RouteKeyPrefix& entry) const {
  return !all_ && touchedIntfs_.empty() && touched_.size() == 1 && entry.prefix() == touched_.front() &&
         !othersWrote_ && listens();
}

void RefreshMarks::settleOwnWrites() {
  if (!touched_.empty()) markDependants(touched_.front());
  touched_.clear();
}

const RouteKeyPrefix* RefreshMarks::next(U64 order, const Lumo::IpGenPrefix& defaultPrefix) {
  ++refreshes_;
  if (!listens()) markAll();
  markFresh();
  settle(defaultPrefix);
  const Marked* marked = all_ ? nullptr : marked_.from({order + 1, nullptr});
  return marked ? marked->entry : nullptr;
}

/// Turns what was noted into marks.
void RefreshMarks::settle(const Lumo::IpGenPrefix& defaultPrefix) {
  for (const U32 intf : touchedIntfs_) {
    readIntfAddress(intf);
    markUsersOf(intf);
  }
  for (const Lumo::Prefix& prefix : touched_) {
    if (const auto* entry = inputs_.config->route(prefix)) mark(*entry);
    if (prefix == Lumo::Prefix()) {  // the key under which the routes of other families are looked up
      for (auto entry = foreign_.iterator(); entry; ++entry) mark(**entry);
    }
    // Nothing resolves through the default route: to have it as the longest match or none is the same.
    if (Lumo::IpGenPrefix(prefix) != defaultPrefix) markDependants(prefix);
  }
  touchedIntfs_.clear();
  touched_.clear();
  othersWrote_ = false;
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
