#pragma once

#include <deque>
#include <map>
#include <optional>
#include <span>
#include <unordered_map>

#include "Lumo/Prefix.h"
#include "Mirror.h"
#include "PrefixHash.h"
#include "RouteOp.h"

namespace host {

/// What a prefix shall be in an exported table.
struct Wanted {
  kernel::RouteType type = kernel::RouteType::unspecified;  ///< `unspecified`: no route
  std::vector<kernel::Hop> hops;
  std::string fault;  ///< why that is not all that the MRIB says

  bool isRoute() const { return type != kernel::RouteType::unspecified; }
  friend bool operator==(const Wanted&, const Wanted&) = default;
};

/// Keeps the routes of one protocol in one kernel table equal to what is wanted.
///
/// Readers of the table follow the last write and lose a prefix when any of its routes goes, so each prefix
/// has one route there, of one metric; what is to change is deleted and added in one batch, never replaced. A
/// prefix that was written rests for 50 ms, since readers miss what is away and back within less. Routes of
/// other protocols are not touched.
///
/// Readers that follow what is written lose ours when one of the same prefix comes or goes, or when they hear
/// of a link's fall or rise only after the write that answers it: ours is written again then.
///
/// Pure logic: whoever drives it tells it what is wanted and which prefixes of the mirror have changed, hands
/// its batches to the kernel, and asks for the next one when the mirror has heard all that came of the last.
class Exporter {
 public:
  /// Not among those that routing daemons take for their own.
  static constexpr U8 protocol = 220;
  static constexpr U32 metric = 220;
  static constexpr Nanos rest = milliseconds(50);
  /// After it the same is written again, because a reader may have heard late of a link.
  static constexpr Nanos doubt = milliseconds(4);
  /// For how long what is written answers the change of a link.
  static constexpr Nanos news = milliseconds(100);
  static constexpr Nanos retry = milliseconds(500);  ///< of what the kernel had no room for

  enum class Why : U8 {
    none,      ///< never
    changed,   ///< something else is wanted
    leftover,  ///< found when it began
    putRight,  ///< somebody else had changed the table
    retried,   ///< it had been refused
    repeated   ///< the same again, after a link changed
  };
  struct Entry {
    Wanted wanted;
    Why why = Why::none;                  ///< of the last write
    Nanos writtenAt = 0;                  ///< likewise
    std::vector<kernel::Route> others{};  ///< of other protocols
    bool changed = false;                 ///< since the last write
    bool crossed = false;                 ///< likewise: others came or went
    U8 repeats = 0;                       ///< how often the same is to be written again
    bool queued = false;
    bool resting = false;
    bool probed = false;   ///< a route that may be gone was added again, and was still there
    bool deleted = false;  ///< one that may be gone was deleted, and may have been there
    bool right = false;    ///< the table has what is wanted
    bool refused = false;
  };
  struct Fault {
    bool refused = false;  ///< by the kernel; otherwise it can't be exported
    std::string text;
  };
  using Batch = std::vector<kernel::RouteOp>;  ///< of a prefix first what is deleted, then what is added
  struct Counters {
    U64 written = 0;   ///< changes of a prefix
    U64 putRight = 0;  ///< of these, what others had done
  };

  /// Who reads the table: by a look-up now and then, or by following what is written.
  enum class Readers : U8 { lookUp, follow };

  /// Refers to the mirror of the table, whose settings ask for every route. Writes nothing before `begin`.
  Exporter(const kernel::Mirror& table, Readers readers) : table_(table), readers_(readers) {}

  void want(const Lumo::Prefix& prefix, Wanted wanted);
  /// All that is wanted has been told: what else is in the table need not stay.
  void begin();
  /// Its routes in the table may be others, or what was refused is to be tried again.
  void check(const Lumo::Prefix& prefix);
  /// Somebody else's route came or went, or both.
  void crossed(const Lumo::Prefix& prefix);
  void checkRefused();
  void linkChanged(U32 link, Nanos now);

  /// What to write next: some `limit` changes at most, after ten times as many prefixes were looked at.
  /// Empty: call again when it is `due`.
  Batch next(Nanos now, std::size_t limit);
  void written(const Batch& batch, std::span<const kernel::RouteFault> faults);
  Nanos due() const;

  /// What takes all routes away that are in the table.
  Batch withdrawal() const;

  /// How many prefixes have the route in the table that is wanted.
  std::size_t routes() const { return right_; }
  /// Prefixes that are not, or not wholly, exported.
  const std::map<Lumo::Prefix, Fault>& faults() const { return faults_; }
  /// How many of these the kernel refuses.
  std::size_t refused() const { return refused_; }
  const Counters& counters() const { return counters_; }
  /// What is known of a prefix; null when it has no route and had none lately.
  const Entry* entry(const Lumo::Prefix& prefix) const;

 private:
  using Entries = std::unordered_map<Lumo::Prefix, Entry, kernel::PrefixHash>;
  struct Found {
    std::vector<kernel::Route> routes;  // of our protocol
    std::vector<kernel::Route> others;
    bool right = false;   // the one that is wanted, alone
    bool certain = true;  // and nothing can have taken it away
  };

  void enqueue(const Lumo::Prefix& prefix, Entry& entry);
  void wake(Nanos now);
  void consider(const Lumo::Prefix& prefix, Entry& entry, Batch& batch, Nanos now);
  Found find(const Lumo::Prefix& prefix, const Wanted& wanted) const;
  bool isRight(const kernel::Route& route, const Wanted& wanted) const;
  bool canStand(const Wanted& wanted) const;
  static void noteOthers(Entry& entry, std::vector<kernel::Route> others);
  bool isToBeAgain(const Entry& entry) const;
  void noteRepeats(Entry& entry, const Found& before, Nanos now) const;
  bool haveChanged(const std::vector<kernel::Hop>& hops, Nanos now) const;
  kernel::Route routeFor(const Lumo::Prefix& prefix, const Wanted& wanted) const;
  void wrote(const Lumo::Prefix& prefix, Entry& entry, const Found& before, Nanos now);
  Why reasonOf(const Entry& entry) const;
  void rightIs(Entry& entry, bool right);
  void refusalIs(const Lumo::Prefix& prefix, Entry& entry, std::string text);
  void failed(const kernel::RouteOp& op, const kernel::RouteFault& fault, Entry& entry);
  void refusedIs(Entry& entry, bool refused);
  void noteFault(const Lumo::Prefix& prefix, Entry& entry);

  const kernel::Mirror& table_;
  Readers readers_;
  bool begun_ = false;
  std::size_t leftovers_ = 0;  // at the front of the queue, from before it began
  Entries entries_;
  std::deque<Lumo::Prefix> queue_;
  std::multimap<Nanos, Lumo::Prefix> resting_;  // by when the rest ends
  std::map<Lumo::Prefix, Fault> faults_;
  std::unordered_map<U32, Nanos> linkChanges_;  // when
  std::size_t right_ = 0;
  std::size_t refused_ = 0;
  Nanos retryAt_ = ~Nanos{0};
  Counters counters_;
};

std::string_view nameOf(Exporter::Why why);

}  // namespace host
