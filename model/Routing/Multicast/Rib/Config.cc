#include "Routing/Multicast/Rib/Config.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

namespace {

using Lumo::IpGenPrefix;
using RpfWatcher = RouteKeyPreference::NotifieeConst;
using PrefWatcher = RouteKeyPrefix::NotifieeConst;
using RouteWatcher = Config::NotifieeConst;

constexpr auto onRpf = static_cast<void (RpfWatcher::*)(const Rpf&)>(&RpfWatcher::onRpf);
constexpr auto onAnyRpf = static_cast<void (RpfWatcher::*)()>(&RpfWatcher::onRpf);
constexpr auto onPref = static_cast<void (PrefWatcher::*)(const U8&)>(&PrefWatcher::onPref);
constexpr auto onAnyPref = static_cast<void (PrefWatcher::*)()>(&PrefWatcher::onPref);
constexpr auto onRoute = static_cast<void (RouteWatcher::*)(const IpGenPrefix&)>(&RouteWatcher::onRoute);
constexpr auto onAnyRoute = static_cast<void (RouteWatcher::*)()>(&RouteWatcher::onRoute);

/// An entry that something else holds would be torn out of it.
template <class Entry>
void requireFree(const Zan::Ptr<Entry>& entry, const char* attribute) {
  if (!entry) Zan::throwRangeException("null entry parameter to " + std::string(attribute));
  if (!entry->isHeld() && !entry->isInCollection()) return;
  Zan::throwRangeException("entry parameter to " + std::string(attribute) +
                           " that is held already not allowed");
}

}  // namespace

std::string Rpf::stringValue() const {
  switch (rpfType) {
    case Type::intf:
      return "intf " + intfId.stringValue();
    case Type::addr:
      return "addr " + address.stringValue();
    default:
      return "unknown";
  }
}

RouteKeyPreference::~RouteKeyPreference() = default;

void RouteKeyPreference::rpfIs(const Rpf& rpf) {
  const Rpf added = rpf;  // the argument may be part of what a handler changes
  if (!rpf_.insert(added)) return;
  touched(added, true);
  tell<onRpf>(rpfId, added);
}

void RouteKeyPreference::rpfDel(const Rpf& rpf) {
  const Rpf removed = rpf;  // the argument may be the very element
  if (!rpf_.erase(removed)) return;
  touched(removed, false);
  tell<onRpf>(rpfId, removed);
}

void RouteKeyPreference::rpfNotifyAll() const {
  tellAll<&NotifieeConst::onRpfzanImmediate, onAnyRpf>(rpfId);
}

void RouteKeyPreference::touched(const Rpf& rpf, bool present) const {
  if (isHeld()) static_cast<RouteKeyPrefix*>(parent())->rpfTouched(preference_, rpf, present);
}

void RouteKeyPreference::zanLeft() {
  if (isHeld()) static_cast<RouteKeyPrefix*>(parent())->prefLeft(*this);
}

RouteKeyPrefix::~RouteKeyPrefix() = default;

Zan::Ptr<RouteKeyPreference> RouteKeyPrefix::prefIs(U8 preference) {
  if (RouteKeyPreference* existing = pref_.lookup(preference)) return Zan::Ptr<RouteKeyPreference>(existing);
  auto entry = Zan::create<RouteKeyPreference>(preference);
  prefIs(entry);
  return entry;
}

void RouteKeyPrefix::prefIs(const Zan::Ptr<RouteKeyPreference>& entry) {
  if (entry && pref_.lookup(entry->preference()) == entry.get()) return;
  requireFree(entry, "Routing::Multicast::Rib::RouteKeyPrefix::pref");
  const Zan::Ptr<RouteKeyPrefix> pin(this);
  const Zan::Ptr<RouteKeyPreference> added = entry;  // NOLINT: a handler may empty the caller's reference
  added->zanHeldBy(this, prefId);
  if (RouteKeyPreference* old = pref_.lookup(added->preference())) {
    old->zanOrphaned();
    prefTouched(*pref_.erase(old), false);
  }
  pref_.insert(added);
  prefTouched(*added, true);
  added->tellParent();
  tellPref(added->preference());
}

void RouteKeyPrefix::rpfTouched(U8 preference, const Rpf& rpf, bool present) const {
  if (isHeld()) static_cast<Config*>(parent())->taps().tell({*this, present, &rpf, preference});
}

