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
class ZAN_EXPORT RouteResolverSm : public Zan::VFPtrInterface {
 public:
  class ZanUribStatus;
  class ZanMribStatus;
  class ZanZan_TrieIn;
  class ZanMribForPrefix;
  using MribForPrefixMap = Zan::HashMap<ZanMribForPrefix, Lumo::IpGenPrefix>;
  using MribForPrefixIterator = MribForPrefixMap::Iterator;
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

  /// `mribSm` owns the resolver and must outlive it or clear itself by releasing it.
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
  MribSm* mribSm() const { return mribSm_; }
  /// The unicast trie that the resolver follows: always that of `uribStatus`.
  Zan::Ptr<TrieGen const> zan_TrieIn() const;
  void zan_TrieInIs(const Zan::Ptr<TrieGen const>& trie);

  // Unicast changes (RouteResolverSm.cc).
  void handleInitialize();
  void handleChangedRoute();

  // The prefix sets by resolving prefix, and the watches (ResolverWatch.cc).
  PrefixSet::Ptr mribForPrefix(const Lumo::IpGenPrefix& lPrefix) const;
  U32 mribForPrefixCount() const { return mribForPrefix_.size(); }
  MribForPrefixIteratorConst mribForPrefixIterator() const { return mribForPrefix_.iterator(); }
  void mribForPrefixIs(const PrefixSet::Ptr& set);
  PrefixSet::Ptr mribForPrefixDel(const Lumo::IpGenPrefix& lPrefix);
  void mribForPrefixDelAll();
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

  /// `doAddOrUpdateRoute` for an RPF that has just been added at the lowest preference of `entry`.
  void addRpf(const Rpf& rpf, const RouteKeyPrefix& entry, U8 preference);

  // What follows a change (ResolverRefresh.cc).
  void doMaybeRefreshRoutes(const Lumo::IpGenPrefix& changedPrefix, bool add);
  void doRecursiveDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset);
  void doRecursiveUpdate(const PrefixSet::Ptr& pset);
  /// Whether a refresh offers every configured prefix, not only those for which something has changed. The
  /// state ends the same; the traces of a step that changes nothing are written by whole passes alone, which
  /// therefore run whenever level 8 is traced.
  void wholePassesIs(bool whole) { wholePasses_ = whole; }

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
  Route* present(const Zan::Ptr<Route>& known) const;
  void addWatch(const Lumo::IpGenPrefix& lPrefix, const Lumo::IpGenPrefix& p, Route* route);
  void delWatch(Route& route, const Lumo::IpGenPrefix& prefix, PrefixSet& set);

  void copyConnectedRoute(const Quarn::Fib::Route& route, const Quarn::Fib::Fec& fec, const char* handler);
  std::optional<Quarn::Fib::Fec> connectedFec(const Quarn::Fib::Route& route) const;

  bool refreshPass(const Lumo::IpGenPrefix& changedPrefix);
  void followInputs();
  const RouteKeyPrefix* nextMarked(U64 order);
  bool isSettled(const RouteKeyPrefix& rkPrefix);
  bool wholePasses() const;
  bool refreshPrefix(const RouteKeyPrefix& rkPrefix, const Lumo::IpGenPrefix& changedPrefix);
  bool offerPreferences(const RouteKeyPrefix& rkPrefix, const Route* route, RefreshMarks::Offer& offer);
  bool traceDelete(const Route::PtrConst& delRoute, const PrefixSet::Ptr& pset) const;
  void stripVias(const Route& delRoute, const Lumo::IpGenPrefix& member);
  bool traceUpdate(const PrefixSet::Ptr& pset) const;
  void updateMember(const Lumo::IpGenPrefix& member, const Lumo::IpGenPrefix& lPrefix);
  bool resolveMember(const RouteKeyPrefix& rkPrefix);

  /// The configuration; it must exist.
  const Config& config() const;
  /// The MRIB status; it must exist.
  Status& status() const;
  void detach();

  Zan::Ptr<ZanUribStatus> uribStatus_;
  Zan::Ptr<ZanMribStatus> mribStatus_;
  Zan::Ptr<Interface::AllIntfStatusDir const> intfStatus_;
  bool initialized_ = false;
  MribForPrefixMap mribForPrefix_;
  Lumo::IpGenPrefix defaultPrefix_;
  MribSm* mribSm_;
  Zan::Ptr<ZanZan_TrieIn> zan_TrieIn_;
  RefreshMarks marks_;
  bool wholePasses_ = false;
};

/// Entry of `mribForPrefix`: one prefix set, keyed by its resolving prefix.
class ZAN_EXPORT RouteResolverSm::ZanMribForPrefix : public Zan::VFPtrInterface,
                                                     public Zan::HashMember<ZanMribForPrefix> {
 public:
  explicit ZanMribForPrefix(PrefixSet::Ptr set) : set_(std::move(set)) {}

  const PrefixSet::Ptr& mribForPrefix() const { return set_; }
  void mribForPrefixIs(const PrefixSet::Ptr& set) { set_ = set; }
  const Lumo::IpGenPrefix& fwkKey() const { return set_->lPrefix(); }
  const Zan::ZanType* fwkType() const override;

 private:
  PrefixSet::Ptr set_;
};

ZAN_EXPORT Zan::Ptr<RouteResolverSm> routeResolverSmFactory(
    const Zan::Ptr<Routing::Shadow::Status>& uribStatus, const Zan::Ptr<Status>& mribStatus,
    const Zan::Ptr<Interface::AllIntfStatusDir const>& intfStatus, MribSm* mribSm);

}  // namespace Routing::Multicast::Rib
