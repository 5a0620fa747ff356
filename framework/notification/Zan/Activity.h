#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <tuple>
#include <unordered_set>

#include "Zan/Export.h"
#include "Zan/Notifiee.h"

namespace Zan {

class Entity;

template <class Member>
struct HandlerClass;
template <class Class, class... Args>
struct HandlerClass<void (Class::*)(Args...)> {
  using type = Class;
};

/// Tells a notifiee that what it has just been called for threw: an attribute, or what came behind all of
/// them. Called where the exception is caught; it goes no further, and neither does one that the notifiee
/// answers with, which is traced.
ZAN_EXPORT void notificationFailed(PtrInterface::NotifieeConst& notifiee, AttributeId attribute);
ZAN_EXPORT void notificationFailed(PtrInterface::NotifieeConst& notifiee);
/// How many notifications have failed on this thread for want of memory. Who makes changes can learn from it
/// that somebody who follows them has not got to the end.
ZAN_EXPORT U64 notificationsWithoutMemory();

/// Calls `Handler` on `notifiee`; what it throws is reported to the notifiee and goes no further.
template <auto Handler, class... Args>
void deliver(PtrInterface::NotifieeConst& notifiee, AttributeId attribute, const Args&... args) {
  using Class = typename HandlerClass<decltype(Handler)>::type;
  try {
    (static_cast<Class&>(notifiee).*Handler)(args...);
  } catch (...) {
    notificationFailed(notifiee, attribute);
  }
}

/// A reactor for which changes wait. They do not keep it alive: one that nobody else holds goes, and is not
/// called any more.
class ZAN_EXPORT WaitingNotifiee {
 public:
  /// The one of this reactor, which all that waits for it shares.
  static std::shared_ptr<WaitingNotifiee> of(PtrInterface::NotifieeConst& notifiee);
  /// The reactor is being destroyed.
  static void forget(const PtrInterface::NotifieeConst& notifiee);

  explicit WaitingNotifiee(PtrInterface::NotifieeConst& notifiee) : notifiee_(&notifiee) {}
  ~WaitingNotifiee();
  WaitingNotifiee(const WaitingNotifiee&) = delete;
  WaitingNotifiee& operator=(const WaitingNotifiee&) = delete;

  /// Null when it has gone.
  PtrInterface::NotifieeConst* get() const { return notifiee_; }

 private:
  PtrInterface::NotifieeConst* notifiee_;
};

/// A change that waits for its reactor. Two that are the same to the reactor are delivered once.
class ZAN_EXPORT PendingNotification {
 public:
  PendingNotification(PtrInterface::NotifieeConst& notifiee, Ptr<PtrInterface const> notifier,
                      AttributeId attribute);
  virtual ~PendingNotification();
  PendingNotification(const PendingNotification&) = delete;
  PendingNotification& operator=(const PendingNotification&) = delete;

  virtual void call(PtrInterface::NotifieeConst& notifiee) const = 0;
  virtual bool sameKey(const PendingNotification& other) const = 0;
  /// Tells apart what the type-erased comparison must not mix: one address per handler.
  virtual const void* kind() const = 0;

  /// Null when it has gone.
  PtrInterface::NotifieeConst* notifiee() const { return notifiee_->get(); }
  const PtrInterface* notifier() const { return notifier_.get(); }
  AttributeId attribute() const { return attribute_; }
  std::size_t hash() const;
  bool operator==(const PendingNotification& other) const;

 private:
  std::shared_ptr<WaitingNotifiee> notifiee_;
  Ptr<PtrInterface const> notifier_;
  AttributeId attribute_;
};

template <auto Handler, class... Args>
class PendingCall : public PendingNotification {
 public:
  PendingCall(PtrInterface::NotifieeConst& notifiee, Ptr<PtrInterface const> notifier, AttributeId attribute,
              const Args&... args)
      : PendingNotification(notifiee, std::move(notifier), attribute), args_(args...) {}

  void call(PtrInterface::NotifieeConst& notifiee) const override {
    std::apply([&](const Args&... a) { deliver<Handler>(notifiee, attribute(), a...); }, args_);
  }
  bool sameKey(const PendingNotification& other) const override {
    return args_ == static_cast<const PendingCall&>(other).args_;
  }
  const void* kind() const override { return &kindTag; }

 private:
  static constexpr char kindTag = 0;
  std::tuple<Args...> args_;
};

/// An activity: a queue of notifications that the host drains from its event loop. Changes of the same
/// attribute and key that meet in the queue are delivered once, at the place of the first. What is still
/// queued when the activity goes is dropped. Single-threaded.
class ZAN_EXPORT ActivitySm : public VFPtrInterface {
 public:
  explicit ActivitySm(ActivityConfig* config) : config_(config) {}
  ~ActivitySm() override;

  template <auto Handler, class... Args>
  void enqueue(const Ptr<PtrInterface::NotifieeConst>& notifiee, const Ptr<PtrInterface const>& notifier,
               AttributeId attribute, const Args&... args) {
    push(*notifiee, std::make_unique<PendingCall<Handler, Args...>>(*notifiee, notifier, attribute, args...));
  }
  /// Delivers what is queued, including what the handlers queue meanwhile, and returns how many handlers
  /// ran. A reactor that has gone when its turn comes, or no longer hears its notifier, is passed over. The
  /// activity and its configuration live to the end of the run.
  U32 run();
  U32 pending() const { return static_cast<U32>(queue_.size()); }

 private:
  friend class ActivityConfig;
  struct Hash {
    std::size_t operator()(const PendingNotification* p) const { return p->hash(); }
  };
  struct Same {
    bool operator()(const PendingNotification* a, const PendingNotification* b) const { return *a == *b; }
  };

  void push(PtrInterface::NotifieeConst& notifiee, std::unique_ptr<PendingNotification> pending);
  bool deliverNext(ActivityConfig* config);

  ActivityConfig* config_;
  std::deque<std::unique_ptr<PendingNotification>> queue_;
  std::unordered_set<const PendingNotification*, Hash, Same> queued_;
};

/// Names an activity. Its state machine is made on first use and lives as long as the configuration.
class ZAN_EXPORT ActivityConfig : public VFPtrInterface {
 public:
  explicit ActivityConfig(Name name) : name_(std::move(name)) {}
  ~ActivityConfig() override;

  const Name& name() const { return name_; }

 private:
  friend ZAN_EXPORT Ptr<ActivitySm> zanActivitySmFor(ActivityConfig* config);
  Name name_;
  Ptr<ActivitySm> sm_;
};

/// The activity of a configuration; null for null.
ZAN_EXPORT Ptr<ActivitySm> zanActivitySmFor(ActivityConfig* config);

}  // namespace Zan
