#pragma once

#include <optional>
#include <vector>

#include "Interface/AllIntfStatusDir.h"
#include "Ip/Status.h"
#include "Pim/MribSm/RefreshMarks.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/Multicast/Rib/Status.h"
#include "Routing/Shadow/Status.h"
#include "Zan/Export.h"
#include "Zan/Reactor.h"

namespace Routing::Multicast::Rib {

class MribSm;

/// Resolves configured RPFs into MRIB status routes, copies connected unicast routes into the MRIB status,
/// remembers which multicast prefix resolves through which and resolves them again when routing changes.
/// The code is in three further files: ResolverRoutes.cc (one RPF in and out), ResolverWatch.cc (who depends
/// on whom), ResolverRefresh.cc (what follows a change).
///
/// It works on IPv4 only. A prefix that is empty or of the other family has no route: nothing is made of it,
/// looked up for it or removed with it; to offer one of its RPFs is `unusable`, and a refresh passes it over.
///
/// It is active from the start. It and its engine may be released from within any handler that it calls: then
/// they go when the operation is done.
class ZAN_EXPORT RouteResolverSm : public Zan::VFPtrInterface {
 public:
  class ZanUribStatus;
  class ZanMribStatus;
  class ZanZan_TrieIn;
  class ZanMribForPrefix;
  using MribForPrefixMap = Zan::HashMap<ZanMribForPrefix, Lumo::IpGenPrefix>;
  class MribForPrefixIterator;
  using MribForPrefixIteratorConst = MribForPrefixMap::IteratorConst;

  // Results of the operations on one RPF.
  static constexpr S32 changed = 0;
  static constexpr S32 nothingToDo = 17;
  static constexpr S32 unusable = -1;
  static constexpr bool isInstalled(S32 result) { return result == changed || result == nothingToDo; }

  /// Whether a prefix can resolve through an RPF, and if not, why. The tests are made in this order.
  enum class Verdict : U8 {
    usable,
    noAddress,    ///< the RPF is an interface without address
    noMatch,      ///< no MRIB route covers the RPF address
    itself,       ///< the longest match is the prefix itself
    onlyDefault,  ///< the longest match is the default route
    coversIt,     ///< the longest match is shorter than the prefix and covers it
  };
  /// What an RPF of a prefix comes to. Address and longest match are set as far as they are known.
  struct Probe {
    Verdict verdict;
    Lumo::IpAddr hop;       ///< the RPF address
    Lumo::IpGenPrefix lpm;  ///< its longest match
  };

  /// Knows `mribSm` by a plain pointer. When that goes before the resolver does, the resolver hears nothing
  /// any more. Without `mribSm`, then or from the start, it copies connected routes and keeps watches;
  /// whatever resolves an RPF or follows a change asserts "mribSm".
  RouteResolverSm(const Zan::Ptr<Routing::Shadow::Status>& uribStatus, const Zan::Ptr<Status>& mribStatus,
                  const Zan::Ptr<Interface::AllIntfStatusDir const>& intfStatus, MribSm* mribSm);

  void hasNotificationActiveIs(bool active) override;
  const Zan::ZanType* fwkType() const override;
  ~RouteResolverSm() override;
  virtual void zanDoZombieReactors(bool zombie);

  // Attributes.
  Zan::Ptr<Routing::Shadow::Status> uribStatus() const;
  void uribStatusIs(const Zan::Ptr<Routing::Shadow::Status>& status);
  Zan::Ptr<ZanUribStatus> uribStatusDel();
  Zan::Ptr<Status> mribStatus() const;
  void mribStatusIs(const Zan::Ptr<Status>& status);
  Zan::Ptr<ZanMribStatus> mribStatusDel();
  const Zan::Ptr<Interface::AllIntfStatusDir const>& intfStatus() const { return intfStatus_; }
  /// While true, unicast changes are ignored. Nothing in the library sets it.
  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  const Lumo::IpGenPrefix& defaultPrefix() const { return defaultPrefix_; }
  void defaultPrefixIs(const Lumo::IpGenPrefix& v);
  /// Null without one, and after it has gone.
  MribSm* mribSm() const { return mribSm_; }
  /// The unicast trie that the resolver follows: always that of `uribStatus`.
  Zan::Ptr<TrieGen const> zan_TrieIn() const;
  void zan_TrieInIs(const Zan::Ptr<TrieGen const>& trie);

  // Unicast changes (RouteResolverSm.cc).
  void handleInitialize();
  /// A changed route that cannot be read is noted, and followed once it can be read when the next one
  /// changes; Quarn::CorruptionException says so. An unreadable FEC is noted likewise, without an exception.
  void handleChangedRoute();

