#pragma once

#include "Pim/MribSm/MribSm.h"
#include "Zan/Export.h"

namespace Routing::Multicast::Rib {

/// Watches the configuration and keeps one reactor for each configured prefix.
class ZAN_EXPORT MribSm::ZanMribConfig : public Zan::Reactor<Config::NotifieeConst, MribSm> {
 public:
  /// Registers without a look at the configuration: the owner reconciles when it is ready.
  ZanMribConfig(const Zan::Ptr<Config const>& config, MribSm* mribSm);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& config) override;
  void onRoute(const Lumo::IpGenPrefix& prefix) override;
  void onRoutezanImmediate() override;
  using Config::NotifieeConst::onRoute;

  void mribSmIs(MribSm* mribSm) { ownerIs(mribSm); }

 private:
  void expect(const Lumo::IpGenPrefix& prefix);
  void followExpectations();

  Zan::Tap<Lumo::IpGenPrefix> expectations_ = Zan::Tap<Lumo::IpGenPrefix>::to<&ZanMribConfig::expect>(this);
};

/// Watches one configured prefix and keeps one reactor for each of its preferences. While the engine keeps
/// it, it watches an entry of the same prefix.
class ZAN_EXPORT MribSm::ZanMribConfigPrefix : public Zan::Reactor<RouteKeyPrefix::NotifieeConst, MribSm>,
                                               public Zan::HashMember<ZanMribConfigPrefix> {
 public:
  class ZanMribConfigPref;
  /// A preference as a key.
  struct PrefKey {
    U8 preference;
    U64 hash() const { return Zan::mix(preference, 0); }
    friend bool operator==(PrefKey, PrefKey) = default;
  };
  using ConfigPrefMap = Zan::HashMap<ZanMribConfigPref, PrefKey>;

  ZanMribConfigPrefix(const Zan::Ptr<RouteKeyPrefix const>& rkPrefix, Zan::ActivityConfig* activity,
                      MribSm* mribSm);
  ~ZanMribConfigPrefix() override;
  /// Looks at the preferences and registers: once the owner has entered the reactor, so that a handler that
  /// takes the prefix out meanwhile finds it.
  void start();

  void hasNotificationActiveIs(bool active) override;
  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& rkPrefix) override;
  const Zan::ActivityConfig* zanFwkActivity() const override { return zanFwkActivity_.get(); }
  Zan::ActivityConfig* zanFwkActivity() override { return zanFwkActivity_.get(); }
  Zan::ActivitySm* actsm() override { return Zan::zanActivitySmFor(zanFwkActivity_.get()).get(); }
  void onPref(const U8& preference) override;
  void onPrefzanImmediate() override;
  void zanDoZombieReactors(bool zombie) override;
  using RouteKeyPrefix::NotifieeConst::onPref;
  const Zan::ZanType* fwkType() const override;

  MribSm* mribSm() const { return owner(); }
  void mribSmIs(MribSm* mribSm) { ownerIs(mribSm); }
  const Lumo::IpGenPrefix& fwkKey() const { return notifier()->prefix(); }
  void zanLeft();

  Zan::Ptr<ZanMribConfigPref> mribConfigPref(U8 preference) const;
  U32 mribConfigPrefCount() const { return mribConfigPref_.size(); }
  ConfigPrefMap::Iterator mribConfigPrefIterator() { return mribConfigPref_.iterator(); }
  Zan::Ptr<ZanMribConfigPref> mribConfigPrefIs(const Zan::Ptr<RouteKeyPreference const>& rkPreference);
  Zan::Ptr<ZanMribConfigPref> mribConfigPrefDel(U8 preference);
  void mribConfigPrefDelAll();
  void mribConfigPrefNotify(U8 preference, const Zan::Ptr<ZanMribConfigPref>& reactor);
  void zan_handleMribConfigPref(const Zan::Ptr<ZanMribConfigPref>& reactor);
  Zan::Ptr<ZanMribConfigPref> newMribConfigPref(const Zan::Ptr<RouteKeyPreference const>& rkPreference);

  /// The prefix leaves the configuration: its route goes and its dependants are resolved again.
  void handleDel();

 private:
  void reconcilePrefs();

  Zan::Ptr<Zan::ActivityConfig> zanFwkActivity_;
  ConfigPrefMap mribConfigPref_;
};

/// Watches one preference of a configured prefix and offers its RPFs to the resolver. Only the lowest
/// preference that resolves is installed. While its owner keeps it, it watches an entry of the same
/// preference.
class ZAN_EXPORT MribSm::ZanMribConfigPrefix::ZanMribConfigPref
    : public Zan::Reactor<RouteKeyPreference::NotifieeConst, ZanMribConfigPrefix>,
      public Zan::HashMember<ZanMribConfigPref> {
 public:
  ZanMribConfigPref(const Zan::Ptr<RouteKeyPreference const>& rkPreference, Zan::Ptr<Zan::ActivitySm> actsm,
                    ZanMribConfigPrefix* zanMribConfigPrefix);
  /// Offers the RPFs and registers, once the owner has entered the reactor.
  void start();

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& rkPreference) override;
  Zan::ActivitySm* actsm() override { return actsm_.get(); }
  void onRpf(const Rpf& rpf) override;
  void onRpfzanImmediate() override {}  // intended: each RPF is told on its own
  using RouteKeyPreference::NotifieeConst::onRpf;
  const Zan::ZanType* fwkType() const override;

  ZanMribConfigPrefix* zanMribConfigPrefix() const { return owner(); }
  void zanMribConfigPrefixIs(ZanMribConfigPrefix* prefix) { ownerIs(prefix); }
  PrefKey fwkKey() const { return {notifier()->preference()}; }
  void zanLeft();

  /// Offers every RPF of the entry.
  void handleRpf();
  /// An RPF was added to or removed from the entry.
  void handleRpf(const Rpf& rpf);
  /// The entry left its prefix: falls back to the other preferences.
  void handleDel();

 private:
  MribSm* mribSm() const { return owner() ? owner()->mribSm() : nullptr; }
  void handleRpfRemoved(RouteResolverSm& resolver, const Rpf& rpf, const RouteKeyPrefix& rkPrefix,
                        const Lumo::IpGenPrefix& lpm);

  Zan::Ptr<Zan::ActivitySm> actsm_;
};

}  // namespace Routing::Multicast::Rib
