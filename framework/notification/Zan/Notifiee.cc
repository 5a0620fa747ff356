#include "Zan/Notifiee.h"

#include "Zan/Activity.h"
#include "Zan/Entity.h"

namespace Zan {

PtrInterface::NotifieeConst::~NotifieeConst() {
  if (flag(waitingFlag)) WaitingNotifiee::forget(*this);
  NotifieeConst::isRegisteredNotifieeIs(false);
}

Ptr<PtrInterface::NotifieeConst> PtrInterface::NotifieeConst::zanReactor() {
  return Ptr<NotifieeConst>(this);
}

PtrInterface::NotifieeConst* PtrInterface::NotifieeConst::zanRawReactor() {
  return this;
}

bool PtrInterface::NotifieeConst::isStreamAdapter() const {
  return false;
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee() || !notifier_) return;
  const auto& entity = static_cast<const Entity&>(*notifier_);  // notifierIs let nothing else in
  if (registered) {
    entity.notifiees().add(this);
  } else {
    entity.notifiees().remove(this);
  }
  flagIs(registeredFlag, registered);
}

void PtrInterface::NotifieeConst::zan_bitSetIs(U32) {}

Name PtrInterface::NotifieeConst::name() const {
  return notifier_ ? static_cast<const Entity&>(*notifier_).name() : Name();
}

void PtrInterface::NotifieeConst::notifierIs(const Ptr<PtrInterface const>& notifier) {
  if (notifier == notifier_) return;
  if (notifier && !dynamic_cast<const Entity*>(notifier.get())) {
    throwRangeException("notifier that is not an entity not allowed");
  }
  bindEntity(notifier);
}

void PtrInterface::NotifieeConst::bindEntity(Ptr<PtrInterface const> notifier) {
  const bool registered = isRegisteredNotifiee();
  if (registered) NotifieeConst::isRegisteredNotifieeIs(false);
  const Ptr<PtrInterface const> old = std::exchange(notifier_, std::move(notifier));  // may take this along
  if (registered) NotifieeConst::isRegisteredNotifieeIs(true);
}

void PtrInterface::NotifieeConst::handleNotification(ActivityConfig*) {}
void PtrInterface::NotifieeConst::handleDefault(ActivityConfig*, AttributeId, bool) {}

void PtrInterface::NotifieeConst::onAttribute(AttributeId) {
  onNotification();
}

void PtrInterface::NotifieeConst::onNotification() {}

void PtrInterface::NotifieeConst::onCollectionNotification(const String8&) {
  onNotification();
}

void PtrInterface::NotifieeConst::onNotificationException() {
  handleNotificationException();
}

void PtrInterface::NotifieeConst::onNotificationException(AttributeId attribute) {
  handleNotificationException(attribute);
}

void PtrInterface::NotifieeConst::handleNotificationException(AttributeId) {
  onNotificationException();
}

void PtrInterface::NotifieeConst::handleNotificationException() {}
void PtrInterface::NotifieeConst::onZeroReferences() {}

Ptr<ActivityConfig> PtrInterface::NotifieeConst::activityPtr() {
  return Ptr<ActivityConfig>(zanFwkActivity());
}

const ActivityConfig* PtrInterface::NotifieeConst::zanFwkActivity() const {
  return nullptr;
}

ActivityConfig* PtrInterface::NotifieeConst::zanFwkActivity() {
  return nullptr;
}

ActivitySm* PtrInterface::NotifieeConst::actsm() {
  return nullptr;
}

}  // namespace Zan