void RouteKeyPrefix::prefTouched(const RouteKeyPreference& entry, bool present) const {
  if (!isHeld()) return;
  for (auto rpf = entry.rpfIterator(); rpf; ++rpf) rpfTouched(entry.preference(), *rpf, present);
  static_cast<Config*>(parent())->taps().tell({*this, true});
}

void RouteKeyPrefix::prefLeft(RouteKeyPreference& entry) {
  const Zan::Ptr<RouteKeyPrefix> pin(this);
  prefTouched(entry, false);
  entry.tellLeaving();
  entry.zanOrphaned();
  entry.tellParent();
  tellPref(entry.preference());
}

void RouteKeyPrefix::tellPref(U8 preference) const {
  tell<onPref>(prefId, preference);
}

void RouteKeyPrefix::prefNotifyAll() const {
  tellAll<&NotifieeConst::onPrefzanImmediate, onAnyPref>(prefId);
}

void RouteKeyPrefix::zanLeft() {
  if (isHeld()) static_cast<Config*>(parent())->routeLeft(*this);
}

Config::~Config() = default;

Zan::Ptr<RouteKeyPrefix> Config::routeIs(const IpGenPrefix& prefix) {
  expectations_.tell(prefix);
  if (RouteKeyPrefix* existing = route_.lookup(prefix)) return Zan::Ptr<RouteKeyPrefix>(existing);
  auto entry = Zan::create<RouteKeyPrefix>(prefix);
  entry->zanHeldBy(this, routeId);
  enter(*entry);
  tellRoute(entry->prefix());
  return entry;
}

void Config::routeIs(const Zan::Ptr<RouteKeyPrefix>& entry) {
  if (entry && route_.lookup(entry->prefix()) == entry.get()) return;
  requireFree(entry, "Routing::Multicast::Rib::Config::route");
  const Zan::Ptr<Config> pin(this);
  const Zan::Ptr<RouteKeyPrefix> added = entry;  // NOLINT: a handler may empty the caller's reference
  added->zanHeldBy(this, routeId);
  if (RouteKeyPrefix* old = route_.lookup(added->prefix())) {
    old->zanOrphaned();
    routeTouched(*route_.erase(old), false);
  }
  enter(*added);
  added->tellParent();
  tellRoute(added->prefix());
}

/// Enters an entry that this configuration holds already.
void Config::enter(RouteKeyPrefix& entry) {
  entry.order_ = nextOrder_++ & 0xFFFFFFFFFFFF;
  route_.insert(Zan::Ptr<RouteKeyPrefix>(&entry));
  routeTouched(entry, true);
}

void Config::routeTouched(const RouteKeyPrefix& entry, bool present) const {
  for (auto pref = entry.prefIterator(); pref; ++pref) {
    for (auto rpf = pref->rpfIterator(); rpf; ++rpf) taps_.tell({entry, present, &*rpf, pref->preference()});
  }
  taps_.tell({entry, present});
}

void Config::routeLeft(RouteKeyPrefix& entry) {
  const Zan::Ptr<Config> pin(this);
  routeTouched(entry, false);
  entry.tellLeaving();
  entry.zanOrphaned();
  entry.tellParent();
  tellRoute(entry.prefix());
}

void Config::tellRoute(const IpGenPrefix& prefix) const {
  tell<onRoute>(routeId, prefix);
}

void Config::routeNotifyAll() const {
  tellAll<&NotifieeConst::onRoutezanImmediate, onAnyRoute>(routeId);
}

const Zan::ZanType* RouteKeyPreference::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::RouteKeyPreference", Entity::fwkType());
  return &type;
}

std::string_view RouteKeyPreference::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case preferenceId:
      return "preference";
    case rpfId:
      return "rpf";
    default:
      return Entity::attributeName(attribute);
  }
}

const Zan::ZanType* RouteKeyPrefix::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::RouteKeyPrefix", Entity::fwkType());
  return &type;
}

std::string_view RouteKeyPrefix::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case prefixId:
      return "prefix";
    case prefId:
      return "pref";
    default:
      return Entity::attributeName(attribute);
  }
}

const Zan::ZanType* Config::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::Config", Entity::fwkType());
  return &type;
}

std::string_view Config::attributeName(Zan::AttributeId attribute) const {
  return attribute == routeId ? "route" : Entity::attributeName(attribute);
}

}  // namespace Routing::Multicast::Rib
