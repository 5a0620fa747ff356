#include "Routing/Multicast/Rib/Config.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

namespace {

using Lumo::IpGenPrefix;
using RpfWatcher = RouteKeyPreference::NotifieeConst;
using PrefWatcher = RouteKeyPrefix::NotifieeConst;
using RouteWatcher = Config::NotifieeConst;

constexpr auto onRpf = static_cast<void (RpfWatcher::*)(const Rpf&)>(&RpfWatcher::onRpf);
constexpr auto onPref = static_cast<void (PrefWatcher::*)(const U8&)>(&PrefWatcher::onPref);
constexpr auto onAnyPref = static_cast<void (PrefWatcher::*)()>(&PrefWatcher::onPref);
constexpr auto onRoute = static_cast<void (RouteWatcher::*)(const IpGenPrefix&)>(&RouteWatcher::onRoute);
constexpr auto onAnyRoute = static_cast<void (RouteWatcher::*)()>(&RouteWatcher::onRoute);

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
  if (!rpf_.insert(rpf)) return;
  touched(rpf, true);
  tell<onRpf>(rpfId, rpf);
}

void RouteKeyPreference::rpfDel(const Rpf& rpf) {
  const Rpf removed = rpf;  // the argument may be the very element
  if (!rpf_.erase(removed)) return;
  touched(removed, false);
  tell<onRpf>(rpfId, removed);
}

void RouteKeyPreference::touched(const Rpf& rpf, bool present) const {
  if (parent()) static_cast<RouteKeyPrefix*>(parent())->rpfTouched(preference_, rpf, present);
}

void RouteKeyPreference::zanLeft() {
  if (parent()) static_cast<RouteKeyPrefix*>(parent())->prefLeft(*this);
}

RouteKeyPrefix::~RouteKeyPrefix() = default;

Zan::Ptr<RouteKeyPreference> RouteKeyPrefix::prefIs(U8 preference) {
  if (RouteKeyPreference* existing = pref_.lookup(preference)) return Zan::Ptr<RouteKeyPreference>(existing);
  auto entry = Zan::create<RouteKeyPreference>(preference);
  prefIs(entry);
  return entry;
}

void RouteKeyPrefix::prefIs(const Zan::Ptr<RouteKeyPreference>& entry) {
  if (!entry)
    Zan::throwRangeException("null entry parameter to Routing::Multicast::Rib::RouteKeyPrefix::pref");
  RouteKeyPreference* old = pref_.lookup(entry->preference());
  if (old == entry.get()) return;
  if (old) {
    old->zanOrphaned();
    prefTouched(*pref_.erase(old), false);
  }
  entry->parentIs(this, prefId);
  pref_.insert(entry);
  prefTouched(*entry, true);
  tellPref(entry->preference());
}

void RouteKeyPrefix::rpfTouched(U8 preference, const Rpf& rpf, bool present) const {
  if (parent()) static_cast<Config*>(parent())->taps().tell({*this, present, &rpf, preference});
}

void RouteKeyPrefix::prefTouched(const RouteKeyPreference& entry, bool present) const {
  if (!parent()) return;
  for (auto rpf = entry.rpfIterator(); rpf; ++rpf) rpfTouched(entry.preference(), *rpf, present);
  static_cast<Config*>(parent())->taps().tell({*this, true});
}

void RouteKeyPrefix::prefLeft(RouteKeyPreference& entry) {
  prefTouched(entry, false);
  entry.tellLeaving();
  entry.parentIs(nullptr);
  tellPref(entry.preference());
}

void RouteKeyPrefix::tellPref(U8 preference) const {
  tell<onPref>(prefId, preference);
}

void RouteKeyPrefix::prefNotifyAll() const {
  tell<&NotifieeConst::onPrefzanImmediate>(prefId);
  tell<onAnyPref>(prefId);
}

void RouteKeyPrefix::zanLeft() {
  if (parent()) static_cast<Config*>(parent())->routeLeft(*this);
}

Config::~Config() = default;

Zan::Ptr<RouteKeyPrefix> Config::routeIs(const IpGenPrefix& prefix) {
  expectations_.tell(prefix);
  if (RouteKeyPrefix* existing = route_.lookup(prefix)) return Zan::Ptr<RouteKeyPrefix>(existing);
  auto entry = Zan::create<RouteKeyPrefix>(prefix);
  enter(entry);
  return entry;
}

void Config::routeIs(const Zan::Ptr<RouteKeyPrefix>& entry) {
  if (!entry) Zan::throwRangeException("null entry parameter to Routing::Multicast::Rib::Config::route");
  RouteKeyPrefix* old = route_.lookup(entry->prefix());
  if (old == entry.get()) return;
  if (old) {
    old->zanOrphaned();
    routeTouched(*route_.erase(old), false);
  }
  enter(entry);
}

void Config::enter(const Zan::Ptr<RouteKeyPrefix>& entry) {
  entry->parentIs(this, routeId);
  entry->order_ = nextOrder_++ & 0xFFFFFFFFFFFF;
  route_.insert(entry);
  routeTouched(*entry, true);
  tellRoute(entry->prefix());
}

void Config::routeTouched(const RouteKeyPrefix& entry, bool present) const {
  for (auto pref = entry.prefIterator(); pref; ++pref) {
    for (auto rpf = pref->rpfIterator(); rpf; ++rpf) taps_.tell({entry, present, &*rpf, pref->preference()});
  }
  taps_.tell({entry, present});
}

void Config::routeLeft(RouteKeyPrefix& entry) {
  routeTouched(entry, false);
  entry.tellLeaving();
  entry.parentIs(nullptr);
  tellRoute(entry.prefix());
}

void Config::tellRoute(const IpGenPrefix& prefix) const {
  tell<onRoute>(routeId, prefix);
}

void Config::routeNotifyAll() const {
  tell<&NotifieeConst::onRoutezanImmediate>(routeId);
  tell<onAnyRoute>(routeId);
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
