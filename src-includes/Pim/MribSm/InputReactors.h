#pragma once

#include "Pim/MribSm/MribSm.h"
#include "Zan/Export.h"

namespace Routing::Multicast::Rib {

/// Mirrors the three attributes of the interface information into the state machine.
class ZAN_EXPORT MribSm::ZanIntfInfo : public Zan::Reactor<InterfaceInfo::NotifieeConst, MribSm> {
 public:
  /// Registers without mirroring: the owner copies what it needs itself.
  ZanIntfInfo(const Zan::Ptr<InterfaceInfo const>& intfInfo, MribSm* mribSm);

  void notifierIs(const Zan::Ptr<Zan::PtrInterface const>& intfInfo) override;
  void onIpStatus() override;
  void onConfig() override;
  void onStatus() override;

  void mribSmIs(MribSm* mribSm) { ownerIs(mribSm); }
};

/// Holds the unicast shadow status for the state machine; reacts to nothing.
class ZAN_EXPORT MribSm::ZanUribShadowStatus
    : public Zan::Reactor<Routing::Shadow::Status::NotifieeConst, MribSm> {
 public:
  ZanUribShadowStatus(const Zan::Ptr<Routing::Shadow::Status>& status, MribSm* mribSm);

  void mribSmIs(MribSm* mribSm) { ownerIs(mribSm); }
};

}  // namespace Routing::Multicast::Rib
