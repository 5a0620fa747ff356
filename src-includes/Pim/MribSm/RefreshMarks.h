#pragma once

#include <vector>

#include "Interface/AllIntfStatusDir.h"
#include "Ip/Status.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/Multicast/Rib/Status.h"
#include "Routing/TrieGen.h"
#include "Zan/SortedSet.h"
#include "Zan/Tap.h"

namespace Routing::Multicast::Rib {

/// Which configured prefixes a refresh must offer again.
///
/// A refresh offers every configured prefix to the resolver, in whole passes, until a pass changes nothing.
/// Nearly all of these offers find everything as it was. The invariant that lets the refresh leave them out:
/// *to offer a configured prefix that is not marked would write nothing* (`isMarked` says which are).
///
/// An offer that has been made once writes nothing when it is made again, unless something that it reads has
/// changed in between. What the offer of a prefix reads is
///
/// - its preferences and RPFs in the configuration,
/// - its own route and whether the registered prefix sets hold it,
/// - for an interface RPF, the interface's address and its status entry,
/// - the longest match of each RPF address in the look-up trie,
/// - the type and the vias of the route that was matched.
///
/// The marks listen at the records themselves (`Zan::Tap`), so that no change escapes them, whoever makes it
/// and whichever reactors sleep. A change that comes as a prefix P, a route or a trie entry, concerns the
/// configured prefix P and those with an RPF address whose longest match may be P: an index from RPF address
/// to configured prefixes gives the addresses below P, and those that have a longer match are passed over
/// together with the rest of that match. Such changes are only noted when they happen, and settled when a
/// refresh asks for the next prefix: one that has lost a longer match in between has been noted for that.
///
/// Marked prefixes are handed out in the order in which a whole pass meets them. One that is marked while a
/// pass stands before it is met in that pass; one behind, in the next. A prefix that is marked too often
/// costs a look at it, one that is not marked would be an error: when in doubt (an input was replaced, too
/// much was noted), all are marked.
///
/// Costs: a change, a logarithmic search and a few steps for each prefix that it marks; memory, 16 bytes for
/// each address RPF and a little slack.
class RefreshMarks {
 public:
  /// What the resolver reads. The interfaces' two may be null.
  struct Inputs {
    const Config* config;
    const Status* status;
    const TrieGen* trie;
    const Ip::Status* ipStatus;
    const Interface::AllIntfStatusDir* intfStatus;
  };
  class WholePass;
  class Offer;
  class OwnWrite;

  RefreshMarks() = default;

  /// Listens to these from now on. When one is not what it was, everything is marked.
  void inputsAre(const Inputs& inputs);
  void markAll();
  /// Also while a whole pass is under way: nothing is known of the prefixes that it has not met yet.
  bool allAreMarked() const { return doubt_ != Doubt::none; }
  void mark(const RouteKeyPrefix& entry);
  void unmark(const RouteKeyPrefix& entry) { marked_.erase({entry.order(), &entry}); }
  /// Whether a refresh would offer the prefix. True when in doubt.
  bool isMarked(const RouteKeyPrefix& entry) const {
    return allAreMarked() || !touched_.empty() || offer_ || !listens() ||
           marked_.contains({entry.order(), &entry});
  }
  /// Says that something about `prefix`, or about what resolves through it, has changed.
  void touch(const Lumo::Prefix& prefix) {
    if (doubt_ != Doubt::all && (touched_.empty() || touched_.back() != prefix)) note(prefix);
  }
  /// Turns what was noted into marks.
  void settle(const Lumo::IpGenPrefix& defaultPrefix);
  /// The first marked prefix that a walk meets behind the one with this order (0: from the start), or null.
  const RouteKeyPrefix* next(U64 order, const Lumo::IpGenPrefix& defaultPrefix);
  /// A refresh leaves preferences out that are worse than that of the route. With a route that is left over
  /// from another configuration this may be the best one: then to offer that one alone would write something.
  void passOverBest() { bestWasPassedOver_ = true; }
  /// Whether that has happened to any prefix.
  bool bestWasPassedOver() const { return bestWasPassedOver_; }
  /// A tap for one registered prefix set: hears of its members that come or go.
  Zan::Tap<Lumo::IpGenPrefix> memberTap() {
    return Zan::Tap<Lumo::IpGenPrefix>::to<&RefreshMarks::hearMember>(this);
  }

 private:
  /// A configured prefix by an address or an interface that one of its RPFs names.
  struct User {
    U32 key;
    const RouteKeyPrefix* entry;
    friend bool operator==(const User&, const User&) = default;
    friend bool operator<(const User& a, const User& b) {
      return a.key < b.key || (a.key == b.key && a.entry < b.entry);
    }
  };
  struct Marked {
    U64 order;
    const RouteKeyPrefix* entry;
    friend bool operator==(const Marked&, const Marked&) = default;
    friend bool operator<(const Marked& a, const Marked& b) { return a.order < b.order; }
  };
  /// An interface that RPFs name, under its address.
  struct IntfAddress {
    U32 address;
    U32 intf;
    friend auto operator<=>(const IntfAddress&, const IntfAddress&) = default;
  };
  /// Whether the marks can be trusted: yes, not for what the whole pass under way has not met, or not at all.
  enum class Doubt : U8 { none, passing, all };

  bool listens() const { return configTap_.isOn() && statusTap_.isOn() && trieTap_.isOn(); }
  bool isConfigured(const RouteKeyPrefix& entry) const;
  bool isNamed(U32 intf) const;
  void disturbOffers();
  [[gnu::noinline]] void note(const Lumo::Prefix& prefix);

