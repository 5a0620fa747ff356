#pragma once

#include "Pim/MribSm/InterfaceInfo.h"
#include "Pim/MribSm/RouteResolverSm.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/Shadow/Status.h"
#include "Zan/Export.h"
#include "Zan/Reactor.h"

namespace Routing::Multicast::Rib {

/// The multicast RIB engine: watches the configuration, the unicast shadow status and the interface
/// information of its agent and keeps the MRIB status and its longest-match trie up to date. Owns the MRIB
/// shadow status, the trie builder and the resolver. Single-threaded: everything runs on the thread that
/// changes its inputs. Releasing the last reference stops it; the MRIB status keeps its routes.
///
/// It works on IPv4 only. A configured prefix that is empty or of the other family is left alone: it has its
/// reactors, but nothing of it reaches the resolver.
///
/// Handlers of what it writes may do to it what they like. One that releases the engine, or puts an input or
/// a child in the place of another, does so for what comes next: what is under way goes on with what it has,
/// and asserts where something that it needs is missing. Without a resolver nothing is resolved.
class ZAN_EXPORT MribSm : public Zan::VFPtrInterface {
 public:
  class ZanIntfInfo;
  class ZanUribShadowStatus;
  class ZanMribConfig;
  class ZanMribConfigPrefix;
  using MribShadow = Routing::Multicast::Shadow::Status;
  using ConfigPrefixMap = Zan::HashMap<ZanMribConfigPrefix, Lumo::IpGenPrefix>;
  using ConfigPrefixIterator = ConfigPrefixMap::Iterator;

  MribSm(const Zan::Ptr<InterfaceInfo const>& intfInfo,
         const Zan::Ptr<Routing::Shadow::Status>& uribShadowStatus, const Zan::Ptr<Config const>& mribConfig,
         const Zan::Ptr<Status>& mribStatus,
         const Zan::Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir);

  void hasNotificationActiveIs(bool active) override;
  const Zan::ZanType* fwkType() const override;
  ~MribSm() override;
  virtual void zanDoZombieReactors(bool zombie);

  /// True once `handleInitialize` has run; before that, configuration is not processed.
  bool initialize() const { return initialize_; }
  void initializeIs(bool v) { initialize_ = v; }
  /// "0.0.0.0/0" once initialised, empty before.
  const Lumo::IpGenPrefix& defaultPrefix() const { return defaultPrefix_; }
  void defaultPrefixIs(const Lumo::IpGenPrefix& v) { defaultPrefix_ = v; }

  // The inputs. Setting null drops the reactor, another value re-targets it.
  Zan::Ptr<InterfaceInfo const> intfInfo() const;
  void intfInfoIs(const Zan::Ptr<InterfaceInfo const>& intfInfo);
  Zan::Ptr<ZanIntfInfo> intfInfoDel();
  Zan::Ptr<Routing::Shadow::Status> uribShadowStatus() const;
  void uribShadowStatusIs(const Zan::Ptr<Routing::Shadow::Status>& uribShadowStatus);
  Zan::Ptr<ZanUribShadowStatus> uribShadowStatusDel();
  Zan::Ptr<Config const> mribConfig() const;
  /// The same without a reference of the caller's own.
  const Config* rawMribConfig() const;
  void mribConfigIs(const Zan::Ptr<Config const>& mribConfig);
  Zan::Ptr<ZanMribConfig> mribConfigDel();
  const Zan::Ptr<Status>& mribStatus() const { return mribStatus_; }
  const Zan::Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir() const { return allIntfStatusDir_; }

  // Mirrored from the interface information.
  const Zan::Ptr<Ip::Status const>& ipStatus() const { return ipStatus_; }
  void ipStatusIs(const Zan::Ptr<Ip::Status const>& v);
  const Zan::Ptr<Interface::AllIntfStatusDir const>& intfStatus() const { return intfStatus_; }
  void intfStatusIs(const Zan::Ptr<Interface::AllIntfStatusDir const>& v);
  const Zan::Ptr<Interface::AllIntfConfigDir const>& intfConfig() const { return intfConfig_; }
  void intfConfigIs(const Zan::Ptr<Interface::AllIntfConfigDir const>& v);

  // The children. A setter returns the child that was built from the same inputs, or replaces it.
  const Zan::Ptr<RouteResolverSm>& routeResolver() const { return routeResolver_; }
  Zan::Ptr<RouteResolverSm> routeResolverIs(
      const Zan::Ptr<Routing::Shadow::Status>& uribStatus, const Zan::Ptr<Status>& mribStatus,
      const Zan::Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir);
  Zan::Ptr<RouteResolverSm> routeResolverDel();
  const Zan::Ptr<MribShadow>& mribShadow() const { return mribShadow_; }
  Zan::Ptr<MribShadow> mribShadowIs(const Zan::Name& name);
  Zan::Ptr<MribShadow> mribShadowDel();
  /// The trie over the MRIB status routes; it must exist.
  const TrieGen& mribTrie() const;
  const Zan::Ptr<MribTrieBuilderSm>& trieBuilder() const { return trieBuilder_; }
  Zan::Ptr<MribTrieBuilderSm> trieBuilderIs(const Zan::Ptr<Status const>& mribStatus,
                                            const Zan::Ptr<MribShadow>& mribShadow);
  Zan::Ptr<MribTrieBuilderSm> trieBuilderDel();

  /// Tells those who point to the engine that it goes.
  const Zan::Taps<MribSm>& departure() const { return departure_; }

