#pragma once

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"

/// The whole IPv4 engine again, plain and slow: structs, vectors and direct calls, no reactor, no trie, no
/// intrusive anything. The real engine must show the same state and the same traces after every event.
namespace plain {

using Lumo::IntfId;
using Lumo::IpAddr;
using Lumo::IpGenPrefix;

struct Rpf {
  int type = 0;  // 1 interface, 2 address
  U32 intf = 0;
  IpAddr address;
  auto operator<=>(const Rpf&) const = default;
  std::string text() const;
};

/// An interface object: one that is deleted and made again is another one.
struct Intf {
  int object = 0;  // 0: none
  std::string name;
  bool operator==(const Intf& o) const { return object == o.object; }
};

struct Via {
  IpAddr hop;
  Intf intf;
  bool operator==(const Via&) const = default;
  std::string text() const;
};

/// A prefix set: the object counts, since a set that was emptied and one made anew can exist side by side.
struct Set {
  IpGenPrefix lpm;
  std::set<IpGenPrefix> members;
};
using SetPtr = std::shared_ptr<Set>;

struct RouteState {
  IpGenPrefix prefix;
  int preference = 0;
  int type = 0;
  std::vector<Via> vias;
  std::vector<SetPtr> sets;
  std::string text() const;
};

struct UnicastRoute {
  IpGenPrefix prefix;
  bool connected;
  int preference;
  std::vector<std::pair<IpAddr, U32>> vias;
};

struct Trace {
  std::string handle;
  U32 level;
  std::string text;
  bool operator==(const Trace&) const = default;
};

/// Thrown for a sequence of events that an agent must not produce.
struct Forbidden : std::logic_error {
  using std::logic_error::logic_error;
};

/// The element of a prefix; null when there is none.
template <class Elements>
auto* find(Elements& all, const IpGenPrefix& prefix) {
  const auto it = std::find_if(all.begin(), all.end(), [&](const auto& e) { return e.prefix == prefix; });
  return it == all.end() ? nullptr : &*it;
}

class PlainMrib {
 public:
  using RpfSet = std::set<Rpf>;
  /// An entry at a preference, and one of a prefix: which object it is counts.
  struct Pref {
    int object = 0;
    RpfSet rpfs;
  };
  struct Entry {
    IpGenPrefix prefix;
    int object = 0;
    std::map<int, Pref> prefs;
  };
  using Config = std::vector<Entry>;  // in order of insertion
  using Addresses = std::map<U32, IpAddr>;
  using Intfs = std::map<U32, Intf>;

  /// One that shares nothing with this: with sets of its own.
  PlainMrib copy() const;

  // Inputs, as they stand. Of those that can be replaced there are two, and which one is in use; of the
  // tables of interfaces a third one, which is none.
  std::array<Config, 2> configs;
  std::array<Addresses, 3> addressTables;
  std::array<Intfs, 3> intfTables;
  std::vector<UnicastRoute> unicast;
  std::size_t configInUse = 0, addressesInUse = 0, intfsInUse = 0, resolverIntfs = 0;
  bool started = false;
  bool asleep = false;  // nothing is heard
  bool zombie = false;  // nothing is heard of the configuration

  std::vector<Trace> traces;

