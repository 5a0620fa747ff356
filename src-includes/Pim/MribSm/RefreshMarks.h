#pragma once

#include <optional>
#include <unordered_map>
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
/// Nearly all of these offers find everything as it was. An offer that has been made once writes nothing when
/// it is made again, unless something that it reads has changed in between; so the refresh may leave out
/// every prefix of which that is known. What the offer of a prefix reads is
///
/// - its preferences and RPFs in the configuration,
/// - its own route and the prefix sets that hold it,
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

  RefreshMarks() = default;

  /// Listens to these from now on. When one is not what it was, everything is marked.
  void inputsAre(const Inputs& inputs);
  /// Whether it still listens to all that must be there.
  bool listens() const { return configTap_.isOn() && statusTap_.isOn() && trieTap_.isOn(); }
  void markAll();
  bool allAreMarked() const { return all_; }
  /// A whole pass, while this lives: it meets every prefix, and nothing is known of those that it has not met
  /// yet. So what refreshes within it, for a handler of what it writes, must go through all as well. One that
  /// was not `complete` leaves all marked.
  class WholePass {
   public:
    explicit WholePass(RefreshMarks& marks) : marks_(marks) {
      marks_.markAll();
      marks_.all_ = false;
      ++marks_.wholePassesUnderWay_;
    }
    ~WholePass() {
      --marks_.wholePassesUnderWay_;
      if (!complete_) marks_.markAll();
    }
    WholePass(const WholePass&) = delete;
    WholePass& operator=(const WholePass&) = delete;
    void complete() { complete_ = true; }

   private:
    RefreshMarks& marks_;
    bool complete_ = false;
  };
  bool wholePassIsUnderWay() const { return wholePassesUnderWay_ > 0; }

  /// Says that something about `prefix`, or about what resolves through it, has changed.
  void touch(const Lumo::Prefix& prefix) {
    if (!all_ && (touched_.empty() || touched_.back() != prefix)) note(prefix);
  }
  /// Whether the prefix has been offered with its lowest preference, and nothing has changed for it since.
  /// False when in doubt.
  bool isSettled(const RouteKeyPrefix& entry) const {
    return isUnmarked(entry) && offersUnderWay_ == 0 && listens() && !passedOver_.contains(&entry);
  }
  void unmark(const RouteKeyPrefix& entry);
  void mark(const RouteKeyPrefix& entry);
  /// The offer of a whole prefix, while this lives. It takes the mark away; one that was not `complete`
  /// leaves the prefix marked.
  class Offer {
   public:
    Offer(RefreshMarks& marks, const RouteKeyPrefix& entry)
        : marks_(marks), entry_(entry), refreshes_(++marks.refreshes_) {
      ++marks_.offersUnderWay_;
      marks_.unmark(entry);
    }
    ~Offer() {
      --marks_.offersUnderWay_;
      if (!complete_ || passedOver_) marks_.keepInMind(entry_, complete_);
    }
    Offer(const Offer&) = delete;
    Offer& operator=(const Offer&) = delete;
    /// A preference is not offered, since the route has a better one.
    void passOver() { passedOver_ = true; }
    /// What the offer itself has written does not mark the prefix again: its own route in the trie takes no
    /// longest match from its RPF addresses that was of use, since a shorter one covers the prefix and is
    /// refused like the prefix itself. But if a handler of that has refreshed in between, the prefix was met
    /// half done.
    void complete() {
      complete_ = marks_.refreshes_ == refreshes_;
      if (complete_ && marks_.onlyItsOwnWrites(entry_)) marks_.settleOwnWrites();
    }

   private:
    RefreshMarks& marks_;
    const RouteKeyPrefix& entry_;
    U64 refreshes_;
    bool complete_ = false;
    bool passedOver_ = false;
  };
  /// The prefix, to which an RPF was just added, has been offered that RPF, and nothing else of it can have
  /// another outcome. It needs no offer of the whole if this RPF is all that it was marked for.
  void offeredNewRpf(const RouteKeyPrefix& entry, const Rpf& rpf, U8 preference);
  /// While the result lives, the next change of this route is the resolver's own; what a handler of that
  /// change does to the route in turn is not.
  class OwnWrite {
   public:
    OwnWrite(RefreshMarks& marks, const Lumo::Prefix& prefix) : marks_(marks) { marks_.expected_ = prefix; }
    ~OwnWrite() { marks_.expected_.reset(); }
    OwnWrite(const OwnWrite&) = delete;
    OwnWrite& operator=(const OwnWrite&) = delete;

   private:
    RefreshMarks& marks_;
  };
  /// The first marked prefix that a walk meets behind the one with this order (0: from the start), or null.
  const RouteKeyPrefix* next(U64 order, const Lumo::IpGenPrefix& defaultPrefix);

 private:
  /// A configured prefix by an address or an interface that one of its RPFs names.
  template <class Key>
  struct User {
    Key key;
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
  /// An interface that RPFs name, under the address that it had when they were last looked at.
  struct IntfAddress {
    U32 address;
    U32 intf;
    friend auto operator<=>(const IntfAddress&, const IntfAddress&) = default;
  };

  /// An RPF that was added to a prefix which was not marked.
  struct Fresh {
    const RouteKeyPrefix* entry = nullptr;
    Rpf rpf{};
    U8 preference = 0;
    friend bool operator==(const Fresh&, const Fresh&) = default;
  };

  /// Whether it is known that nothing has changed for the prefix.
  bool isUnmarked(const RouteKeyPrefix& entry) const {
    return fresh_.entry != &entry && !all_ && nothingNoted() && !marked_.contains({entry.order(), &entry});
  }
  bool isConfigured(const RouteKeyPrefix& entry) const;
  void keepInMind(const RouteKeyPrefix& entry, bool wasOffered);
  bool onlyItsOwnWrites(const RouteKeyPrefix& entry) const;
  [[gnu::noinline]] void note(const Lumo::Prefix& prefix);
  void settleOwnWrites();
  void hearStatus(const Lumo::Prefix& prefix);
  bool nothingNoted() const { return touched_.empty() && touchedIntfs_.empty(); }
  void hearConfig(const ConfigChange& change);
  void forget(const RouteKeyPrefix& entry);
  void markFresh();
  void hearTrie(const Lumo::IpGenPrefix& prefix) { touch(prefix.v4Prefix()); }
  void hearIpStatus(const Lumo::IntfId& id) { touchIntf(id.value()); }
  void touchIntf(U32 intf);

  void indexAll();
  void index(const RouteKeyPrefix& entry, const Rpf& rpf);
  void unindex(const RouteKeyPrefix& entry, const Rpf& rpf);
  bool isNamedElsewhere(const RouteKeyPrefix& entry, const Rpf& rpf) const;
  void readIntfAddress(U32 intf);

  void settle(const Lumo::IpGenPrefix& defaultPrefix);
  void markDependants(const Lumo::Prefix& prefix);
  void markUsersOf(U32 intf);

  Inputs inputs_{};
  bool all_ = true;
  int wholePassesUnderWay_ = 0;
  int offersUnderWay_ = 0;
  U64 refreshes_ = 0;  // questions for the next prefix, and offers
  Zan::SortedSet<Marked> marked_;
  Zan::SortedSet<User<U32>> byAddress_;  // address RPFs
  Zan::SortedSet<User<U32>> byIntf_;     // interface RPFs
  Zan::SortedSet<IntfAddress> intfAddresses_;
  std::unordered_map<U32, U32> addressOfIntf_;
  Zan::SortedSet<const RouteKeyPrefix*> foreign_;     // not of IPv4
  Zan::SortedSet<const RouteKeyPrefix*> passedOver_;  // whose last offer left out a preference
  Fresh fresh_;                           // marked, but held apart: for nothing but one RPF that was added
  std::optional<Lumo::Prefix> expected_;  // the route that the resolver is about to write
  bool othersWrote_ = false;              // since the last time that nothing was noted
  std::vector<Lumo::Prefix> touched_;
  std::vector<U32> touchedIntfs_;
  Zan::Tap<ConfigChange> configTap_ = Zan::Tap<ConfigChange>::to<&RefreshMarks::hearConfig>(this);
  Zan::Tap<Lumo::Prefix> statusTap_ = Zan::Tap<Lumo::Prefix>::to<&RefreshMarks::hearStatus>(this);
  Zan::Tap<Lumo::IpGenPrefix> trieTap_ = Zan::Tap<Lumo::IpGenPrefix>::to<&RefreshMarks::hearTrie>(this);
  Zan::Tap<Lumo::IntfId> ipTap_ = Zan::Tap<Lumo::IntfId>::to<&RefreshMarks::hearIpStatus>(this);
  Zan::Tap<Lumo::IntfId> intfTap_ = Zan::Tap<Lumo::IntfId>::to<&RefreshMarks::hearIpStatus>(this);
};

}  // namespace Routing::Multicast::Rib
