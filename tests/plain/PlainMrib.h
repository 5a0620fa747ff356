#pragma once

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

class PlainMrib {
 public:
  using RpfSet = std::set<Rpf>;
  struct Entry {
    IpGenPrefix prefix;
    std::map<int, RpfSet> prefs;
  };

  PlainMrib() = default;
  PlainMrib(const PlainMrib& other);
  PlainMrib& operator=(PlainMrib&&) = default;

  // Inputs, as they stand.
  std::vector<Entry> config;  // in order of insertion
  std::map<U32, IpAddr> addresses;
  std::map<U32, Intf> intfs;
  std::vector<UnicastRoute> unicast;

  std::vector<Trace> traces;

  // Events. `start` takes the unicast routes in the order of the table's walk, and the trie's changed route.
  void start(const std::vector<IpGenPrefix>& tableOrder, const IpGenPrefix& changedRoute);
  void unicastChanged(const IpGenPrefix& prefix);
  void prefixAdded(const IpGenPrefix& prefix);
  void prefixDeleted(const IpGenPrefix& prefix);
  void preferenceAdded(const IpGenPrefix& prefix, int preference);
  void preferenceDeleted(const IpGenPrefix& prefix, int preference);
  void rpfAdded(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  void rpfDeleted(const IpGenPrefix& prefix, int preference, const Rpf& rpf);

  /// Everything that is to be equal, in one text.
  std::string state() const;

  Entry* entry(const IpGenPrefix& prefix);
  UnicastRoute* unicastRoute(const IpGenPrefix& prefix);

 private:
  RouteState* route(const IpGenPrefix& prefix);
  RouteState& newRoute(const IpGenPrefix& prefix);
  void deleteRoute(const IpGenPrefix& prefix);
  void addVia(const IpGenPrefix& prefix, const Via& via);
  bool delVia(const IpGenPrefix& prefix, const Via& via);
  void setPreference(const IpGenPrefix& prefix, int preference);
  void enterTrie(const IpGenPrefix& prefix);
  IpGenPrefix longestMatch(const IpGenPrefix& prefix) const;

  void copyConnected(const UnicastRoute& u);
  void handleRpfs(const IpGenPrefix& prefix, int preference);
  void handleRpf(const IpGenPrefix& prefix, int preference, const Rpf& rpf);
  bool offer(const IpGenPrefix& prefix, int preference);
  std::optional<IpAddr> rpfAddress(const Rpf& rpf) const;
  std::vector<Via> candidates(const Rpf& rpf, IpAddr hop, const IpGenPrefix& lpm);
  bool rejects(const IpGenPrefix& lpm, const IpGenPrefix& prefix) const;
  int addOrUpdate(const Rpf& rpf, const IpGenPrefix& prefix, int preference);
  void delRpf(const Rpf& rpf, const IpGenPrefix& prefix);
  void delRoute(const IpGenPrefix& prefix);
  void addWatch(const IpGenPrefix& lpm, const IpGenPrefix& p);
  void delWatch(const IpGenPrefix& prefix, const SetPtr& set);
  void delWatchOf(const IpGenPrefix& prefix, const SetPtr& set);
  SetPtr setOf(const IpGenPrefix& lpm) const;
  void refresh(const IpGenPrefix& changed, bool add);
  void recursiveDelete(const std::optional<RouteState>& gone, const SetPtr& set, int depth);
  void recursiveUpdate(const SetPtr& set, int depth);

  void say(U32 level, const std::string& text) {
    if (traces.size() > 100000) throw Forbidden("no end");
    traces.push_back({"MribSm", level, text});
  }
  void sayTrie(U32 level, const std::string& text) { traces.push_back({"MribTrieBuilder", level, text}); }

  std::vector<RouteState> routes_;  // in order of insertion
  std::map<IpGenPrefix, SetPtr> sets_;
  std::set<IpGenPrefix> trie_;
  int deletedPreference_ = 0;
  U32 trieUpdates_ = 0;
};

}  // namespace plain
