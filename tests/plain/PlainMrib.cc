#include "PlainMrib.h"

namespace plain {

namespace {

const std::string sm = "void Routing::Multicast::Rib::MribSm::";
const std::string resolver = "Routing::Multicast::Rib::RouteResolverSm::";
const std::string builder = "void Routing::Multicast::Rib::MribTrieBuilderSm::";
const std::string pref = sm + "ZanMribConfigPrefix::ZanMribConfigPref::";
const std::string sAdd =
    "S32 " + resolver +
    "doAddOrUpdateRoute(const Routing::Multicast::Rib::Rpf&, const Lumo::IpGenPrefix&, U8)";
const std::string sDelRpf =
    "S32 " + resolver + "doDelRpf(const Routing::Multicast::Rib::Rpf&, const Lumo::IpGenPrefix&)";
const std::string sDelRoute = "void " + resolver + "doDelRoute(const Lumo::IpGenPrefix&)";
const std::string sAddWatch =
    "void " + resolver + "doAddWatchPrefix(const Lumo::IpGenPrefix&, const Lumo::IpGenPrefix&)";
const std::string sDelWatch = "void " + resolver +
                              "doDelWatchPrefix(const Lumo::IpGenPrefix&, const "
                              "Routing::Multicast::Rib::PrefixSet::Ptr&)";
const std::string sRefresh = "void " + resolver + "doMaybeRefreshRoutes(const Lumo::IpGenPrefix&, bool)";
const std::string sDelete = "void " + resolver +
                            "doRecursiveDelete(const Routing::Multicast::Rib::Route::PtrConst&, const "
                            "Routing::Multicast::Rib::PrefixSet::Ptr&)";
const std::string sUpdate =
    "void " + resolver + "doRecursiveUpdate(const Routing::Multicast::Rib::PrefixSet::Ptr&)";
const std::string sRpf = pref + "handleRpf(const Routing::Multicast::Rib::Rpf&)";
constexpr int deepest = 200;

std::string str(const IpGenPrefix& p) {
  return p.stringValue();
}

/// Of what is not IPv4 there are reactors, and no more.
bool isResolvable(const IpGenPrefix& p) {
  return p.af() == Lumo::ipv4();
}

bool covers(const IpGenPrefix& wide, const IpGenPrefix& p) {
  return wide.length() <= p.length() && wide.v4Prefix().contains(p.v4Prefix().address());
}

}  // namespace

std::string Rpf::text() const {
  return type == 1 ? "intf " + std::to_string(intf) : "addr " + address.stringValue();
}

std::string Via::text() const {
  return hop.stringValue() + (intf.object ? " on " + intf.name : "");
}

std::string RouteState::text() const {
  std::string t = str(prefix) + " p" + std::to_string(preference) + " t" + std::to_string(type) + " [";
  for (const Via& v : vias) t += (t.back() == '[' ? "" : ", ") + v.text();
  t += "] {";
  for (const SetPtr& s : sets) t += str(s->lpm) + ",";
  return t + "}";
}

PlainMrib PlainMrib::copy() const {
  PlainMrib all(*this);
  std::map<SetPtr, SetPtr> copies;
  const auto own = [&](SetPtr& set) {
    SetPtr& its = copies[set];
    if (!its) its = std::make_shared<Set>(*set);
    set = its;
  };
  for (auto& [lpm, set] : all.sets_) own(set);
  for (RouteState& r : all.routes_) std::for_each(r.sets.begin(), r.sets.end(), own);
  std::for_each(all.held.begin(), all.held.end(), own);
  return all;
}

std::string PlainMrib::state() const {
  std::string t;
  for (const RouteState& r : routes_) t += r.text() + "\n";
  for (const auto& [lpm, set] : sets_) {
    t.append("set ").append(str(lpm)) += ':';
    for (const IpGenPrefix& m : set->members) (t += ' ') += str(m);
    t += "\n";
  }
  t += "trie";
  for (const IpGenPrefix& p : trie_) (t += ' ') += str(p);
  return t + "\ndeleted " + std::to_string(deletedPreference_) + " updates " + std::to_string(trieUpdates_) +
         "\n";
}

// ---- The MRIB status and its trie ----

RouteState& PlainMrib::newRoute(const IpGenPrefix& prefix) {
  if (RouteState* r = route(prefix)) return *r;
  routes_.push_back({prefix, 0, 0, {}, {}});
  return routes_.back();
}

void PlainMrib::deleteRoute(const IpGenPrefix& prefix) {
  const RouteState* r = route(prefix);
  if (!r) return;
  sayTrie(8, builder + "ZanRoute::handleDel()Route with prefix " + str(prefix) + " and preference " +
                 static_cast<char>(r->preference) + " about to be deleted ");
  deletedPreference_ = r->preference;
  trie_.erase(prefix);
  ++trieUpdates_;
  routes_.erase(routes_.begin() + (r - routes_.data()));
}

void PlainMrib::enterTrie(const IpGenPrefix& prefix) {
  if (trie_.insert(prefix).second) ++trieUpdates_;
  deletedPreference_ = 0;
}

void PlainMrib::addVia(const IpGenPrefix& prefix, const Via& via) {
  auto& vias = route(prefix)->vias;
  if (std::find(vias.begin(), vias.end(), via) != vias.end()) return;
  vias.push_back(via);
  sayTrie(8, builder + "ZanRoute::handleVia(const Routing::Fib::Via&)( " + via.text() + " ) Addition");
  enterTrie(prefix);
}

bool PlainMrib::delVia(const IpGenPrefix& prefix, const Via& via) {
  auto& vias = route(prefix)->vias;
  const auto it = std::find(vias.begin(), vias.end(), via);
  if (it == vias.end()) return false;
  vias.erase(it);
  sayTrie(8, builder + "ZanRoute::handleVia(const Routing::Fib::Via&)( " + via.text() + " ) Deletion");
  enterTrie(prefix);
  return true;
}

void PlainMrib::setPreference(const IpGenPrefix& prefix, int preference) {
  RouteState* r = route(prefix);
  if (r->preference == preference) return;
  r->preference = preference;
  sayTrie(8, builder + "ZanRoute::handlePreference()");
  if (!r->vias.empty()) enterTrie(prefix);
}

void PlainMrib::delAllVias(const IpGenPrefix& prefix) {
  while (!route(prefix)->vias.empty()) delVia(prefix, Via(route(prefix)->vias.front()));
}

IpGenPrefix PlainMrib::longestMatch(const IpGenPrefix& prefix) const {
  IpGenPrefix best;
  for (const IpGenPrefix& p : trie_) {
    if (covers(p, prefix) && (best.empty() || p.length() > best.length())) best = p;
  }
  return best;
}

// ---- Start and unicast changes ----

void PlainMrib::copyConnected(const UnicastRoute& u) {
  newRoute(u.prefix);
  setPreference(u.prefix, u.preference);
  route(u.prefix)->type = 7;
  const Intfs& intfs = intfTables[resolverIntfs];
  for (const auto& [hop, intf] : u.vias) {
    const auto it = intfs.find(intf);
    addVia(u.prefix, {hop, it == intfs.end() ? Intf{} : it->second});
    say(8, "Added via " + hop.stringValue());
  }
}

void PlainMrib::start(const std::vector<IpGenPrefix>& tableOrder, const IpGenPrefix& changedRoute) {
  started = true;
  asleep = zombie = false;
  reactors_.clear();
  trie_.clear();
  for (const RouteState& r : routes_) trie_.insert(r.prefix);
  trieUpdates_ = static_cast<U32>(routes_.size());
  deletedPreference_ = 0;
  smDefaultPrefix = IpGenPrefix("0.0.0.0/0");
  resolverIntfs = intfsInUse;
  const std::string count = std::to_string(routes_.size());
  say(8, sm + "handleInitialize()");
  sayTrie(8, builder + "handleInitialize()");
  sayTrie(8, builder + "handleRoute()");
  sayTrie(0, "Trie built with " + count + " nodes  and " + count + " routes");
  newResolver(tableOrder, changedRoute);
  reconcilePrefixes();
}

void PlainMrib::newResolver(const std::vector<IpGenPrefix>& tableOrder, const IpGenPrefix& changedRoute) {
  sets_.clear();
  say(8, "void " + resolver + "handleInitialize()");
  for (const IpGenPrefix& p : tableOrder) {
    const UnicastRoute& u = *unicastRoute(p);
    if (!u.connected || u.vias.empty()) continue;
    copyConnected(u);
    say(5, "void " + resolver + "handleInitialize()Added connected route " + str(p) + "into Mrib status");
  }
  defaultPrefix = IpGenPrefix("0.0.0.0/0");
  unicastChanged(changedRoute);
}

void PlainMrib::unicastChanged(const IpGenPrefix& prefix) {
  if (!started || asleep) return;
  const std::string s = "void " + resolver + "handleChangedRoute()";
  say(8, s);
  if (prefix.empty()) return;
  const UnicastRoute* u = unicastRoute(prefix);
  say(5, s + "Unicast route " + str(prefix) + (u ? " Added/Updated" : " Deleted"));
  const RouteState* r = route(prefix);
  if (!u) {
    if (r && r->type == 7) refresh(prefix, false);
    return;
  }
  if (u->connected && !u->vias.empty() && !r) {
    copyConnected(*u);
    say(5, s + "New connected route " + str(prefix) + "added to Mrib");
  }
  refresh({}, true);
}

// ---- The reactors on the configuration ----

/// The reactor that hears of changes of the present entry of a prefix.
PlainMrib::Reactor* PlainMrib::watcher(const IpGenPrefix& prefix) {
  Reactor* r = hearsConfig() ? reactor(prefix) : nullptr;
  return r && r->object == entry(prefix)->object ? r : nullptr;
}

void PlainMrib::watchPrefix(const Entry& entry) {
  Reactor* r = reactor(entry.prefix);
  if (r && r->object == entry.object) return;
  if (!r) r = &reactors_.emplace_back(Reactor{entry.prefix, 0, {}});
  r->object = entry.object;
  reconcilePreferences(IpGenPrefix(entry.prefix));
}

void PlainMrib::watchPreference(const IpGenPrefix& prefix, int preference) {
  auto& prefs = reactor(prefix)->prefs;
  const int object = entry(prefix)->prefs.at(preference).object;
  const auto it =
      std::find_if(prefs.begin(), prefs.end(), [&](const auto& p) { return p.first == preference; });
  if (it == prefs.end()) {
    prefs.emplace_back(preference, object);
  } else if (it->second == object) {
    return;
  } else {
    it->second = object;
  }
  handleRpfs(prefix, preference);
}

void PlainMrib::unwatchPreference(const IpGenPrefix& prefix, int preference) {
  if (std::erase_if(reactor(prefix)->prefs, [&](const auto& p) { return p.first == preference; }) == 0)
    return;
  say(8, pref + "handleDel()" + std::to_string(preference));
  if (!isResolvable(prefix)) return;
  if (offerInOrder(prefix)) return refresh(prefix, true);
  const RouteState* r = route(prefix);
  if (r && r->preference == preference) refresh(prefix, false);
}

void PlainMrib::unwatchPrefix(const IpGenPrefix& prefix) {
  if (std::erase_if(reactors_, [&](const Reactor& r) { return r.prefix == prefix; }) == 0) return;
  say(8, sm + "ZanMribConfigPrefix::handleDel()" + str(prefix));
  if (isResolvable(prefix)) refresh(prefix, false);
}

void PlainMrib::reconcilePreferences(const IpGenPrefix& prefix) {
  const auto prefs = entry(prefix)->prefs;
  for (const auto& [preference, configured] : prefs) watchPreference(prefix, preference);
  const auto watched = reactor(prefix)->prefs;
  for (const auto& [preference, object] : watched) {
    if (!prefs.contains(preference)) unwatchPreference(prefix, preference);
  }
}

void PlainMrib::reconcilePrefixes() {
  for (std::size_t i = 0; i < config().size(); ++i) watchPrefix(config()[i]);
  const auto watched = reactors_;
  for (const Reactor& r : watched) {
    if (!entry(r.prefix)) unwatchPrefix(r.prefix);
  }
}

// ---- Configuration ----

void PlainMrib::prefixAdded(const IpGenPrefix& prefix) {
  if (entry(prefix)) return;
  config().push_back({prefix, nextObject_++, {}});
  if (hearsConfig()) watchPrefix(config().back());
}

void PlainMrib::prefixDeleted(const IpGenPrefix& prefix) {
  std::erase_if(config(), [&](const Entry& e) { return e.prefix == prefix; });
  if (hearsConfig()) unwatchPrefix(prefix);
}

void PlainMrib::preferenceAdded(const IpGenPrefix& prefix, int preference) {
  if (!entry(prefix)->prefs.try_emplace(preference, Pref{nextObject_++, {}}).second) return;
  if (watcher(prefix)) watchPreference(prefix, preference);
}

void PlainMrib::preferenceDeleted(const IpGenPrefix& prefix, int preference) {
  entry(prefix)->prefs.erase(preference);
  if (watcher(prefix)) unwatchPreference(prefix, preference);
}

void PlainMrib::rpfAdded(const IpGenPrefix& prefix, int preference, const Rpf& rpf) {
  if (entry(prefix)->prefs.at(preference).rpfs.insert(rpf).second) rpfTouched(prefix, preference, rpf);
}

void PlainMrib::rpfDeleted(const IpGenPrefix& prefix, int preference, const Rpf& rpf) {
  if (entry(prefix)->prefs.at(preference).rpfs.erase(rpf)) rpfTouched(prefix, preference, rpf);
}

void PlainMrib::rpfTouched(const IpGenPrefix& prefix, int preference, const Rpf& rpf) {
  const Reactor* r = watcher(prefix);
  const std::pair watched(preference, entry(prefix)->prefs.at(preference).object);
  if (r && std::find(r->prefs.begin(), r->prefs.end(), watched) != r->prefs.end())
    handleRpf(prefix, preference, rpf);
}

void PlainMrib::everyPrefixMayHaveChanged() {
  if (hearsConfig()) reconcilePrefixes();
}

void PlainMrib::everyPreferenceMayHaveChanged(const IpGenPrefix& prefix) {
  if (watcher(prefix)) reconcilePreferences(prefix);
}

void PlainMrib::configReplaced(std::size_t by) {
  configInUse = by;
  reconcilePrefixes();
}

void PlainMrib::handleRpfs(const IpGenPrefix& prefix, int preference) {
  say(8, pref + "handleRpf()" + std::to_string(preference));
  for (const Rpf& rpf : entry(prefix)->prefs.at(preference).rpfs) handleRpf(prefix, preference, rpf);
}

void PlainMrib::handleRpf(const IpGenPrefix& prefix, int preference, const Rpf& rpf) {
  say(5, sRpf + "( " + rpf.text() + " ) for prefix " + str(prefix) + " with preference " +
             std::to_string(preference));
  if (!isResolvable(prefix)) return;
  const auto& prefs = entry(prefix)->prefs;
  const bool present = prefs.at(preference).rpfs.contains(rpf);
  const IpGenPrefix lpm = longestMatch(prefix);
  const int best = prefs.begin()->first;
  if (preference != best) {
    say(8, sRpf + "Not processing because route exists with " + std::to_string(best) + " preference");
    return;
  }
  if (present) {
    addOrUpdate(rpf, prefix, preference);
    refresh(lpm.empty() ? lpm : prefix, true);
    return;
  }
  if (lpm.empty() || (lpm == smDefaultPrefix && prefix != lpm)) {
    say(5, sRpf + "Prefix " + str(prefix) + " Already deleted. Nothing to do.");
    return;
  }
  recursiveDelete(lpm, setOf(lpm));
  delRpf(rpf, prefix);
  if (!offerInOrder(prefix)) delRoute(lpm);
  recursiveUpdate(setOf(lpm), 0);
}

bool PlainMrib::offer(const IpGenPrefix& prefix, int preference) {
  bool installed = false;
  for (const Rpf& rpf : entry(prefix)->prefs.at(preference).rpfs) {
    installed |= addOrUpdate(rpf, prefix, preference) != -1;
  }
  return installed;
}

/// Offers the preferences until one installs; whether one did.
bool PlainMrib::offerInOrder(const IpGenPrefix& prefix) {
  const auto& prefs = entry(prefix)->prefs;
  return std::any_of(prefs.begin(), prefs.end(), [&](const auto& p) { return offer(prefix, p.first); });
}

// ---- One RPF ----

std::optional<IpAddr> PlainMrib::rpfAddress(const Rpf& rpf) const {
  if (rpf.type == 2) return rpf.address;
  const Addresses& addresses = addressTables[addressesInUse];
  const auto it = addresses.find(rpf.intf);
  return it == addresses.end() ? std::nullopt : std::optional(it->second);
}

std::vector<Via> PlainMrib::candidates(const Rpf& rpf, IpAddr hop, const IpGenPrefix& lpm) {
  if (rpf.type == 1) {
    const auto it = intfs().find(rpf.intf);
    return {{hop, it == intfs().end() ? Intf{} : it->second}};
  }
  const RouteState* r = route(lpm);
  if (!r) throw Forbidden("no route for the longest match");
  std::vector<Via> vias = r->vias;
  if (r->type == 7) {
    for (Via& v : vias) v.hop = hop;
  }
  return vias;
}

bool PlainMrib::rejects(const IpGenPrefix& lpm, const IpGenPrefix& prefix) const {
  if (lpm.empty() || lpm == prefix || lpm == defaultPrefix) return true;
  if (lpm.length() >= prefix.length()) return false;
  if (lpm.length() == 0) return lpm.v4Prefix().address() == prefix.v4Prefix().address();
  return covers(lpm, prefix);
}

int PlainMrib::addOrUpdate(const Rpf& rpf, const IpGenPrefix& prefix, int preference) {
  const std::string number = std::to_string(preference);
  say(8, sAdd + "( " + rpf.text() + ", " + str(prefix) + ", " + number + " )");
  if (!isResolvable(prefix)) return -1;
  const auto hop = rpfAddress(rpf);
  if (!hop) {
    say(8, sAdd + "Could not find an IP address on  " + std::to_string(rpf.intf));
    return -1;
  }
  const IpGenPrefix lpm = longestMatch({*hop, 32});
  if (rejects(lpm, prefix)) {
    say(8, sAdd + "Rejecting add/update for lpm " + str(lpm));
    return -1;
  }
  say(8, sAdd + " Longest prefix match for " + hop->stringValue() + " is " + str(lpm));
  if (!route(prefix)) {
    newRoute(prefix);
    setPreference(prefix, preference);
    route(prefix)->type = 4;
    for (const Via& v : candidates(rpf, *hop, lpm)) {
      addVia(prefix, v);
      say(8, "Added via " + v.hop.stringValue());
    }
    say(5, "Added route " + str(prefix) + " with preference " + number);
    addWatch(lpm, prefix);
    return 0;
  }
  if (route(prefix)->preference != preference) {
    say(8, sAdd + " Preference changed from " + std::to_string(route(prefix)->preference) + " to " + number);
    setPreference(prefix, preference);
    delAllVias(prefix);
    delWatch(prefix, nullptr);
  }
  bool added = false;
  for (const Via& v : candidates(rpf, *hop, lpm)) {
    const auto& vias = route(prefix)->vias;
    if (std::find(vias.begin(), vias.end(), v) != vias.end()) continue;
    addVia(prefix, v);
    say(8, "Added via " + v.hop.stringValue());
    added = true;
  }
  addWatch(lpm, prefix);
  if (!added) return 17;
  say(5, "Updated route " + str(prefix) + " with preference " + number);
  return 0;
}

void PlainMrib::delRpf(const Rpf& rpf, const IpGenPrefix& prefix) {
  say(8, sDelRpf + "( " + rpf.text() + ", " + str(prefix) + " )");
  const RouteState* r = route(prefix);
  if (!r) {
    say(5, sDelRpf + "Nothing to do. Route already deleted");
    return;
  }
  const int preference = r->preference;
  if (!entry(prefix) || !entry(prefix)->prefs.contains(preference))
    throw Forbidden("no entry at the preference");
  if (entry(prefix)->prefs.at(preference).rpfs.empty()) {
    say(5, sDelRpf + " Deleted route " + str(prefix) + " with preference " + std::to_string(preference));
    delRoute(prefix);
    return;
  }
  const auto hop = rpfAddress(rpf);
  if (!hop) throw Forbidden("interface without address");
  const IpGenPrefix lpm = longestMatch({*hop, 32});
  if (lpm.empty()) {
    say(8, "LPM is absent for hop " + hop->stringValue());
    return;
  }
  for (const Via& v : candidates(rpf, *hop, lpm)) {
    if (delVia(prefix, v)) say(8, "Deleted via " + v.hop.stringValue());
  }
  say(5, sDelRpf + " Deleted route" + str(prefix) + "'s vias with preference " + std::to_string(preference));
  delWatch(prefix, nullptr);
}

void PlainMrib::delRoute(const IpGenPrefix& prefix) {
  say(8, sDelRoute + "( " + str(prefix) + " )");
  delWatch(prefix, nullptr);
  deleteRoute(prefix);
  say(5, sDelRoute + " Deleted route " + str(prefix));
}

// ---- Watches ----

SetPtr PlainMrib::setOf(const IpGenPrefix& lpm) const {
  const auto it = sets_.find(lpm);
  return it == sets_.end() ? nullptr : it->second;
}

void PlainMrib::addWatch(const IpGenPrefix& lpm, const IpGenPrefix& p) {
  say(8, sAddWatch + "( " + str(lpm) + ", " + str(p) + " )");
  if (!route(p)) throw Forbidden("a watch for no route");
  SetPtr set = setOf(lpm);
  if (!set) {
    set = std::make_shared<Set>(Set{lpm, {}});
    say(8, sAddWatch + "Added prefix set " + str(lpm));
  }
  if (!set->members.insert(p).second) return;
  auto& links = route(p)->sets;
  const auto link = std::find_if(links.begin(), links.end(), [&](const SetPtr& s) { return s->lpm == lpm; });
  if (link == links.end()) {
    links.push_back(set);
  } else {
    *link = set;
  }
  sets_[lpm] = set;
  say(5, sAddWatch + "Added prefix " + str(p) + " into prefix set " + str(lpm));
}

void PlainMrib::delWatchOf(const IpGenPrefix& prefix, const SetPtr& set) {
  set->members.erase(prefix);
  std::erase_if(route(prefix)->sets, [&](const SetPtr& s) { return s->lpm == set->lpm; });
  if (set->members.empty()) sets_.erase(set->lpm);
  say(5, sDelWatch + "Deleted prefix " + str(prefix) + " from prefix set " + str(set->lpm));
}

void PlainMrib::delWatch(const IpGenPrefix& prefix, const SetPtr& set) {
  say(8, sDelWatch + "( " + str(prefix) + " )");
  if (!route(prefix)) return;
  if (set) return delWatchOf(prefix, set);
  const std::vector<SetPtr> links = route(prefix)->sets;
  for (const SetPtr& s : links) delWatchOf(prefix, s);
}

// ---- What follows a change ----

void PlainMrib::refresh(const IpGenPrefix& changed, bool add) {
  say(8, sRefresh + "( " + str(changed) + ", " + (add ? "True" : "False") + " )");
  if (!add) {
    recursiveDelete(changed, setOf(changed));
    delRoute(changed);
    recursiveUpdate(setOf(changed), 0);
    return;
  }
  for (bool again = true; again;) {
    again = false;
    for (std::size_t i = 0; i < config().size(); ++i) {
      const IpGenPrefix prefix = config()[i].prefix;
      if (prefix == changed) {
        say(8, sRefresh + "Skipped " + str(prefix));
      } else if (isResolvable(prefix)) {
        again |= offerPrefix(prefix);
      }
    }
  }
}

bool PlainMrib::offerPrefix(const IpGenPrefix& prefix) {
  const bool had = route(prefix) != nullptr;  // a route that this very offer adds does not stop it
  for (const auto& [preference, configured] : entry(prefix)->prefs) {
    if (had && route(prefix)->preference < preference) continue;
    bool installed = false, changed = false;
    for (const Rpf& rpf : configured.rpfs) {
      const int outcome = addOrUpdate(rpf, prefix, preference);
      installed |= outcome != -1;
      changed |= outcome == 0;
    }
    if (installed) return changed;
  }
  return false;
}

void PlainMrib::recursiveDelete(const IpGenPrefix& gone, const SetPtr& set) {
  const RouteState* r = route(gone);
  recursiveDelete(r ? std::optional(*r) : std::nullopt, set, 0);
}

void PlainMrib::recursiveDelete(const std::optional<RouteState>& gone, const SetPtr& set, int depth) {
  if (depth > deepest) throw Forbidden("a circle of dependants");
  const std::string name = gone ? str(gone->prefix) : "";
  if (!set) {
    say(8, sDelete + (gone ? "( " + name + ", NULL )" : "( NULL, NULL )"));
    return;
  }
  if (!gone) {
    say(8, sDelete + "( NULL , " + str(set->lpm) + " )");
    return;
  }
  say(8, sDelete + "( " + name + ", " + str(set->lpm) + " )");
  for (const IpGenPrefix& p : set->members) {
    recursiveDelete(gone, setOf(p), depth + 1);
    say(8, sDelete + "Processing " + str(p));
    if (!route(p)) throw Forbidden("member without route");
    if (p == gone->prefix) throw Forbidden("a route that depends on itself");
    for (const Via& v : gone->vias) {
      say(8, sDelete + (gone->type == 7 ? "Connected route " : "Non-connected route ") + name +
                 " being deleted");
      if (gone->type != 7) {
        delVia(p, v);
        say(8, sDelete + "Deleted via " + v.hop.stringValue() + " from " + str(p));
        continue;
      }
      const std::vector<Via> present = route(p)->vias;
      for (const Via& w : present) {
        if (!(w.intf == v.intf)) continue;
        delVia(p, w);
        say(8, sDelete + "Deleted via " + w.hop.stringValue() + " from " + str(p));
      }
    }
  }
}

void PlainMrib::recursiveUpdate(const SetPtr& set, int depth) {
  if (depth > deepest) throw Forbidden("a circle of dependants");
  if (!set) {
    say(8, sUpdate + "( NULL )");
    return;
  }
  say(8, sUpdate + "( " + str(set->lpm) + " )");
  IpGenPrefix p;
  for (auto it = set->members.begin(); it != set->members.end(); it = set->members.upper_bound(p)) {
    p = *it;
    say(8, sUpdate + "Processing " + str(p));
    if (!route(p)) throw Forbidden("member without route");
    if (!entry(p)) throw Forbidden("member without configuration");
    const bool resolved = offerInOrder(p);
    const bool hasVia = !route(p)->vias.empty();
    if (!resolved && !hasVia) delRoute(p);
    if (resolved && hasVia && !route(set->lpm)) delWatch(p, setOf(set->lpm));
    recursiveUpdate(setOf(p), depth + 1);
  }
}

}  // namespace plain
