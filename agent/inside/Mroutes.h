#pragma once

#include <map>
#include <optional>

#include "Routing/PrefixTrie.h"
#include "Zan/SortedSet.h"
#include "inside/Interfaces.h"
#include "inside/PrefixTable.h"
#include "inside/Texts.h"
#include "mrib/Transaction.h"

namespace mrib {

/// A configured multicast route without its prefix.
struct Line {
  U32 rpf = 0;  ///< the address, or the number of an interface name
  U8 preference = 0;
  bool byName = false;
  bool held = false;  ///< held back from the engine, since it lies on a circle
  U64 origin = 0;

  /// The order in which an engine offers them; origin and hold do not make another line of it.
  friend bool operator<(const Line& a, const Line& b) { return a.place() < b.place(); }
  friend bool operator==(const Line& a, const Line& b) { return a.place() == b.place(); }

 private:
  U64 place() const { return U64{preference} << 40 | U64{byName} << 32 | rpf; }
};

/// The configured multicast routes, and the graph of what could resolve through what.
///
/// There is an edge from a prefix to every other configured prefix that covers one of its RPF addresses, at
/// any preference: with some connected routes, it is the longest match. Two kinds lead nowhere, since the
/// engine resolves nothing through them: 0.0.0.0/0, and a shorter prefix that covers the one in question. An
/// RPF by interface has the interface's present address. Where the edges close a circle, the engine would
/// follow dependants for ever. So a circle of address RPFs is refused. One that takes an interface's address
/// is no fault of the configuration, since that may change: all lines on it are held back while it is closed.
///
/// The engine follows dependants along every way that leads to them. So these are counted: a prefix to which
/// more than `mostWays` ways lead is refused.
///
/// Changes are staged: `stage...`, then `check`, then `keep` or `rollBack`.
class Mroutes {
 public:
  static constexpr U64 mostWays = 1000000;

  struct Node {
    Lumo::Prefix prefix{};
    Few<Line> lines{};
    U32 ways = 0;       // that lead to it from itself and its dependants; 0: it is not counted
    U32 index = 0;      // when the last walk met it, counted over all walks
    U32 low = 0;        // in a walk: the earliest that it reaches; behind: its place in the order
    U32 circle = 0;     // the circle on which a check found it, or 0
    U32 staged = 0;     // its place among the staged, counted from 1; `isNew` for one that is new
    bool open = false;  // in a walk: on the stack
    bool leaf = false;  // the last walk found nothing that it could resolve through
    const Lumo::Prefix& key() const { return prefix; }
  };
  /// What is known of an interface that lines name.
  struct Name {
    std::string text;
    U32 link = 0;  ///< 0: there is no such interface
    std::optional<Lumo::IpAddr> address{};
  };

  explicit Mroutes(OriginText originText) : originText_(std::move(originText)) {}

  // ---- Staging ----
  void stage(const Transaction& t, const Interfaces& interfaces);
  /// The prefix is to be configured anew, whether its lines change or not. Nothing if it is not configured.
  void stageAnew(const Lumo::Prefix& prefix);
  /// Another interface has the name, or another address; all who name it are configured anew.
  void stageName(const std::string& text, U32 link, std::optional<Lumo::IpAddr> address);
  /// Enters the changes into the graph, and says what is wrong with them: then they must be rolled back.
  std::vector<Refusal> check();
  /// The prefixes that change or are configured anew, those first through which others could resolve.
  std::vector<Lumo::Prefix> changed() const;
  std::size_t changedCount() const { return staged_.size() + new_.size(); }
  void keep();
  void rollBack();
  /// Says to a transaction what was configured before anything was staged, also where memory has run out in
  /// the midst of all this.
  void tellBefore(Transaction& into) const;