  void hearConfig(const ConfigChange& change);
  void hearStatus(const Lumo::Prefix& prefix);
  void hearTrie(const Lumo::IpGenPrefix& prefix);
  void hearMember(const Lumo::IpGenPrefix& prefix);
  void hearAddress(const Ip::AddressChange& change);
  void hearIntf(const Lumo::IntfId& id) { markUsersOf(id.value()); }

  void indexAll();
  void index(const RouteKeyPrefix& entry, const Rpf& rpf);
  void unindex(const RouteKeyPrefix& entry, const Rpf& rpf);
  bool isNamedElsewhere(const RouteKeyPrefix& entry, const Rpf& rpf) const;
  const Ip::IntfAddr* addressOf(U32 intf) const;

  void settleWrites(const Lumo::Prefix& prefix);
  void markDependants(const Lumo::Prefix& prefix);
  void markUsersOf(U32 intf);

  Inputs inputs_{};
  Doubt doubt_ = Doubt::all;
  bool bestWasPassedOver_ = false;
  Offer* offer_ = nullptr;  // the innermost one under way
  Zan::SortedSet<Marked> marked_;
  std::vector<Lumo::Prefix> touched_;  // noted, not yet settled
  Zan::SortedSet<User> byAddress_;     // address RPFs
  Zan::SortedSet<User> byIntf_;        // interface RPFs
  Zan::SortedSet<IntfAddress> intfAddresses_;
  Zan::Tap<ConfigChange> configTap_ = Zan::Tap<ConfigChange>::to<&RefreshMarks::hearConfig>(this);
  Zan::Tap<Lumo::Prefix> statusTap_ = Zan::Tap<Lumo::Prefix>::to<&RefreshMarks::hearStatus>(this);
  Zan::Tap<Lumo::IpGenPrefix> trieTap_ = Zan::Tap<Lumo::IpGenPrefix>::to<&RefreshMarks::hearTrie>(this);
  Zan::Tap<Ip::AddressChange> ipTap_ = Zan::Tap<Ip::AddressChange>::to<&RefreshMarks::hearAddress>(this);
  Zan::Tap<Lumo::IntfId> intfTap_ = Zan::Tap<Lumo::IntfId>::to<&RefreshMarks::hearIntf>(this);
};

/// A whole pass, while this lives. What refreshes within it, for a handler of what it writes, must go through
/// all as well. One that was not `complete` leaves all marked.
class RefreshMarks::WholePass {
 public:
  explicit WholePass(RefreshMarks& marks) : marks_(marks), within_(marks.doubt_ == Doubt::passing) {
    marks_.disturbOffers();
    marks_.markAll();
    marks_.doubt_ = Doubt::passing;
  }
  ~WholePass() {
    if (!complete_) marks_.markAll();
    if (marks_.doubt_ == Doubt::passing && !within_) marks_.doubt_ = Doubt::none;
  }
  WholePass(const WholePass&) = delete;
  WholePass& operator=(const WholePass&) = delete;
  void complete() { complete_ = true; }

 private:
  RefreshMarks& marks_;
  bool within_;  // another one
  bool complete_ = false;
};

/// The offer of a whole prefix, while this lives. It takes the mark away. One that was not `complete` leaves
/// the prefix marked, and so does one within which a handler has refreshed, since that has met it half done.
///
/// What the offer itself writes does not mark the prefix again: with its vias and its watch it is done. That
/// its own route enters the trie takes no longest match from its RPF addresses that was of use, since a
/// shorter one covers the prefix and is refused like the prefix itself.
class RefreshMarks::Offer {
 public:
  Offer(RefreshMarks& marks, const RouteKeyPrefix& entry)
      : marks_(marks), entry_(entry), prefix_(entry.prefix().v4Prefix()), outer_(marks.offer_) {
    marks_.offer_ = this;
    marks_.unmark(entry);
  }
  ~Offer() {
    marks_.offer_ = outer_;
    if ((!complete_ || disturbed_) && marks_.isConfigured(entry_)) marks_.mark(entry_);
    if (wrote_) marks_.settleWrites(prefix_);
  }
  Offer(const Offer&) = delete;
  Offer& operator=(const Offer&) = delete;
  void complete() { complete_ = true; }

 private:
  friend class RefreshMarks;
  RefreshMarks& marks_;
  const RouteKeyPrefix& entry_;
  Lumo::Prefix prefix_;
  Offer* outer_;
  bool complete_ = false;
  bool disturbed_ = false;
  bool writing_ = false;  // the next change of its route or watch is its own
  bool wrote_ = false;
};

/// While this lives, the next change of a route or of its watch is the resolver's own, and if the prefix is
/// being offered, that of the offer. What a handler of that change does to the route in turn is not.
class RefreshMarks::OwnWrite {
 public:
  OwnWrite(RefreshMarks& marks, const Lumo::Prefix& prefix)
      : offer_(marks.offer_ && marks.offer_->prefix_ == prefix ? marks.offer_ : nullptr) {
    if (offer_) offer_->writing_ = true;
  }
  ~OwnWrite() {
    if (offer_) offer_->writing_ = false;
  }
  OwnWrite(const OwnWrite&) = delete;
  OwnWrite& operator=(const OwnWrite&) = delete;

 private:
  Offer* offer_;
};

}  // namespace Routing::Multicast::Rib
