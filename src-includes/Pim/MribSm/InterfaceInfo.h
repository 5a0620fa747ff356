#pragma once

#include "Interface/AllIntfConfigDir.h"
#include "Interface/AllIntfStatusDir.h"
#include "Ip/Status.h"
#include "Zan/Export.h"

namespace Routing::Multicast::Rib {

/// Bundles the three interface inputs of the MRIB. The agent makes it with `interfaceInfoFactory`, fills it
/// and may replace any of the three later; its notifiees hear of each replacement.
class ZAN_EXPORT InterfaceInfo : public Zan::Entity {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId ipStatusId = 130;
  static constexpr Zan::AttributeId configId = 131;
  static constexpr Zan::AttributeId statusId = 132;

  const Zan::Ptr<Ip::Status const>& ipStatus() const { return ipStatus_; }
  void ipStatusIs(const Zan::Ptr<Ip::Status const>& ipStatus);
  const Zan::Ptr<Interface::AllIntfConfigDir const>& config() const { return config_; }
  void configIs(const Zan::Ptr<Interface::AllIntfConfigDir const>& config);
  const Zan::Ptr<Interface::AllIntfStatusDir const>& status() const { return status_; }
  void statusIs(const Zan::Ptr<Interface::AllIntfStatusDir const>& status);

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  Zan::Ptr<Ip::Status const> ipStatus_;
  Zan::Ptr<Interface::AllIntfConfigDir const> config_;
  Zan::Ptr<Interface::AllIntfStatusDir const> status_;
};

/// The order of the handlers is part of the interface.
class ZAN_EXPORT InterfaceInfo::NotifieeConst : public Zan::NotifieeOf<InterfaceInfo> {
 public:
  virtual void onIpStatus() { onAttribute(ipStatusId); }
  virtual void onConfig() { onAttribute(configId); }
  virtual void onStatus() { onAttribute(statusId); }
};

/// Creates an interface info whose three attributes are null.
ZAN_EXPORT Zan::Ptr<InterfaceInfo> interfaceInfoFactory();

}  // namespace Routing::Multicast::Rib
