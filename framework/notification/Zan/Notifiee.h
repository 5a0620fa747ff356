#pragma once

#include "Zan/Export.h"
#include "Zan/Ptr.h"
#include "Zan/String8.h"

namespace Zan {

class ActivityConfig;
class ActivitySm;
class WaitingNotifiee;

/// Base of every reactor: an object that observes exactly one notifier. It holds a counted reference to its
/// notifier; the notifier knows it by a plain pointer, taken back when the reactor unregisters or dies.
/// It is born with delivery on; it hears something only while it is registered, active and no zombie.
/// A typed handler that is not overridden passes its attribute to the untyped ones below.
class ZAN_EXPORT PtrInterface::NotifieeConst : public VFPtrInterface {
 public:
  NotifieeConst() : VFPtrInterface(notificationActiveFlag) {}
  ~NotifieeConst() override;

  // The order of these virtual operations, after those of PtrInterface, is part of the interface.
  virtual Ptr<NotifieeConst> zanReactor();
  virtual NotifieeConst* zanRawReactor();
  virtual bool isStreamAdapter() const;
  /// Registers with the notifier, or unregisters. Without a notifier, nothing happens.
  virtual void isRegisteredNotifieeIs(bool registered);
  /// Told by an activity, as a set of bits, which attributes (by identifier modulo 32) have work queued.
  virtual void zan_bitSetIs(U32 bits);
  virtual Name name() const;
  /// Unbinds from the old notifier and binds to `notifier` (null leaves it unbound). A reactor that was
  /// registered is registered with the new notifier.
  virtual void notifierIs(const Ptr<PtrInterface const>& notifier);
  /// An activity calls this after it has delivered what was queued for this reactor.
  virtual void handleNotification(ActivityConfig* activity);
  /// What has no slot of its own: `leaving` true says that the watched entity is just leaving the collection
  /// `attribute` of its parent. It is still whole; the watchers of the collection hear of it afterwards.
  virtual void handleDefault(ActivityConfig* activity, AttributeId attribute, bool leaving);
  /// A scalar attribute changed and its own handler is not overridden.
  virtual void onAttribute(AttributeId attribute);
  virtual void onNotification();
  /// A collection attribute changed and its own handler is not overridden.
  virtual void onCollectionNotification(const String8& attribute);
  virtual void onNotificationException();
  /// A handler of this reactor threw while `attribute` was delivered (without an attribute:
  /// `handleNotification` did). The exception is still the current one (std::current_exception). Other
  /// notifiees are told of the change all the same, also when this throws in its turn.
  virtual void onNotificationException(AttributeId attribute);
  virtual void handleNotificationException(AttributeId attribute);
  virtual void handleNotificationException();
  /// The notifier was told that it has no references left (`zeroReferencesIs`). Whoever owns it says so
  /// when he lets go of it for good; the framework can't, since each of its notifiees holds a reference to
  /// it.
  virtual void onZeroReferences();
  virtual Ptr<ActivityConfig> activityPtr();
  virtual const ActivityConfig* zanFwkActivity() const;
  virtual ActivityConfig* zanFwkActivity();
  /// The activity that delivers to this reactor; null (the default) delivers at once.
  virtual ActivitySm* actsm();

  const PtrInterface* rawNotifier() const { return notifier_.get(); }
  bool isRegisteredNotifiee() const { return flag(registeredFlag); }
  /// Whether a change of `notifier` is to be delivered to this reactor now. While it is being destroyed it
  /// hears nothing any more.
  bool hears(const PtrInterface* notifier) const {
    constexpr U32 live = registeredFlag | notificationActiveFlag;
    return (countWord() & (live | zombieFlag | dyingFlag)) == live && notifier_.get() == notifier;
  }
  /// Whether this reactor has said that it has no handler for an attribute: it is not called for it then.
  bool ignores(AttributeId attribute) const {
    const AttributeId bit = attribute - firstOwnAttribute;
    return bit < 32 && (ignored_ >> bit & 1) != 0;
  }

 protected:
  /// For a type whose handlers of this attribute are the default ones: spares it their calls. The attribute
  /// is one of the first 32 of the notifier's own, else a range exception is thrown.
  void ignoresIs(AttributeId attribute) {
    const AttributeId bit = attribute - firstOwnAttribute;
    if (bit >= 32) throwRangeException("attribute that is not among the first 32 not allowed to be ignored");
    ignored_ |= U32{1} << bit;
  }
  /// `notifierIs` for a notifier that is known to be an entity.
  void bindEntity(Ptr<PtrInterface const> notifier);

 private:
  friend class WaitingNotifiee;
  void isWaitingIs(bool waiting) { flagIs(waitingFlag, waiting); }

  U32 ignored_ = 0;
  Ptr<PtrInterface const> notifier_;
};

}  // namespace Zan
