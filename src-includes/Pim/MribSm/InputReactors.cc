#include "Pim/MribSm/InputReactors.h"

namespace Routing::Multicast::Rib {

MribSm::ZanIntfInfo::ZanIntfInfo(const Zan::Ptr<InterfaceInfo const>& intfInfo, MribSm* mribSm)
    : Reactor(mribSm) {
  bind(intfInfo);
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanIntfInfo::notifierIs(const Zan::Ptr<Zan::PtrInterface const>& intfInfo) {
  if (intfInfo.get() == rawNotifier()) return;
  Reactor::notifierIs(intfInfo);
  onIpStatus();
  onStatus();
  onConfig();
  isRegisteredNotifieeIs(true);
}

void MribSm::ZanIntfInfo::onIpStatus() {
  if (notifier() && owner()) owner()->ipStatusIs(notifier()->ipStatus());
}

void MribSm::ZanIntfInfo::onConfig() {
  if (notifier() && owner()) owner()->intfConfigIs(notifier()->config());
}

void MribSm::ZanIntfInfo::onStatus() {
  if (notifier() && owner()) owner()->intfStatusIs(notifier()->status());
}

MribSm::ZanUribShadowStatus::ZanUribShadowStatus(const Zan::Ptr<Routing::Shadow::Status>& status,
                                                 MribSm* mribSm)
    : Reactor(mribSm) {
  bind(status);
  isRegisteredNotifieeIs(true);
}

}  // namespace Routing::Multicast::Rib
