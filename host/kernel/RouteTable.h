#pragma once

#include <array>
#include <unordered_map>

#include "Answer.h"
#include "Interned.h"
#include "PrefixHash.h"
#include "PrefixIndex.h"
#include "Segmented.h"
#include "Topology.h"

namespace host::kernel {

/// One routing table of one family, and what a router means by it: an answer for each prefix.
///
/// The routes of a prefix are held in the order in which the kernel tries them: with a TOS first, then by
/// metric, and among equals as the flags of the messages said. The answer is that of the first route without
/// TOS that can be used.
///
/// Dumps and events meet here as they do in `Stamped`, but routes have no unique key: what "replace the
/// first" or "append" did cannot be told from a dump of another moment. So a prefix that an event names while
/// a dump runs is taken out of the dump: the dump's routes are put aside, and at its end the events are told
/// again on top of them.
///
/// Memory: some 60 bytes a route, and an index of 4 to 8 bytes a prefix; next hops and answers are shared.
class RouteTable {
 public:
  explicit RouteTable(const Topology& topology) : topology_(topology) {}
  RouteTable(const RouteTable&) = delete;
  RouteTable& operator=(const RouteTable&) = delete;

  /// What a message says about a route. `flags` are its NLM_F_*. False when it does not fit what is known.
  bool change(const Route& route, U16 flags, bool gone, Epoch now);

  void startDump(Epoch now);
  void dumped(const Route& route);
  /// Ends a dump that came through; takes up to `budget` routes away or looks at them. True when done.
  bool finishDump(std::size_t& budget);
  /// Whether events came while the last dump ran whose effect it could not tell: another one will.
  bool isUnsure() const { return unsure_; }
  /// How many routes dumps added, changed or removed that no message had told of.
  U64 healed() const { return healed_; }

  /// The router's own address, held by `link`; 0: no longer.
  void own(const IpGenPrefix& address, U32 link);

  /// A link or a next-hop object changed: any answer may be another one.
  void reconsiderAll() { unconsidered_ = nodes_.size(); }
  /// Whether `settle` names also those prefixes whose routes may be others though their answer is the same.
  void tellEvery(bool every) { tellsEvery_ = every; }
  /// Considers up to `budget` prefixes, and appends those whose answer is another one. True when done.
  bool settle(std::size_t& budget, std::vector<IpGenPrefix>& changed);
  /// Puts a prefix before those that no event has named.
  void hurry(const IpGenPrefix& prefix);
  /// Whether `settle` has prefixes to look at that came by events or were hurried.
  bool hasNamed() const { return !waiting_.empty(); }

  /// The answer for exactly this prefix, as of the last `settle`; of kind `none` when there is none.
  const Answer& answer(const IpGenPrefix& prefix) const;
  /// The longest prefix with an answer for an address; empty when there is none.
  IpGenPrefix longestMatch(const IpGenAddr& address) const;

