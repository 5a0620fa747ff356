#pragma once

#include <optional>

#include "Lumo/IntfId.h"
#include "Lumo/IpAddr.h"
#include "Zan/Entity.h"
#include "Zan/Export.h"
#include "Zan/HashMap.h"
#include "Zan/Tap.h"

namespace Ip {

/// The IPv4 address of one interface.
class ZAN_EXPORT IntfAddr : public Zan::Entity, public Zan::HashMember<IntfAddr> {
 public:
  explicit IntfAddr(Lumo::IntfId intfId) : intfId_(intfId) {}

  Lumo::IntfId intfId() const { return intfId_; }
  Lumo::IntfId fwkKey() const { return intfId_; }
  Lumo::IpAddr addr() const { return addr_; }
  Zan::Name name() const override { return Zan::Name(intfId_.stringValue()); }
  void zanLeft();
  const Zan::ZanType* fwkType() const override;

 private:
  friend class Status;
  Lumo::IntfId intfId_;
  Lumo::IpAddr addr_;
};

/// An interface got an address, another one, or lost it. `before` is what it had, if anything.
struct AddressChange {
  Lumo::IntfId intf;
  std::optional<Lumo::IpAddr> before;
};

/// The interfaces' IPv4 addresses, by interface identifier.
class ZAN_EXPORT Status : public Zan::NamedEntity {
 public:
  class NotifieeConst;
  static constexpr Zan::AttributeId intfAddrId = 130;

  explicit Status(Zan::Name name) : NamedEntity(std::move(name)) {}
  ~Status() override;

  /// The entry of an interface, or null when it has no address. Owned by the status.
  IntfAddr* intfAddr(Lumo::IntfId id) const { return intfAddr_.lookup(id); }
  U32 intfAddrCount() const { return intfAddr_.size(); }
  Zan::HashMap<IntfAddr, Lumo::IntfId>::IteratorConst intfAddrIterator() const {
    return intfAddr_.iterator();
  }
  /// Gives an interface its address, or another one.
  void intfAddrIs(Lumo::IntfId id, Lumo::IpAddr addr);
  void intfAddrDel(Lumo::IntfId id) { intfAddr_.erase(id); }
  /// Tells the watchers that any address may have changed.
  void intfAddrNotifyAll() const;

  /// Every change of an interface's address.
  const Zan::Taps<AddressChange>& taps() const { return taps_; }

  const Zan::ZanType* fwkType() const override;
  std::string_view attributeName(Zan::AttributeId attribute) const override;

 private:
  friend class IntfAddr;
  void intfAddrLeft(IntfAddr& member);
  void tellIntfAddr(Lumo::IntfId id) const;

  Zan::HashMap<IntfAddr, Lumo::IntfId> intfAddr_;
  Zan::Taps<AddressChange> taps_;
};

class ZAN_EXPORT Status::NotifieeConst : public Zan::NotifieeOf<Status> {
 public:
  virtual void onIntfAddr(const Lumo::IntfId&) { onCollectionNotification(Zan::literal<"intfAddr">()); }
  virtual void onIntfAddrzanImmediate() { onCollectionNotification(Zan::literal<"intfAddr">()); }
  virtual void onIntfAddr() { onCollectionNotification(Zan::literal<"intfAddr">()); }
};

}  // namespace Ip