  // ---- Queries ----
  const Node* find(const Lumo::Prefix& prefix) const { return nodes_.find(prefix); }
  const std::vector<Node>& all() const { return nodes_.values(); }
  U32 size() const { return nodes_.size(); }
  U32 placeOf(const Node& node) const { return nodes_.placeOf(node); }
  const Name& name(U32 id) const { return names_[id]; }
  Mroute mrouteOf(const Lumo::Prefix& prefix, const Line& line) const;
  /// The address that a line resolves by, if there is one.
  std::optional<Lumo::IpAddr> addressOf(const Line& line) const {
    return line.byName ? names_[line.rpf].address : Lumo::IpAddr::fromHost(line.rpf);
  }
  /// The shortest circle on which a line of a prefix lies that is held back: it and those that it leads on
  /// to, each with the place of its prefix. Empty for other lines.
  std::vector<std::pair<U32, Line>> circleOf(const Node& start, const Line& line) const;
  /// All prefixes, those first through which others could resolve. Valid until something is staged.
  std::vector<const Node*> inOrder();
  /// Calls `f(address, prefix)` for the prefixes with a line that resolves by an address in `range`, by
  /// address. It returns the address to go on with: this one, or a higher one.
  template <class F>
  void forEachUser(const Lumo::Prefix& range, F f) const {
    const U32 last = range.address().host() | ~Lumo::Prefix::mask(range.length());
    for (auto at = byAddress_.iterator({range.address().host(), {}}); at && at->address <= last;) {
      const U64 next = f(at->address, at->prefix);
      if (next > last) return;
      if (next == at->address) {
        ++at;
      } else {
        at = byAddress_.iterator({static_cast<U32>(next), {}});
      }
    }
  }

 private:
  struct User {
    U32 address;
    Lumo::Prefix prefix;
    friend bool operator==(const User&, const User&) = default;
    friend bool operator<(const User& a, const User& b) {
      return a.address != b.address ? a.address < b.address : a.prefix < b.prefix;
    }
  };
  struct NameUser {
    U32 name;
    Lumo::Prefix prefix;
    friend bool operator==(const NameUser&, const NameUser&) = default;
    friend auto operator<=>(const NameUser&, const NameUser&) = default;
  };
  static constexpr U32 isNew = ~U32{0};
  /// A prefix that is staged and was configured before, with the lines that it does not have at the moment:
  /// those before, or those to be.
  struct Staged {
    U32 place;  // of its node
    Few<Line> other;
    bool anew = false;
  };
  /// The edges that a walk follows.
  enum class Edges : U8 { all, offered, byAddress };
  class Walk;

  // Mroutes.cc
  U32 nameIs(const std::string& text, const Interfaces& interfaces);
  Node& touch(const Lumo::Prefix& prefix);
  void stageOp(const Transaction::MrouteOp& op, const std::vector<U32>& names);
  void dropUnchanged();
  template <class F>
  void forEachStaged(F f) {
    for (const Staged& s : staged_) f(nodes_.at(s.place));
    for (const U32 place : new_) f(nodes_.at(place));
  }
  void swapLines();
  void swapNames();
  void indexIs(const Node& node, bool present);
  void noteHeld(const Node& node);

  // MrouteGraph.cc
  template <class F>
  void forEachMatch(const Lumo::Prefix& from, const Line& line, F f) const;
  void targets(const Node& node, Edges which, std::vector<U32>& into) const;
  bool isWide() const;
  U32 beginWalk();
  std::vector<Refusal> checkCircles(const std::vector<std::vector<U32>>& circles);
  std::optional<Refusal> circleAmong(const std::vector<U32>& members) const;
  Refusal refusalOf(const std::vector<U32>& path) const;
  void holdBack(const std::vector<std::vector<U32>>& circles);
  bool isOnCircle(const Node& node, const Line& line) const;
  std::vector<Refusal> checkWays(std::vector<U32> walked, bool all);
  Node* countAll();
  static void addWays(Node& node, U64 ways);
  void countIn(Node& node, Node*& most);
  void countOut(Node& node);
  template <class F>
  void passOn(const Node& node, F f);
  U64 waysFromDependants(const Node& node) const;

  const OriginText originText_;
  PrefixTable<Node> nodes_;
  Routing::PrefixTrie trie_;  // of those that have lines
  Zan::SortedSet<User> byAddress_;
  std::vector<Name> names_;
  std::map<std::string, U32, std::less<>> nameIds_;
  Zan::SortedSet<NameUser> nameUsers_;
  Zan::SortedSet<Lumo::Prefix> held_;  // the prefixes with a line that is held back

  std::vector<Staged> staged_;
  std::vector<Staged> reworded_;  // staged no more: the lines have other origins, that is all
  std::vector<U32> new_;          // the places of staged prefixes that were not configured
  std::vector<std::pair<U32, Name>> stagedNames_;  // in place of those with these numbers
  bool swapped_ = false;                           // the staged prefixes have the lines before
  bool entered_ = false;                           // the staged lines are in force
  bool holdsChange_ = false;                       // the lines that are held back may be others than before
  std::vector<U32> order_;  // in which the check has met prefixes: all, or those that change and a few more
  U32 walked_ = 0;          // nodes that all walks have met
  bool counted_ = true;     // the ways of each node are right
};

}  // namespace mrib
