#include "Ip/Status.h"

#include "Zan/ZanType.h"

namespace Ip {

void IntfAddr::zanLeft() {
  if (isHeld()) static_cast<Status*>(parent())->intfAddrLeft(*this);
}

const Zan::ZanType* IntfAddr::fwkType() const {
  static const Zan::ZanType type("Ip::IntfAddr", Entity::fwkType());
  return &type;
}

Status::~Status() = default;

void Status::intfAddrIs(Lumo::IntfId id, Lumo::IpAddr addr) {
  Zan::Ptr<IntfAddr> member(intfAddr_.lookup(id));
  if (member && member->addr_ == addr) return;
  AddressChange change{id, std::nullopt};
  if (member) {
    change.before = member->addr_;
  } else {
    member = Zan::create<IntfAddr>(id);
    member->zanHeldBy(this, intfAddrId);
    intfAddr_.insert(member);
  }
  member->addr_ = addr;
  taps_.tell(change);
  tellIntfAddr(id);
}

void Status::intfAddrLeft(IntfAddr& member) {
  const Zan::Ptr<Status> pin(this);
  taps_.tell({member.intfId(), member.addr()});
  member.tellLeaving();
  member.zanOrphaned();
  member.tellParent();
  tellIntfAddr(member.intfId());
}

void Status::tellIntfAddr(Lumo::IntfId id) const {
  tell<static_cast<void (NotifieeConst::*)(const Lumo::IntfId&)>(&NotifieeConst::onIntfAddr)>(intfAddrId, id);
}

void Status::intfAddrNotifyAll() const {
  tellAll<&NotifieeConst::onIntfAddrzanImmediate,
          static_cast<void (NotifieeConst::*)()>(&NotifieeConst::onIntfAddr)>(intfAddrId);
}

const Zan::ZanType* Status::fwkType() const {
  static const Zan::ZanType type("Ip::Status", Entity::fwkType());
  return &type;
}

std::string_view Status::attributeName(Zan::AttributeId attribute) const {
  return attribute == intfAddrId ? "intfAddr" : Entity::attributeName(attribute);
}

}  // namespace Ip