  std::size_t routeCount() const { return routes_; }
  /// Calls `each(const Route&)` for every route, in no order but that of the routes of one prefix.
  template <class F>
  void forEach(F each) const {
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      const Node& node = nodes_[i];
      for (U32 at = node.first; at != none; at = records_[at].next) {
        if (!records_[at].own) each(routeOf(node, records_[at]));
      }
    }
  }
  /// Calls `each(const Route&, bool certain)` for the routes of a prefix, in their order. One that is not
  /// certain may have been taken away without a message.
  template <class F>
  void forEachOf(const IpGenPrefix& prefix, F each) const {
    const U32 node = find(prefix);
    if (node == PrefixIndex::nothing) return;
    for (U32 at = nodes_[node].first; at != none; at = records_[at].next) {
      if (!records_[at].own) each(routeOf(nodes_[node], records_[at]), isCertain(records_[at]));
    }
  }
  /// Calls `each(prefix)` for every prefix with a route of which `wanted(nextHop, hops)` is true.
  template <class Wanted, class F>
  void forEachPrefix(Wanted wanted, F each) const {
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      U32 at = nodes_[i].first;
      while (at != none && (records_[at].own || !wanted(records_[at].nextHop, hops_[records_[at].hops]))) {
        at = records_[at].next;
      }
      if (at != none) each(nodes_[i].prefix);
    }
  }
  /// Calls `each(prefix, answer)` for every prefix that has an answer.
  template <class F>
  void forEachAnswer(F each) const {
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      const Node& node = nodes_[i];
      if (node.answer != 0) each(node.prefix, answers_[node.answer]);
    }
  }

 private:
  static constexpr U32 none = ~U32{0};

  struct Record {
    U32 next;
    U32 hops;
    U32 metric;
    U32 nextHop;
    U32 rest;
    Epoch epoch;
    U8 tos;
    RouteType type;
    U8 protocol;
    U8 scope;
    U32 own : 1;  // an address of the router, not a route
    U32 source : 31;
  };
  struct Node {
    IpGenPrefix prefix;  // empty: free
    bool waits = false;  // among waiting_
    U32 first = none;    // its routes
    U32 answer = 0;
  };
  struct Message {
    Route route;
    U16 flags;
    bool gone;
    Epoch epoch;
  };
  struct Aside {
    std::vector<Route> dumped;
    std::vector<Message> messages;
    bool replaced = false;
    bool several = false;  // there was a choice of what to replace
  };
  using List = std::vector<U32>;

  U32 find(const IpGenPrefix& prefix) const;
  U32 findOrMake(const IpGenPrefix& prefix);
  void free(U32 node);
  U32 record(const Route& route, Epoch epoch);
  void release(U32 record);
  Route routeOf(const Node& node, const Record& record) const;
  bool isSame(const Record& record, const Route& route) const;
  bool isCertain(const Record& record) const;

  List listOf(U32 node) const;
  void relink(U32 node, const List& list);
  void wait(U32 node);
  struct Rank {  // places in a list
    std::size_t first;
    std::size_t end;
    std::size_t same;  // of the very route; none when it is not there
  };
  Rank rankOf(const List& list, const Route& route) const;
  bool refresh(U32 node, U32 record, const Route& route, Epoch epoch);
  void eraseFrom(List& list, std::size_t at);
  bool tell(U32 node, const Message& message);
  bool tellNew(List& list, U32 node, const Message& message);
  void replaceFirst(List& list, const Rank& rank, const Message& message);
  bool tellGone(List& list, const Route& route);
  bool growLegs(List& list, const Rank& rank, const Message& message);
  bool shrinkLegs(List& list, const Rank& rank, const Route& route);
  void putDumped(U32 node, const Route& route);
  Aside& putAside(U32 node, const Message& message);
  void bringBack();
  void rebuild(const IpGenPrefix& prefix, const Aside& aside);
  void sweep(U32 node);

  void consider(U32 node, std::vector<IpGenPrefix>& changed);
  bool meaning(const Record& record, Answer& answer) const;

  const Topology& topology_;
  Segmented<Node> nodes_;
  Segmented<Record> records_;
  List freeNodes_;
  List freeRecords_;
  PrefixIndex index_;
  Interned<std::vector<Hop>, HopsHash> hops_;
  struct AddressHash {
    std::size_t operator()(const IpGenAddr& a) const { return a.hash(); }
  };
  Interned<IpGenAddr, AddressHash> sources_;
  Interned<Answer, AnswerHash> answers_;
  std::array<U32, 129> answersOfLength_{};
  std::vector<U32> waiting_;      // nodes to consider
  std::size_t unconsidered_ = 0;  // how many nodes from `cursor_` on, all around, are to be considered
  std::size_t cursor_ = 0;
  std::size_t routes_ = 0;
  U64 healed_ = 0;
  bool tellsEvery_ = false;

  std::unordered_map<IpGenPrefix, Aside, PrefixHash> aside_;
  bool dumping_ = false;
  bool wasFilled_ = false;  // by a whole dump
  bool unsure_ = false;
  Epoch dumpEpoch_ = 0;
  std::size_t sweepAt_ = 0;
  Answer scratch_;
};

}  // namespace host::kernel
