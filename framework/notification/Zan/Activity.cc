#include "Zan/Activity.h"

#include "Zan/Hash.h"

namespace Zan {

PendingNotification::PendingNotification(Ptr<PtrInterface::NotifieeConst> notifiee,
                                         Ptr<PtrInterface const> notifier, AttributeId attribute)
    : notifiee_(std::move(notifiee)), notifier_(std::move(notifier)), attribute_(attribute) {}

PendingNotification::~PendingNotification() = default;

std::size_t PendingNotification::hash() const {
  return mix(reinterpret_cast<std::uintptr_t>(notifiee_.get()), attribute_);
}

bool PendingNotification::operator==(const PendingNotification& other) const {
  return notifiee_ == other.notifiee_ && notifier_ == other.notifier_ && attribute_ == other.attribute_ &&
         kind() == other.kind() && sameKey(other);
}

void notificationFailed(PtrInterface::NotifieeConst& notifiee, AttributeId attribute) {
  try {
    notifiee.onNotificationException(attribute);
  } catch (...) {
    traceDroppedException("onNotificationException");
  }
}

void notificationFailed(PtrInterface::NotifieeConst& notifiee) {
  try {
    notifiee.onNotificationException();
  } catch (...) {
    traceDroppedException("onNotificationException");
  }
}

/// Notifiees that go with the queue may change what others hear of: nothing is queued any more then.
ActivitySm::~ActivitySm() {
  queue_.clear();
}

void ActivitySm::push(std::unique_ptr<PendingNotification> pending) {
  if (isDying()) return;
  const PendingNotification& added = *pending;
  queue_.push_back(std::move(pending));
  if (!queued_.insert(&added).second) return queue_.pop_back();
  ++references_[added.notifiee().get()];
  added.notifiee()->zan_bitSetIs(U32{1} << added.attribute() % 32);
}

U32 ActivitySm::run() {
  const Ptr<ActivitySm> pin(this);
  const Ptr<ActivityConfig> config(config_);
  U32 delivered = 0;
  while (!queue_.empty()) delivered += deliverNext(config.get());
  return delivered;
}

bool ActivitySm::deliverNext(ActivityConfig* config) {
  const auto pending = std::move(queue_.front());
  queue_.pop_front();
  queued_.erase(pending.get());
  PtrInterface::NotifieeConst& notifiee = *pending->notifiee();
  const bool isHeard = notifiee.references() > references_[&notifiee] && notifiee.hears(pending->notifier());
  if (isHeard) {
    pending->call();
    try {
      notifiee.handleNotification(config);
    } catch (...) {
      notificationFailed(notifiee);
    }
  }
  if (--references_[&notifiee] == 0) references_.erase(&notifiee);
  return isHeard;
}

ActivityConfig::~ActivityConfig() {
  if (sm_) sm_->config_ = nullptr;  // reactors may hold the state machine for longer
}

Ptr<ActivitySm> zanActivitySmFor(ActivityConfig* config) {
  if (!config) return nullptr;
  if (!config->sm_) config->sm_ = create<ActivitySm>(config);
  return config->sm_;
}

}  // namespace Zan
