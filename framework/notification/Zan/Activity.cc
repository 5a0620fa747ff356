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

ActivitySm::~ActivitySm() = default;

void ActivitySm::push(std::unique_ptr<PendingNotification> pending) {
  if (!queued_.insert(pending.get()).second) return;
  pending->notifiee()->zan_bitSetIs(U32{1} << pending->attribute() % 32);
  queue_.push_back(std::move(pending));
}

U32 ActivitySm::run() {
  const Ptr<ActivitySm> pin(this);
  U32 delivered = 0;
  while (!queue_.empty()) {
    const auto pending = std::move(queue_.front());
    queue_.pop_front();
    queued_.erase(pending.get());
    if (!pending->notifiee()->hears(pending->notifier())) continue;
    pending->call();
    pending->notifiee()->handleNotification(config_);
    ++delivered;
  }
  return delivered;
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
