#include "Zan/Activity.h"

#include <mutex>
#include <new>
#include <unordered_map>

#include "Zan/Hash.h"

namespace Zan {

namespace {

/// Of all activities, so that a reactor finds itself here when it goes.
struct Waiting {
  std::mutex lock;
  std::unordered_map<const PtrInterface::NotifieeConst*, std::weak_ptr<WaitingNotifiee>> all;
};
Waiting& waiting() {
  static auto* const made = new Waiting;  // never destroyed: reactors may go after everything here has
  return *made;
}

}  // namespace

std::shared_ptr<WaitingNotifiee> WaitingNotifiee::of(PtrInterface::NotifieeConst& notifiee) {
  const std::lock_guard guard(waiting().lock);
  std::weak_ptr<WaitingNotifiee>& known = waiting().all[&notifiee];
  auto found = known.lock();
  if (!found) {
    known = found = std::make_shared<WaitingNotifiee>(notifiee);
    notifiee.isWaitingIs(true);
  }
  return found;
}

void WaitingNotifiee::forget(const PtrInterface::NotifieeConst& notifiee) {
  const std::lock_guard guard(waiting().lock);
  const auto at = waiting().all.find(&notifiee);
  if (at == waiting().all.end()) return;
  if (const auto found = at->second.lock()) found->notifiee_ = nullptr;
  waiting().all.erase(at);
}

WaitingNotifiee::~WaitingNotifiee() {
  if (!notifiee_) return;
  const std::lock_guard guard(waiting().lock);
  notifiee_->isWaitingIs(false);
  waiting().all.erase(notifiee_);
}

PendingNotification::PendingNotification(PtrInterface::NotifieeConst& notifiee,
                                         Ptr<PtrInterface const> notifier, AttributeId attribute)
    : notifiee_(WaitingNotifiee::of(notifiee)), notifier_(std::move(notifier)), attribute_(attribute) {}

PendingNotification::~PendingNotification() = default;

std::size_t PendingNotification::hash() const {
  return mix(reinterpret_cast<std::uintptr_t>(notifiee_.get()), attribute_);
}

bool PendingNotification::operator==(const PendingNotification& other) const {
  return notifiee_ == other.notifiee_ && notifier_ == other.notifier_ && attribute_ == other.attribute_ &&
         kind() == other.kind() && sameKey(other);
}

namespace {

thread_local U64 withoutMemory = 0;

/// Of the exception that is being handled.
void countIfMemory() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    ++withoutMemory;
  } catch (...) {  // another one is the notifiee's own affair
  }
}

}  // namespace

U64 notificationsWithoutMemory() {
  return withoutMemory;
}

void notificationFailed(PtrInterface::NotifieeConst& notifiee, AttributeId attribute) {
  countIfMemory();
  try {
    notifiee.onNotificationException(attribute);
  } catch (...) {
    traceDroppedException("onNotificationException");
  }
}

void notificationFailed(PtrInterface::NotifieeConst& notifiee) {
  countIfMemory();
  try {
    notifiee.onNotificationException();
  } catch (...) {
    traceDroppedException("onNotificationException");
  }
}

/// What goes with the queue may change what others hear of: nothing is queued any more then.
ActivitySm::~ActivitySm() {
  queue_.clear();
}

void ActivitySm::push(PtrInterface::NotifieeConst& notifiee, std::unique_ptr<PendingNotification> pending) {
  if (isDying()) return;
  const AttributeId attribute = pending->attribute();
  queue_.push_back(std::move(pending));
  if (!queued_.insert(queue_.back().get()).second) return queue_.pop_back();
  notifiee.zan_bitSetIs(U32{1} << attribute % 32);
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
  const Ptr<PtrInterface::NotifieeConst> notifiee(pending->notifiee());
  if (!notifiee || !notifiee->hears(pending->notifier())) return false;
  pending->call(*notifiee);
  try {
    notifiee->handleNotification(config);
  } catch (...) {
    notificationFailed(*notifiee);
  }
  return true;
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