  // The prefix sets by resolving prefix, and the watches (ResolverWatch.cc).
  PrefixSet::Ptr mribForPrefix(const Lumo::IpGenPrefix& lPrefix) const;
  U32 mribForPrefixCount() const { return mribForPrefix_.size(); }
  MribForPrefixIteratorConst mribForPrefixIterator() const { return mribForPrefix_.iterator(); }
  MribForPrefixIterator mribForPrefixIterator();
  void mribForPrefixIs(const PrefixSet::Ptr& set);
  PrefixSet::Ptr mribForPrefixDel(const Lumo::IpGenPrefix& lPrefix);
  void mribForPrefixDelAll();
  /// Called for every entry that one of these two or an iterator deletes.
  void mribForPrefixNotify(const Lumo::IpGenPrefix& lPrefix, const Zan::Ptr<ZanMribForPrefix>& entry);
  Zan::Ptr<ZanMribForPrefix> newMribForPrefix(const PrefixSet::Ptr& set);
  /// Records that the multicast prefix `p` resolves through `lPrefix`.
  void doAddWatchPrefix(const Lumo::IpGenPrefix& lPrefix, const Lumo::IpGenPrefix& p);
  /// Takes `prefix` out of the set `paddr`, or out of every set when that is empty.
  void doDelWatchPrefix(const Lumo::IpGenPrefix& prefix, const PrefixSet::Ptr& paddr);

  // One RPF of one configured prefix (ResolverRoutes.cc).
  /// What `doAddOrUpdateRoute` tests first. Changes nothing; one look-up in the trie.
  Probe probe(const Rpf& rpf, const Lumo::IpGenPrefix& prefix) const;
  /// Appends the vias that an RPF contributes whose probe was `usable`, in the order of an offer.
  void viasOf(const Rpf& rpf, const Probe& probed, std::vector<Fib::Via>& vias) const;
  /// Resolves the RPF and adds the route or its missing vias: `changed`, `nothingToDo` or `unusable`.
  S32 doAddOrUpdateRoute(const Rpf& rpf, const Lumo::IpGenPrefix& prefix, U8 preference);
  /// Takes the RPF's vias out of the route, or the route when its preference has no RPF left. Always 0.
  S32 doDelRpf(const Rpf& rpf, const Lumo::IpGenPrefix& prefix);
  void doDelRoute(const Lumo::IpGenPrefix& prefix);

  /// `doAddOrUpdateRoute` for an RPF that has just been added at the lowest preference of `entry`. To be
  /// called with both `Kept`.
  void addRpf(const Rpf& rpf, const RouteKeyPrefix& entry, U8 preference);

  // What follows a change (ResolverRefresh.cc).
  void doMaybeRefreshRoutes(const Lumo::IpGenPrefix& changedPrefix, bool add);
  void doRecursiveDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset);
  void doRecursiveUpdate(const PrefixSet::Ptr& pset);
  /// Whether a refresh offers every configured prefix, not only those for which something has changed. The
  /// state ends the same; the traces of a step that changes nothing are written by whole passes alone, which
  /// therefore run whenever level 8 is traced.
  void wholePassesIs(bool whole) { wholePasses_ = whole; }
  /// Whether the next refresh would offer the prefix. To offer one that is not marked would write nothing.
  bool isMarked(const RouteKeyPrefix& rkPrefix);

  /// Keeps the resolver and its engine while an operation is under way: handlers of what it writes may
  /// release both, which then go when it is done.
  class Kept {
   public:
    explicit Kept(RouteResolverSm& resolver) : resolver_(resolver) {
      if (resolver_.underWay_++ == 0) resolver_.keep();
    }
    ~Kept() {
      if (--resolver_.underWay_ == 0) resolver_.letGo();
    }
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;

   private:
    RouteResolverSm& resolver_;
  };

 private:
  /// The RPF address; nothing when the RPF is an interface without one.
  std::optional<Lumo::IpAddr> rpfAddress(const Rpf& rpf) const;
  Lumo::IpGenPrefix longestMatch(Lumo::IpAddr address) const;
  Verdict verdictOn(const Lumo::IpGenPrefix& lpm, const Lumo::IpGenPrefix& prefix) const;
  S32 offerRpf(const Rpf& rpf, const Lumo::IpGenPrefix& prefix, U8 preference, std::optional<Route*> known);
  class CandidateVias;
  void addRoute(const Rpf& rpf, Lumo::IpAddr hop, const Lumo::IpGenPrefix& lpm,
                const Lumo::IpGenPrefix& prefix, U8 preference);
  S32 updateRoute(const Zan::Ptr<Route>& route, const Rpf& rpf, Lumo::IpAddr hop,
                  const Lumo::IpGenPrefix& lpm, const Lumo::IpGenPrefix& prefix, U8 preference);
  void enterSet(const PrefixSet::Ptr& set);
  void dropSet(const Lumo::IpGenPrefix& lPrefix);
  bool addMember(PrefixSet& set, const Lumo::IpGenPrefix& p);
  Route* present(const Zan::Ptr<Route>& known) const;
  void addWatch(const Lumo::IpGenPrefix& lPrefix, const Lumo::IpGenPrefix& p, Route* route);
  void delWatch(Route& route, const Lumo::IpGenPrefix& prefix, PrefixSet& set);

