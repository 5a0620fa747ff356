#include "Pim/MribSm/InterfaceInfo.h"

#include "Zan/ZanType.h"

namespace Routing::Multicast::Rib {

Zan::Ptr<InterfaceInfo> interfaceInfoFactory() {
  return Zan::ValidPtr<InterfaceInfo>(Zan::create<InterfaceInfo>()).ptr();
}

void InterfaceInfo::ipStatusIs(const Zan::Ptr<Ip::Status const>& ipStatus) {
  if (ipStatus_ == ipStatus) return;
  ipStatus_ = ipStatus;
  tell<&NotifieeConst::onIpStatus>(ipStatusId);
}

void InterfaceInfo::configIs(const Zan::Ptr<Interface::AllIntfConfigDir const>& config) {
  if (config_ == config) return;
  config_ = config;
  tell<&NotifieeConst::onConfig>(configId);
}

void InterfaceInfo::statusIs(const Zan::Ptr<Interface::AllIntfStatusDir const>& status) {
  if (status_ == status) return;
  status_ = status;
  tell<&NotifieeConst::onStatus>(statusId);
}

const Zan::ZanType* InterfaceInfo::fwkType() const {
  static const Zan::ZanType type("Routing::Multicast::Rib::InterfaceInfo", Entity::fwkType());
  return &type;
}

std::string_view InterfaceInfo::attributeName(Zan::AttributeId attribute) const {
  switch (attribute) {
    case ipStatusId:
      return "ipStatus";
    case configId:
      return "config";
    case statusId:
      return "status";
    default:
      return Entity::attributeName(attribute);
  }
}

}  // namespace Routing::Multicast::Rib
