#pragma once

#include <deque>
#include <optional>

#include "Interned.h"
#include "Router.h"

namespace host {

/// A route of the MRIB in the words of its time, when interfaces had other names, perhaps.
struct PastRoute {
  struct Via {
    Lumo::IpAddr neighbor;  ///< 0.0.0.0: the source is on the link itself
    std::string interface;  ///< empty: there was none
    friend bool operator==(const Via&, const Via&) = default;
  };
  mrib::RouteType type = mrib::RouteType::unknown;  ///< unknown: there was no route
  U8 preference = 0;
  std::vector<Via> vias;
  friend bool operator==(const PastRoute&, const PastRoute&) = default;
};

/// When something happened to the MRIB, and why.
struct Moment {
  U64 generation = 0;
  Nanos wall = 0;  ///< since 1970
  Nanos monotonic = 0;
  std::string cause;
};

/// The last changes of a router's MRIB. They share what they have in common (routes by the same way, what
/// happened at one moment), so that a change costs some 20 bytes, and a moment of its own some 100 more.
class History {
 public:
  static constexpr std::size_t usualSize = 100000;
  struct Clocks {
    Router::Clock wall;
    Router::Clock monotonic;
  };
  struct Change {
    const Moment& moment;
    Lumo::Prefix prefix;
    const PastRoute& before;
    const PastRoute& after;
  };

  /// Begins with the router's present state. The router outlives this.
  History(Router& router, Clocks clocks, std::size_t most = usualSize);
  ~History() { router_.unsubscribe(subscription_); }
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  std::size_t size() const { return entries_.size(); }
  /// By number, the oldest first; valid until the next change.
  Change operator[](std::size_t i) const;
  /// Of the first state that the changes lead on from.
  const Moment& begin() const { return begin_; }
  /// The time of day, by the clock that its moments have.
  Nanos wall() const { return clocks_.wall(); }
  /// How many changes there have been that are not kept any more.
  U64 forgotten() const { return forgotten_; }

  /// A route of the MRIB at some time, and the numbers of the changes by which it came and went.
  struct PastMatch {
    Lumo::Prefix prefix;
    PastRoute route;
    std::optional<std::size_t> came;  ///< nothing: it was there when the history begins
    std::optional<std::size_t> went;  ///< nothing: it is there still
  };
  /// The routes that matched an address before the change of a number, the longest first.
  std::vector<PastMatch> matchesBefore(Lumo::IpAddr address, std::size_t number) const;

  /// The numbers of the changes that made another answer of the MRIB for a source, the oldest first.
  std::vector<std::size_t> changesFor(Lumo::IpAddr source) const;
  /// The number of the first change later than some moment: of a generation, or of a time.
  std::size_t firstAfterGeneration(U64 generation) const;
  std::size_t firstAfterTime(Nanos wall) const;

 private:
  struct Entry {
    Lumo::Prefix prefix;
    U32 moment;  // counted from the beginning of all
    U32 before;
    U32 after;
  };
  struct RouteHash {
    std::size_t operator()(const PastRoute& route) const;
  };
  /// The last route that was looked up, and its number: most are like the one before.
  struct Last {
    mrib::Route route;
    U32 number = 0;
  };

  void heard(const Router::News& news);
  void add(const mrib::Change& change);
  PastRoute pastOf(const mrib::Route& route, KernelFeed::When when) const;
  U32 numberOf(const mrib::Route& route, KernelFeed::When when, Last& last);
  void makeRoom();

  Router& router_;
  Clocks clocks_;
  std::size_t most_;
  Moment begin_;
  std::deque<Entry> entries_;
  std::deque<Moment> moments_;
  U32 firstMoment_ = 0;
  kernel::Interned<PastRoute, RouteHash> routes_;
  Last lastBefore_;
  Last lastAfter_;
  U64 forgotten_ = 0;
  U64 subscription_ = 0;
};

}  // namespace host