  void copyConnectedRoute(const Quarn::Fib::Route& route, const Quarn::Fib::Fec& fec, const char* handler);
  std::optional<Quarn::Fib::Fec> connectedFec(const Quarn::Fib::Route& route);
  std::optional<Quarn::Fib::Fec> readFec(const Quarn::Fib::Route& route);
  std::optional<Quarn::Fib::Route> readRoute(const Lumo::IpGenPrefix& prefix);
  void followChange(const Lumo::IpGenPrefix& changedRoute);
  void followUnread(std::size_t count);

  bool refreshPass(const Lumo::IpGenPrefix& changedPrefix);
  void followInputs();
  const RouteKeyPrefix* nextMarked(U64 order);
  bool isSettled(const RouteKeyPrefix& rkPrefix);
  bool wholePasses() const;
  bool refreshPrefix(const RouteKeyPrefix& rkPrefix, const Lumo::IpGenPrefix& changedPrefix);
  bool offerPreferences(const RouteKeyPrefix& rkPrefix, const Route* route);
  bool traceDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset) const;
  void stripVias(const Route& delRoute, const Lumo::IpGenPrefix& member);
  bool traceUpdate(const PrefixSet::Ptr& pset) const;
  void updateMember(const Lumo::IpGenPrefix& member, const Lumo::IpGenPrefix& lPrefix);
  bool resolveMember(const RouteKeyPrefix& rkPrefix);

  /// The engine; it must exist.
  MribSm& engine() const {
    ZAN_ASSERT_TEXT(mribSm_, "mribSm");
    return *mribSm_;
  }
  /// The configuration; it must exist.
  const Config& config() const;
  /// The MRIB status; it must exist.
  Status& status() const;
  /// The MRIB route of a prefix, or null; null for a prefix that is not of IPv4.
  Route* routeOf(const Lumo::IpGenPrefix& prefix) const;
  void mribSmGoes(const MribSm& mribSm);
  void keep();
  void letGo();
  void detach();

  Zan::Ptr<ZanUribStatus> uribStatus_;
  Zan::Ptr<ZanMribStatus> mribStatus_;
  Zan::Ptr<Interface::AllIntfStatusDir const> intfStatus_;
  bool initialized_ = false;
  U32 underWay_ = 0;  // operations
  MribForPrefixMap mribForPrefix_;
  Lumo::IpGenPrefix defaultPrefix_;
  MribSm* mribSm_;
  Zan::Tap<MribSm> mribSmGoes_ = Zan::Tap<MribSm>::to<&RouteResolverSm::mribSmGoes>(this);
  Zan::Ptr<ZanZan_TrieIn> zan_TrieIn_;
  std::vector<Lumo::IpGenPrefix> unread_;  // unicast prefixes that could not be read when they changed
  RefreshMarks marks_;
  bool wholePasses_ = false;
};

/// Entry of `mribForPrefix`: one prefix set, keyed by its resolving prefix.
class ZAN_EXPORT RouteResolverSm::ZanMribForPrefix : public Zan::VFPtrInterface,
                                                     public Zan::HashMember<ZanMribForPrefix> {
 public:
  ZanMribForPrefix(const PrefixSet::Ptr& set, RefreshMarks& marks) : members_(marks.memberTap()) {
    ZAN_ASSERT(set);
    follow(set);
  }

  const PrefixSet::Ptr& mribForPrefix() const { return set_; }
  /// Another set of the same resolving prefix.
  void mribForPrefixIs(const PrefixSet::Ptr& set) {
    ZAN_ASSERT(set && set->lPrefix() == fwkKey());
    follow(set);
  }
  const Lumo::IpGenPrefix& fwkKey() const { return set_->lPrefix(); }
  void zanLeft() { members_.detach(); }
  void zanOrphaned() { members_.detach(); }
  const Zan::ZanType* fwkType() const override;

 private:
  void follow(const PrefixSet::Ptr& set) {
    set_ = set;
    members_.attach(set_->taps());
  }

  PrefixSet::Ptr set_;
  Zan::Tap<Lumo::IpGenPrefix> members_;
};

/// Walks `mribForPrefix`; deletes as `mribForPrefixDel` does.
class ZAN_EXPORT RouteResolverSm::MribForPrefixIterator : public MribForPrefixMap::Iterator {
 public:
  explicit MribForPrefixIterator(RouteResolverSm& resolver)
      : BasicIterator(resolver.mribForPrefix_), resolver_(resolver) {}
  Zan::Ptr<ZanMribForPrefix> erase();

 private:
  RouteResolverSm& resolver_;
};

inline RouteResolverSm::MribForPrefixIterator RouteResolverSm::mribForPrefixIterator() {
  return MribForPrefixIterator(*this);
}

/// Creates a resolver beside that of `mribSm`.
ZAN_EXPORT Zan::Ptr<RouteResolverSm> routeResolverSmFactory(
    const Zan::Ptr<Routing::Shadow::Status>& uribStatus, const Zan::Ptr<Status>& mribStatus,
    const Zan::Ptr<Interface::AllIntfStatusDir const>& intfStatus, MribSm* mribSm);

}  // namespace Routing::Multicast::Rib
