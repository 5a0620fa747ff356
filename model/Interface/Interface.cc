#include "Interface/AllIntfConfigDir.h"
#include "Interface/AllIntfStatusDir.h"
#include "Zan/ZanType.h"

namespace Interface {

void IntfStatus::zanLeft() {
  if (isHeld()) static_cast<AllIntfStatusDir*>(parent())->intfStatusLeft(*this);
}

const Zan::ZanType* IntfStatus::fwkType() const {
  static const Zan::ZanType type("Interface::IntfStatus", Entity::fwkType());
  return &type;
}

AllIntfStatusDir::~AllIntfStatusDir() = default;

Zan::HashMap<IntfStatus, Lumo::IntfId>::IteratorConst AllIntfStatusDir::intfStatusIterator() const {
  return intfStatus_.iterator();
}

Zan::Ptr<IntfStatus> AllIntfStatusDir::intfStatusIs(Lumo::IntfId id, const Zan::Name& name) {
  if (IntfStatus* existing = intfStatus_.lookup(id)) return Zan::Ptr<IntfStatus>(existing);
  auto member = Zan::create<IntfStatus>(id, name);
  member->zanHeldBy(this, intfStatusId);
  intfStatus_.insert(member);
  taps_.tell(id);
  tell<static_cast<void (NotifieeConst::*)(const Lumo::IntfId&)>(&NotifieeConst::onIntfStatus)>(intfStatusId,
                                                                                                id);
  return member;
}

void AllIntfStatusDir::intfStatusLeft(IntfStatus& member) {
  const Zan::Ptr<AllIntfStatusDir> pin(this);
  taps_.tell(member.intfId());
  member.tellLeaving();
  member.zanOrphaned();
  member.tellParent();
  tell<static_cast<void (NotifieeConst::*)(const Lumo::IntfId&)>(&NotifieeConst::onIntfStatus)>(
      intfStatusId, member.intfId());
}

void AllIntfStatusDir::intfStatusNotifyAll() const {
  tellAll<&NotifieeConst::onIntfStatuszanImmediate,
          static_cast<void (NotifieeConst::*)()>(&NotifieeConst::onIntfStatus)>(intfStatusId);
}

const Zan::ZanType* AllIntfStatusDir::fwkType() const {
  static const Zan::ZanType type("Interface::AllIntfStatusDir", Entity::fwkType());
  return &type;
}

std::string_view AllIntfStatusDir::attributeName(Zan::AttributeId attribute) const {
  return attribute == intfStatusId ? "intfStatus" : Entity::attributeName(attribute);
}

const Zan::ZanType* AllIntfConfigDir::fwkType() const {
  static const Zan::ZanType type("Interface::AllIntfConfigDir", Entity::fwkType());
  return &type;
}

}  // namespace Interface