  /// A configured prefix will be looked up in every table soon: starts to load what will be read then.
  void expect(const Lumo::IpGenPrefix& prefix) const;
  /// The same for the tables that an offer of the prefix reads, and for those that its reactor's start reads.
  void expectOffer(const Lumo::IpGenPrefix& prefix) const;
  void expectReactor(const Lumo::IpGenPrefix& prefix) const;
  template <auto Expect>
  class ConfigWalk;

  // One reactor per configured prefix.
  Zan::Ptr<ZanMribConfigPrefix> mribConfigPrefix(const Lumo::IpGenPrefix& prefix) const;
  U32 mribConfigPrefixCount() const { return mribConfigPrefix_.size(); }
  ConfigPrefixIterator mribConfigPrefixIterator() { return mribConfigPrefix_.iterator(); }
  Zan::Ptr<ZanMribConfigPrefix> mribConfigPrefixIs(const Zan::Ptr<RouteKeyPrefix const>& rkPrefix);
  Zan::Ptr<ZanMribConfigPrefix> mribConfigPrefixDel(const Lumo::IpGenPrefix& prefix);
  void mribConfigPrefixDelAll();
  /// Called for every reactor that leaves the collection: lets it handle its departure and retires it.
  void mribConfigPrefixNotify(const Lumo::IpGenPrefix& prefix, const Zan::Ptr<ZanMribConfigPrefix>& reactor);
  void zan_handleMribConfigPrefix(const Zan::Ptr<ZanMribConfigPrefix>& reactor);

  /// Sets the default prefix and makes the children; does nothing the second time.
  void handleInitialize();

  Zan::Ptr<ZanIntfInfo> newIntfInfo(const Zan::Ptr<InterfaceInfo const>& intfInfo);
  Zan::Ptr<ZanUribShadowStatus> newUribShadowStatus(
      const Zan::Ptr<Routing::Shadow::Status>& uribShadowStatus);
  Zan::Ptr<ZanMribConfig> newMribConfig(const Zan::Ptr<Config const>& mribConfig);
  Zan::Ptr<ZanMribConfigPrefix> newMribConfigPrefix(const Zan::Ptr<RouteKeyPrefix const>& rkPrefix);
  Zan::Ptr<RouteResolverSm> newRouteResolver(
      const Zan::Ptr<Routing::Shadow::Status>& uribStatus, const Zan::Ptr<Status>& mribStatus,
      const Zan::Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir);
  Zan::Ptr<MribTrieBuilderSm> newTrieBuilder(const Zan::Ptr<Status const>& mribStatus,
                                             const Zan::Ptr<MribShadow>& mribShadow);
  Zan::Ptr<MribShadow> newMribShadow(const Zan::Name& name);

 private:
  friend class ZanMribConfig;
  void reconcileConfigPrefixes();
  void forgetConfigPrefixes();
  void detach();

  bool initialize_ = false;
  Zan::Ptr<ZanIntfInfo> intfInfo_;
  Zan::Ptr<ZanUribShadowStatus> uribShadowStatus_;
  Zan::Ptr<ZanMribConfig> mribConfig_;
  Zan::Ptr<Status> mribStatus_;
  Zan::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
  Zan::Ptr<Ip::Status const> ipStatus_;
  Zan::Ptr<Interface::AllIntfStatusDir const> intfStatus_;
  Zan::Ptr<Interface::AllIntfConfigDir const> intfConfig_;
  ConfigPrefixMap mribConfigPrefix_;
  Zan::Ptr<RouteResolverSm> routeResolver_;
  Zan::Ptr<MribShadow> mribShadow_;
  Zan::Ptr<MribTrieBuilderSm> trieBuilder_;
  Lumo::IpGenPrefix defaultPrefix_;
  Zan::Taps<MribSm> departure_;
};

/// Walks the configuration as `routeIterator` does, and lets the engine expect what lies a few entries ahead.
template <auto Expect>
class MribSm::ConfigWalk {
 public:
  ConfigWalk(const MribSm& mribSm, const Config& config)
      : mribSm_(mribSm), at_(config.routeIterator()), ahead_(config.routeIterator()) {
    constexpr int lead = 16;
    for (int i = 0; i < lead; ++i) moveAhead();
  }
  explicit operator bool() const { return static_cast<bool>(at_); }
  const RouteKeyPrefix& operator*() const { return *at_; }
  const RouteKeyPrefix* operator->() const { return at_.get(); }
  ConfigWalk& operator++() {
    ++at_;
    moveAhead();
    return *this;
  }

 private:
  void moveAhead() {
    if (ahead_) (mribSm_.*Expect)(ahead_->prefix());
    ++ahead_;
  }

  const MribSm& mribSm_;
  Config::RouteMap::IteratorConst at_;
  Config::RouteMap::IteratorConst ahead_;
};

/// Creates the engine on its inputs and outputs and starts it. Null inputs are tolerated where the engine can
/// do without; the MRIB status must exist.
ZAN_EXPORT Zan::Ptr<MribSm> mribSmFactory(
    const Zan::Ptr<InterfaceInfo const>& intfInfo, const Zan::Ptr<Routing::Shadow::Status>& uribShadowStatus,
    const Zan::Ptr<Config const>& mribConfig, const Zan::Ptr<Status>& mribStatus,
    const Zan::Ptr<Interface::AllIntfStatusDir const>& allIntfStatusDir);

}  // namespace Routing::Multicast::Rib