  // Events. A start and a new resolver take the unicast routes in the order of the table's walk, and the
  // trie's changed route.
  void start(const std::vector<IpGenPrefix>& tableOrder, const IpGenPrefix& changedRoute);
  void stop() { started = false; }
  void newResolver(const std::vector<IpGenPrefix>& tableOrder, const IpGenPrefix& changedRoute);
  void unicastChanged(const IpGenPrefix& prefix);
  void prefixAdded(const IpGenPrefix& prefix);
  void prefixDeleted(const IpGenPrefix& prefix);
  void preferenceAdded(const IpGenPrefix& prefix, int preference);
  void preferenceDeleted(const IpGenPrefix& prefix, int preference);
  void rpfAdded(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  void rpfDeleted(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  void everyPrefixMayHaveChanged();
  void everyPreferenceMayHaveChanged(const IpGenPrefix& prefix);
  void configReplaced(std::size_t by);

  // What anybody may call by name, and write into the MRIB status and the prefix sets.
  IpGenPrefix defaultPrefix{"0.0.0.0/0"};    // the resolver's
  IpGenPrefix smDefaultPrefix{"0.0.0.0/0"};  // that of the machine
  int result = 0;                            // kept for whoever calls it
  int addOrUpdate(const Rpf& rpf, const IpGenPrefix& prefix, int preference);
  void delRpf(const Rpf& rpf, const IpGenPrefix& prefix);
  void delRoute(const IpGenPrefix& prefix);
  void addWatch(const IpGenPrefix& lpm, const IpGenPrefix& p);
  void delWatch(const IpGenPrefix& prefix, const SetPtr& set);
  void refresh(const IpGenPrefix& changed, bool add);
  void recursiveDelete(const IpGenPrefix& gone, const SetPtr& set);
  void recursiveUpdate(const SetPtr& set) { recursiveUpdate(set, 0); }
  void registerSet(const SetPtr& set) { sets_[set->lpm] = set; }
  void dropSet(const IpGenPrefix& lpm) { sets_.erase(lpm); }
  void dropAllSets() { sets_.clear(); }
  SetPtr setOf(const IpGenPrefix& lpm) const;
  std::vector<SetPtr> held;  // sets that somebody keeps a reference to
  RouteState* route(const IpGenPrefix& prefix) { return find(routes_, prefix); }
  void statusRouteAdded(const IpGenPrefix& prefix) { newRoute(prefix); }
  void statusRouteDeleted(const IpGenPrefix& prefix) { deleteRoute(prefix); }
  void setPreference(const IpGenPrefix& prefix, int preference);
  void addVia(const IpGenPrefix& prefix, const Via& via);
  bool delVia(const IpGenPrefix& prefix, const Via& via);
  void delAllVias(const IpGenPrefix& prefix);

  /// Offers a prefix once, as a refresh does; true when that changed the route.
  bool offerPrefix(const IpGenPrefix& prefix);

  /// Everything that is to be equal, in one text.
  std::string state() const;

  Config& config() { return configs[configInUse]; }
  const Intfs& intfs() const { return intfTables[intfsInUse]; }
  Entry* entry(const IpGenPrefix& prefix) { return find(config(), prefix); }
  UnicastRoute* unicastRoute(const IpGenPrefix& prefix) { return find(unicast, prefix); }

 private:
  /// A reactor on a configured prefix, with those on its preferences: which objects they watch.
  struct Reactor {
    IpGenPrefix prefix;
    int object;
    std::vector<std::pair<int, int>> prefs;  // preference and object, in order of insertion
  };

  bool hearsConfig() const { return started && !asleep && !zombie; }
  Reactor* reactor(const IpGenPrefix& prefix) { return find(reactors_, prefix); }
  Reactor* watcher(const IpGenPrefix& prefix);
  void watchPrefix(const Entry& entry);
  void watchPreference(const IpGenPrefix& prefix, int preference);
  void reconcilePreferences(const IpGenPrefix& prefix);
  void reconcilePrefixes();
  void unwatchPrefix(const IpGenPrefix& prefix);
  void unwatchPreference(const IpGenPrefix& prefix, int preference);

  RouteState& newRoute(const IpGenPrefix& prefix);
  void deleteRoute(const IpGenPrefix& prefix);
  void enterTrie(const IpGenPrefix& prefix);
  IpGenPrefix longestMatch(const IpGenPrefix& prefix) const;

  void copyConnected(const UnicastRoute& u);
  void handleRpfs(const IpGenPrefix& prefix, int preference);
  void handleRpf(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  bool offer(const IpGenPrefix& prefix, int preference);
  bool offerInOrder(const IpGenPrefix& prefix);
  std::optional<IpAddr> rpfAddress(const Rpf& rpf) const;
  std::vector<Via> candidates(const Rpf& rpf, IpAddr hop, const IpGenPrefix& lpm);
  bool rejects(const IpGenPrefix& lpm, const IpGenPrefix& prefix) const;
  void rpfTouched(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  void delWatchOf(const IpGenPrefix& prefix, const SetPtr& set);
  void recursiveDelete(const std::optional<RouteState>& gone, const SetPtr& set, int depth);
  void recursiveUpdate(const SetPtr& set, int depth);

  void say(U32 level, const std::string& text) {
    if (traces.size() > 100000) throw Forbidden("no end");
    traces.push_back({"MribSm", level, text});
  }
  void sayTrie(U32 level, const std::string& text) { traces.push_back({"MribTrieBuilder", level, text}); }

  std::vector<RouteState> routes_;  // in order of insertion
  std::vector<Reactor> reactors_;   // likewise
  int nextObject_ = 1;
  std::map<IpGenPrefix, SetPtr> sets_;
  std::set<IpGenPrefix> trie_;
  int deletedPreference_ = 0;
  U32 trieUpdates_ = 0;
};

}  // namespace plain
