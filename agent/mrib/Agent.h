#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Zan/Ptr.h"
#include "mrib/Transaction.h"

namespace Routing::Multicast::Rib {
class MribSm;
}

/// What every host of the engine must do, done once. A host feeds an `Agent` with what it knows of links,
/// addresses, unicast routes and configured multicast routes, in transactions; it gets back what changed in
/// the MRIB and asks which way packets from a source must come in.
namespace mrib {

/// What became of a transaction.
struct CommitResult {
  /// Whether it was applied, as a whole. If not, `refusals` say why, and nothing has changed.
  bool accepted = false;
  /// The number of the MRIB's state: one more for each commit that was applied and each settling that healed.
  U64 generation = 0;
  /// Each prefix whose route changed, once.
  std::vector<Change> changes;
  /// Whether the MRIB may differ from the right answer until it is settled. When it is false, settling would
  /// find nothing.
  bool mayDiffer = false;
  std::vector<Refusal> refusals;  ///< at most Transaction::mostTexts
  std::size_t refusalCount = 0;   ///< of all
  std::vector<std::string> notes;

  explicit operator bool() const { return accepted; }
};

/// What settling has healed.
struct SettleResult {
  U64 generation = 0;
  std::vector<Change> changes;
};

/// What a listener hears: the changes from the generation before to this one.
struct Update {
  U64 generation;
  std::span<const Change> changes;
  bool settled;  ///< these were healed, not committed
};

/// Why a configured route does not resolve.
enum class Reason : U8 {
  noInterface,  ///< there is no interface of this name
  noAddress,    ///< the interface has no address
  noRoute,      ///< no MRIB route covers the RPF address
  onlyDefault,  ///< only the default route does
  itself,       ///< the longest match is the prefix itself
  coveredBy,    ///< the longest match, `match`, is shorter than the prefix and covers it
  heldBack,     ///< with the present interface addresses it lies on a circle
  waiting,      ///< no error: a better preference, `installed`, is in force
  unsettled,    ///< it resolves, and settling would install it
};

/// A configured route that is not in force.
struct ZAN_EXPORT Unresolved {
  Mroute mroute;
  Reason reason;
  Lumo::IpAddr address;          ///< that it would resolve by, if there is one
  Lumo::Prefix match;            ///< for `itself`, `onlyDefault` and `coveredBy`
  U8 installed = 0;              ///< the preference in force, 0: none
  bool anotherResolves = false;  ///< another RPF of the same preference is in force
  bool linkIsDown = false;       ///< it names an interface that is down or has no carrier

  bool isError() const { return reason != Reason::waiting; }
  /// A sentence without a full stop.
  std::string text() const;
};

/// What a configured route comes to, whether it is in force or not.
struct Resolution {
  Mroute mroute;
  std::optional<Lumo::IpAddr> address;  ///< that it resolves by
  std::optional<Lumo::Prefix> match;    ///< the longest match of that in the MRIB
  NextHops nextHops;                    ///< that it has or would have, in order of link and address
  /// Why it does not resolve, as if no other preference were in force; nothing: it does.
  std::optional<Unresolved> fault;
  bool inForce = false;
};

/// Owns the engine with all of its inputs and outputs. Has no loop, no thread and no I/O; all calls come from
/// one thread at a time.
///
/// Memory may run out anywhere. Then a commit or a settling throws (std::bad_alloc, or what the shared-memory
/// tables throw), and nothing has changed: `rpf`, `route` and `routes` answer as before at once, all else
/// makes the agent anew first, from what it had been told before, and throws as long as there is no memory
/// for that.
///
/// The right answer, whatever happened before: the route of a configured prefix has, at its lowest preference
/// with an RPF that resolves, the next hops of all RPFs that resolve there, each through the longest match
/// among connected routes and configured routes that have next hops. Nothing resolves through itself, through
/// 0.0.0.0/0, or through a shorter prefix that covers it. A configured route that resolves takes the place of
/// a connected one. The engine follows changes at once and nearly always ends there; where it does not, the
/// commit says `mayDiffer`, and `settle` puts it right.
class ZAN_EXPORT Agent {
 public:
  /// More ways than these may not lead to one configured prefix from those that could resolve through it, one
  /// through the other: each is followed when that prefix changes.
  static constexpr U64 mostWays = 1000000;

  struct Options {
    /// From so many changed prefixes on, if they are a quarter of all, a commit starts a new engine instead
    /// of telling the present one of each. That costs less, and is settled.
    U32 rebuildFrom = 256;
    /// How refusals name a configured route by its origin, such as "FILE:LINE". Called while a transaction is
    /// refused. By default, "line N".
    std::function<std::string(U64)> originText{};
  };

  Agent();
  explicit Agent(const Options& options);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  /// Applies a transaction or refuses it, as a whole. Listeners hear of it before this returns. Costs what
  /// depends on the changes (half a microsecond a route), or a new engine (a microsecond a route). Refused
  /// while another commit or a settling is under way: not to be called from a listener.
  CommitResult commit(const Transaction& t);
  /// Makes the MRIB the right answer: starts a fresh engine on the present inputs in such an order that it
  /// ends there, compares, and lets it take over if anything differs. Costs a microsecond a route. Does
  /// nothing while a commit is under way.
  SettleResult settle();
  /// Whether settling might find a difference, as the last commit said.
  bool mayDiffer() const;
  /// Whether a commit or a settling has failed, and the agent has not been made anew since.
  bool lacksMemory() const;
  /// Prefixes that settling has healed since the start.
  U64 healed() const;
  U64 generation() const;

  /// The MRIB route for packets from `source`, or null. Valid until the next commit or settling, as are all
  /// routes below. A look-up in the trie, and one line of memory more; allocates nothing.
  const Route* rpf(Lumo::IpAddr source) const;
  /// The route of this very prefix, or null.
  const Route* route(const Lumo::Prefix& prefix) const;
  /// All routes of the MRIB, in no order.
  Routes routes() const;

  /// The link with this index, or null.
  const Link* link(U32 index) const;
  /// All links, by index.
  std::vector<Link> links() const;
  /// All configured routes, by prefix, preference and RPF.
  std::vector<Mroute> mroutes() const;
  /// Those of them that are not in force, each with the reason, in the same order. Costs a look-up in the
  /// trie for each configured route.
  std::vector<Unresolved> unresolved() const;
  /// What each configured route of this very prefix comes to, by preference and RPF. A look-up in the trie
  /// for each.
  std::vector<Resolution> resolutions(const Lumo::Prefix& prefix) const;
  /// For a configured route that is held back: the shortest circle that it lies on, beginning with itself.
  /// Each could resolve through the prefix of the next, the last through that of the first. Empty for others.
  std::vector<Mroute> circle(const Mroute& heldBack) const;

  /// Calls `listener` after every commit that was applied and every settling that healed, in order, also when
  /// no route changed. It may subscribe and unsubscribe (itself too), and ask everything; it may not commit,
  /// settle or destroy the agent. What it throws is dropped. Returns a number to unsubscribe with.
  using Listener = std::function<void(const Update&)>;
  U64 subscribe(Listener listener);
  void unsubscribe(U64 subscription);

  /// The engine, for inspection and traces. It is another one after a large commit or a settling that healed.
  const Zan::Ptr<Routing::Multicast::Rib::MribSm>& engine() const;

 private:
  class Impl;
  Impl& whole() const;

  mutable std::unique_ptr<Impl> impl_;
};

}  // namespace mrib
