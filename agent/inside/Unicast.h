#pragma once

#include <optional>
#include <set>
#include <unordered_map>

#include "Routing/Shadow/Status.h"
#include "Zan/SortedSet.h"
#include "inside/PrefixTable.h"
#include "mrib/Transaction.h"

namespace mrib {

/// The unicast routes, in the shared-memory tables that the engine reads and in the trie that tells it of
/// each change. A record is written before its prefix is named, one prefix at a time, and a table that has
/// moved to a larger segment is attached again before anybody can look.
///
/// The engine copies a connected route once. So one that changes is withdrawn and announced anew, and so is
/// one whose interface has become another entity.
class Unicast {
 public:
  using RouteOp = Transaction::RouteOp;
  /// A prefix that a transaction changes, with its new route; without one it is the same as before.
  struct Move {
    Lumo::Prefix prefix;
    const RouteOp* op;
  };
  /// What the MRIB copies of a connected route.
  struct Copy {
    U8 preference;
    std::span<const NextHop> hops;
  };

  Unicast();

  /// What a transaction changes, each prefix once, and the connected routes on interfaces that it replaces.
  std::vector<Move> plan(const Transaction& t, const std::set<U32>& replacedLinks) const;
  /// Takes out what the MRIB has copied and what is deleted.
  void withdraw(const Move& move);
  void announce(const Move& move, const Transaction& t);
  /// Names a prefix once more.
  void announceAgain(const Lumo::Prefix& prefix) { tell(prefix, true); }

  /// The connected route with a next hop under this prefix, which the MRIB copies.
  std::optional<Copy> copied(const Lumo::Prefix& prefix) const;
  U32 size() const { return routes_.size(); }
  /// Says to a transaction what is known of a prefix, or of all for which `isMeant` holds.
  void tell(const Lumo::Prefix& prefix, Transaction& into) const;
  template <class F>
  void tellAll(F isMeant, Transaction& into) const {
    for (const Entry& entry : routes_.values()) {
      if (isMeant(entry.prefix)) tell(entry.prefix, into);
    }
  }

  const Zan::Ptr<Routing::Shadow::Status>& shadow() const { return shadow_; }

 private:
  struct Entry {
    Lumo::Prefix prefix;
    RouteType type;
    U8 preference;
    U32 fec;
    const Lumo::Prefix& key() const { return prefix; }
  };
  /// Next hops that some routes share. Its number is its place, counted from 1.
  struct Fec {
    std::vector<NextHop> hops;
    U32 users = 0;
  };
  struct OnLink {
    U32 link;
    Lumo::Prefix prefix;
    friend auto operator<=>(const OnLink&, const OnLink&) = default;
  };

  bool isCopied(const Entry& entry) const {
    return entry.type == RouteType::connected && !hopsOf(entry).empty();
  }
  const std::vector<NextHop>& hopsOf(const Entry& entry) const { return fecs_[entry.fec - 1].hops; }
  bool changes(const Transaction& t, const RouteOp& op) const;
  void indexLinks(const Entry& entry, bool present);
  void tell(const Lumo::Prefix& prefix, bool present);
  U32 useFec(std::span<const NextHop> hops);
  void dropFec(U32 fec);

  PrefixTable<Entry> routes_;
  std::vector<Fec> fecs_;
  std::vector<U32> freeFecs_;
  std::unordered_multimap<U64, U32> fecsByHash_;
  Zan::SortedSet<OnLink> copiedOn_;
  Quarn::Fib::RouteStatusWriter routeTable_;
  Quarn::Fib::ForwardingStatusWriter fecTable_;
  Zan::Ptr<Routing::TrieGen> trie_;
  Zan::Ptr<Routing::Shadow::Status> shadow_;
};

}  // namespace mrib
